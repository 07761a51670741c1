// State machines: a class with its attributes and operations, and a reactor class per watching attribute. The bodies of
// operations are written by hand; what is written here is only who calls them.
#include "MachineParts.h"

#include "Model.h"
#include "Names.h"

#include <algorithm>

namespace Kelc {

using namespace Machines;

namespace {

void watchMembers( Writer& w, const Attr& attr ) {
   const std::string foo = fooOf( attr ), reactor = "::Kel::Ptr< " + reactorName( attr ) + " >", entity = watchedPtr( attr );
   if( !isReactorMap( attr ) ) {
      w.line( entity + " " + foo + "() const;" );
      w.line( "void " + foo + "Is( const " + entity + "& entity );" );
      return;
   }
   w.line( reactor + " " + foo + "( " + keyParam( attr ) + " key ) const;" );
   w.line( reactor + " " + foo + "Is( const " + entity + "& entity );" );
   w.line( "void " + foo + "Del( " + keyParam( attr ) + " key );" );
   w.line( "/// Does nothing: reactors have no notifiees." );
   w.line( "void " + foo + "Notify( " + keyParam( attr ) + " ) {}" );
   w.line( "::std::size_t " + foo + "Count() const { return " + foo + "_.size(); }" );
   w.line( mapOf( attr ) + "::ConstIterator " + foo + "IterConst() const { return " + foo + "_.iterator(); }" );
}

void childMembers( Writer& w, const Attr& attr ) {
   const Decl& child = *attr.shape.element.decl;
   const std::string foo = fooOf( attr ), type = heldType( attr );
   Strings parameters = declaredParameters( child ), names = parameterNames( child );
   if( ownerOf( child ) ) parameters.pop_back(), names.pop_back();
   w.line( type + " new" + upperFirst( foo ) + inParens( parameters ) + ";" );
   w.line( type + " " + foo + "Is" + inParens( parameters ) + " { return new" + upperFirst( foo ) + inParens( names ) + "; }" );
}

void mapMembers( Writer& w, const Decl& decl, const Attr& attr ) {
   const std::string foo = fooOf( attr ), slot = foo + "_", type = heldType( attr );
   const std::string absent = attr.shape.holding == Holding::value ? zero( *attr.shape.element.decl ) : type + "()";
   w.line( type + " " + foo + "( " + keyParam( attr ) + " key ) const {" );
   w.line( "   const auto* found = " + slot + ".find( key );" );
   w.line( "   return found ? *found : " + absent + ";" );
   w.line( "}" );
   if( isChildMap( attr ) ) {
      childMembers( w, attr );
   } else if( attr.shape.byAttr ) {
      const bool isRef = attr.shape.holding == Holding::ref;
      w.line( "void " + foo + "Is( const " + type + "& v ) {" );
      if( isRef ) w.line( "   if( !v ) nullRefused( \"" + foo + "\" );" );
      w.line( "   const " + keyType( attr ) + " key( v" + ( isRef ? "->" : "." ) + attr.shape.by.text + "() );" );
      const auto calls = changedCalls( decl, attr, "key" );
      if( isRef && !calls.empty() ) w.line( "   const " + type + " replaced = " + foo + "( key );   // which its reactor still reads" );
      w.line( "   " + slot + ".assign( key, v );" );
      if( !calls.empty() ) w.line( "   " + trimmed( calls ) );
      w.line( "}" );
   } else {
      w.line( "void " + foo + "Is( " + keyParam( attr ) + " key, " + heldParam( attr ) + " v ) { " + slot +
              ".assign( key, v ); " + changedCalls( decl, attr, "key" ) + "}" );
   }
   w.line( type + " " + foo + "Del( " + keyParam( attr ) + " key );" );
   w.line( "void " + foo + "DelAll() { const auto kept = kelKept(); for( auto i = " + slot + ".iterator(); i; ++i ) " + foo +
           "Del( i.key() ); }" );
   w.line( "::std::size_t " + foo + "Count() const { return " + slot + ".size(); }" );
   w.line( mapOf( attr ) + "::ConstIterator " + foo + "IterConst() const { return " + slot + ".iterator(); }" );
   w.line( "const " + mapOf( attr ) + "& " + foo + "Map_() const { return " + slot + "; }" );
}

void scalarMembers( Writer& w, const Decl& decl, const Attr& attr ) {
   const std::string foo = fooOf( attr ), slot = foo + "_";
   w.line( heldReturn( attr ) + " " + foo + "() const { return " + slot + "; }" );
   if( !isWritable( attr ) ) return;
   const std::string refuse = attr.shape.nonnull ? "if( !v ) nullRefused( \"" + foo + "\" ); " : "";
   const std::string calls = changedCalls( decl, attr, "" );
   const std::string setter = "virtual void " + foo + "Is( " + heldParam( attr ) + " v ) { " + refuse;
   if( calls.empty() ) w.line( setter + slot + " = v; }" );
   else w.line( setter + "if( " + slot + " == v ) return; " + slot + " = v; " + calls + "}" );
}

void accessors( Writer& w, const Decl& decl, const Attr& attr ) {
   if( attr.role == Role::constant ) return constantMember( w, attr );
   w.doc( attr.doc );
   if( isWatch( attr ) ) return watchMembers( w, attr );
   if( attr.role == Role::owner )
      w.line( cppType( *attr.shape.element.decl ) + "* " + fooOf( attr ) + "() const { return " + fooOf( attr ) + "_; }" );
   else if( attr.role == Role::derivedView )
      w.line( heldReturn( attr ) + " " + fooOf( attr ) + "() const { return " + attr.viewOf.text + "()." +
              attr.viewMember.text + "(); }" );
   else if( attr.role == Role::derivedByHand ) w.line( heldType( attr ) + " " + fooOf( attr ) + "() const;" );
   else if( attr.shape.isCollection() ) mapMembers( w, decl, attr );
   else scalarMembers( w, decl, attr );
}

Strings rowNames( const Decl& decl ) {
   Strings out;
   for( const auto& attr : decl.attrs ) {
      if( attr->role != Role::owner ) out.push_back( fooOf( *attr ) );
   }
   for( const Op* op : reflectedOps( decl ) ) out.push_back( op->name.text );
   return out;
}

void members( Writer& w, const Decl& decl ) {
   for( const auto& attr : decl.attrs ) {
      const std::string slot = fooOf( *attr ) + "_";
      if( !isStored( *attr ) ) continue;
      if( attr->role == Role::owner ) w.line( cppType( *attr->shape.element.decl ) + "* " + slot + ";" );
      else if( attr->shape.isCollection() ) w.line( mapOf( *attr ) + " " + slot + ";" );
      else if( isWatch( *attr ) ) w.line( "::Kel::Ptr< " + reactorName( *attr ) + " > " + slot + ";" );
      else
         w.line( heldType( *attr ) + " " + slot +
                 ( attr->shape.holding == Holding::value ? memberInit( *attr->shape.element.decl, attr->init ) : "" ) + ";" );
   }
   if( !goneCalls( decl ).empty() ) w.line( "bool kelGone_ = false;" );
}

void privateFunctions( Writer& w, const Decl& decl ) {
   for( const auto& attr : decl.attrs ) {
      if( !isReactorMap( *attr ) ) continue;
      w.line( "void " + followOf( *attr ) + "();" );
      w.line( "void " + followOf( *attr ) + "( " + keyParam( *attr ) + " key );" );
   }
}

// What an owner calls: after it has taken the machine in, before it lets it go, and when the same key is created again.
void ownedFunctions( Writer& w, const Decl& decl ) {
   const auto gone = goneCalls( decl );
   if( !ownerOf( decl ) && gone.empty() ) return;
   w.line( "/// Runs the machine's start and its end; called by its owner." );
   w.line( "void kelStart()" + body( startCalls( decl ) ) );
   w.line( gone.empty() ? "void kelGone() {}" : "void kelGone() { if( !::std::exchange( kelGone_, true ) ) { " + gone + "} }" );
   if( !gone.empty() ) w.line( "/// Whether its end has begun." ), w.line( "bool kelHasGone() const { return kelGone_; }" );
   if( !ownerOf( decl ) ) return;
   w.line( "/// Its owner lets it go: it ends, and reacts no more." );
   w.line( "void kelEnd();" );
   Strings parameters = declaredParameters( decl );
   parameters.pop_back();
   w.line( "void kelSameParameters" + inParens( parameters ) + " const;" );
}

// --- the reactors

struct Event {
   const Attr* attr;
   std::string all;     ///< calls for the key-less form, or for a scalar
   std::string keyed;   ///< calls for one key
};

// The events that a reactor overrides: of collections that other reactors follow, and those that it handles. A key-less form
// that nobody handles by itself reads everything again, as at the start; a key that nobody handles by itself runs the key-less
// handlers.
std::vector< Event > eventsOf( const Decl& decl, const Attr& watching ) {
   std::vector< Event > out;
   auto entry = [ & ]( const Attr* attr ) -> Event& {
      for( Event& e : out ) {
         if( e.attr == attr ) return e;
      }
      out.push_back( { attr, "", "" } );
      return out.back();
   };
   for( const Attr* follower : followers( decl, watching ) ) {
      entry( follower->watch->from ).all += "kelOwner_->" + followOf( *follower ) + "(); ";
      entry( follower->watch->from ).keyed += "kelOwner_->" + followOf( *follower ) + "( key ); ";
   }
   for( const Handler& h : watching.watch->handlers ) {
      if( h.attr ) entry( h.attr );
   }
   for( Event& e : out ) {
      std::string all, keyed;
      for( const Handler& h : watching.watch->handlers ) {
         if( h.attr == e.attr ) ( h.passesKey ? keyed : all ) += call( h, true );
      }
      if( all.empty() && !keyed.empty() ) e.all += watchCalls( watching, "start" );
      e.all += all;
      e.keyed += keyed.empty() ? all : keyed;
   }
   return out;
}

void reactorEvents( Writer& w, const Decl& decl, const Attr& attr ) {
   for( const Event& e : eventsOf( decl, attr ) ) {
      const std::string on = "void on" + upperFirst( e.attr->name.text );
      w.line( on + "() override" + body( e.all ) );
      if( !e.attr->shape.isCollection() ) continue;
      const bool usesKey = e.keyed.find( "( key )" ) != std::string::npos;
      w.line( on + "( " + paramType( *e.attr->shape.keyDecl ) + ( usesKey ? " key" : "" ) + " ) override" + body( e.keyed ) );
   }
}

void reactorClass( Writer& w, const Decl& decl, const Attr& attr ) {
   const std::string name = reactorName( attr ), machine = decl.name.text, entity = cppType( *attr.shape.element.decl );
   const std::string gone = watchCalls( attr, "gone" );
   w.blank();
   w.line( "class " + machine + "::" + name + " : public " + entity + "::NotifieeConst {" );
   w.in();
   w.label( "public:" );
   w.line( name + "( const ::Kel::Ptr< const " + entity + " >& notifier, " + machine +
           "* owner ) : NotifieeConst( notifier ), kelOwner_( owner ) {}" );
   w.line( machine + "* " + lowerFirst( machine ) + "() const { return kelOwner_; }" );
   w.line( "/// The watched entity; null once it has gone." );
   w.line( watchedPtr( attr ) + " " + fooOf( attr ) + "() const { return " +
           ( attr.shape.isConst ? "notifier()" : "const_cast< " + entity + "* >( notifier().ptr() )" ) + "; }" );
   for( const auto& inner : attr.watch->attrs ) {
      w.doc( inner->doc );
      w.line( heldReturn( *inner ) + " " + fooOf( *inner ) + "() const { return " + fooOf( *inner ) + "_; }" );
      w.line( "void " + fooOf( *inner ) + "Is( " + heldParam( *inner ) + " v ) { " + fooOf( *inner ) + "_ = v; }" );
   }
   opMembers( w, attr.watch->ops );
   reactorEvents( w, decl, attr );
   w.line( "/// Called by the machine when the reactor is in its place, and once before it goes." );
   w.line( "void kelStart()" + body( watchCalls( attr, "start" ) ) );
   w.line( gone.empty() ? "void kelGone() {}" : "void kelGone() { if( !::std::exchange( kelGone_, true ) ) { " + gone + "} }" );
   w.label( "private:" );
   // One that follows a collection of the machine's own goes with its entry there, whatever becomes of the entity elsewhere.
   const bool goesWithEntity = !attr.watch->from || !attr.watch->fromMember.empty();
   if( !gone.empty() && goesWithEntity ) w.line( "void onZombie() override { kelGone(); }" );
   w.line( machine + "* kelOwner_;" );
   if( !gone.empty() ) w.line( "bool kelGone_ = false;" );
   for( const auto& inner : attr.watch->attrs )
      w.line( heldType( *inner ) + " " + fooOf( *inner ) + "_" +
              ( inner->shape.holding == Holding::value ? memberInit( *inner->shape.element.decl, inner->init ) : "" ) + ";" );
   w.out();
   w.line( "};" );
}

}

void machineClass( Writer& w, const Decl& decl ) {
   const std::string name = decl.name.text;
   const auto parameters = declaredParameters( decl );
   openClass( w, decl, rowNames( decl ) );
   for( const auto& attr : decl.attrs ) {
      if( isWatch( *attr ) ) w.line( "class " + reactorName( *attr ) + ";" );
   }
   for( const auto& attr : decl.attrs ) {
      if( attr->shape.isCollection() ) w.line( "using " + mapOf( *attr ) + " = " + mapType( *attr ) + ";" );
   }
   w.line( ( parameters.size() == 1 ? "explicit " : "" ) + name + inParens( parameters ) + ";" );
   w.line( "~" + name + "() override;" );
   for( const auto& attr : decl.attrs ) accessors( w, decl, *attr );
   w.line( "void hasNotificationActiveIs( bool on ) override;" );
   opMembers( w, decl.ops );
   ownedFunctions( w, decl );
   typeMembers( w, decl );
   w.label( "private:" );
   privateFunctions( w, decl );
   if( !rowNames( decl ).empty() ) w.line( "static const ::Kel::Attr attrs_[];" );
   members( w, decl );
   w.out();
   w.line( "};" );
   for( const auto& attr : decl.attrs ) {
      if( isWatch( *attr ) ) reactorClass( w, decl, *attr );
   }
   w.line( "::Kel::Ptr< " + name + " > " + factoryName( decl ) + inParens( parameters ) + ";" );
   w.line( "inline ::Kel::Ptr< " + name + " > " + name + "Is" + inParens( parameters ) + " { return " + factoryName( decl ) +
           inParens( parameterNames( decl ) ) + "; }" );
}

}
