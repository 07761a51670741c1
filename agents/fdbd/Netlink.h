#pragma once

#include <cstdint>
#include <functional>
#include <kel/UniqueFd.h>
#include <linux/rtnetlink.h>
#include <span>
#include <string>
#include <vector>

namespace Fdbd {

/// One attribute of a netlink message, or nothing when the message lacks it or is cut short there.
/// `attributes`: the bytes behind the message's own header.
std::span< const std::uint8_t > netlinkAttribute( std::span< const std::uint8_t > attributes, std::uint16_t type );

/// Calls `visit( type, payload )` for each whole message in a datagram; stops at the first one that is cut short. `visit` returns
/// false to stop.
void forEachNetlinkMessage( std::span< const std::uint8_t > datagram,
                            const std::function< bool( const nlmsghdr&, std::span< const std::uint8_t > ) >& visit );

/// A socket of rtnetlink(7).
class NetlinkSocket {
 public:
   /// Joins `groups` (RTNLGRP_...). Throws `std::system_error`.
   explicit NetlinkSocket( std::span< const unsigned > groups = {} );

   int descriptor() const { return fd_.get(); }
   /// Bytes that may wait to be read; the kernel drops what exceeds them and says so.
   void receiveBufferIs( int bytes );

   enum class Result { data, empty, overrun };
   /// The next datagram from the kernel, without waiting. Throws `std::system_error` when the socket can't be read.
   Result read( std::vector< std::uint8_t >& datagram );

   /// Sends a request and visits the answers until the last one. The request's length, sequence and flag NLM_F_REQUEST are filled
   /// in. Returns 0, or the error that the kernel answered; EINTR when a dump was not of one moment and must be done again.
   int request( std::span< std::uint8_t > message,
                const std::function< void( const nlmsghdr&, std::span< const std::uint8_t > ) >& visit );

 private:
   Kel::UniqueFd fd_;
   std::uint32_t sequence_ = 0;
};

}
