#include <kel/LogStream.h>
#include <kel/Type.h>

#include <algorithm>

namespace Kel {

void LogOut::grow( std::size_t size ) {
   const std::size_t used = this->size();
   const std::size_t capacity = std::max( std::size_t( 256 ), std::max( used + size + 8, used * 2 ) );
   std::unique_ptr< U8[] > bigger( new U8[ capacity ] );
   if( used ) std::memcpy( bigger.get(), begin_.get(), used );
   begin_ = std::move( bigger );
   at_ = begin_.get() + used;
   end_ = begin_.get() + capacity;
}

void LogIn::premature() { throw RangeException( "premature end of attribute log" ); }

void LogIn::tooWide() { throw RangeException( "number in attribute log is too wide or not in its shortest form" ); }

bool LogIn::boolean() {
   const U8 v = u8();
   if( v > 1 ) throw RangeException( "boolean in attribute log is neither 0 nor 1" );
   return v == 1;
}

U64 LogIn::prefixed() {
   const auto extra = static_cast< unsigned >( std::countl_one( *at_ ) );
   need( extra + 1 );
   U64 v = extra < 7 ? *at_ & ( 0x7fu >> extra ) : 0;
   for( unsigned i = 1; i <= extra; ++i ) v = v << 8 | at_[ i ];
   at_ += extra + 1;
   if( extra == 8 ? v >> 56 == 0 : v >> ( 7 * extra ) == 0 ) tooWide();
   return v;
}

namespace {

void checkBounds( const Type& type, U64 v ) {
   const Bounds& b = type.info().bounds;
   if( b.text && ( v > b.max || ( b.min > 0 && v < static_cast< U64 >( b.min ) ) ) ) throw RangeException( b.text );
}

void checkBoundsSigned( const Type& type, S64 v ) {
   const Bounds& b = type.info().bounds;
   if( b.text && ( v < b.min || v > static_cast< S64 >( b.max ) ) ) throw RangeException( b.text );
}

template< class T >
void put( void* at, T v ) { *static_cast< T* >( at ) = v; }

template< class T >
T get( const void* at ) {
   T v;
   std::memcpy( &v, at, sizeof v );
   return v;
}

void writeAs( TypeCode code, const Type& type, const void* at, LogOut& out ) {
   switch( code ) {
   case TypeCode::boolean: return out.boolean( get< bool >( at ) );
   case TypeCode::u8:
   case TypeCode::s8: return out.u8( get< U8 >( at ) );
   case TypeCode::u16:
   case TypeCode::s16: return out.u16( get< U16 >( at ) );
   case TypeCode::u32:
   case TypeCode::enumeration: return out.u32( get< U32 >( at ) );
   case TypeCode::u64: return out.u64( get< U64 >( at ) );
   case TypeCode::s32: return out.s32( get< S32 >( at ) );
   case TypeCode::s64: return out.s64( get< S64 >( at ) );
   case TypeCode::f64: return out.f64( get< double >( at ) );
   case TypeCode::string8: return out.string( *static_cast< const String8* >( at ) );
   case TypeCode::name: return out.string( static_cast< const Name* >( at )->view() );
   case TypeCode::external: return type.info().external->write( at, out );
   case TypeCode::scalar:
   case TypeCode::composite:
      for( const Attr& row : type.ownAttrs() ) {
         if( row.kind == AttrKind::scalar ) writeAs( row.code, *row.type, static_cast< const char* >( at ) + row.offset, out );
      }
      return;
   case TypeCode::entity:
   case TypeCode::machine: throw InternalException( std::string( type.qualifiedName() ) + " is no value and can't be logged as one" );
   }
}

void readScalar( const Type& type, void* at, LogIn& in );

void readAs( TypeCode code, const Type& type, void* at, LogIn& in ) {
   switch( code ) {
   case TypeCode::boolean: return put( at, in.boolean() );
   case TypeCode::u8:
   case TypeCode::s8: return put( at, in.u8() );
   case TypeCode::u16:
   case TypeCode::s16: return put( at, in.u16() );
   case TypeCode::u32:
   case TypeCode::enumeration: return put( at, in.u32() );
   case TypeCode::u64: {
      const U64 v = in.u64();
      std::memcpy( at, &v, sizeof v );
      return;
   }
   case TypeCode::s32: return put( at, in.s32() );
   case TypeCode::s64: {
      const S64 v = in.s64();
      std::memcpy( at, &v, sizeof v );
      return;
   }
   case TypeCode::f64: {
      const double v = in.f64();
      std::memcpy( at, &v, sizeof v );
      return;
   }
   case TypeCode::string8: *static_cast< String8* >( at ) = String8( in.string() ); return;
   case TypeCode::name: *static_cast< Name* >( at ) = Name( in.string() ); return;
   case TypeCode::external: return type.info().external->read( at, in );
   case TypeCode::scalar: return readScalar( type, at, in );
   case TypeCode::composite:
      for( const Attr& row : type.ownAttrs() ) {
         if( row.kind == AttrKind::scalar ) readAs( row.code, *row.type, static_cast< char* >( at ) + row.offset, in );
      }
      return;
   case TypeCode::entity:
   case TypeCode::machine: throw InternalException( std::string( type.qualifiedName() ) + " is no value and can't be read as one" );
   }
}

// The bounds are checked before the value is stored, so that a refused number leaves it as it was.
void readScalar( const Type& type, void* at, LogIn& in ) {
   const Attr& row = type.ownAttrs().front();
   switch( row.code ) {
   case TypeCode::u8: {
      const U8 v = in.u8();
      checkBounds( type, v );
      return put( at, v );
   }
   case TypeCode::u16: {
      const U16 v = in.u16();
      checkBounds( type, v );
      return put( at, v );
   }
   case TypeCode::u32: {
      const U32 v = in.u32();
      checkBounds( type, v );
      return put( at, v );
   }
   case TypeCode::u64: {
      const U64 v = in.u64();
      checkBounds( type, v );
      std::memcpy( at, &v, sizeof v );
      return;
   }
   case TypeCode::s32: {
      const S32 v = in.s32();
      checkBoundsSigned( type, v );
      return put( at, v );
   }
   case TypeCode::s64: {
      const S64 v = in.s64();
      checkBoundsSigned( type, v );
      std::memcpy( at, &v, sizeof v );
      return;
   }
   case TypeCode::string8: {
      const std::string_view v = in.string();
      checkBounds( type, v.size() );
      *static_cast< String8* >( at ) = String8( v );
      return;
   }
   default: return readAs( row.code, *row.type, at, in );
   }
}

}

void write( const Type& type, const void* value, LogOut& out ) { writeAs( type.code(), type, value, out ); }

void read( const Type& type, void* value, LogIn& in ) { readAs( type.code(), type, value, in ); }

}
