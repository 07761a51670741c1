// The source of an entity: its rows, its type object, its constructor and the bodies that are more than a line.
#include "EntityParts.h"

#include <utility>

namespace Kelc {

using namespace Entities;

namespace {

// Constructor, from its name, key and parameters.
std::string constructorInit( const Decl& decl ) {
   Strings base, inits;
   if( const Decl* b = decl.base.decl ) {
      base = constructorArguments( *b );
   } else {
      const Attr* key = keyOf( decl );
      base.push_back( isNamed( decl ) ? nameType( decl ) == "::Kel::Name" ? "name" : "::Kel::Name( name )" :
                                        "::Kel::keyName( " + ( key ? key->name.text : "0" ) + " )" );
   }
   inits.push_back( baseClass( decl ) + inParens( base ) );
   for( const auto& attr : decl.attrs ) {
      if( attr->role == Role::key || attr->role == Role::param )
         inits.push_back( attr->name.text + "_( " + attr->name.text + " )" );
   }
   return joined( inits );
}

unsigned flags( const Decl& decl, const Attr& attr ) {
   const bool isParameter = attr.role == Role::key || attr.role == Role::param;
   unsigned out = 0;
   if( !attr.unlogged && !decl.unlogged ) out |= 0x01;
   if( notifies( attr ) ) out |= 0x02;
   if( isParameter ) out |= 0x04;
   if( isWritable( attr ) ) out |= 0x08;
   if( attr.shape.holding == Holding::ref && ( attr.shape.nonnull || attr.shape.byAttr ) ) out |= 0x20;
   return out;
}

std::string hex( unsigned v ) {
   return std::string( "0x" ) + "0123456789abcdef"[ v >> 4 & 15 ] + "0123456789abcdef"[ v & 15 ];
}

// 1 + the index of the attribute that keys a collection's own elements.
std::string keyIndex( const Member& m ) {
   if( !m.shape.byAttr || m.shape.holding != Holding::value ) return "";
   std::size_t n = 1;
   for( const auto& attr : m.shape.element.decl->attrs ) {
      if( attr.get() == m.shape.byAttr ) return ", " + std::to_string( n );
      ++n;
   }
   return "";
}

Strings entityRow( const Decl& decl, const Attr& attr ) {
   const Member m( attr );
   const std::string name = localName( decl ), quotedName = "( \"" + m.foo + "\", ",
                     offset = "offsetof( " + name + ", " + m.slot + " ), " + hex( flags( decl, attr ) );
   if( attr.role == Role::constant ) return { constantRow( attr ) };
   if( attr.role == Role::derivedView || attr.role == Role::derivedByHand )
      return { "::Kel::derivedAttr< " + name + ", &" + name + "::" + m.foo + " >( \"" + m.foo + "\" )" };
   const std::string element = cppType( *m.shape.element.decl );
   if( m.shape.collection == Collection::table ) {
      return { "::Plexo::tableAttr< " + name + "::" + m.map + " >" + quotedName + offset + keyIndex( m ) + " )",
               "::Plexo::controlAttr< " + name + "::" + m.map + " >( \"" + m.foo + "Control\" )" };
   }
   if( m.shape.collection == Collection::optional )
      return { "::Kel::ptrAttr< " + element + " >" + quotedName + "::Kel::AttrKind::child, " + offset + " )" };
   if( m.shape.isCollection() ) {
      const char* kind = m.shape.collection == Collection::queue ? "queue" :
                         m.shape.holding == Holding::child       ? "childMap" :
                         m.shape.holding == Holding::ref         ? "refMap" :
                                                                   "map";
      return { "::Kel::collectionAttr< " + m.map + " >" + quotedName + "::Kel::AttrKind::" + kind + ", " + offset +
               keyIndex( m ) + " )" };
   }
   if( m.shape.holding == Holding::ref )
      return { "::Kel::ptrAttr< " + element + " >" + quotedName + "::Kel::AttrKind::ref, " + offset + " )" };
   const std::string row = "::Kel::attr< " + rowType( *m.shape.element.decl ) + " >" + quotedName + offset +
                           rowExtra( *m.shape.element.decl ) + " )";
   if( !hasHandSetter( attr ) ) return { row };
   return { "::Kel::withSetter< " + name + ", " + element + ", &" + name + "::" + m.foo + "Is >( " + row + " )" };
}

void limitedSetter( Writer& w, const Decl& decl, const Attr& attr ) {
   const Member m( attr );
   const std::string value = expression( *m.shape.element.decl, attr.max );
   w.line( "void " + localName( decl ) + "::" + m.foo + "Is( " + heldParam( attr ) + " v ) {" );
   w.in();
   w.line( "if( v > " + value + ( attr.storeThenCheck ? " && v != " + m.slot : "" ) + " ) {" );
   if( attr.storeThenCheck ) w.line( "   " + m.slot + " = v;" );
   w.line( "   throw ::Kel::RangeException( " + cppText( limitText( decl, attr ) ) + " );" );
   w.line( "}" );
   w.line( "set( " + setArguments( m ) + " );" );
   w.out();
   w.line( "}" );
}

void dispatchBody( Writer& w, const Decl& decl ) {
   const auto all = announced( decl );
   if( all.empty() ) return;
   w.line( "void " + localName( decl ) + "::NotifieeConst::dispatch( const ::Kel::Change& change ) {" );
   w.in();
   w.line( "switch( change.attr ) {" );
   Strings scalars;
   for( const Attr* attr : all ) {
      const Member m( *attr );
      if( !m.shape.isCollection() ) scalars.push_back( "case " + m.index + ": return on" + m.upper + "();" );
   }
   w.filled( scalars, "" );
   for( const Attr* attr : all ) {
      const Member m( *attr );
      if( !m.shape.isCollection() ) continue;
      w.line( "case " + m.index + ": return on" + m.upper + "kelImmediate(), change.key ? on" + m.upper + "( *static_cast< const " + m.key +
              "* >( change.key ) ) : on" + m.upper + "();" );
   }
   w.line( "default: return " + baseClass( decl ) + "::NotifieeConst::dispatch( change );" );
   w.line( "}" );
   w.out();
   w.line( "}" );
}

}

std::string limitText( const Decl& decl, const Attr& attr ) {
   const std::string limit =
      attr.max.constant ? decl.name.text + "::" + attr.max.constant->name.text : std::to_string( attr.max.number );
   return decl.name.text + "::" + attr.name.text + " > " + limit + " not allowed";
}

std::string Entities::setArguments( const Member& m ) {
   return m.index + ", " + m.slot + ", v" + ( notifies( m.attr ) ? ", &NotifieeConst::on" + m.upper : "" );
}

std::vector< const Attr* > Entities::announced( const Decl& decl ) {
   std::vector< const Attr* > out;
   for( const auto& attr : decl.attrs ) {
      if( notifies( *attr ) && hasRow( *attr ) ) out.push_back( attr.get() );
   }
   return out;
}

void entityObject( Writer& w, const Decl& decl ) {
   const std::string name = localName( decl );
   Strings all;
   for( const auto& attr : decl.attrs ) {
      if( !hasRow( *attr ) ) continue;
      for( auto& row : entityRow( decl, *attr ) ) all.push_back( std::move( row ) );
   }
   Strings parameters;
   for( const Attr* attr : constructorParameters( decl ) ) parameters.push_back( heldType( *attr ) );
   typeObjectOf( w, decl, std::move( all ), isNamed( decl ) ? "namedInfo" : "entityInfo", parameters );
   w.line( name + "::" + name + inParens( constructorDeclaration( decl ) ) + " : " + constructorInit( decl ) + " {}" );
   for( const auto& attr : decl.attrs ) {
      if( hasHandSetter( *attr ) ) limitedSetter( w, decl, *attr );
   }
   dispatchBody( w, decl );
   w.line( ptrType( decl, false ) + " " + factoryName( decl ) + inParens( constructorDeclaration( decl ) ) + " { return " +
           ptrType( decl, false ) + "( new " + name + inParens( constructorArguments( decl ) ) + " ); }" );
}

}
