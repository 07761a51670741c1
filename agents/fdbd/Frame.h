#pragma once

#include "Host.h"
#include <optional>
#include <span>

namespace Fdbd {

/// The fields of an Ethernet frame that learning needs.
struct Frame {
   Quor::EthAddr destination;
   Quor::EthAddr source;
   /// The VLAN identifier of the tag: 0 for an untagged or priority-tagged frame, up to 4095.
   Vlan vid = 0;
};

/// The header of a frame that starts with `bytes`; nothing when the header, or the tag that it announces, is cut short.
std::optional< Frame > decodeFrame( std::span< const std::uint8_t > bytes );

/// Likewise for a frame whose tag the kernel has taken out of the bytes: `tpid` and `tci` are that tag's.
std::optional< Frame > decodeFrame( std::span< const std::uint8_t > bytes, std::uint16_t tpid, std::uint16_t tci );

}
