// The source of a state machine: its rows, its constructor and the wiring between what it watches and its reactors.
#include "MachineParts.h"

#include "Model.h"
#include "Names.h"

#include <algorithm>
#include <utility>

namespace Kelc {

using namespace Machines;

namespace {

std::string machineRow( const Decl& decl, const Attr& attr ) {
   const std::string name = localName( decl ), foo = fooOf( attr ),
                     element = attr.shape.element.decl ? cppType( *attr.shape.element.decl ) : "";
   const std::string offset = "offsetof( " + name + ", " + foo + "_ )", quotedName = "( \"" + foo + "\", ",
                     flags = attr.isParameter || attr.role == Role::key ? ", 0x04" : ", 0";
   if( attr.role == Role::constant ) return constantRow( attr );
   if( !isStored( attr ) ) return "::Kel::derivedAttr< " + name + ", &" + name + "::" + foo + " >( \"" + foo + "\" )";
   if( attr.shape.isCollection() ) {
      return attr.shape.holding == Holding::value ?
                "::Kel::machineMapAttr< " + mapOf( attr ) + " >" + quotedName + offset + " )" :
                "::Kel::reactorMapAttr< " + mapOf( attr ) + ", " + element + " >" + quotedName + offset + " )";
   }
   if( isWatch( attr ) )
      return "::Kel::ptrAttr< " + element + " >" + quotedName + "::Kel::AttrKind::reactor, " + offset + flags + " )";
   if( attr.shape.holding == Holding::ref )
      return "::Kel::ptrAttr< " + element + " >" + quotedName + "::Kel::AttrKind::ref, " + offset + flags + " )";
   return "::Kel::attr< " + rowType( *attr.shape.element.decl ) + " >" + quotedName + offset +
          flags + rowExtra( *attr.shape.element.decl ) + " )";
}

// Keys, values and references first, reactors then, maps of reactors last; the start is left to the owner of a machine that has
// one.
void constructor( Writer& w, const Decl& decl ) {
   Strings inits, baseArguments;
   if( decl.base.decl ) {
      if( decl.hasBaseArgs ) for( const Ident& arg : decl.baseArgs ) baseArguments.push_back( arg.text );
      else baseArguments = parameterNames( *decl.base.decl );
      inits.push_back( baseClass( decl ) + inParens( baseArguments ) );
   }
   std::vector< const Attr* > parameters = constructorParameters( decl );
   auto isGiven = [ & ]( const Attr* attr ) {
      return std::find( parameters.begin(), parameters.end(), attr ) != parameters.end();
   };
   for( const auto& attr : decl.attrs ) {
      if( attr->role == Role::owner || ( isGiven( attr.get() ) && !isWatch( *attr ) ) )
         inits.push_back( fooOf( *attr ) + "_( " + fooOf( *attr ) + " )" );
   }
   const std::string name = localName( decl );
   w.line( name + "::" + decl.name.text + inParens( declaredParameters( decl ) ) +
           ( inits.empty() ? "" : " : " + joined( inits ) ) + " {" );
   w.in();
   for( const auto& attr : decl.attrs ) {
      if( !isWatch( *attr ) || isReactorMap( *attr ) || !isGiven( attr.get() ) ) continue;
      w.line( "if( " + fooOf( *attr ) + " ) " + fooOf( *attr ) + "_ = new " + reactorName( *attr ) + "( " + fooOf( *attr ) +
              ", this );" );
   }
   for( const auto& attr : decl.attrs ) {
      if( isWatch( *attr ) && !isReactorMap( *attr ) && !watchCalls( *attr, "start" ).empty() && isGiven( attr.get() ) )
         w.line( "if( " + fooOf( *attr ) + "_ ) " + fooOf( *attr ) + "_->kelStart();" );
   }
   for( const auto& attr : decl.attrs ) {
      if( isReactorMap( *attr ) ) w.line( followOf( *attr ) + "();" );
   }
   if( !ownerOf( decl ) && !startCalls( decl ).empty() ) w.line( trimmed( startCalls( decl ) ) );
   w.out();
   w.line( "}" );
}

// A callback may drop the last other reference to the machine while there is work left to do.
constexpr char keepItself[] = "const auto kept = kelKept();";

void eachReactor( Writer& w, const Decl& decl, const std::string& action, bool withMachines ) {
   for( const auto& attr : decl.attrs ) {
      const std::string slot = fooOf( *attr ) + "_";
      if( isReactorMap( *attr ) || ( withMachines && isChildMap( *attr ) ) )
         w.line( "for( auto i = " + slot + ".iterator(); i; ++i ) i.value()->" + action + ";" );
      else if( isWatch( *attr ) ) w.line( "if( " + slot + " ) " + slot + "->" + action + ";" );
   }
}

void destructor( Writer& w, const Decl& decl ) {
   w.line( localName( decl ) + "::~" + decl.name.text + "() {" );
   w.in();
   if( !goneCalls( decl ).empty() ) w.line( "kelGone();" );
   for( const auto& attr : decl.attrs ) {
      if( isChildMap( *attr ) && ownerOf( *attr->shape.element.decl ) )
         w.line( "for( auto i = " + fooOf( *attr ) + "_.iterator(); i; ++i ) i.value()->kelEnd();" );
   }
   eachReactor( w, decl, "deactivate()", false );
   w.out();
   w.line( "}" );
}

void end( Writer& w, const Decl& decl ) {
   const Attr* owner = ownerOf( decl );
   if( !owner ) return;
   w.line( "void " + localName( decl ) + "::kelEnd() {" );
   w.in();
   w.line( "kelGone();" );
   eachReactor( w, decl, "deactivate()", false );
   w.line( fooOf( *owner ) + "_ = nullptr;" );
   w.out();
   w.line( "}" );
}

void singleWatch( Writer& w, const Decl& decl, const Attr& attr ) {
   const std::string name = localName( decl ), foo = fooOf( attr ), slot = foo + "_", entity = watchedPtr( attr );
   w.line( entity + " " + name + "::" + foo + "() const { return " + slot + " ? " + slot + "->" + foo + "() : " + entity +
           "(); }" );
   w.line( "void " + name + "::" + foo + "Is( const " + entity + "& entity ) {" );
   w.in();
   w.line( "if( !entity ) nullRefused( \"" + foo + "\" );" );
   w.line( "if( " + foo + "() == entity ) return;" );
   w.line( keepItself );
   w.line( "if( " + slot + " ) " + slot + "->kelGone(), " + slot + "->deactivate();" );
   w.line( slot + " = new " + reactorName( attr ) + "( entity, this );" );
   w.line( slot + "->hasNotificationActiveIs( hasNotificationActive() );" );
   w.line( slot + "->kelStart();" );
   for( const Attr* follower : followers( decl, attr ) ) w.line( followOf( *follower ) + "();" );
   w.out();
   w.line( "}" );
}

void reactorMap( Writer& w, const Decl& decl, const Attr& attr ) {
   const std::string name = localName( decl ), foo = fooOf( attr ), slot = foo + "_",
                     reactor = "::Kel::Ptr< " + name + "::" + reactorName( attr ) + " >";
   const Watch& watch = *attr.watch;
   const bool own = watch.fromMember.empty();
   const std::string holder = own ? "" : watch.fromAttr.text + "()", member = own ? watch.fromAttr.text : watch.fromMember.text;
   const std::string access = own ? "" : holder + "->";
   const std::string constPtr = "::Kel::Ptr< const " + cppType( *attr.shape.element.decl ) + " >";
   w.line( reactor + " " + name + "::" + foo + "( " + keyParam( attr ) + " key ) const {" );
   w.line( "   const auto* found = " + slot + ".find( key );" );
   w.line( "   return found ? *found : " + reactor + "();" );
   w.line( "}" );
   w.line( reactor + " " + name + "::" + foo + "Is( const " + watchedPtr( attr ) + "& entity ) {" );
   w.line( "   if( !entity ) nullRefused( \"" + foo + "\" );" );
   w.line( std::string( "   " ) + keepItself );
   w.line( "   return ::Kel::followEntity( " + slot + ", " + keyOfEntity( attr, "entity" ) + ", " + constPtr +
           "( entity ), this );" );
   w.line( "}" );
   w.line( "void " + name + "::" + foo + "Del( " + keyParam( attr ) + " key ) { ::Kel::unfollowEntity( " + slot + ", key ); }" );
   w.line( "void " + name + "::" + followOf( attr ) + "() {" );
   w.line( std::string( "   " ) + keepItself );
   if( !own ) {
      w.line( "   const auto from = " + holder + ";" );
      w.line( "   if( !from ) return;" );
   }
   w.line( "   ::Kel::followAll( " + std::string( own ? "" : "from->" ) + member + "Map_(), " + slot +
           ", [ this ]( const auto& e ) { " + foo + "Is( e ); }, [ this ]( const auto& k ) { " + foo + "Del( k ); } );" );
   w.line( "}" );
   w.line( "void " + name + "::" + followOf( attr ) + "( " + keyParam( attr ) + " key ) {" );
   const std::string found = access + member + "( key )";
   w.line( "   if( const auto entity = " + ( own ? found : holder + " ? " + found + " : nullptr" ) + " ) " + foo +
           "Is( entity );" );
   w.line( "   else " + foo + "Del( key );" );
   w.line( "}" );
}

void childMap( Writer& w, const Decl& decl, const Attr& attr ) {
   const Decl& child = *attr.shape.element.decl;
   const std::string name = localName( decl ), slot = fooOf( attr ) + "_", type = heldType( attr );
   Strings parameters = declaredParameters( child ), names = parameterNames( child ), arguments = names;
   if( ownerOf( child ) ) parameters.pop_back(), names.pop_back(), arguments.back() = "this";
   const std::string key = keyOf( child )->name.text;
   w.line( type + " " + name + "::new" + upperFirst( fooOf( attr ) ) + inParens( parameters ) + " {" );
   w.in();
   w.line( "if( const auto* existing = " + slot + ".find( " + key + " ) ) {" );
   if( ownerOf( child ) ) w.line( "   ( *existing )->kelSameParameters" + inParens( names ) + ";" );
   w.line( "   return *existing;" );
   w.line( "}" );
   w.line( type + " made( new " + cppType( child ) + inParens( arguments ) + " );" );
   w.line( slot + ".insert( " + key + ", made );" );
   if( ownerOf( child ) ) w.line( "made->kelStart();" );
   if( const auto calls = changedCalls( decl, attr, key ); !calls.empty() ) w.line( trimmed( calls ) );
   w.line( "return made;" );
   w.out();
   w.line( "}" );
}

void mapRemoval( Writer& w, const Decl& decl, const Attr& attr ) {
   const std::string name = localName( decl ), slot = fooOf( attr ) + "_", type = heldType( attr );
   const bool isOwned = isChildMap( attr ) && ownerOf( *attr.shape.element.decl );
   const std::string calls = changedCalls( decl, attr, "copy" );
   w.line( type + " " + name + "::" + fooOf( attr ) + "Del( " + keyParam( attr ) + " key ) {" );
   w.in();
   w.line( type + " removed{};" );
   w.line( "const " + keyType( attr ) + " copy( key );" );
   if( isOwned ) {
      w.line( keepItself );
      w.line( "if( const auto machine = " + fooOf( attr ) + "( copy ) ) machine->kelEnd();" );
   }
   w.line(
      ( calls.empty() ? slot + ".erase( copy, &removed );" : "if( " + slot + ".erase( copy, &removed ) ) { " + calls + "}" ) );
   w.line( "return removed;" );
   w.out();
   w.line( "}" );
}

void sameParameters( Writer& w, const Decl& decl ) {
   if( !ownerOf( decl ) ) return;
   Strings parameters = declaredParameters( decl ), checks;
   parameters.pop_back();
   w.line( "void " + localName( decl ) + "::kelSameParameters" + inParens( parameters ) + " const {" );
   for( const Attr* attr : constructorParameters( decl ) ) {
      const bool isFixed = attr->role != Role::key && !attr->paramVar;
      w.line( isFixed ?
                 "   sameParameter( \"" + fooOf( *attr ) + "\", this->" + fooOf( *attr ) + "(), " + fooOf( *attr ) + " );" :
                 "   static_cast< void >( " + fooOf( *attr ) + " );" );
   }
   w.line( "}" );
}

void factory( Writer& w, const Decl& decl ) {
   const std::string pointer = ptrType( decl, false );
   const std::string made = pointer + "( new " + localName( decl ) + inParens( parameterNames( decl ) ) + " )";
   w.line( pointer + " " + factoryName( decl ) + inParens( declaredParameters( decl ) ) + " {" );
   if( ownerOf( decl ) ) {
      w.line( "   " + pointer + " made = " + made + ";" );
      w.line( "   made->kelStart();" );
      w.line( "   return made;" );
   } else {
      w.line( "   return " + made + ";" );
   }
   w.line( "}" );
}

}

void machineObject( Writer& w, const Decl& decl ) {
   const std::string name = localName( decl ), base = baseClass( decl );
   Strings all;
   for( const auto& attr : decl.attrs ) {
      if( attr->role != Role::owner ) all.push_back( machineRow( decl, *attr ) );
   }
   typeObjectOf( w, decl, std::move( all ), "objectInfo" );
   constructor( w, decl );
   destructor( w, decl );
   end( w, decl );
   for( const auto& attr : decl.attrs ) {
      if( isReactorMap( *attr ) ) {
         reactorMap( w, decl, *attr );
      } else if( isWatch( *attr ) ) {
         singleWatch( w, decl, *attr );
      } else if( attr->shape.isCollection() && isStored( *attr ) ) {
         if( isChildMap( *attr ) ) childMap( w, decl, *attr );
         mapRemoval( w, decl, *attr );
      }
   }
   w.line( "void " + name + "::hasNotificationActiveIs( bool on ) {" );
   w.in();
   w.line( base + "::hasNotificationActiveIs( on );" );
   eachReactor( w, decl, "hasNotificationActiveIs( on )", true );
   w.out();
   w.line( "}" );
   sameParameters( w, decl );
   factory( w, decl );
}

}
