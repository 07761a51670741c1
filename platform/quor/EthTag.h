#pragma once

#include <quor/EthHdr.h>
#include <quor/Packet.h>

namespace [[gnu::visibility("default")]] Quor {

/// Moves the two addresses of a frame to a place that may overlap theirs; in registers, which costs less than a call of memmove.
inline void addressesMove( Kel::U8* to, const Kel::U8* from ) noexcept {
   Kel::U64 first;
   Kel::U32 last;
   static_assert( sizeof first + sizeof last == EthHdr::typeOffset );
   std::memcpy( &first, from, sizeof first );
   std::memcpy( &last, from + sizeof first, sizeof last );
   std::memcpy( to, &first, sizeof first );
   std::memcpy( to + sizeof first, &last, sizeof last );
}

/// Puts a tag behind the addresses of a frame: 4 bytes in front, into which the addresses move. REQUIRES: the frame has an
/// Ethernet header.
inline void tagPush( Packet& pkt, Kel::U16 tpid, Kel::U16 tagControl ) {
   Kel::U8* start = pkt.headGrow( Dot1qHdr::tagBytes );
   addressesMove( start, start + Dot1qHdr::tagBytes );
   Dot1qHdr( start ).tagIs( tpid, tagControl );
}

/// Takes the tag behind the addresses out of a frame. REQUIRES: the frame has an Ethernet header with a tag.
inline void tagPop( Packet& pkt ) {
   Kel::U8* start = pkt.writableData();
   addressesMove( start + Dot1qHdr::tagBytes, start );
   pkt.headTrim( Dot1qHdr::tagBytes );
}

}
