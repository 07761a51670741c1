// Entities: a class with typed accessors over one member per attribute, its notifiee class, and one row per attribute.
#include "EntityParts.h"

#include "Model.h"
#include "Names.h"

#include <algorithm>
#include <utility>

namespace Kelc {

using namespace Entities;

namespace {

std::string mapType( const Member& m ) {
   const std::string element = heldType( m.attr );
   if( m.shape.collection == Collection::queue ) return "::Kel::Queue< " + element + ", " + m.key + " >";
   if( m.shape.collection == Collection::table ) return "::Plexo::TableAttr< " + element + ", " + m.key + " >";
   return ( m.shape.ordered ? "::Kel::RbTreeMap< " : "::Kel::HashMap< " ) + m.key + ", " + element + " >";
}

// The expression for the key of a child that is created with the constructor's own arguments.
std::string childKey( const Decl& child ) {
   const Attr* key = keyOf( child );
   return key ? key->name.text : "name";
}

// What a collection hands to the constructor of its child: a child with a key gets the key's text as its name.
Strings childArguments( const Decl& child ) {
   Strings out = constructorArguments( child );
   if( isNamed( child ) && keyOf( child ) ) out.front() = "::Kel::keyName( " + childKey( child ) + " )";
   return out;
}

Strings childParameters( const Decl& child ) {
   Strings out = constructorDeclaration( child );
   if( isNamed( child ) && keyOf( child ) ) out.erase( out.begin() );
   return out;
}

Strings childParameterNames( const Decl& child ) {
   Strings out = constructorArguments( child );
   if( isNamed( child ) && keyOf( child ) ) out.erase( out.begin() );
   return out;
}

// The values that must be those of an existing child, by row.
std::string comparedParameters( const Decl& child ) {
   Strings out;
   for( const Attr* attr : constructorParameters( child ) ) out.push_back( "&" + attr->name.text );
   return out.empty() ? "{}" : "{ " + joined( out ) + " }";
}

std::string newChildCall( const Member& m, const Decl& child ) {
   Strings all{ m.index, m.slot, childKey( child ), comparedParameters( child ) };
   for( const auto& argument : childArguments( child ) ) all.push_back( argument );
   return "newChild< " + cppType( child ) + " >" + inParens( all );
}

// `newFoo( ... )` and `fooIs( ... )`. A virtual collection creates its children in one function that derived entities override.
void childCreators( Writer& w, const Member& m ) {
   const Decl& child = *m.shape.element.decl;
   const std::string type = heldType( m.attr ), parameters = inParens( childParameters( child ) ),
                     arguments = inParens( childParameterNames( child ) );
   if( m.attr.isVirtual ) {
      w.line( type + " new" + m.upper + parameters + " { return kelNew" + m.upper + arguments + "; }" );
      w.line( "virtual " + type + " kelNew" + m.upper + parameters + " { return " + newChildCall( m, child ) + "; }" );
   } else {
      w.line( type + " new" + m.upper + parameters + " { return " + newChildCall( m, child ) + "; }" );
   }
   w.line( type + " " + m.foo + "Is" + parameters + " { return new" + m.upper + arguments + "; }" );
}

void valueSetters( Writer& w, const Member& m ) {
   const std::string type = heldType( m.attr );
   const std::string set = m.shape.holding == Holding::ref && m.shape.nonnull ? "setRefIn( " : "setIn( ";
   if( m.shape.byAttr ) {
      const bool isRef = m.shape.holding == Holding::ref;
      const std::string check = isRef ? "if( !v ) nullRefused( " + m.index + " ); " : "";
      const std::string parameter = "const " + type + "& v";
      w.line( type + " " + m.foo + "Is( " + parameter + " ) { " + check + "return setIn( " + m.index + ", " + m.slot + ", " +
              m.key + "( v" + ( isRef ? "->" : "." ) + m.shape.by.text + "() ), v ); }" );
      w.line( type + " new" + m.upper + "( " + parameter + " ) { return " + m.foo + "Is( v ); }" );
      return;
   }
   const std::string parameters = "( " + m.keyParam + " key, " + heldParam( m.attr ) + " v )";
   w.line( type + " " + m.foo + "Is" + parameters + " { return " + set + m.index + ", " + m.slot + ", key, v ); }" );
   w.line( type + " new" + m.upper + parameters + " { return " + m.foo + "Is( key, v ); }" );
}

void queueSetters( Writer& w, const Member& m ) {
   const std::string v = heldParam( m.attr ) + " v";
   w.line( "void " + m.foo + "Is( " + m.keyParam + " key, " + v + " ) { setAt( " + m.index + ", " + m.slot + ", key, v ); }" );
   w.line( "void new" + m.upper + "( " + m.keyParam + " key, " + v + " ) { " + m.foo + "Is( key, v ); }" );
   w.line( "void " + m.foo + "Enq( " + v + " ) { enqIn( " + m.index + ", " + m.slot + ", v ); }" );
   w.line( heldType( m.attr ) + " " + m.foo + "Deq() { return deqFrom( " + m.index + ", " + m.slot + " ); }" );
}

std::string absent( const Member& m ) {
   return m.shape.holding == Holding::value ?
             zero( *m.shape.element.decl ) == "0" ? cppType( *m.shape.element.decl ) + "( 0 )" : zero( *m.shape.element.decl ) :
             heldType( m.attr ) + "()";
}

void collection( Writer& w, const Member& m ) {
   const std::string type = heldType( m.attr ), foo = m.foo, at = m.index + ", " + m.slot;
   w.line( type + " " + foo + "( " + m.keyParam + " key ) const { return at( " + m.slot + ", key, " + absent( m ) + " ); }" );
   if( m.shape.collection == Collection::queue ) queueSetters( w, m );
   else if( m.shape.holding == Holding::child ) childCreators( w, m );
   else valueSetters( w, m );
   w.line( type + " " + foo + "Del( " + m.keyParam + " key ) { return delFrom( " + at + ", key ); }" );
   w.line( type + " " + foo + "Del( const " + m.map + "::ConstIterator& at ) { return delAt( " + at + ", at ); }" );
   w.pair( "void " + foo + "DelAll() { delAll( " + at + " ); }", "void " + foo + "NotifyCollection() { attrNotify( " + m.index + " ); }" );
   w.line( "void " + foo + "Notify( " + m.keyParam + " key ) { attrNotify( " + m.index + ", &key ); }" );
   w.pair( "::std::size_t " + foo + "Count() const { return " + m.slot + ".size(); }",
           "const " + m.map + "& " + foo + "Map_() const { return " + m.slot + "; }" );
   w.line( m.map + "::Iterator " + foo + "Iter() { return " + m.slot + ".iterator(); }" );
   w.line( m.map + "::ConstIterator " + foo + "IterConst() const { return " + m.slot + ".iterator(); }" );
}

void table( Writer& w, const Member& m ) {
   const std::string type = cppType( *m.shape.element.decl ), foo = m.foo, slot = m.slot;
   w.line( type + " " + foo + "( " + m.keyParam + " key ) const { return " + slot + ".at( key ); }" );
   w.line( type + " " + foo + "Is( const " + type + "& v ) { return " + slot + ".is( v ); }" );
   w.line( type + " new" + m.upper + "( const " + type + "& v ) { return " + slot + ".insert( v ); }" );
   w.line( "/// Begins direct mode: a default record to fill in place." );
   w.line( type + "* " + foo + "Direct() { return " + slot + ".direct(); }" );
   w.line( type + " " + foo + "Commit( const " + type + "* v ) { return " + slot + ".commit( v ); }" );
   w.line( type + " " + foo + "Del( " + m.keyParam + " key ) { return " + slot + ".del( key ); }" );
   w.line( type + " " + foo + "Del( const " + m.map + "::Iterator& at ) { return " + slot + ".del( at ); }" );
   w.line( "void " + foo + "DelAll() { " + slot + ".delAll(); }" );
   w.line( "void " + foo + "Notify( " + m.keyParam + " key ) { attrNotify( " + m.index + ", &key ); }" );
   w.line( "void " + foo + "NotifyCollection() { attrNotify( " + m.index + " ); }" );
   w.line( "::std::size_t " + foo + "Count() const { return " + slot + ".size(); }" );
   w.line( m.map + "::Iterator " + foo + "Iter() const { return " + slot + ".iterator(); }" );
   w.line( m.map + "::Iterator " + foo + "IterConst() const { return " + slot + ".iterator(); }" );
   w.line( "/// The table's control handle, through which it is attached." );
   w.line( "::Plexo::TableControl& " + foo + "Control() const { return " + slot + ".control(); }" );
}

void optionalChild( Writer& w, const Member& m ) {
   const std::string type = heldType( m.attr ), name = nameType( *m.shape.element.decl );
   w.line( type + " " + m.foo + "() const { return " + m.slot + "; }" );
   w.line( type + " new" + m.upper + "( const " + name + "& name ) { return newOptional( " + m.index + ", " + m.slot +
           ", name ); }" );
   w.line( type + " " + m.foo + "Is( const " + name + "& name ) { return new" + m.upper + "( name ); }" );
   w.line( type + " " + m.foo + "Del() { return delOptional( " + m.index + ", " + m.slot + " ); }" );
}

// A derived entity's view of its base's collection: the same map, its children by their narrower type.
void narrowed( Writer& w, const Member& m, const Decl& decl ) {
   const Decl& child = *m.shape.element.decl;
   const Decl& wide = *m.attr.narrowed->shape.element.decl;
   const std::string type = heldType( m.attr ), wideType = ptrType( wide, false ), base = baseClass( decl );
   const std::string parameters = inParens( childParameters( child ) ), arguments = inParens( childParameterNames( child ) );
   auto cast = [ & ]( const std::string& call ) { return "::Kel::staticCast< " + cppType( child ) + " >( " + call + " )"; };
   w.line( type + " " + m.foo + "( " + m.keyParam + " key ) const { return " + cast( base + "::" + m.foo + "( key )" ) + "; }" );
   w.line( type + " new" + m.upper + parameters + " { return " + cast( base + "::new" + m.upper + arguments ) + "; }" );
   w.line( type + " " + m.foo + "Is" + parameters + " { return new" + m.upper + arguments + "; }" );
   w.line( type + " " + m.foo + "Del( " + m.keyParam + " key ) { return " + cast( base + "::" + m.foo + "Del( key )" ) + "; }" );
   w.line( "using " + base + "::" + m.foo + "Del;" );
   Strings call{ m.index, "this->kel" + m.upper + "()", childKey( child ), comparedParameters( child ) };
   for( const auto& argument : childArguments( child ) ) call.push_back( argument );
   w.line( wideType + " kelNew" + m.upper + parameters + " override { return newChild< " + cppType( child ) + " >" +
           inParens( call ) + "; }" );
}

void scalarAccessors( Writer& w, const Member& m ) {
   w.line( heldReturn( m.attr ) + " " + m.foo + "() const { return " + m.slot + "; }" );
   if( !isWritable( m.attr ) ) return;
   const std::string setter = "void " + m.foo + "Is( " + heldParam( m.attr ) + " v )";
   const std::string set = m.shape.holding == Holding::ref && m.shape.nonnull ? "setRef( " : "set( ";
   w.line( hasHandSetter( m.attr ) ? setter + ";" : setter + " { " + set + setArguments( m ) + " ); }" );
}

void accessors( Writer& w, const Decl& decl, const Attr& attr ) {
   const Member m( attr );
   if( attr.role == Role::constant ) return constantMember( w, attr );
   w.doc( attr.doc );
   if( attr.role == Role::derivedView )
      w.line( heldReturn( attr ) + " " + m.foo + "() const { return " + attr.viewOf.text + "()." + attr.viewMember.text +
              "(); }" );
   else if( attr.role == Role::derivedByHand ) w.line( heldType( attr ) + " " + m.foo + "() const;" );
   else if( attr.role == Role::narrow ) narrowed( w, m, decl );
   else if( m.shape.collection == Collection::table ) table( w, m );
   else if( m.shape.collection == Collection::optional ) optionalChild( w, m );
   else if( m.shape.isCollection() ) collection( w, m );
   else scalarAccessors( w, m );
}

void notifieeClass( Writer& w, const Decl& decl ) {
   const std::string base = "::Kel::NotifieeOf< " + decl.name.text + ", " + baseClass( decl ) + "::NotifieeConst >";
   const auto all = announced( decl );
   if( all.empty() ) return w.line( "class NotifieeConst : public " + base + " { using NotifieeOf::NotifieeOf; };" );
   w.line( "class NotifieeConst : public " + base + " {" );
   w.in();
   w.label( "public:" );
   w.line( "using NotifieeOf::NotifieeOf;" );
   Strings callbacks;
   for( const Attr* attr : all ) {
      const Member m( *attr );
      const std::string on = "virtual void on" + m.upper;
      callbacks.push_back( on + "() {}" );
      if( !m.shape.isCollection() ) continue;
      callbacks.push_back( on + "( " + m.keyParam + " ) {}" );
      callbacks.push_back( on + "kelImmediate() {}" );
   }
   w.filled( callbacks, "" );
   w.line( "void dispatch( const ::Kel::Change& change ) override;" );
   w.out();
   w.line( "};" );
}

Strings rowNames( const Decl& decl ) {
   Strings out;
   for( const auto& attr : decl.attrs ) {
      if( !hasRow( *attr ) ) continue;
      out.push_back( attr->name.text );
      if( attr->shape.collection == Collection::table ) out.push_back( attr->name.text + "Control" );
   }
   for( const Op* op : reflectedOps( decl ) ) out.push_back( op->name.text );
   return out;
}

void entityMembers( Writer& w, const Decl& decl ) {
   for( const auto& attr : decl.attrs ) {
      const Member m( *attr );
      const bool isStored = attr->role == Role::plain || attr->role == Role::key || attr->role == Role::param;
      if( !isStored ) continue;
      const Decl& type = *m.shape.element.decl;
      const bool isValue = m.shape.holding == Holding::value && m.shape.collection == Collection::none;
      if( m.shape.collection == Collection::table ) w.line( m.map + " " + m.slot + "{ *this, " + m.index + " };" );
      else if( m.shape.isCollection() ) w.line( m.map + " " + m.slot + ";" );
      else
         w.line( heldType( *attr ) + " " + m.slot +
                 ( isValue && attr->role == Role::plain ? memberInit( type, attr->init ) : "" ) + ";" );
   }
}

// Reflection and the attribute log create children by their rows, which are the base's.
void childTypes( Writer& w, const Decl& decl ) {
   std::string choice;
   for( const auto& attr : decl.attrs ) {
      if( attr->role == Role::narrow )
         choice += "attr == " + Member( *attr ).index + " ? " + typeObject( *attr->shape.element.decl ) + " : ";
   }
   if( !choice.empty() )
      w.line( "::Kel::Type& kelChildType( ::Kel::U16 attr ) const override { return " + choice + baseClass( decl ) +
              "::kelChildType( attr ); }" );
}

}

void entityClass( Writer& w, const Decl& decl ) {
   const std::string name = decl.name.text;
   const auto parameters = constructorDeclaration( decl );
   openClass( w, decl, rowNames( decl ) );
   for( const auto& attr : decl.attrs ) {
      if( attr->shape.isCollection() && hasRow( *attr ) )
         w.line( "using " + Member( *attr ).map + " = " + mapType( Member( *attr ) ) + ";" );
   }
   w.line( ( parameters.size() == 1 ? "explicit " : "" ) + name + inParens( parameters ) + ";" );
   for( const auto& attr : decl.attrs ) accessors( w, decl, *attr );
   opMembers( w, decl.ops );
   childTypes( w, decl );
   notifieeClass( w, decl );
   typeMembers( w, decl );
   bool isProtected = false;
   for( const auto& attr : decl.attrs ) {
      if( !attr->isVirtual ) continue;
      if( !std::exchange( isProtected, true ) ) w.label( "protected:" );
      w.line( Member( *attr ).map + "& kel" + upperFirst( attr->name.text ) + "() { return " + attr->name.text + "_; }" );
   }
   w.label( "private:" );
   if( !rowNames( decl ).empty() ) w.line( "static const ::Kel::Attr attrs_[];" );
   entityMembers( w, decl );
   w.out();
   w.line( "};" );
   w.line( "::Kel::Ptr< " + name + " > " + factoryName( decl ) + inParens( parameters ) + ";" );
}

}
