#include "Reflect.h"

#include <algorithm>
#include <bit>
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
   if( row.kind == AttrKind::control ) return out;
   if( row.kind == AttrKind::operation ) return out + " " + std::to_string( row.parameters );
   out += " : ";
   if( row.keyType ) {
      out += row.kind == AttrKind::queue ? "queue " : row.kind == AttrKind::table ? "table " : "map ";
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

void Maker::plain( TypeCode code, void* at ) {
   const auto put = [ at ]( auto v ) { std::memcpy( at, &v, sizeof v ); };
   switch( code ) {
   case TypeCode::boolean: return put( random_() % 2 == 1 );
   case TypeCode::u8:
   case TypeCode::s8: return put( static_cast< U8 >( number( 0, 0xff ) ) );
   case TypeCode::u16:
   case TypeCode::s16: return put( static_cast< U16 >( number( 0, 0xffff ) ) );
   case TypeCode::u32:
   case TypeCode::s32: return put( static_cast< U32 >( number( 0, 0xffffffff ) ) );
   case TypeCode::u64:
   case TypeCode::s64: return put( number( 0, ~U64( 0 ) ) );
   case TypeCode::f64: return put( std::ldexp( static_cast< double >( static_cast< S64 >( random_() ) ), static_cast< int >( random_() % 200 ) - 100 ) );
   case TypeCode::string8: *static_cast< String8* >( at ) = text( 20 ); return;
   // Exceptions tell names; a zero byte would end their text.
   case TypeCode::name: *static_cast< Name* >( at ) = String8( "n" + text( 20, 1 ) ); return;
   default: throw std::logic_error( "no plain type" );
   }
}

void Maker::scalar( const Kel::Type& type, void* at ) {
   const Attr& row = type.ownAttrs().front();
   void* member = static_cast< char* >( at ) + row.offset;
   const Bounds& bounds = type.info().bounds;
   if( !bounds.text ) return row.type->info().values->assign( member, value( *row.type )->object() );
   if( row.code == TypeCode::string8 ) *static_cast< String8* >( member ) = text( static_cast< std::size_t >( bounds.max ) );
   else parseWhole( type, at, std::to_string( number( static_cast< U64 >( bounds.min ), bounds.max ) ) );
}

If Maker::value( Kel::Type& type ) {
   Ptr< OwnedValueIf > made( new OwnedValueIf( type, nullptr, false ) );
   void* at = made->storage();
   LogOut bytes;
   if( type.code() == TypeCode::scalar ) {
      scalar( type, at );
   } else if( type.code() == TypeCode::composite ) {
      for( const Attr& row : type.ownAttrs() ) {
         if( row.kind == AttrKind::scalar ) row.type->info().values->assign( static_cast< char* >( at ) + row.offset, value( *row.type )->object() );
      }
   } else if( type.code() == TypeCode::enumeration ) {
      const auto all = type.info().enumerators;
      std::memcpy( at, &all[ random_() % all.size() ].value, sizeof( U32 ) );
   } else if( type.code() == TypeCode::external ) {
      // In the attribute log's form: an address is its bytes, an identifier two words.
      const bool isIp = type.qualifiedName() == "Quor::IpAddr";
      if( isIp ) bytes.u8( 4 );
      if( type.qualifiedName() == "Quor::IntfId" ) bytes.u64( number( 0, 0xffffffff ) ), bytes.u64( number( 0, 0xffffffff ) );
      else for( int n = isIp ? 4 : 6; n > 0; --n ) bytes.u8( static_cast< U8 >( number( 0, 255 ) ) );
      LogIn in( bytes.bytes() );
      read( type, at, in );
   } else {
      plain( type.code(), at );
   }
   return made;
}

If Maker::valueUnlike( Kel::Type& type, const void* other ) {
   for( ;; ) {
      If made = value( type );
      if( !type.info().values->equal( made->object(), other ) ) return made;
   }
}

Ifs Maker::parameters( const Kel::Type& type, const Kel::Type* keyType ) {
   Ifs out;
   if( type.info().takesName && ( !keyType || isName( *keyType ) ) ) out.push_back( value( BuiltIn::name ) );
   for( U16 i = 0; i < type.attrCount(); ++i ) {
      const Attr& row = type.attr( i );
      if( !row.has( Flags::constructorRole ) ) continue;
      out.push_back( row.kind == AttrKind::ref ? If() : value( *row.type ) );
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

Ptr< Entity > Maker::entity( const Kel::Type& type ) { return entity( type, parameters( type ) ); }

std::vector< std::string > PerModule::names() {
   std::vector< std::string > out;
   for( const Module& m : modules() ) out.push_back( m.name );
   return out;
}

const Module& PerModule::module() const {
   return *std::find_if( modules().begin(), modules().end(), [ this ]( const Module& m ) { return m.name == GetParam(); } );
}

}
