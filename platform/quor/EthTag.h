#pragma once

#include <quor/EthHdr.h>
#include <quor/Packet.h>

namespace [[gnu::visibility("default")]] Quor {

/// Puts a tag behind the addresses of a frame: 4 bytes in front, into which the addresses move. REQUIRES: the frame has an Ethernet header.
inline void tagPush( Packet& pkt, Kel::U16 tpid, Kel::U16 tagControl ) {
   const EthAddrPair addresses = ConstEthHdr( pkt.data() ).addresses();
   pkt.headGrow( Dot1qHdr::tagBytes );
   Kel::U8* start = pkt.writableData();
   EthHdr( start ).addressesIs( addresses );
   Dot1qHdr( start ).tagIs( tpid, tagControl );
}

/// Takes the tag behind the addresses out of a frame. REQUIRES: the frame has an Ethernet header with a tag.
inline void tagPop( Packet& pkt ) {
   const EthAddrPair addresses = ConstEthHdr( pkt.data() ).addresses();
   pkt.headTrim( Dot1qHdr::tagBytes );
   EthHdr( pkt.writableData() ).addressesIs( addresses );
}

}
