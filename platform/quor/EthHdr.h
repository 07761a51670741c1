#pragma once

#include <cstring>
#include <quor/EthAddr.h>

namespace [[gnu::visibility("default")]] Quor {

/// Reads and writes a 16-bit field in network byte order at any address.
inline Kel::U16 netU16( const Kel::U8* at ) noexcept {
   Kel::U16 v;
   std::memcpy( &v, at, sizeof v );
   return __builtin_bswap16( v );
}
inline void netU16Is( Kel::U8* at, Kel::U16 v ) noexcept {
   v = __builtin_bswap16( v );
   std::memcpy( at, &v, sizeof v );
}

/// A view of the Ethernet header that begins at `at`: destination, source, and a type or length (IEEE Std 802.3-2022, 3.1.1 and
/// 3.2.6). `Byte` is `const Kel::U8` for one that is only read. REQUIRES: `bytes` bytes stand there.
template< class Byte >
class BasicEthHdr {
 public:
   static constexpr Kel::U32 bytes = 14;
   static constexpr Kel::U32 sourceOffset = 6;
   static constexpr Kel::U32 typeOffset = 12;

   explicit BasicEthHdr( Byte* at ) noexcept : at_( at ) {}

   EthAddr destination() const noexcept { return addressAt( 0 ); }
   EthAddr source() const noexcept { return addressAt( sourceOffset ); }
   Kel::U16 etherType() const noexcept { return netU16( at_ + typeOffset ); }

   void destinationIs( const EthAddr& v ) const noexcept { std::memcpy( at_, &v, sizeof v ); }
   void sourceIs( const EthAddr& v ) const noexcept { std::memcpy( at_ + sourceOffset, &v, sizeof v ); }
   void etherTypeIs( Kel::U16 v ) const noexcept { netU16Is( at_ + typeOffset, v ); }

 private:
   EthAddr addressAt( Kel::U32 offset ) const noexcept {
      return EthAddr( std::span< const Kel::U8, EthAddr::size >( at_ + offset, EthAddr::size ) );
   }

   Byte* at_;
};
using EthHdr = BasicEthHdr< Kel::U8 >;
using ConstEthHdr = BasicEthHdr< const Kel::U8 >;

/// A view of an Ethernet header with one tag behind its addresses: the tag's TPID and control information, then the type or
/// length that the frame has without the tag (IEEE Std 802.1Q-2022, 9.3 to 9.6). REQUIRES: `bytes` bytes stand there.
template< class Byte >
class BasicDot1qHdr {
 public:
   static constexpr Kel::U32 bytes = 18;
   static constexpr Kel::U32 tagBytes = 4;
   static constexpr Kel::U32 tpidOffset = 12;
   static constexpr Kel::U32 tagControlOffset = 14;
   static constexpr Kel::U32 typeOffset = 16;
   /// The TPID of a customer VLAN tag.
   static constexpr Kel::U16 customerTpid = 0x8100;
   static constexpr Kel::U16 vlanIdMask = 0x0fff;

   explicit BasicDot1qHdr( Byte* at ) noexcept : at_( at ) {}

   Kel::U16 tpid() const noexcept { return netU16( at_ + tpidOffset ); }
   /// Bits 15-13 the priority, bit 12 drop-eligible, bits 11-0 the VLAN identifier.
   Kel::U16 tagControl() const noexcept { return netU16( at_ + tagControlOffset ); }
   Kel::U16 vlanId() const noexcept { return tagControl() & vlanIdMask; }
   Kel::U16 priority() const noexcept { return static_cast< Kel::U16 >( tagControl() >> 13 ); }
   bool dropEligible() const noexcept { return ( tagControl() & 0x1000 ) != 0; }
   Kel::U16 etherType() const noexcept { return netU16( at_ + typeOffset ); }

   void tagIs( Kel::U16 tpid, Kel::U16 tagControl ) const noexcept {
      netU16Is( at_ + tpidOffset, tpid );
      netU16Is( at_ + tagControlOffset, tagControl );
   }

 private:
   Byte* at_;
};
using Dot1qHdr = BasicDot1qHdr< Kel::U8 >;
using ConstDot1qHdr = BasicDot1qHdr< const Kel::U8 >;

}
