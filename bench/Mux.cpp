#include "Mux.h"

#include <Vanta/VlanMuxDemux.h>
#include <algorithm>
#include <atomic>
#include <benchmark/benchmark.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <kel/UniqueFd.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <time.h>

// What a tag costs in memory, beside the least that it can cost: the frame's addresses moved by 4 bytes and back. And what a
// frame costs on its way through a device of the system, beside a program that calls the system for each, and beside the least
// that the system takes for it: the same calls and the same ring, for a receiver who looks into it by himself and at nothing
// else.

namespace {

using Bench::frameOf;
using Kel::Ptr;
using Kel::U16;
using Kel::U32;
using Kel::U8;
using Quor::EthDevPam;
using Quor::Packet;

U32 bytesOf( const benchmark::State& state ) { return static_cast< U32 >( state.range( 0 ) ); }
U32 framesOf( const benchmark::State& state ) { return static_cast< U32 >( state.range( 1 ) ); }

Ptr< Packet > packetOf( U32 bytes, U32 number ) { return Kel::makePtr< Packet >( frameOf( bytes, number ) ); }

void vantaTag( benchmark::State& state ) {
   const auto machine = Vanta::vlanMuxDemuxFactory( nullptr, "", 1, false );
   Quor::PamMuxDemux& mux = *machine;   // as the endpoints call it
   std::vector< Ptr< Packet > > frames;
   for( U32 i = 0; i < framesOf( state ); ++i ) frames.push_back( packetOf( bytesOf( state ), i ) );
   U32 turn = 0, wrong = 0;
   for( auto _ : state ) {
      const Ptr< Packet >& frame = frames[ turn & ( frames.size() - 1 ) ];
      const U16 vlan = Bench::vlanOf( turn++ );
      mux.doEncapsulate( frame, vlan );
      wrong += mux.decapsulate( frame ) != vlan;
   }
   for( U32 i = 0; i < frames.size(); ++i ) wrong += !std::ranges::equal( frames[ i ]->view(), frameOf( bytesOf( state ), i ) );
   if( wrong ) state.SkipWithError( "not the frame that was tagged" );
}

void bareShift( benchmark::State& state ) {
   std::vector< std::vector< U8 > > frames;
   for( U32 i = 0; i < framesOf( state ); ++i ) {
      frames.push_back( frameOf( bytesOf( state ), i ) );
      frames.back().insert( frames.back().begin(), Packet::defaultHeadRoom, 0 );
   }
   U32 turn = 0;
   for( auto _ : state ) {
      U8* start = frames[ turn++ & ( frames.size() - 1 ) ].data() + Packet::defaultHeadRoom;
      std::memmove( start - 4, start, 12 );
      benchmark::ClobberMemory();
      std::memmove( start, start - 4, 12 );
      benchmark::ClobberMemory();
   }
}

/// Two devices, near and far, that are the ends of one cable in a network namespace of its own. The namespace lives as long as a
/// socket in it, which `opened` opens. Throws `std::runtime_error`.
struct Cable {
   template< class Opened >
   explicit Cable( Opened opened ) {
      const Kel::UniqueFd home( open( "/proc/self/ns/net", O_RDONLY | O_CLOEXEC ) );
      if( !home || unshare( CLONE_NEWNET ) != 0 ) throw std::runtime_error( "it needs root, to make a network namespace" );
      const char* plug = "exec 2> /dev/null; echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6;"
                         " ip link add near type veth peer name far && ip link set near up && ip link set far up &&"
                         // What is sent before is dropped without a word.
                         " for i in $(seq 500); do ip link show near | grep -q 'state UP' && exit; sleep 0.01; done; exit 1";
      const bool isPlugged = std::system( plug ) == 0;
      if( isPlugged ) opened();
      setns( home.get(), CLONE_NEWNET );
      if( !isPlugged ) throw std::runtime_error( "it needs 'ip' and veth devices" );
   }
};

constexpr U32 burst = 64;

double processorTime() {
   timespec t;
   clock_gettime( CLOCK_THREAD_CPUTIME_ID, &t );
   return static_cast< double >( t.tv_sec ) * 1e9 + static_cast< double >( t.tv_nsec );
}

/// Sends and receives bursts of frames that carry a tag; a turn is a frame. Linux takes a frame to the other end of the cable in
/// the sender's time.
template< class Way >
void throughCable( benchmark::State& state ) try {
   Way way( bytesOf( state ) );
   double sending = 0, receiving = 0;
   while( state.KeepRunningBatch( burst ) ) {
      const double start = processorTime();
      way.send();
      const double sent = processorTime();
      if( !way.receive() ) return state.SkipWithError( "frames were lost" );
      sending += sent - start;
      receiving += processorTime() - sent;
   }
   state.counters[ "sent_ns" ] = sending / static_cast< double >( state.iterations() );
   state.counters[ "received_ns" ] = receiving / static_cast< double >( state.iterations() );
} catch( const std::runtime_error& e ) {
   state.SkipWithError( ( "left out: " + std::string( e.what() ) ).c_str() );
}

std::vector< U8 > taggedFrame( U32 bytes ) {
   auto frame = frameOf( bytes, 1 );
   frame.insert( frame.begin() + 12, { 0x81, 0, 0, 10 } );
   return frame;
}

/// What agents have.
class VantaDevices : Quor::PamNotifiee {
 public:
   explicit VantaDevices( U32 bytes ) : frame_( taggedFrame( bytes ) ) {
      const Cable cable( [ this ] {
         for( EthDevPam* end : { near_.ptr(), far_.ptr() } ) {
            end->modeIs( Quor::PamMode::both );
            end->enabledIs( true );
         }
      } );
      far_->notifieeIs( this );
   }
   void send() {
      const EthDevPam::TxBatch batch( near_ );
      for( U32 i = 0; i < burst; ++i ) near_->tx( Kel::makePtr< Packet >( frame_ ) );
   }
   bool receive() {
      received_ = 0;
      for( pollfd ready{ far_->fd(), POLLIN, 0 }; received_ < burst && poll( &ready, 1, 1000 ) == 1; ) far_->dispatch();
      return received_ == burst;
   }

 private:
   void onRx( const Ptr< Packet >& frame ) override { received_ += frame->bytes() == frame_.bytes(); }

   const Packet frame_;
   const Ptr< EthDevPam > near_{ new EthDevPam( "near" ) }, far_{ new EthDevPam( "far" ) };
   U32 received_ = 0;
};

Kel::UniqueFd packetSocket( const char* device, U16 protocol ) {
   Kel::UniqueFd fd( socket( AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0 ) );
   const int on = 1;
   setsockopt( fd.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on );
   sockaddr_ll address{};
   address.sll_family = AF_PACKET;
   address.sll_protocol = __builtin_bswap16( protocol );
   address.sll_ifindex = static_cast< int >( if_nametoindex( device ) );
   if( bind( fd.get(), reinterpret_cast< sockaddr* >( &address ), sizeof address ) != 0 )
      throw std::runtime_error( std::strerror( errno ) );
   return fd;
}

/// A call for a burst, and a ring whose frames are counted and given back.
class BareRing {
 public:
   explicit BareRing( U32 bytes ) : frame_( taggedFrame( bytes ) ) {
      const Cable cable( [ this ] {
         near_ = packetSocket( "near", 0 );
         far_ = packetSocket( "far", ETH_P_ALL );
      } );
      const int version = TPACKET_V2;
      const tpacket_req size{ blockBytes, slots / ( blockBytes / slotBytes ), slotBytes, slots };
      setsockopt( far_.get(), SOL_PACKET, PACKET_VERSION, &version, sizeof version );
      setsockopt( far_.get(), SOL_PACKET, PACKET_RX_RING, &size, sizeof size );
      void* mapped = mmap( nullptr, std::size_t( slots ) * slotBytes, PROT_READ | PROT_WRITE, MAP_SHARED, far_.get(), 0 );
      if( mapped == MAP_FAILED ) throw std::runtime_error( std::strerror( errno ) );
      ring_ = static_cast< U8* >( mapped );
   }
   BareRing( const BareRing& ) = delete;
   BareRing& operator=( const BareRing& ) = delete;
   ~BareRing() { munmap( ring_, std::size_t( slots ) * slotBytes ); }
   void send() {
      iovec part{ frame_.data(), frame_.size() };
      mmsghdr messages[ burst ]{};
      for( mmsghdr& m : messages ) m.msg_hdr.msg_iov = &part, m.msg_hdr.msg_iovlen = 1;
      sent_ = sendmmsg( near_.get(), messages, burst, 0 );
   }
   bool receive() {
      for( ; sent_ > 0; --sent_, at_ = ( at_ + 1 ) % slots ) {
         const std::atomic_ref owner( reinterpret_cast< tpacket2_hdr* >( ring_ + at_ * slotBytes )->tp_status );
         if( !( owner.load( std::memory_order_acquire ) & TP_STATUS_USER ) ) return false;
         owner.store( TP_STATUS_KERNEL, std::memory_order_release );
      }
      return sent_ == 0;
   }

 private:
   static constexpr unsigned slotBytes = 2048, slots = 1024, blockBytes = 65536;
   std::vector< U8 > frame_;
   Kel::UniqueFd near_, far_;
   U8* ring_ = nullptr;
   std::size_t at_ = 0;
   int sent_ = 0;
};

/// A packet socket and a call for each frame; who receives waits on the epoll set that an agent's loop would have.
class PlainSockets {
 public:
   explicit PlainSockets( U32 bytes ) : frame_( taggedFrame( bytes ) ) {
      const Cable cable( [ this ] {
         near_ = packetSocket( "near", ETH_P_ALL );
         far_ = packetSocket( "far", ETH_P_ALL );
      } );
      const int on = 1;
      setsockopt( far_.get(), SOL_PACKET, PACKET_AUXDATA, &on, sizeof on );   // where the tag stands
      epoll_event interest{ .events = EPOLLIN, .data = {} };
      epoll_ctl( events_.get(), EPOLL_CTL_ADD, far_.get(), &interest );
   }
   void send() {
      for( U32 i = 0; i < burst; ++i ) sent_ += ::send( near_.get(), frame_.data(), frame_.size(), 0 ) > 0;
   }
   bool receive() {
      for( ; sent_; --sent_ )
         if( !receiveOne() ) return false;
      return true;
   }

 private:
   bool receiveOne() {
      U8 buffer[ 2048 ];
      alignas( cmsghdr ) char control[ CMSG_SPACE( sizeof( tpacket_auxdata ) ) ];
      iovec part{ buffer, sizeof buffer };
      for( epoll_event ready;; ) {
         msghdr message{ nullptr, 0, &part, 1, control, sizeof control, 0 };
         const ssize_t got = recvmsg( far_.get(), &message, MSG_DONTWAIT );
         if( got >= 0 ) return got + 4 == static_cast< ssize_t >( frame_.size() ) && message.msg_controllen;
         if( epoll_wait( events_.get(), &ready, 1, 1000 ) != 1 ) return false;
      }
   }

   const std::vector< U8 > frame_;
   Kel::UniqueFd near_, far_, events_{ epoll_create1( EPOLL_CLOEXEC ) };
   U32 sent_ = 0;
};

[[maybe_unused]] const bool isRegistered = ( Bench::forEachLoad( []( int bytes, int frames ) {
   benchmark::RegisterBenchmark( "mux-tag/vanta", vantaTag )->Args( { bytes, frames } );
   benchmark::RegisterBenchmark( "mux-tag/memmove", bareShift )->Args( { bytes, frames } );
   if( frames > 1 ) return;
   benchmark::RegisterBenchmark( "mux-device/vanta", throughCable< VantaDevices > )->Arg( bytes );
   benchmark::RegisterBenchmark( "mux-device/bare-ring", throughCable< BareRing > )->Arg( bytes );
   benchmark::RegisterBenchmark( "mux-device/call-per-frame", throughCable< PlainSockets > )->Arg( bytes );
} ), true );

}
