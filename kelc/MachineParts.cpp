#include "MachineParts.h"

#include "Model.h"
#include "Names.h"

#include <algorithm>

namespace Kelc::Machines {

bool isWatch( const Attr& attr ) { return attr.role == Role::watch; }
bool isReactorMap( const Attr& attr ) { return isWatch( attr ) && attr.shape.collection == Collection::map; }
bool isChildMap( const Attr& attr ) { return attr.shape.holding == Holding::child && attr.shape.isCollection(); }

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

std::vector< const Handler* > handlersOf( const std::vector< Handler >& all, std::string_view event ) {
   std::vector< const Handler* > out;
   for( const Handler& h : all ) {
      if( h.event.text == event ) out.push_back( &h );
   }
   return out;
}

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

std::string changedCalls( const Decl& decl, const Attr& attr, const std::string& key ) {
   std::string out;
   for( const auto& other : decl.attrs ) {
      if( other->watch && other->watch->from == &attr && other->watch->fromMember.empty() )
         out += followOf( *other ) + "( " + key + " ); ";
   }
   for( const Handler* h : handlersOf( decl.handlers, attr.name.text ) )
      out += h->op.text + ( h->passesKey ? "( " + key + " ); " : "(); " );
   return out;
}

std::vector< const Attr* > followers( const Decl& decl, const Attr& watching ) {
   std::vector< const Attr* > out;
   for( const auto& other : decl.attrs ) {
      if( other->watch && other->watch->from && !other->watch->fromMember.empty() &&
          other->watch->fromAttr.text == watching.name.text )
         out.push_back( other.get() );
   }
   return out;
}

std::string keyOfEntity( const Attr& attr, const std::string& entity ) {
   const Attr& from = *attr.watch->from;
   const Attr* key = keyOf( *from.shape.element.decl );
   const std::string getter = from.shape.byAttr ? from.shape.by.text : key ? key->name.text : "name";
   return keyType( attr ) + "( " + entity + "->" + getter + "() )";
}

Strings declaredParameters( const Decl& decl ) {
   Strings out;
   for( const Attr* attr : constructorParameters( decl ) )
      out.push_back( ( isWatch( *attr ) ? "const " + watchedPtr( *attr ) + "&" : heldParam( *attr ) ) + " " + attr->name.text );
   if( const Attr* owner = ownerOf( decl ) ) out.push_back( cppType( *owner->shape.element.decl ) + "* " + owner->name.text );
   return out;
}

Strings parameterNames( const Decl& decl ) {
   Strings out;
   for( const Attr* attr : constructorParameters( decl ) ) out.push_back( attr->name.text );
   if( const Attr* owner = ownerOf( decl ) ) out.push_back( owner->name.text );
   return out;
}

bool isStored( const Attr& attr ) {
   return attr.role != Role::constant && attr.role != Role::derivedView && attr.role != Role::derivedByHand;
}

std::string call( const Handler& h, bool inReactor ) {
   return std::string( h.inWatch && inReactor ? "" : "kelOwner_->" ) + h.op.text + ( h.passesKey ? "( key ); " : "(); " );
}

std::string watchCalls( const Attr& attr, const char* event ) {
   std::string out;
   for( const Handler* h : handlersOf( attr.watch->handlers, event ) ) out += call( *h, true );
   return out;
}

}
