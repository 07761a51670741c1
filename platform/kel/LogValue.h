#pragma once

#include <kel/LogStream.h>
#include <kel/Type.h>

// How values stand in the attribute log: their parts in order, nothing between them. A value type names its parts in `kelParts`;
// from that the compiler makes the code that writes and reads the value as a whole. Every other code goes through `Kel::write`
// and `Kel::read`, which find it by the type object.
namespace [[gnu::visibility("default")]] Kel {

namespace Detail {

template< class... T >
struct PartTypes {};
struct ListParts {
   template< class... T >
   PartTypes< T... > operator()( Part< T >... ) const;
};

/// The parts of `T`, in order; void for a type that is no such value.
template< class T >
struct PartsOf {
   using Types = void;
};
template< class T >
   requires requires( const T& v ) { v.kelParts( ListParts() ); }
struct PartsOf< T > {
   using Types = decltype( std::declval< const T& >().kelParts( ListParts() ) );
};

/// The most bytes that a `T` takes; 0 when there is no such number.
template< class T >
struct LogSize {
   static constexpr std::size_t of( void* ) {
      if constexpr( std::is_enum_v< T > ) return 5;
      else if constexpr( std::is_same_v< T, double > ) return 8;
      else if constexpr( std::is_integral_v< T > ) return sizeof( T ) > 2 ? sizeof( T ) + 1 : sizeof( T );
      else return 0;
   }
   template< class... P >
   static constexpr std::size_t of( PartTypes< P... >* ) {
      return ( ( LogSize< P >::value > 0 ) && ... ) ? ( LogSize< P >::value + ... + 0 ) : 0;
   }
   static constexpr std::size_t value = of( static_cast< typename PartsOf< T >::Types* >( nullptr ) );
};
template< std::size_t n >
struct LogSize< U8[ n ] > {
   static constexpr std::size_t value = n;
};

template< class T >
T load( const void* at ) {
   T v;
   std::memcpy( &v, at, sizeof v );
   return v;
}

/// Writes a value of a type with a `LogSize` and returns its end. As many bytes and 8 more may be written over.
template< class T >
U8* putPart( U8* to, Part< T > p ) {
   if constexpr( std::is_array_v< T > ) {
      std::memcpy( to, p.at, sizeof( T ) );
      return to + sizeof( T );
   } else if constexpr( std::is_enum_v< T > ) {
      return putPrefixed( to, load< U32 >( p.at ) );
   } else if constexpr( std::is_same_v< T, double > ) {
      return put( to, load< double >( p.at ) );
   } else if constexpr( std::is_integral_v< T > ) {
      const auto v = load< T >( p.at );
      if constexpr( sizeof( T ) == 1 ) return put( to, static_cast< U8 >( v ) );
      else if constexpr( sizeof( T ) == 2 ) return put( to, static_cast< U16 >( v ) );
      else if constexpr( std::is_signed_v< T > ) return putPrefixed( to, folded( v ) );
      else return putPrefixed( to, v );
   } else {
      static_cast< const T* >( p.at )->kelParts( [ &to ]( auto... parts ) { ( ( to = putPart( to, parts ) ), ... ); } );
      return to;
   }
}

template< class T >
inline constexpr bool hasParts = !std::is_void_v< typename PartsOf< T >::Types >;
template< class T >
inline constexpr bool isString = std::is_same_v< T, String8 > || std::is_same_v< T, Name >;

/// The one part of a scalar type.
template< class T >
T onlyPart( PartTypes< T >* );

template< class T >
void getPart( LogIn& in, Part< T > p ) {
   const auto store = [ p ]( auto v ) { std::memcpy( p.at, &v, sizeof v ); };
   if constexpr( std::is_array_v< T > ) std::memcpy( p.at, in.raw( sizeof( T ) ), sizeof( T ) );
   else if constexpr( std::is_same_v< T, bool > ) store( in.boolean() );
   else if constexpr( std::is_enum_v< T > || std::is_same_v< T, U32 > ) store( in.u32() );
   else if constexpr( std::is_same_v< T, double > ) store( in.f64() );
   else if constexpr( std::is_integral_v< T > && sizeof( T ) == 1 ) store( in.u8() );
   else if constexpr( std::is_integral_v< T > && sizeof( T ) == 2 ) store( in.u16() );
   else if constexpr( std::is_same_v< T, U64 > ) store( in.u64() );
   else if constexpr( std::is_same_v< T, S32 > ) store( in.s32() );
   else if constexpr( std::is_same_v< T, S64 > ) store( in.s64() );
   else if constexpr( isString< T > ) *static_cast< T* >( p.at ) = T( in.string() );
   else if constexpr( !hasParts< T > ) T::_Type.info().external->read( p.at, in );
   else if constexpr( T::_code == TypeCode::scalar ) {
      // Its constructor checks the range, and a value that is refused leaves the old one as it was.
      decltype( onlyPart( static_cast< typename PartsOf< T >::Types* >( nullptr ) ) ) v{};
      getPart( in, part( &v ) );
      *static_cast< T* >( p.at ) = T( v );
   } else {
      static_cast< const T* >( p.at )->kelParts( [ &in ]( auto... parts ) { ( getPart( in, parts ), ... ); } );
   }
}

}

/// Writes a value as the attribute log has it.
template< class T >
void logWrite( LogOut& out, Part< T > p ) {
   if constexpr( Detail::LogSize< T >::value > 0 )
      out.wrote( Detail::putPart( out.reserve( Detail::LogSize< T >::value + 8 ), p ) );
   else if constexpr( Detail::isString< T > ) out.string( static_cast< const T* >( p.at )->view() );
   else if constexpr( !Detail::hasParts< T > ) T::_Type.info().external->write( p.at, out );
   else static_cast< const T* >( p.at )->kelParts( [ &out ]( auto... parts ) { ( logWrite( out, parts ), ... ); } );
}

/// Reads a value. Throws `RangeException` on bytes that are no such value; it may then be changed in part. Flattened: in the source of a
/// large module the compiler would make a call of every part.
template< class T >
[[gnu::flatten]] void logRead( LogIn& in, Part< T > p ) {
   if constexpr( Detail::LogSize< T >::value > 0 ) {
      // From a copy of the place that nobody else sees, so that storing an attribute can't be taken for a change of it.
      LogIn from = in;
      Detail::getPart( from, p );
      in = from;
   } else {
      Detail::getPart( in, p );
   }
}

}
