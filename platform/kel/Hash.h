#pragma once

#include <array>
#include <bit>
#include <cstring>
#include <kel/Types.h>
#include <type_traits>

// 32-bit MurmurHash3, x86 variant (Austin Appleby, public domain, 2011), with seed 0 wherever none is given. It is the hash of
// every key that leaves a process, so it never changes.
namespace [[gnu::visibility("default")]] Kel {

/// MurmurHash3_x86_32 over `size` bytes.
U32 murmur3( const void* data, std::size_t size, U32 seed = 0 ) noexcept;

namespace Detail {

constexpr U32 murmurBlock( U32 k ) noexcept { return std::rotl( k * 0xcc9e2d51u, 15 ) * 0x1b873593u; }
constexpr U32 murmurMix( U32 h, U32 k ) noexcept { return std::rotl( h ^ murmurBlock( k ), 13 ) * 5 + 0xe6546b64u; }
constexpr U32 murmurFinal( U32 h, U32 size ) noexcept {
   h ^= size;
   h = ( h ^ ( h >> 16 ) ) * 0x85ebca6bu;
   h = ( h ^ ( h >> 13 ) ) * 0xc2b2ae35u;
   return h ^ ( h >> 16 );
}

}

/// The hash of two little-endian bytes.
constexpr U32 murmur3Of2( U16 v ) noexcept { return Detail::murmurFinal( Detail::murmurBlock( v ), 2 ); }
/// The hash of four little-endian bytes.
constexpr U32 murmur3Of4( U32 v ) noexcept { return Detail::murmurFinal( Detail::murmurMix( 0, v ), 4 ); }
/// The hash of six little-endian bytes: `low`, then `high`.
constexpr U32 murmur3Of6( U32 low, U16 high ) noexcept {
   return Detail::murmurFinal( Detail::murmurMix( 0, low ) ^ Detail::murmurBlock( high ), 6 );
}
/// The hash of eight little-endian bytes: `low`, then `high`.
constexpr U32 murmur3Of8( U32 low, U32 high ) noexcept {
   return Detail::murmurFinal( Detail::murmurMix( Detail::murmurMix( 0, low ), high ), 8 );
}

/// The hash of one plain attribute: an integer, a boolean or an enumeration by its little-endian bytes, a double likewise with
/// -0.0 taken as 0.0, any other type by its own `hash()`.
template< class T >
constexpr U32 hashOf( const T& v ) noexcept {
   if constexpr( std::is_enum_v< T > ) {
      return hashOf( static_cast< std::underlying_type_t< T > >( v ) );
   } else if constexpr( std::is_floating_point_v< T > ) {
      const U64 bits = std::bit_cast< U64 >( v == 0 ? 0.0 : double( v ) );
      return murmur3Of8( static_cast< U32 >( bits ), static_cast< U32 >( bits >> 32 ) );
   } else if constexpr( std::is_integral_v< T > ) {
      using Unsigned = std::make_unsigned_t< std::conditional_t< std::is_same_v< T, bool >, U8, T > >;
      const auto u = static_cast< Unsigned >( v );
      if constexpr( sizeof( T ) == 1 ) return Detail::murmurFinal( Detail::murmurBlock( u ), 1 );
      else if constexpr( sizeof( T ) == 2 ) return murmur3Of2( u );
      else if constexpr( sizeof( T ) == 4 ) return murmur3Of4( u );
      else return murmur3Of8( static_cast< U32 >( u ), static_cast< U32 >( u >> 32 ) );
   } else {
      return v.hash();
   }
}

namespace Detail {

template< class T >
inline constexpr std::size_t hashWidth = std::is_same_v< T, bool > ? 1 : 4;

template< class T >
void hashPut( char*& at, const T& v ) noexcept {
   if constexpr( std::is_same_v< T, bool > ) {
      *at++ = static_cast< char >( v );
   } else {
      const U32 h = hashOf( v );
      std::memcpy( at, &h, 4 );
      at += 4;
   }
}

}

/// The hash of a composite: its attributes' 32-bit hashes in order as one little-endian stream; a boolean stands in it as its
/// raw byte.
template< class... T >
U32 hashAll( const T&... v ) noexcept {
   std::array< char, ( Detail::hashWidth< T > + ... + 0 ) > stream;
   char* at = stream.data();
   ( Detail::hashPut( at, v ), ... );
   if constexpr( stream.size() == 8 ) {
      U32 words[ 2 ];
      std::memcpy( words, stream.data(), 8 );
      return murmur3Of8( words[ 0 ], words[ 1 ] );
   } else {
      return murmur3( stream.data(), stream.size() );
   }
}

/// The bits in reverse order: a hash's place in bucket order.
constexpr U32 bitReverse( U32 v ) noexcept {
   v = ( v >> 1 & 0x55555555u ) | ( v & 0x55555555u ) << 1;
   v = ( v >> 2 & 0x33333333u ) | ( v & 0x33333333u ) << 2;
   v = ( v >> 4 & 0x0f0f0f0fu ) | ( v & 0x0f0f0f0fu ) << 4;
   return __builtin_bswap32( v );
}

static_assert( std::endian::native == std::endian::little, "hash streams are little-endian" );

}
