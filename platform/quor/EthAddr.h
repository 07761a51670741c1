#pragma once

#include <compare>
#include <cstddef>
#include <cstring>
#include <iosfwd>
#include <kel/Hash.h>
#include <kel/LogValue.h>
#include <kel/String8.h>
#include <kel/Type.h>
#include <kel/Types.h>
#include <span>
#include <string_view>
#include <type_traits>

/// Network types: addresses, interface identifiers and their names.
namespace [[gnu::visibility("default")]] Quor {

/// A 48-bit MAC address, in the order of its bytes on the wire. By default all zero. A plain value of exactly 6 bytes, without
/// alignment, so that it can stand in any record.
class EthAddr {
 public:
   static constexpr std::size_t size = 6;
   /// The most characters that `print` writes.
   static constexpr std::size_t maxText = 17;

   constexpr EthAddr() = default;
   constexpr EthAddr( Kel::U8 a, Kel::U8 b, Kel::U8 c, Kel::U8 d, Kel::U8 e, Kel::U8 f ) : bytes_{ a, b, c, d, e, f } {}
   constexpr explicit EthAddr( std::span< const Kel::U8, size > b ) : EthAddr( b[ 0 ], b[ 1 ], b[ 2 ], b[ 3 ], b[ 4 ], b[ 5 ] ) {}
   /// Reads 02:00:00:00:00:01, 02-00-00-00-00-01 or 0200.0000.0001, in either case. Throws `Kel::RangeException` that quotes
   /// any other text.
   explicit EthAddr( std::string_view text );
   EthAddr( std::nullptr_t ) = delete;

   /// The address whose bytes are the low 48 bits of a number, the most significant first.
   static constexpr EthAddr fromNumber( Kel::U64 n ) {
      return { static_cast< Kel::U8 >( n >> 40 ), static_cast< Kel::U8 >( n >> 32 ), static_cast< Kel::U8 >( n >> 24 ),
               static_cast< Kel::U8 >( n >> 16 ), static_cast< Kel::U8 >( n >> 8 ),  static_cast< Kel::U8 >( n ) };
   }
   /// The address as a 48-bit number, its first byte the most significant.
   constexpr Kel::U64 number() const { return Kel::U64( __builtin_bswap32( low() ) ) << 16 | __builtin_bswap16( high() ); }

   static constexpr EthAddr broadcast() { return { 0xff, 0xff, 0xff, 0xff, 0xff, 0xff }; }

   constexpr std::span< const Kel::U8, size > bytes() const { return std::span< const Kel::U8, size >( bytes_ ); }
   constexpr Kel::U8 byte( std::size_t i ) const { return bytes_[ i ]; }

   constexpr bool isZero() const { return *this == EthAddr(); }
   constexpr bool isBroadcast() const { return *this == broadcast(); }
   /// A group address, the broadcast address among them: the I/G bit is set (IEEE Std 802-2014, 8.2.2).
   constexpr bool isMulticast() const { return ( bytes_[ 0 ] & 1 ) != 0; }
   /// An individual address; the zero address counts as one.
   constexpr bool isUnicast() const { return !isMulticast(); }

   /// MurmurHash3 over the 6 bytes.
   constexpr Kel::U32 hash() const noexcept { return Kel::murmur3Of6( low(), high() ); }

   /// Writes 02:00:00:00:00:01, always 17 characters, lower-case, and returns its end.
   char* print( char* to ) const noexcept;
   /// Reads an address in one of the forms that the constructor takes and leaves `from` behind it. False, with `from` and
   /// `out` unchanged, when none stands there.
   static bool parse( const char*& from, const char* to, EthAddr& out ) noexcept;
   /// The display form, without quotes.
   Kel::String8 stringValue() const;

   /// In the attribute log: its six bytes, in their order on the wire.
   template< class Visit >
   auto kelParts( Visit visit ) const {
      return visit( Kel::part( &bytes_ ) );
   }

   friend constexpr bool operator==( const EthAddr& a, const EthAddr& b ) {
      return ( ( a.low() ^ b.low() ) | static_cast< Kel::U32 >( a.high() ^ b.high() ) ) == 0;
   }
   /// By the bytes, as 48-bit numbers.
   friend constexpr std::strong_ordering operator<=>( const EthAddr& a, const EthAddr& b ) { return a.number() <=> b.number(); }

   /// From the canonical form, and from an attribute log. Throw `Kel::RangeException`.
   EthAddr( Kel::TextIter& from, Kel::TextIter to );
   explicit EthAddr( Kel::LogIn& in );

   using GenericIf_ = Kel::GenericIfOf< EthAddr >;
   static constexpr Kel::TypeCode _code = Kel::TypeCode::external;
   static Kel::Type _Type;
   static Kel::Type& _fwkType() { return _Type; }
   Kel::Type& fwkType() const { return _Type; }

 private:
   // The first four and the last two bytes, as a little-endian machine loads them.
   constexpr Kel::U32 low() const {
      if( std::is_constant_evaluated() )
         return bytes_[ 0 ] | bytes_[ 1 ] << 8 | bytes_[ 2 ] << 16 | Kel::U32( bytes_[ 3 ] ) << 24;
      Kel::U32 v;
      std::memcpy( &v, bytes_, 4 );
      return v;
   }
   constexpr Kel::U16 high() const {
      if( std::is_constant_evaluated() ) return static_cast< Kel::U16 >( bytes_[ 4 ] | bytes_[ 5 ] << 8 );
      Kel::U16 v;
      std::memcpy( &v, bytes_ + 4, 2 );
      return v;
   }

   Kel::U8 bytes_[ size ] = {};
};

/// The canonical form: the display form between single quotes.
std::ostream& operator<<( std::ostream& out, const EthAddr& a );

static_assert( sizeof( EthAddr ) == 6 && alignof( EthAddr ) == 1 );

}
