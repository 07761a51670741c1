#pragma once

#include <compare>
#include <cstddef>
#include <iosfwd>
#include <kel/Assert.h>
#include <kel/Hash.h>
#include <kel/LogValue.h>
#include <kel/String8.h>
#include <kel/Type.h>
#include <kel/Types.h>
#include <string_view>

namespace [[gnu::visibility("default")]] Quor {

/// The kinds of interface, as they stand in bits 31..25 of an identifier's low word.
namespace IntfTypeId {
inline constexpr Kel::U32 ethernet = 0;
inline constexpr Kel::U32 vlan = 1;
inline constexpr Kel::U32 cpu = 6;
inline constexpr Kel::U32 portChannel = 7;
inline constexpr Kel::U32 peerEthernet = 8;
inline constexpr Kel::U32 peerPortChannel = 9;
inline constexpr Kel::U32 pseudowire = 59;
}

/// The identifier of an interface: two 32-bit words that mean the same in every process. The low word holds the kind in bits
/// 31..25 and an index in bits 24..0; the high word belongs to the kind and is mostly a sub-interface number. All zero is the
/// empty identifier, which belongs to no kind and whose name is the empty text.
///
/// Every identifier has exactly one name, and its name gives it back. The grammar of names stands in IntfId.cpp.
class IntfId {
 public:
   /// The most characters that `print` and `printShort` write.
   static constexpr std::size_t maxText = 40;

   /// The empty identifier.
   constexpr IntfId() = default;
   constexpr IntfId( Kel::U32 low, Kel::U32 high ) : low_( low ), high_( high ) {}
   /// From a name, full or short: Ethernet3/2, Et3/2. Throws `Kel::RangeException` that quotes a bad name and says what is
   /// expected.
   explicit IntfId( std::string_view name );
   IntfId( std::nullptr_t ) = delete;

   constexpr Kel::U32 low() const { return low_; }
   constexpr Kel::U32 high() const { return high_; }
   /// The 32-bit handle of a port.
   constexpr Kel::U32 handle() const { return low_; }
   constexpr bool isEmpty() const { return low_ == 0 && high_ == 0; }
   constexpr explicit operator bool() const { return !isEmpty(); }

   /// MurmurHash3 over the 8 bytes, low word first.
   constexpr Kel::U32 hash() const noexcept { return Kel::murmur3Of8( low_, high_ ); }

   /// Writes the full name and returns its end.
   char* print( char* to ) const noexcept;
   /// Writes the short name and returns its end: Et3/2 for Ethernet3/2.
   char* printShort( char* to ) const noexcept;
   /// Reads as far as the characters go that a name is made of (letters, digits, '/', '.', '-'), and leaves `from` behind them;
   /// nothing at all is the empty identifier. False, with `from` and `out` unchanged, when they are not a name.
   static bool parse( const char*& from, const char* to, IntfId& out ) noexcept;
   /// The full name, without quotes.
   Kel::String8 stringValue() const;
   Kel::String8 shortName() const;

   /// In the attribute log: the low word, then the high one.
   template< class Visit >
   auto kelParts( Visit visit ) const {
      return visit( Kel::part( &low_ ), Kel::part( &high_ ) );
   }

   friend constexpr bool operator==( const IntfId&, const IntfId& ) = default;
   /// By the low word, then the high one: kinds stand together, and sub-interfaces follow their parent.
   friend constexpr std::strong_ordering operator<=>( const IntfId&, const IntfId& ) = default;

   /// From the canonical form, and from an attribute log. Throw `Kel::RangeException`.
   IntfId( Kel::TextIter& from, Kel::TextIter to );
   explicit IntfId( Kel::LogIn& in );

   using GenericIf_ = Kel::GenericIfOf< IntfId >;
   static constexpr Kel::TypeCode _code = Kel::TypeCode::external;
   static Kel::Type _Type;
   static Kel::Type& _fwkType() { return _Type; }
   Kel::Type& fwkType() const { return _Type; }

 private:
   Kel::U32 low_ = 0;
   Kel::U32 high_ = 0;
};

/// The canonical form: the full name between single quotes.
std::ostream& operator<<( std::ostream& out, const IntfId& id );

static_assert( sizeof( IntfId ) == 8 && alignof( IntfId ) == 4 );

/// What all kinds of identifier have in common. The free functions below do the same.
class GenericIntfId {
 public:
   static constexpr Kel::U32 indexMask = 0x1ffffff;
   static constexpr unsigned typeIdShift = 25;

   /// The kind: bits 31..25 of the low word.
   static constexpr Kel::U32 typeId( IntfId intfId ) { return intfId.low() >> typeIdShift; }
   /// The top 4 bits of the high word; what they say is the port channel's affair.
   static constexpr Kel::U32 subType( IntfId intfId ) { return intfId.high() >> 28; }
   /// With n = 0 the whole high word, with n = 1 the 25-bit index; asserts that n is one of these.
   static constexpr Kel::U32 part( IntfId intfId, unsigned n ) {
      KEL_ASSERT( "IntfId", n <= 1 );
      return n == 0 ? intfId.high() : intfId.low() & indexMask;
   }
   /// A copy with another kind and all other bits kept.
   static constexpr IntfId typeIdIs( IntfId intfId, Kel::U32 t ) {
      KEL_ASSERT( "IntfId", t <= 127 );
      return { ( intfId.low() & indexMask ) | t << typeIdShift, intfId.high() };
   }
};

constexpr Kel::U32 typeId( IntfId intfId ) { return GenericIntfId::typeId( intfId ); }
constexpr Kel::U32 subType( IntfId intfId ) { return GenericIntfId::subType( intfId ); }
constexpr Kel::U32 part( IntfId intfId, unsigned n ) { return GenericIntfId::part( intfId, n ); }
constexpr IntfId typeIdIs( IntfId intfId, Kel::U32 t ) { return GenericIntfId::typeIdIs( intfId, t ); }

}
