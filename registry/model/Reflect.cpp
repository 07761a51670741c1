#include "Reflect.h"

#include <algorithm>
#include <cstring>
#include <kel/LogStream.h>

namespace Model {

using namespace Kel;
using Flags = KelAttrIntrospectionFlags;

Kel::Type& typeObject( const std::string& name ) {
   Kel::Type* type = TypeRegistry::instance().type( name );
   if( !type ) throw std::runtime_error( "the library has no type " + name );
   return *type;
}

namespace {

std::string roleOf( const Attr& row, const Kel::Type& owner ) {
   if( row.kind == AttrKind::control ) return row.has( Flags::nonInstantiating ) ? "control " : "instantiating control ";
   if( row.isConstant() ) return "const ";
   if( row.kind == AttrKind::derived ) return "derived ";
   if( row.kind == AttrKind::operation ) return "op ";
   if( row.has( Flags::constructorRole ) ) return row.has( Flags::writable ) ? "paramvar " : "param ";
   return owner.isEntity() && row.kind != AttrKind::child && !row.has( Flags::writable ) ? "readonly " : "";
}

std::string holdingOf( const Attr& row ) {
   switch( row.kind ) {
   case AttrKind::ref:
   case AttrKind::refMap: return row.has( Flags::nonNull ) ? "nonnull " : "ref ";
   case AttrKind::child: return "optional ";
   case AttrKind::childMap: return "child ";
   case AttrKind::reactor: return "watch ";
   default: return "";
   }
}

}

std::string lineOf( const Attr& row, const Kel::Type& owner ) {
   std::string out = roleOf( row, owner ) + row.name;
   if( row.kind == AttrKind::operation ) return out + " " + std::to_string( row.parameters );
   out += " : ";
   if( row.keyType ) {
      out += row.kind == AttrKind::queue ? "queue " : row.kind == AttrKind::table ? "table " : row.ordered ? "ordered " : "map ";
      out += std::string( row.keyType->qualifiedName() ) + " -> ";
   }
   out += holdingOf( row ) + std::string( row.type->qualifiedName() );
   return row.keyAttr ? out + " by " + row.type->attr( static_cast< U16 >( row.keyAttr - 1 ) ).name : out;
}

U64 Maker::number( U64 min, U64 max ) {
   // The ends and small numbers are where faults are.
   switch( random_() % 4 ) {
   case 0: return min;
   case 1: return max;
   case 2: max = std::min( max, min + 300 ); [[fallthrough]];
   default: return std::uniform_int_distribution< U64 >( min, max )( random_ );
   }
}

std::string Maker::text( std::size_t max, U8 min ) {
   std::string out;
   for( U64 size = number( 0, max ); out.size() < size; ) out += static_cast< char >( number( min, 255 ) );
   return out;
}

void Maker::plain( const Kel::Type& type, void* at ) {
   if( type.code() == TypeCode::string8 ) {
      *static_cast< String8* >( at ) = text( 20 );
   } else if( type.code() == TypeCode::name ) {
      *static_cast< Name* >( at ) = "n" + text( 20, 1 );   // exceptions tell names, and a zero byte would end their text
   } else if( type.code() == TypeCode::f64 ) {
      const auto digits = static_cast< double >( static_cast< S64 >( random_() ) );
      const double v = std::ldexp( digits, static_cast< int >( random_() % 200 ) - 100 );
      std::memcpy( at, &v, sizeof v );
   } else {
      const U64 v = number( 0, type.code() == TypeCode::boolean ? 1 : ~U64( 0 ) >> ( 64 - 8 * type.size() ) );
      std::memcpy( at, &v, type.size() );
   }
}

void Maker::scalar( const Kel::Type& type, void* at ) {
   const Attr& row = type.ownAttrs().front();
   const Bounds& bounds = type.info().bounds;
   void* member = static_cast< char* >( at ) + row.offset;
   if( !bounds.text ) row.type->info().values->assign( member, value( *row.type )->object() );
   else if( row.code == TypeCode::string8 ) *static_cast< String8* >( member ) = text( static_cast< std::size_t >( bounds.max ) );
   else parseWhole( type, at, std::to_string( number( static_cast< U64 >( bounds.min ), bounds.max ) ) );
}

// In the attribute log's form: an Ethernet address is its bytes, an IP address has its version before them, an identifier is two
// words.
void Maker::external( const Kel::Type& type, void* at ) {
   LogOut bytes;
   const bool isIp = type.qualifiedName() == "Quor::IpAddr";
   if( isIp ) bytes.u8( 4 );
   if( type.qualifiedName() == "Quor::IntfId" ) bytes.u64( number( 0, 0xffffffff ) ), bytes.u64( number( 0, 0xffffffff ) );
   else for( int n = isIp ? 4 : 6; n > 0; --n ) bytes.u8( static_cast< U8 >( number( 0, 255 ) ) );
   LogIn in( bytes.bytes() );
   read( type, at, in );
}

If Maker::value( Kel::Type& type ) {
   Ptr< OwnedValueIf > made( new OwnedValueIf( type, nullptr, false ) );
   char* at = static_cast< char* >( made->storage() );
   switch( type.code() ) {
   case TypeCode::scalar: scalar( type, at ); break;
   case TypeCode::external: external( type, at ); break;
   case TypeCode::enumeration: {
      const auto all = type.info().enumerators;
      std::memcpy( at, &all[ static_cast< std::size_t >( number( 0, all.size() - 1 ) ) ].value, sizeof( U32 ) );
      break;
   }
   case TypeCode::composite:
      for( const Attr& row : type.ownAttrs() ) {
         if( row.kind == AttrKind::scalar ) row.type->info().values->assign( at + row.offset, value( *row.type )->object() );
      }
      break;
   default: plain( type, at );
   }
   return made;
}

If Maker::valueUnlike( Kel::Type& type, const void* other ) {
   If made;
   do made = value( type );
   while( type.info().values->equal( made->object(), other ) );
   return made;
}

Ifs Maker::parameters( const Kel::Type& type, const Kel::Type* keyType ) {
   Ifs out;
   if( keyType ? isNamedByKey( type, *keyType ) : type.info().takesName ) out.push_back( value( BuiltIn::name ) );
   for( U16 i = 0; i < type.attrCount(); ++i ) {
      const Attr& row = type.attr( i );
      if( row.has( Flags::constructorRole ) ) out.push_back( row.kind == AttrKind::ref ? If() : value( *row.type ) );
   }
   return out;
}

std::vector< const GenericIf* > pointers( const Ifs& all ) {
   std::vector< const GenericIf* > out;
   for( const If& one : all ) out.push_back( one.ptr() );
   return out;
}

Ptr< Entity > Maker::entity( const Kel::Type& type, const Ifs& parameters ) {
   return TypeRegistry::instance().newEntity( type.qualifiedName(), pointers( parameters ) );
}

}
