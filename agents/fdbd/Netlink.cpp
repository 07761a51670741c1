#include "Netlink.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <system_error>

#ifndef NETLINK_GET_STRICT_CHK
#define NETLINK_GET_STRICT_CHK 12
#endif

// Lengths in messages are checked against what has been received before anything behind them is read, and headers are copied out,
// so that neither a short datagram nor its alignment can lead outside.

namespace Fdbd {

namespace {

/// The kernel answers in at most this long, or something is wrong.
constexpr timeval answerTime = { 5, 0 };

[[noreturn]] void fail( const char* what ) { throw std::system_error( errno, std::generic_category(), what ); }

constexpr std::size_t aligned( std::size_t size ) { return ( size + 3 ) & ~std::size_t( 3 ); }

bool fromKernel( const sockaddr_nl& from ) { return from.nl_pid == 0; }

}

std::span< const std::uint8_t > netlinkAttribute( std::span< const std::uint8_t > attributes, std::uint16_t type ) {
   rtattr header;
   while( attributes.size() >= sizeof header ) {
      std::memcpy( &header, attributes.data(), sizeof header );
      if( header.rta_len < sizeof header || header.rta_len > attributes.size() ) return {};
      if( ( header.rta_type & NLA_TYPE_MASK ) == type )
         return attributes.subspan( sizeof header, header.rta_len - sizeof header );
      attributes = attributes.subspan( std::min( aligned( header.rta_len ), attributes.size() ) );
   }
   return {};
}

void forEachNetlinkMessage( std::span< const std::uint8_t > datagram,
                            const std::function< bool( const nlmsghdr&, std::span< const std::uint8_t > ) >& visit ) {
   nlmsghdr header;
   while( datagram.size() >= sizeof header ) {
      std::memcpy( &header, datagram.data(), sizeof header );
      if( header.nlmsg_len < sizeof header || header.nlmsg_len > datagram.size() ) return;
      if( !visit( header, datagram.subspan( sizeof header, header.nlmsg_len - sizeof header ) ) ) return;
      datagram = datagram.subspan( std::min( aligned( header.nlmsg_len ), datagram.size() ) );
   }
}

NetlinkSocket::NetlinkSocket( std::span< const unsigned > groups )
    : fd_( ::socket( AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE ) ) {
   if( !fd_ ) fail( "can't open an rtnetlink socket" );
   const int on = 1;
   // With it the kernel filters a dump by its bridge (Linux 4.20); without it the caller's own filter does all the work.
   setsockopt( fd_.get(), SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof on );
   setsockopt( fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &answerTime, sizeof answerTime );
   sockaddr_nl address{};
   address.nl_family = AF_NETLINK;
   if( bind( fd_.get(), reinterpret_cast< const sockaddr* >( &address ), sizeof address ) != 0 )
      fail( "can't bind an rtnetlink socket" );
   for( unsigned group : groups )
      if( setsockopt( fd_.get(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group ) != 0 )
         fail( "can't subscribe to rtnetlink" );
}

void NetlinkSocket::receiveBufferIs( int bytes ) {
   if( setsockopt( fd_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes ) != 0 )
      setsockopt( fd_.get(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes );
}

NetlinkSocket::Result NetlinkSocket::read( std::vector< std::uint8_t >& datagram ) {
   datagram.resize( 64 * 1024 );
   sockaddr_nl from{};
   socklen_t fromSize = sizeof from;
   const ssize_t size =
      recvfrom( fd_.get(), datagram.data(), datagram.size(), MSG_DONTWAIT, reinterpret_cast< sockaddr* >( &from ), &fromSize );
   if( size < 0 ) {
      datagram.clear();
      if( errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ) return Result::empty;
      if( errno == ENOBUFS ) return Result::overrun;
      fail( "can't read rtnetlink" );
   }
   datagram.resize( fromKernel( from ) ? static_cast< std::size_t >( size ) : 0 );
   return Result::data;
}

int NetlinkSocket::request( std::span< std::uint8_t > message,
                            const std::function< void( const nlmsghdr&, std::span< const std::uint8_t > ) >& visit ) {
   nlmsghdr header;
   std::memcpy( &header, message.data(), sizeof header );
   header.nlmsg_len = static_cast< std::uint32_t >( message.size() );
   header.nlmsg_flags |= NLM_F_REQUEST;
   header.nlmsg_seq = ++sequence_;
   std::memcpy( message.data(), &header, sizeof header );
   sockaddr_nl kernel{};
   kernel.nl_family = AF_NETLINK;
   if( sendto( fd_.get(), message.data(), message.size(), 0, reinterpret_cast< const sockaddr* >( &kernel ), sizeof kernel ) < 0 )
      return errno;
   const bool isDump = ( header.nlmsg_flags & NLM_F_DUMP ) == NLM_F_DUMP;
   std::vector< std::uint8_t > buffer( 64 * 1024 );
   bool inconsistent = false;
   int error = -1;
   while( error < 0 ) {
      sockaddr_nl from{};
      socklen_t fromSize = sizeof from;
      const ssize_t size =
         recvfrom( fd_.get(), buffer.data(), buffer.size(), 0, reinterpret_cast< sockaddr* >( &from ), &fromSize );
      if( size < 0 && errno == EINTR ) continue;
      if( size < 0 ) return errno;
      if( !fromKernel( from ) ) continue;
      forEachNetlinkMessage( { buffer.data(), static_cast< std::size_t >( size ) },
                             [ & ]( const nlmsghdr& answer, auto payload ) {
         if( answer.nlmsg_seq != sequence_ ) return true;
         if( answer.nlmsg_flags & NLM_F_DUMP_INTR ) inconsistent = true;
         int code = 0;
         if( ( answer.nlmsg_type == NLMSG_ERROR || answer.nlmsg_type == NLMSG_DONE ) && payload.size() >= sizeof code )
            std::memcpy( &code, payload.data(), sizeof code );
         if( answer.nlmsg_type == NLMSG_ERROR || answer.nlmsg_type == NLMSG_DONE ) {
            error = code < 0 ? -code : 0;
            return false;
         }
         visit( answer, payload );
         if( !isDump ) error = 0;
         return isDump;
      } );
   }
   return error == 0 && inconsistent ? EINTR : error;
}

}
