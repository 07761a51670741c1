#include <quor/EthDevPam.h>

#include <array>
#include <cerrno>
#include <kel/GenericIf.h>
#include <kel/Trace.h>
#include <linux/if_packet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <quor/PacketRing.h>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>

// One epoll set, which lives as long as the endpoint, holds the packet socket and a route socket (rtnetlink(7)) while the device
// is open. The route socket tells that the device has gone. The packet socket's own error does not: it is raised when a device is
// taken down, which is the first step of its removal too, and not again.
//
// Frames are sent with sendmmsg(2), not through the ring that a packet socket can have for sending as well: 64 frames to a call
// over a veth pair took 570 to 710 ns a frame, and 700 to 940 ns through such a ring, whose pages Linux copies in its turn before
// another device holds on to them.
//
// A callback may close the device, open it again and let the endpoint go, so a walk over the ring holds both and looks after each
// frame whether it is still the present one.

namespace Quor {

namespace {

constexpr std::size_t txBatchFrames = 64;

/// A socket that tells of links that come, change and go.
Kel::UniqueFd linkSocket( const Kel::String8& device ) {
   Kel::UniqueFd fd( ::socket( AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE ) );
   sockaddr_nl address{};
   address.nl_family = AF_NETLINK;
   address.nl_groups = RTMGRP_LINK;
   const bool isBound = fd && ::bind( fd.get(), reinterpret_cast< const sockaddr* >( &address ), sizeof address ) == 0;
   if( !isBound ) deviceFailed( device, "can't be watched", errno );
   return fd;
}

/// Whether one of the messages says that the link has gone. A bridge tells so, in its own family, of a port that leaves it.
bool tellsOfRemoval( const char* at, std::size_t bytes, int index ) {
   while( bytes >= NLMSG_LENGTH( sizeof( ifinfomsg ) ) ) {
      nlmsghdr head;
      ifinfomsg link;
      std::memcpy( &head, at, sizeof head );
      std::memcpy( &link, at + NLMSG_HDRLEN, sizeof link );
      if( head.nlmsg_type == RTM_DELLINK && link.ifi_family == AF_UNSPEC && link.ifi_index == index ) return true;
      const std::size_t step = NLMSG_ALIGN( head.nlmsg_len );
      if( step < sizeof head || step > bytes ) break;
      at += step;
      bytes -= step;
   }
   return false;
}

bool exists( int index ) {
   char name[ IF_NAMESIZE ];
   return if_indextoname( static_cast< unsigned >( index ), name ) != nullptr;
}

}

constinit Kel::Type EthDevPam::_Type{ Kel::objectInfo< EthDevPam, Pam >( "Quor::EthDevPam", {} ) };

EthDevPam::EthDevPam( const Kel::String8& deviceName ) : deviceName_( deviceName ), events_( epoll_create1( EPOLL_CLOEXEC ) ) {
   if( !events_ ) deviceFailed( deviceName_, "can't be watched", errno );
   txQueue_.reserve( txBatchFrames );
}

EthDevPam::~EthDevPam() = default;

void EthDevPam::membershipIs( PacketRing& ring, Kel::U16 type, const EthAddr& group, bool on ) const {
   const int error = ring.membershipIs( type, group, on );
   // A device that has gone takes its memberships along, and `dispatch` is about to tell of it.
   if( !error || error == ENODEV || ( error == EADDRNOTAVAIL && !on ) ) return;
   const std::string what = type == PACKET_MR_PROMISC ? "promiscuous mode" : "group " + group.stringValue().str();
   deviceFailed( deviceName_, ( on ? "can't enter " : "can't leave " ) + what, error );
}

void EthDevPam::promiscuousIs( bool on ) {
   if( promiscuous_ == on ) return;
   if( ring_ ) membershipIs( *ring_, PACKET_MR_PROMISC, EthAddr(), on );
   promiscuous_ = on;
}

void EthDevPam::multicastAddrIs( const EthAddr& group, bool on ) {
   if( multicastAddr( group ) == on ) return;
   if( !group.isMulticast() ) {
      throw Kel::RangeException( "EthDevPam::multicastAddr " + group.stringValue().str() + " is no group address" );
   }
   if( ring_ ) membershipIs( *ring_, PACKET_MR_MULTICAST, group, on );
   if( on ) multicastAddrs_.insert( group );
   else multicastAddrs_.erase( group );
}

void EthDevPam::enabledIs( bool on ) {
   if( on == enabled() ) return;
   if( on ) open();
   else close();
}

void EthDevPam::open() {
   // Before the device is looked up, so that its end can't be missed.
   Kel::UniqueFd links = linkSocket( deviceName_ );
   const auto ring = std::make_shared< PacketRing >( deviceName_ );
   if( promiscuous_ ) membershipIs( *ring, PACKET_MR_PROMISC, EthAddr(), true );
   for( const EthAddr& group : multicastAddrs_ ) membershipIs( *ring, PACKET_MR_MULTICAST, group, true );
   for( const int fd : { ring->fd(), links.get() } ) {
      epoll_event interest{ .events = EPOLLIN, .data = { .fd = fd } };
      if( epoll_ctl( events_.get(), EPOLL_CTL_ADD, fd, &interest ) < 0 ) deviceFailed( deviceName_, "can't be watched", errno );
   }
   ring_ = ring;
   links_ = std::move( links );
   index_ = ring->index();
}

void EthDevPam::close() {
   flush();
   counters_.rxDropped += ring_->dropped();
   epoll_ctl( events_.get(), EPOLL_CTL_DEL, ring_->fd(), nullptr );
   ring_ = nullptr;
   links_.reset();
}

EthAddr EthDevPam::address() const { return ring_ ? ring_->address() : EthAddr(); }

bool EthDevPam::dispatch( U32 budget ) {
   const TxBatch batch( Kel::Ptr< EthDevPam >( this ) );
   const auto ring = ring_;
   if( !ring ) return false;
   for( ; budget; --budget ) {
      Kel::Ptr< Packet > frame;
      const auto taken = ring->next( frame );
      if( taken == PacketRing::Taken::nothing ) break;
      if( taken == PacketRing::Taken::cut ) ++counters_.rxCut;
      if( !frame || !( mode_ & PamMode::rx ) ) continue;
      ++counters_.rxFrames;
      deliver( frame );
      if( ring_ != ring ) return false;
   }
   if( !budget ) return true;
   if( deviceHasGone() ) handleGone();
   return false;
}

bool EthDevPam::deviceHasGone() {
   std::array< epoll_event, 2 > ready;
   const int count = epoll_wait( events_.get(), ready.data(), static_cast< int >( ready.size() ), 0 );
   bool isLink = false;
   for( int i = 0; i < count; ++i ) {
      const auto& event = ready[ static_cast< std::size_t >( i ) ];
      isLink |= event.data.fd == links_.get();
      if( event.events & EPOLLERR && event.data.fd == ring_->fd() ) ring_->clearError();
   }
   while( isLink ) {
      alignas( nlmsghdr ) char bytes[ 16384 ];
      sockaddr_nl from{};
      socklen_t size = sizeof from;
      const auto got = recvfrom( links_.get(), bytes, sizeof bytes, 0, reinterpret_cast< sockaddr* >( &from ), &size );
      if( got < 0 && errno == ENOBUFS && !exists( index_ ) ) return true;   // the message may be among those that were lost
      if( got < 0 && errno != ENOBUFS && errno != EINTR ) return false;
      if( got > 0 && from.nl_pid == 0 && tellsOfRemoval( bytes, static_cast< std::size_t >( got ), index_ ) ) return true;
   }
   return false;
}

void EthDevPam::handleGone() {
   close();
   const Kel::String8 why( "Ethernet device '" + deviceName_.str() + "' has gone" );
   if( auto t = Kel::traceHandle( "EthDevPam" ).at( 0, "Quor/EthDevPam" ) ) t << why;
   deliverGone( why );
}

void EthDevPam::tx( const Kel::Ptr< Packet >& pkt ) {
   if( !( mode_ & PamMode::tx ) || !pkt ) return;
   txQueue_.push_back( pkt );
   if( !batches_ || txQueue_.size() == txBatchFrames ) flush();
}

void EthDevPam::flush() {
   std::array< iovec, txBatchFrames > parts;
   std::array< mmsghdr, txBatchFrames > messages{};
   const std::size_t count = txQueue_.size();
   for( std::size_t i = 0; i < count; ++i ) {
      parts[ i ] = { const_cast< Kel::U8* >( txQueue_[ i ]->data() ), txQueue_[ i ]->bytes() };
      messages[ i ].msg_hdr.msg_iov = &parts[ i ];
      messages[ i ].msg_hdr.msg_iovlen = 1;
   }
   for( std::size_t done = 0; done < count; ) {
      const auto left = static_cast< unsigned >( count - done );
      const int sent = ring_ ? sendmmsg( ring_->sendFd(), &messages[ done ], left, MSG_DONTWAIT ) : -1;
      if( sent > 0 ) {
         done += static_cast< unsigned >( sent );
         counters_.txFrames += static_cast< unsigned >( sent );
      } else if( !ring_ || errno == EAGAIN || errno == ENETDOWN || errno == ENXIO ) {
         counters_.txDropped += left;   // no room, or no device in use: the others would have no better luck
         break;
      } else if( errno != EINTR ) {
         ++( errno == EMSGSIZE || errno == EINVAL ? counters_.txRefused : counters_.txDropped );
         ++done;
      }
   }
   txQueue_.clear();
}

EthDevPam::Counters EthDevPam::counters() const {
   if( ring_ ) counters_.rxDropped += ring_->dropped();
   return counters_;
}

}
