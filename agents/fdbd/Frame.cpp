#include "Frame.h"

#include <quor/EthHdr.h>

// Only the TPID 0x8100 is recognised. The filtering database belongs to the customer VLAN, and a customer-VLAN-aware bridge looks
// at C-tags alone (IEEE 802.1Q-2018, 5.5 and 9.5: 0x8100 is the C-tag's TPID, 0x88A8 the S-tag's). A frame whose outer tag is an
// S-tag is to such a bridge a frame without a tag, whatever stands behind that tag, and takes the native VLAN; the Linux bridge
// with `vlan_protocol 802.1Q` does the same. The VID 0 is a priority tag, which names no VLAN (9.6).

namespace Fdbd {

using Quor::ConstEthHdr;
using Quor::Dot1qHdr;

std::optional< Frame > decodeFrame( std::span< const std::uint8_t > bytes ) {
   if( bytes.size() < ConstEthHdr::bytes ) return std::nullopt;
   const ConstEthHdr header( bytes.data() );
   Frame frame{ header.destination(), header.source() };
   if( header.etherType() != Dot1qHdr::customerTpid ) return frame;
   if( bytes.size() < Dot1qHdr::bytes ) return std::nullopt;
   frame.vid = Quor::ConstDot1qHdr( bytes.data() ).vlanId();
   return frame;
}

std::optional< Frame > decodeFrame( std::span< const std::uint8_t > bytes, std::uint16_t tpid, std::uint16_t tci ) {
   if( bytes.size() < ConstEthHdr::bytes ) return std::nullopt;
   const ConstEthHdr header( bytes.data() );
   return Frame{ header.destination(), header.source(),
                 tpid == Dot1qHdr::customerTpid ? Vlan( tci & Dot1qHdr::vlanIdMask ) : Vlan( 0 ) };
}

}
