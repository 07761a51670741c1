// State machines: a class with its attributes and operations, a reactor class per watching attribute, and the wiring between them. The
// bodies of operations are written by hand; what is written here is only who calls them.
#include "EmitParts.h"

#include "Model.h"
#include "Names.h"

#include <algorithm>

namespace Kelc {

namespace {

using Strings = std::vector< std::string >;

bool isWatch( const Attr& attr ) { return attr.role == Role::watch; }
bool isReactorMap( const Attr& attr ) { return isWatch( attr ) && attr.shape.collection == Collection::map; }
bool isChildMap( const Attr& attr ) { return attr.shape.holding == Holding::child && attr.shape.isCollection(); }

// ` { a(); b(); }` or ` {}`.
std::string body( const std::string& calls ) { return calls.empty() ? " {}" : " { " + calls + "}"; }

std::string trimmed( std::string calls ) {
   while( calls.ends_with( ' ' ) ) calls.pop_back();
   return calls;
}

std::string fooOf( const Attr& attr ) { return attr.name.text; }
std::string mapOf( const Attr& attr ) { return upperFirst( attr.name.text ) + "Map_"; }
std::string followOf( const Attr& attr ) { return "kelFollow" + upperFirst( attr.name.text ); }
std::string keyParam( const Attr& attr ) { return paramType( *attr.shape.keyDecl ); }
std::string keyType( const Attr& attr ) { return cppType( *attr.shape.keyDecl ); }
std::string watchedPtr( const Attr& attr ) { return ptrType( *attr.shape.element.decl, attr.shape.isConst ); }

std::string mapType( const Attr& attr ) {
   if( isReactorMap( attr ) ) return "::Kel::ReactorMap< " + keyType( attr ) + ", " + reactorName( attr ) + " >";
   return ( attr.shape.ordered ? "::Kel::RbTreeMap< " : "::Kel::HashMap< " ) + keyType( attr ) + ", " + heldType( attr ) + " >";
}

const Attr* ownerOf( const Decl& decl ) {
   for( const auto& attr : decl.attrs ) {
      if( attr->role == Role::owner ) return attr.get();
   }
   return nullptr;
}

// A machine's own handlers of one event.
std::vector< const Handler* > handlersOf( const std::vector< Handler >& all, std::string_view event ) {
   std::vector< const Handler* > out;
   for( const Handler& h : all ) {
      if( h.event.text == event ) out.push_back( &h );
   }
   return out;
}

// What starts a machine: `on start`, or else the operation `handleInitialized()`.
std::string startCalls( const Decl& decl ) {
   std::string out;
   for( const Handler* h : handlersOf( decl.handlers, "start" ) ) out += h->op.text + "(); ";
   if( out.empty() && findOp( decl, "handleInitialized", 0 ) ) out = "handleInitialized(); ";
   return out;
}

std::string goneCalls( const Decl& decl ) {
   std::string out;
   for( const Handler* h : handlersOf( decl.handlers, "gone" ) ) out += h->op.text + "(); ";
   return out;
}

// What happens when one of the machine's own attributes has changed: reactors follow it, then its handlers run.
std::string changedCalls( const Decl& decl, const Attr& attr, const std::string& key ) {
   std::string out;
   for( const auto& other : decl.attrs ) {
      if( other->watch && other->watch->from == &attr && other->watch->fromMember.empty() ) out += followOf( *other ) + "( " + key + " ); ";
   }
   for( const Handler* h : handlersOf( decl.handlers, attr.name.text ) ) out += h->op.text + ( h->passesKey ? "( " + key + " ); " : "(); " );
   return out;
}

// Reactor maps that follow a collection of the entity that `watching` watches.
std::vector< const Attr* > followers( const Decl& decl, const Attr& watching ) {
   std::vector< const Attr* > out;
   for( const auto& other : decl.attrs ) {
      if( other->watch && other->watch->from && !other->watch->fromMember.empty() && other->watch->fromAttr.text == watching.name.text ) out.push_back( other.get() );
   }
   return out;
}

// The key of an entity in the collection that the reactors follow.
std::string keyOfEntity( const Attr& attr, const std::string& entity ) {
   const Attr& from = *attr.watch->from;
   const Attr* key = keyOf( *from.shape.element.decl );
   const std::string getter = from.shape.byAttr ? from.shape.by.text : key ? key->name.text : "name";
   return keyType( attr ) + "( " + entity + "->" + getter + "() )";
}

Strings declaredParameters( const Decl& decl ) {
   Strings out;
   for( const Attr* attr : constructorParameters( decl ) ) out.push_back( ( isWatch( *attr ) ? "const " + watchedPtr( *attr ) + "&" : heldParam( *attr ) ) + " " + attr->name.text );
   if( const Attr* owner = ownerOf( decl ) ) out.push_back( cppType( *owner->shape.element.decl ) + "* " + owner->name.text );
   return out;
}

Strings parameterNames( const Decl& decl ) {
   Strings out;
   for( const Attr* attr : constructorParameters( decl ) ) out.push_back( attr->name.text );
   if( const Attr* owner = ownerOf( decl ) ) out.push_back( owner->name.text );
   return out;
}

// --- the class

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
      w.line( "   " + slot + ".assign( key, v );" );
      if( const auto calls = changedCalls( decl, attr, "key" ); !calls.empty() ) w.line( "   " + trimmed( calls ) );
      w.line( "}" );
   } else {
      w.line( "void " + foo + "Is( " + keyParam( attr ) + " key, " + heldParam( attr ) + " v ) { " + slot + ".assign( key, v ); " + changedCalls( decl, attr, "key" ) + "}" );
   }
   w.line( type + " " + foo + "Del( " + keyParam( attr ) + " key );" );
   w.line( "void " + foo + "DelAll() { for( auto i = " + slot + ".iterator(); i; ++i ) " + foo + "Del( i.key() ); }" );
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
   if( attr.role == Role::owner ) w.line( cppType( *attr.shape.element.decl ) + "* " + fooOf( attr ) + "() const { return " + fooOf( attr ) + "_; }" );
   else if( attr.role == Role::derivedView ) w.line( heldReturn( attr ) + " " + fooOf( attr ) + "() const { return " + attr.viewOf.text + "()." + attr.viewMember.text + "(); }" );
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

bool isStored( const Attr& attr ) {
   return attr.role != Role::constant && attr.role != Role::derivedView && attr.role != Role::derivedByHand;
}

void members( Writer& w, const Decl& decl ) {
   for( const auto& attr : decl.attrs ) {
      const std::string slot = fooOf( *attr ) + "_";
      if( !isStored( *attr ) ) continue;
      if( attr->role == Role::owner ) w.line( cppType( *attr->shape.element.decl ) + "* " + slot + ";" );
      else if( attr->shape.isCollection() ) w.line( mapOf( *attr ) + " " + slot + ";" );
      else if( isWatch( *attr ) ) w.line( "::Kel::Ptr< " + reactorName( *attr ) + " > " + slot + ";" );
      else w.line( heldType( *attr ) + " " + slot + ( attr->shape.holding == Holding::value ? memberInit( *attr->shape.element.decl, attr->init ) : "" ) + ";" );
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
   if( !ownerOf( decl ) ) return;
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

std::string call( const Handler& h, bool inReactor ) {
   return std::string( h.inWatch && inReactor ? "" : "kelOwner_->" ) + h.op.text + ( h.passesKey ? "( key ); " : "(); " );
}

std::string watchCalls( const Attr& attr, const char* event ) {
   std::string out;
   for( const Handler* h : handlersOf( attr.watch->handlers, event ) ) out += call( *h, true );
   return out;
}

// The events that a reactor overrides: of collections that other reactors follow, and those that it handles. A key-less form that nobody
// handles by itself reads everything again, as at the start; a key that nobody handles by itself runs the key-less handlers.
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
   w.line( name + "( const ::Kel::Ptr< const " + entity + " >& notifier, " + machine + "* owner ) : NotifieeConst( notifier ), kelOwner_( owner ) {}" );
   w.line( machine + "* " + lowerFirst( machine ) + "() const { return kelOwner_; }" );
   w.line( "/// The watched entity; null once it has gone." );
   w.line( watchedPtr( attr ) + " " + fooOf( attr ) + "() const { return " + ( attr.shape.isConst ? "notifier()" : "const_cast< " + entity + "* >( notifier().ptr() )" ) + "; }" );
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
   w.blank();
   w.label( "private:" );
   if( !gone.empty() ) w.line( "void onZombie() override { kelGone(); }" );
   w.line( machine + "* kelOwner_;" );
   if( !gone.empty() ) w.line( "bool kelGone_ = false;" );
   for( const auto& inner : attr.watch->attrs ) w.line( heldType( *inner ) + " " + fooOf( *inner ) + "_" + ( inner->shape.holding == Holding::value ? memberInit( *inner->shape.element.decl, inner->init ) : "" ) + ";" );
   w.out();
   w.line( "};" );
}

// --- the source

std::string machineRow( const Decl& decl, const Attr& attr ) {
   const std::string name = localName( decl ), foo = fooOf( attr ), element = attr.shape.element.decl ? cppType( *attr.shape.element.decl ) : "";
   const std::string offset = "offsetof( " + name + ", " + foo + "_ )", quotedName = "( \"" + foo + "\", ";
   if( attr.role == Role::constant ) return constantRow( attr );
   if( !isStored( attr ) ) return "::Kel::derivedAttr< " + name + ", &" + name + "::" + foo + " >( \"" + foo + "\" )";
   if( attr.shape.isCollection() ) {
      return attr.shape.holding == Holding::value ? "::Kel::machineMapAttr< " + mapOf( attr ) + " >" + quotedName + offset + " )"
                                                  : "::Kel::reactorMapAttr< " + mapOf( attr ) + ", " + element + " >" + quotedName + offset + " )";
   }
   if( isWatch( attr ) ) return "::Kel::ptrAttr< " + element + " >" + quotedName + "::Kel::AttrKind::reactor, " + offset + ", 0 )";
   if( attr.shape.holding == Holding::ref ) return "::Kel::ptrAttr< " + element + " >" + quotedName + "::Kel::AttrKind::ref, " + offset + ", 0 )";
   return "::Kel::attr< " + rowType( *attr.shape.element.decl ) + " >" + quotedName + offset + ( rowExtra( *attr.shape.element.decl ).empty() ? "" : ", 0" + rowExtra( *attr.shape.element.decl ) ) + " )";
}

// Keys, values and references first, reactors then, maps of reactors last; the start is left to the owner of a machine that has one.
void constructor( Writer& w, const Decl& decl ) {
   Strings inits, baseArguments;
   if( decl.base.decl ) {
      if( decl.hasBaseArgs ) for( const Ident& arg : decl.baseArgs ) baseArguments.push_back( arg.text );
      else baseArguments = parameterNames( *decl.base.decl );
      inits.push_back( baseClass( decl ) + inParens( baseArguments ) );
   }
   std::vector< const Attr* > parameters = constructorParameters( decl );
   auto isGiven = [ & ]( const Attr* attr ) { return std::find( parameters.begin(), parameters.end(), attr ) != parameters.end(); };
   for( const auto& attr : decl.attrs ) {
      if( attr->role == Role::owner || ( isGiven( attr.get() ) && !isWatch( *attr ) ) ) inits.push_back( fooOf( *attr ) + "_( " + fooOf( *attr ) + " )" );
   }
   const std::string name = localName( decl );
   w.line( name + "::" + decl.name.text + inParens( declaredParameters( decl ) ) + ( inits.empty() ? "" : " : " + joined( inits ) ) + " {" );
   w.in();
   for( const auto& attr : decl.attrs ) {
      if( !isWatch( *attr ) || isReactorMap( *attr ) || !isGiven( attr.get() ) ) continue;
      w.line( "if( " + fooOf( *attr ) + " ) " + fooOf( *attr ) + "_ = new " + reactorName( *attr ) + "( " + fooOf( *attr ) + ", this );" );
   }
   for( const auto& attr : decl.attrs ) {
      if( isWatch( *attr ) && !isReactorMap( *attr ) && !watchCalls( *attr, "start" ).empty() && isGiven( attr.get() ) ) w.line( "if( " + fooOf( *attr ) + "_ ) " + fooOf( *attr ) + "_->kelStart();" );
   }
   for( const auto& attr : decl.attrs ) {
      if( isReactorMap( *attr ) ) w.line( followOf( *attr ) + "();" );
   }
   if( !ownerOf( decl ) && !startCalls( decl ).empty() ) w.line( trimmed( startCalls( decl ) ) );
   w.out();
   w.line( "}" );
}

void eachReactor( Writer& w, const Decl& decl, const std::string& action, bool withMachines ) {
   for( const auto& attr : decl.attrs ) {
      const std::string slot = fooOf( *attr ) + "_";
      if( isReactorMap( *attr ) || ( withMachines && isChildMap( *attr ) ) ) w.line( "for( auto i = " + slot + ".iterator(); i; ++i ) i.value()->" + action + ";" );
      else if( isWatch( *attr ) ) w.line( "if( " + slot + " ) " + slot + "->" + action + ";" );
   }
}

void destructor( Writer& w, const Decl& decl ) {
   w.line( localName( decl ) + "::~" + decl.name.text + "() {" );
   w.in();
   if( !goneCalls( decl ).empty() ) w.line( "kelGone();" );
   eachReactor( w, decl, "deactivate()", false );
   w.out();
   w.line( "}" );
}

void singleWatch( Writer& w, const Decl& decl, const Attr& attr ) {
   const std::string name = localName( decl ), foo = fooOf( attr ), slot = foo + "_", entity = watchedPtr( attr );
   w.line( entity + " " + name + "::" + foo + "() const { return " + slot + " ? " + slot + "->" + foo + "() : " + entity + "(); }" );
   w.line( "void " + name + "::" + foo + "Is( const " + entity + "& entity ) {" );
   w.in();
   w.line( "if( !entity ) nullRefused( \"" + foo + "\" );" );
   w.line( "if( " + foo + "() == entity ) return;" );
   w.line( "if( " + slot + " ) " + slot + "->kelGone(), " + slot + "->deactivate();" );
   w.line( slot + " = new " + reactorName( attr ) + "( entity, this );" );
   w.line( slot + "->hasNotificationActiveIs( hasNotificationActive() );" );
   w.line( slot + "->kelStart();" );
   for( const Attr* follower : followers( decl, attr ) ) w.line( followOf( *follower ) + "();" );
   w.out();
   w.line( "}" );
}

void reactorMap( Writer& w, const Decl& decl, const Attr& attr ) {
   const std::string name = localName( decl ), foo = fooOf( attr ), slot = foo + "_", reactor = "::Kel::Ptr< " + name + "::" + reactorName( attr ) + " >";
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
   w.line( "   return ::Kel::followEntity( " + slot + ", " + keyOfEntity( attr, "entity" ) + ", " + constPtr + "( entity ), this );" );
   w.line( "}" );
   w.line( "void " + name + "::" + foo + "Del( " + keyParam( attr ) + " key ) { ::Kel::unfollowEntity( " + slot + ", key ); }" );
   w.line( "void " + name + "::" + followOf( attr ) + "() {" );
   if( !own ) w.line( "   if( !" + holder + " ) return;" );
   w.line( "   ::Kel::followAll( " + access + member + "Map_(), " + slot + ", [ this ]( const auto& e ) { " + foo + "Is( e ); }, [ this ]( const auto& k ) { " + foo + "Del( k ); } );" );
   w.line( "}" );
   w.line( "void " + name + "::" + followOf( attr ) + "( " + keyParam( attr ) + " key ) {" );
   const std::string found = access + member + "( key )";
   w.line( "   if( const auto entity = " + ( own ? found : holder + " ? " + found + " : nullptr" ) + " ) " + foo + "Is( entity );" );
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
   if( isOwned ) w.line( "if( const auto machine = " + fooOf( attr ) + "( copy ) ) machine->kelGone();" );
   w.line( ( calls.empty() ? slot + ".erase( copy, &removed );" : "if( " + slot + ".erase( copy, &removed ) ) { " + calls + "}" ) );
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
      w.line( isFixed ? "   sameParameter( \"" + fooOf( *attr ) + "\", this->" + fooOf( *attr ) + "(), " + fooOf( *attr ) + " );" : "   static_cast< void >( " + fooOf( *attr ) + " );" );
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

void machineClass( Writer& w, const Decl& decl ) {
   const std::string name = decl.name.text;
   const auto parameters = declaredParameters( decl );
   w.doc( decl.doc );
   w.line( "class " + name + " : public " + baseClass( decl ) + " {" );
   w.in();
   w.label( "public:" );
   nestedClasses( w, decl );
   attrIndices( w, baseClass( decl ), rowNames( decl ) );
   for( const auto& attr : decl.attrs ) {
      if( isWatch( *attr ) ) w.line( "class " + reactorName( *attr ) + ";" );
   }
   for( const auto& attr : decl.attrs ) {
      if( attr->shape.isCollection() ) w.line( "using " + mapOf( *attr ) + " = " + mapType( *attr ) + ";" );
   }
   w.blank();
   w.line( ( parameters.size() == 1 ? "explicit " : "" ) + name + inParens( parameters ) + ";" );
   w.line( "~" + name + "() override;" );
   for( const auto& attr : decl.attrs ) accessors( w, decl, *attr );
   w.line( "void hasNotificationActiveIs( bool on ) override;" );
   opMembers( w, decl.ops );
   ownedFunctions( w, decl );
   typeMembers( w, decl );
   w.blank();
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
   w.line( "inline ::Kel::Ptr< " + name + " > " + name + "Is" + inParens( parameters ) + " { return " + factoryName( decl ) + inParens( parameterNames( decl ) ) + "; }" );
}

void machineObject( Writer& w, const Decl& decl ) {
   const std::string name = localName( decl ), base = baseClass( decl );
   Strings all;
   for( const auto& attr : decl.attrs ) {
      if( attr->role != Role::owner ) all.push_back( machineRow( decl, *attr ) );
   }
   for( const Op* op : reflectedOps( decl ) ) all.push_back( opRow( decl, *op ) );
   w.line( "// --- " + name );
   nestedObjects( w, decl );
   const bool hasRows = rows( w, decl, all );
   w.line( "constinit ::Kel::Type " + name + "::_Type{ { .qualifiedName = \"" + decl.qualifiedName() + "\", .code = _code, .size = sizeof( " + name + " )" + ( hasRows ? ", .attrs = attrs_" : "" ) + "," );
   w.line( "   .base = &" + base + "::_Type, .firstAttr = " + base + "::Attr_::count_, .wrap = &::Kel::makeGenericIf< " + name + " > } };" );
   constructor( w, decl );
   destructor( w, decl );
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
   w.blank();
}

}
