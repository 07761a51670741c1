#include "Frame.h"

// Only the TPID 0x8100 is recognised. The filtering database belongs to the customer VLAN, and a customer-VLAN-aware bridge looks
// at C-tags alone (IEEE 802.1Q-2018, 5.5 and 9.5: 0x8100 is the C-tag's TPID, 0x88A8 the S-tag's). A frame whose outer tag is an
// S-tag is to such a bridge a frame without a tag, whatever stands behind that tag, and takes the native VLAN; the Linux bridge
// with `vlan_protocol 802.1Q` does the same. The VID 0 is a priority tag, which names no VLAN (9.6).

namespace Fdbd {

namespace {

constexpr std::uint16_t cTagTpid = 0x8100;

std::uint16_t wordAt( std::span< const std::uint8_t > bytes, std::size_t at ) {
   return static_cast< std::uint16_t >( bytes[ at ] << 8 | bytes[ at + 1 ] );
}

Quor::EthAddr addressAt( std::span< const std::uint8_t > bytes, std::size_t at ) {
   return Quor::EthAddr( bytes.subspan( at ).first< 6 >() );
}

Frame addresses( std::span< const std::uint8_t > bytes ) {
   return { addressAt( bytes, 0 ), addressAt( bytes, 6 ), 0 };
}

}

std::optional< Frame > decodeFrame( std::span< const std::uint8_t > bytes ) {
   if( bytes.size() < ethernetHeaderSize ) return std::nullopt;
   Frame frame = addresses( bytes );
   if( wordAt( bytes, 12 ) != cTagTpid ) return frame;
   if( bytes.size() < taggedHeaderSize ) return std::nullopt;
   frame.vid = wordAt( bytes, 14 ) & 0xfff;
   return frame;
}

std::optional< Frame > decodeFrame( std::span< const std::uint8_t > bytes, std::uint16_t tpid, std::uint16_t tci ) {
   if( bytes.size() < ethernetHeaderSize ) return std::nullopt;
   Frame frame = addresses( bytes );
   if( tpid == cTagTpid ) frame.vid = tci & 0xfff;
   return frame;
}

}
