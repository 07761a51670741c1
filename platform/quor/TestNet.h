#pragma once

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <kel/Activity.h>
#include <kel/UniqueFd.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <optional>
#include <poll.h>
#include <quor/EthHdr.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <vector>

// A network namespace per test, with two Ethernet devices, near and far, that are the ends of one cable. It goes with its devices
// when the test leaves it. Needs root; without it every test says that it was skipped.
namespace Quor::TestNet {

using Bytes = std::vector< Kel::U8 >;

inline bool run( const std::string& command ) { return std::system( ( command + " > /dev/null 2>&1" ).c_str() ) == 0; }

/// The frames of the tests have this type, one of two that are set apart for experiments (IEEE Std 802-2014, 9.2.4).
inline constexpr Kel::U16 testType = 0x88b5;

/// A frame of the type, with `tags` of (TPID, tag control) before it and `bytes` of payload behind it.
inline Bytes frame( std::initializer_list< std::pair< int, int > > tags, Kel::U8 mark, std::size_t bytes = 46 ) {
   Bytes out{ 0x02, 0, 0, 0, 0, 0x01, 0x02, 0, 0, 0, 0, 0x02 };
   const auto word = [ & ]( int v ) { out.insert( out.end(), { Kel::U8( v >> 8 ), Kel::U8( v ) } ); };
   for( const auto& [ tpid, control ] : tags ) word( tpid ), word( control );
   word( testType );
   out.resize( out.size() + bytes, mark );
   return out;
}

/// A plain packet socket on a device, the other end of the cable.
class FarEnd {
 public:
   explicit FarEnd( const char* device ) : fd_( ::socket( AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0x0300 ) ) {
      sockaddr_ll address{};
      address.sll_family = AF_PACKET;
      address.sll_protocol = 0x0300;   // all, in network byte order
      address.sll_ifindex = static_cast< int >( if_nametoindex( device ) );
      EXPECT_EQ( ::bind( fd_.get(), reinterpret_cast< sockaddr* >( &address ), sizeof address ), 0 );
      const int on = 1;
      setsockopt( fd_.get(), SOL_PACKET, PACKET_AUXDATA, &on, sizeof on );
      setsockopt( fd_.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on );
   }
   void send( const Bytes& bytes ) {
      EXPECT_EQ( ::send( fd_.get(), bytes.data(), bytes.size(), 0 ), static_cast< ssize_t >( bytes.size() ) );
   }
   /// The next frame of the tests' type, its tag in its place; nothing when none comes for seconds.
   std::optional< Bytes > receive() {
      for( pollfd ready{ fd_.get(), POLLIN, 0 }; poll( &ready, 1, 5000 ) == 1; ) {
         const Bytes got = receiveAny();
         for( std::size_t at = 12; at + 2 <= got.size() && at <= 20; at += 4 ) {
            if( netU16( &got[ at ] ) == testType ) return got;
         }
      }
      return std::nullopt;
   }

 private:
   // The tag, which the system has taken out, comes beside the frame, and nothing else does.
   Bytes receiveAny() {
      Bytes out( 65536 );
      struct alignas( cmsghdr ) {
         char bytes[ CMSG_SPACE( sizeof( tpacket_auxdata ) ) ];
      } control;
      iovec part{ out.data(), out.size() };
      msghdr message{ nullptr, 0, &part, 1, &control, sizeof control, 0 };
      out.resize( static_cast< std::size_t >( std::max< ssize_t >( recvmsg( fd_.get(), &message, 0 ), 0 ) ) );
      tpacket_auxdata aux{};
      if( const cmsghdr* head = CMSG_FIRSTHDR( &message ) ) std::memcpy( &aux, CMSG_DATA( head ), sizeof aux );
      if( !( aux.tp_status & TP_STATUS_VLAN_VALID ) || out.size() < 12 ) return out;
      out.insert( out.begin() + 12, 4, 0 );
      netU16Is( &out[ 12 ], aux.tp_vlan_tpid );
      netU16Is( &out[ 14 ], aux.tp_vlan_tci );
      return out;
   }

   Kel::UniqueFd fd_;
};

class Net : public ::testing::Test {
 protected:
   void SetUp() override {
      if( unshare( CLONE_NEWNET ) != 0 ) GTEST_SKIP() << "needs root, to make a network namespace";
      if( !run( "ip link add near0 type veth peer name far0" ) ) GTEST_SKIP() << "needs 'ip' and veth devices";
      ASSERT_TRUE( run( "ip link del near0" ) );
      // Keeps the kernel's own traffic away.
      std::ofstream( "/proc/sys/net/ipv6/conf/default/disable_ipv6" ) << 1;
      plug();
   }
   /// The cable, with both of its ends.
   void plug() {
      ASSERT_TRUE( run( "ip link add near type veth peer name far && ip link set near up && ip link set far up" ) );
      awaitLink();
      far.emplace( "far" );
   }
   /// Waits until both ends are in use: what is sent before that is dropped without a word.
   void awaitLink() {
      const std::string isUp = "[ $(ip link show type veth | grep -c 'state UP') = 2 ]";
      ASSERT_TRUE( run( "for i in $(seq 500); do " + isUp + " && exit; sleep 0.01; done; exit 1" ) );
   }
   void pull() { ASSERT_TRUE( run( "ip link del near" ) ); }

   /// Runs the activity until `done` says so, for some seconds at most.
   template< class Condition >
   bool until( Condition done ) {
      for( int i = 0; i < 1000 && !done(); ++i ) activity.runFor( std::chrono::milliseconds( 10 ) );
      return done();
   }

   Kel::Activity activity;
   std::optional< FarEnd > far;
};

}
