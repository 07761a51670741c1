#pragma once

#include <compare>
#include <cstddef>
#include <iosfwd>
#include <kel/String8.h>
#include <kel/Type.h>
#include <kel/Types.h>
#include <span>
#include <string_view>

namespace [[gnu::visibility("default")]] Quor {

/// An IPv4 or an IPv6 address, or none. A plain value of 20 bytes: the version as a 32-bit number (0, 4 or 6), then the address
/// in network order, an IPv4 address in the first four bytes and zeros behind it.
class IpAddr {
 public:
   /// The most characters that `print` writes.
   static constexpr std::size_t maxText = 39;

   /// No address.
   constexpr IpAddr() = default;
   /// An IPv4 address from its number: 0x7f000001 is 127.0.0.1.
   constexpr explicit IpAddr( Kel::U32 v4 ) : version_( 4 ) {
      for( int i = 0; i < 4; ++i ) bytes_[ i ] = static_cast< Kel::U8 >( v4 >> ( 24 - 8 * i ) );
   }
   constexpr explicit IpAddr( std::span< const Kel::U8, 4 > v4 ) : version_( 4 ) {
      for( std::size_t i = 0; i < 4; ++i ) bytes_[ i ] = v4[ i ];
   }
   constexpr explicit IpAddr( std::span< const Kel::U8, 16 > v6 ) : version_( 6 ) {
      for( std::size_t i = 0; i < 16; ++i ) bytes_[ i ] = v6[ i ];
   }
   /// Reads 192.0.2.1, or any form of RFC 4291 section 2.2; the empty text is no address. Throws `Kel::RangeException` that
   /// quotes any other text.
   explicit IpAddr( std::string_view text );
   IpAddr( std::nullptr_t ) = delete;

   constexpr bool isNone() const { return version_ == 0; }
   constexpr bool isV4() const { return version_ == 4; }
   constexpr bool isV6() const { return version_ == 6; }
   /// The bytes in network order: none, 4 or 16.
   constexpr std::span< const Kel::U8 > bytes() const { return { bytes_, isV4() ? 4u : isV6() ? 16u : 0u }; }

   /// MurmurHash3 over `bytes()`.
   Kel::U32 hash() const noexcept;

   /// Writes the display form and returns its end: dotted decimal, or RFC 5952 with the dotted form behind ::ffff: for an
   /// IPv4-mapped address, or nothing for none.
   char* print( char* to ) const noexcept;
   /// Reads as far as the characters go that an address is made of, and leaves `from` behind them; nothing at all is no
   /// address. False, with `from` and `out` unchanged, when they are not an address.
   static bool parse( const char*& from, const char* to, IpAddr& out ) noexcept;
   /// The display form, without quotes.
   Kel::String8 stringValue() const;

   friend constexpr bool operator==( const IpAddr&, const IpAddr& ) = default;
   /// None, then IPv4, then IPv6; each by its number.
   friend constexpr std::strong_ordering operator<=>( const IpAddr&, const IpAddr& ) = default;

   /// From the canonical form, and from an attribute log. Throw `Kel::RangeException`.
   IpAddr( Kel::TextIter& from, Kel::TextIter to );
   explicit IpAddr( Kel::LogIn& in );

   using GenericIf_ = Kel::GenericIfOf< IpAddr >;
   static constexpr Kel::TypeCode _code = Kel::TypeCode::external;
   static Kel::Type _Type;
   static Kel::Type& _fwkType() { return _Type; }
   Kel::Type& fwkType() const { return _Type; }

 private:
   Kel::U32 version_ = 0;
   Kel::U8 bytes_[ 16 ] = {};
};

/// The canonical form: the display form between single quotes.
std::ostream& operator<<( std::ostream& out, const IpAddr& a );

static_assert( sizeof( IpAddr ) == 20 && alignof( IpAddr ) == 4 );

}
