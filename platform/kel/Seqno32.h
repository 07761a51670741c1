#pragma once

#include <compare>
#include <kel/Exception.h>
#include <kel/Hash.h>
#include <kel/Type.h>

namespace [[gnu::visibility("default")]] Oru {

/// A 32-bit number that only moves forward and wraps from 4294967295 to 0; serial number arithmetic of RFC 1982.
///
/// Of two numbers the one that is reached by fewer steps forward is the greater. Two numbers that are exactly 2^31 apart have
/// no order (RFC 1982, section 3.2): `<=>` gives `unordered`, all of `<`, `>`, `==`, `<=` and `>=` are false. The order is
/// not transitive, so this is no key of an ordered map.
class Seqno32 {
 public:
   constexpr Seqno32() noexcept = default;
   constexpr explicit Seqno32( Kel::U32 value ) noexcept : value_( value ) {}

   constexpr Kel::U32 value() const noexcept { return value_; }
   constexpr void valueIs( Kel::U32 value ) noexcept { value_ = value; }
   constexpr Kel::U32 hash() const noexcept { return Kel::hashOf( value_ ); }

   constexpr Seqno32& operator++() noexcept {
      ++value_;
      return *this;
   }
   constexpr Seqno32 operator++( int ) noexcept { return Seqno32( value_++ ); }
   constexpr Seqno32& operator+=( Kel::U32 n ) {
      // RFC 1982, section 3.1, defines no greater addition.
      if( n > 0x7fffffffu ) throw Kel::RangeException( "Seqno32::increment > 2147483647 not allowed" );
      value_ += n;
      return *this;
   }
   friend constexpr Seqno32 operator+( Seqno32 a, Kel::U32 n ) { return a += n; }

   friend constexpr bool operator==( Seqno32, Seqno32 ) noexcept = default;
   friend constexpr std::partial_ordering operator<=>( Seqno32 a, Seqno32 b ) noexcept {
      const Kel::U32 ahead = a.value_ - b.value_;
      if( ahead == 0 ) return std::partial_ordering::equivalent;
      if( ahead == 0x80000000u ) return std::partial_ordering::unordered;
      return ahead < 0x80000000u ? std::partial_ordering::greater : std::partial_ordering::less;
   }

   template< class Visit >
   auto kelParts( Visit visit ) const {
      return visit( Kel::part( &value_ ) );
   }

   using GenericIf_ = Kel::GenericIfOf< Seqno32 >;
   static constexpr Kel::TypeCode _code = Kel::TypeCode::scalar;
   static Kel::Type _Type;
   static Kel::Type& _fwkType() { return _Type; }
   Kel::Type& fwkType() const { return _Type; }

 private:
   Kel::U32 value_ = 0;
};

}
