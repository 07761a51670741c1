#include "BridgeSource.h"
#include "InterfaceSource.h"
#include "Run.h"
#include "TestSupport.h"
#include <Vanta/VlanCountersCliReq.h>
#include <cstdio>
#include <fstream>
#include <future>
#include <kel/Path.h>
#include <memory>
#include <net/if.h>
#include <netpacket/packet.h>
#include <plexo/TestFiles.h>
#include <poll.h>
#include <sched.h>
#include <sstream>
#include <sys/socket.h>
#include <thread>

// Against the kernel itself, each test in a network namespace of its own, which goes with all its devices when the test leaves
// it. Frames are sent into h1, h2, ... and arrive on the ports p1, p2, ... Needs root; without it every test says that it was
// skipped.

namespace Fdbd {

using namespace Test;

namespace {

std::string output( const std::string& command ) {
   std::string out;
   std::FILE* pipe = popen( ( command + " 2>&1" ).c_str(), "r" );
   char buffer[ 4096 ];
   while( pipe && std::fgets( buffer, sizeof buffer, pipe ) ) out += buffer;
   if( pipe && pclose( pipe ) != 0 ) ADD_FAILURE() << command << ": " << out;
   return out;
}

bool succeeds( const std::string& command ) { return std::system( ( command + " > /dev/null 2>&1" ).c_str() ) == 0; }

/// The agent as its program runs it, in a thread that owns its tree.
class RunningAgent {
 public:
   explicit RunningAgent( const std::vector< std::string >& words )
       : options_( parsed( words ) ), thread_( [ this ] { run( options_, activity_, root_, []( const std::string& ) {} ); } ) {}
   ~RunningAgent() {
      activity_.stop();
      thread_.join();
      EXPECT_EQ( root_->entries(), 0u ) << "it has taken away what it published";
   }
   /// Calls `f( root )` in that thread, once the agent runs.
   template< class F >
   auto inTree( F f ) {
      std::packaged_task< decltype( f( root_ ) )() > task( [ & ] { return f( root_ ); } );
      activity_.postFromAnyThread( [ & ] { task(); } );
      return task.get_future().get();
   }

 private:
   const Options options_;
   Kel::Activity activity_;
   const Kel::Ptr< Kel::Dir > root_ = Kel::dirFactory( "vanta-fdbd" );
   std::thread thread_;
};

class Live : public ::testing::Test {
 protected:
   void SetUp() override {
      if( unshare( CLONE_NEWNET ) != 0 ) GTEST_SKIP() << "needs root, to make a network namespace";
      if( !succeeds( "ip link add a0 type veth peer name a1" ) ) GTEST_SKIP() << "needs 'ip' and veth devices";
      // The kernel's own IPv6 traffic would be learned too.
      std::ofstream( "/proc/sys/net/ipv6/conf/default/disable_ipv6" ) << 1;
   }

   void addPort( int n, const std::string& bridge = "" ) {
      const std::string p = "p" + std::to_string( n ), h = "h" + std::to_string( n );
      output( "ip link add " + p + " type veth peer name " + h );
      if( !bridge.empty() ) output( "ip link set " + p + " master " + bridge );
      output( "ip link set " + p + " up && ip link set " + h + " up" );
   }
   void addBridge( const std::string& settings = "" ) {
      output( "ip link add br0 type bridge mcast_snooping 0 " + settings + " && ip link set br0 up" );
      for( int n = 1; n <= 3; ++n ) addPort( n, "br0" );
      // A port forwards a moment after its carrier has come.
      until( [] { return output( "bridge link show" ).find( "disabled" ) == std::string::npos; } );
   }

   /// Sends `count` frames into a device, the sources counting up from `first`.
   void send( const std::string& device, std::uint64_t first, std::initializer_list< std::pair< int, int > > tags = {},
              int count = 1 ) {
      const Kel::UniqueFd fd( ::socket( AF_PACKET, SOCK_RAW, 0 ) );
      sockaddr_ll to{};
      to.sll_family = AF_PACKET;
      to.sll_ifindex = static_cast< int >( if_nametoindex( device.c_str() ) );
      for( int i = 0; i < count; ++i ) {
         const Bytes frame = frameFrom( mac( first + static_cast< unsigned >( i ) ), tags );
         ASSERT_EQ( sendto( fd.get(), frame.data(), frame.size(), 0, reinterpret_cast< sockaddr* >( &to ), sizeof to ), 60 )
            << device;
      }
   }

   /// Serves the source until `condition` holds, for 5 seconds at most.
   template< class Condition >
   bool until( Condition condition ) {
      const Nanos end = monotonicNow() + 5 * nanosPerSecond;
      while( !condition() && monotonicNow() < end ) {
         if( source && source->descriptor() >= 0 ) {
            pollfd p = { source->descriptor(), POLLIN, 0 };
            poll( &p, 1, 20 );
         } else {
            poll( nullptr, 0, 20 );
         }
         if( source ) source->service( monotonicNow() );
      }
      return condition();
   }
   /// Serves it for a while in which nothing is expected.
   void forAWhile() {
      const Nanos end = monotonicNow() + nanosPerSecond / 5;
      until( [ & ] { return monotonicNow() >= end; } );
   }
   bool untilHosts( const std::vector< std::string >& expected ) {
      const bool done = until( [ & ] { return bench.sink.lines() == expected; } );
      EXPECT_EQ( bench.sink.lines(), expected );
      return done;
   }
   void follow( const std::string& bridge, int receiveBuffer = 1 << 20 ) {
      source = std::make_unique< BridgeSource >( bridge, BridgeId( 1 ), ports, bench.learner, bench.reporter(), receiveBuffer );
   }
   void listen( const std::string& device, const std::string& name = "" ) {
      source = std::make_unique< InterfaceSource >( device, Quor::IntfId( name ), ports, bench.learner, bench.reporter() );
   }

   /// What the kernel's own tool says of br0, in the form of `MirrorSink::lines`.
   std::vector< std::string > kernelView() const {
      std::vector< std::string > out;
      std::istringstream lines( output( "bridge fdb show br br0" ) );
      for( std::string line; std::getline( lines, line ); ) {
         std::istringstream words( line );
         std::string address, word, device, vlan = "1";
         words >> address;
         while( words >> word ) {
            if( word == "dev" ) words >> device;
            if( word == "vlan" ) words >> vlan;
         }
         const bool isHost = line.find( "permanent" ) == std::string::npos && line.find( "self" ) == std::string::npos;
         if( isHost && !device.empty() ) out.push_back( vlan + " " + address + " " + nameOf( device ) );
      }
      std::sort( out.begin(), out.end(), []( const std::string& a, const std::string& b ) {
         return std::pair( std::stoi( a ), a ) < std::pair( std::stoi( b ), b );
      } );
      // A bridge with VLANs has an entry that a person sets once per VLAN and once without one, which is the native VLAN.
      out.erase( std::unique( out.begin(), out.end() ), out.end() );
      return out;
   }
   static std::string nameOf( const std::string& device ) {
      return Ports().devicePort( static_cast< int >( if_nametoindex( device.c_str() ) ) ).stringValue().str();
   }
   static std::string host( int vlan, std::uint64_t n, const std::string& device ) {
      return std::to_string( vlan ) + " " + mac( n ).stringValue().str() + " " + nameOf( device );
   }
   void expectKernelsView( std::size_t hosts ) {
      EXPECT_TRUE( until( [ & ] { return bench.sink.lines() == kernelView(); } ) );
      EXPECT_EQ( bench.sink.lines(), kernelView() );
      EXPECT_EQ( bench.sink.hosts.size(), hosts );
   }

   Bench bench;
   Ports ports;
   std::unique_ptr< Source > source;
};

}

TEST_F( Live, InterfaceLearnsWithTagsThatTheKernelTookOut ) {
   addPort( 1 );
   listen( "p1", "Ethernet3" );
   ASSERT_TRUE( source->usable() ) << bench.reports[ 0 ];
   send( "h1", 1 );
   send( "h1", 2, { { 0x8100, 10 } } );
   send( "h1", 3, { { 0x8100, 0xe000 } } );
   send( "h1", 4, { { 0x88a8, 20 }, { 0x8100, 30 } } );
   send( "h1", 5, { { 0x8100, 4095 } } );
   send( "p1", 6 ); // leaves through the device
   send( "h1", 2, { { 0x8100, 11 }, { 0x8100, 12 } } );
   EXPECT_TRUE( untilHosts( { "1 02:00:00:00:00:01 Ethernet3", "1 02:00:00:00:00:03 Ethernet3", "1 02:00:00:00:00:04 Ethernet3",
                              "10 02:00:00:00:00:02 Ethernet3", "11 02:00:00:00:00:02 Ethernet3" } ) );
   EXPECT_EQ( bench.learner.statistics().frames, 6u );
   EXPECT_EQ( bench.learner.statistics().reservedVlan, 1u );
   EXPECT_EQ( bench.sink.octets, ( std::map< Vlan, std::size_t >{ { 1, 180 }, { 10, 60 }, { 11, 60 } } ) );
}

TEST_F( Live, InterfaceThatGoesDownVanishesAndComesBack ) {
   addPort( 1 );
   listen( "p1" );
   const std::string first = host( 1, 1, "p1" );
   send( "h1", 1 );
   EXPECT_TRUE( untilHosts( { first } ) );
   output( "ip link set p1 down" );
   EXPECT_TRUE( until( [ & ] { return bench.reported( "interface 'p1': is down; its hosts stay until they age" ); } ) );
   output( "ip link set p1 up" );
   send( "h1", 1 );
   EXPECT_TRUE( until( [ & ] { return bench.reported( "interface 'p1': is up again" ); } ) );
   output( "ip link del p1" );
   EXPECT_TRUE( until( [ & ] { return source->descriptor() < 0; } ) );
   EXPECT_TRUE( bench.reported( "interface 'p1': has disappeared; its hosts stay until they age, "
                                "and it is looked for every second" ) );
   EXPECT_EQ( bench.reports.size(), 3u );
   EXPECT_EQ( bench.sink.lines(), std::vector< std::string >{ first } );
   addPort( 1 );
   EXPECT_TRUE( until( [ & ] { return source->descriptor() >= 0; } ) );
   EXPECT_TRUE( bench.reported( "interface 'p1': is there, learning on " + nameOf( "p1" ) ) );
   send( "h1", 2 );
   EXPECT_TRUE( untilHosts( { first, host( 1, 2, "p1" ) } ) );
}

TEST_F( Live, InterfaceCountsWhatTheKernelDropped ) {
   addPort( 1 );
   listen( "p1" );
   for( int i = 0; i < 6; ++i ) send( "h1", 1, {}, 10000 );
   forAWhile();
   Statistics total = bench.learner.statistics();
   source->addTo( total );
   EXPECT_GT( total.dropped, 0u );
   // What the socket's statistics call a drop never reached us, all else did.
   EXPECT_EQ( total.dropped + total.frames, 60000u );
   const std::uint64_t before = total.dropped;
   total.dropped = 0;
   source->addTo( total );
   EXPECT_EQ( total.dropped, before );
}

TEST_F( Live, SourcesThatCantBeUsedSayWhy ) {
   if( !succeeds( "ip tuntap add dev t1 mode tun" ) ) GTEST_SKIP() << "needs a tun device, to have one that is not Ethernet";
   struct {
      bool bridge;
      const char* name;
      const char* text;
   } const cases[] = {
      { false, "nosuch", "interface 'nosuch': No such device; 'ip link' lists the devices there are" },
      { false, "a-name-that-is-far-too-long", "interface 'a-name-that-is-far-too-long': No such device" },
      { false, "lo", "interface 'lo': not an Ethernet device (hardware type 772); name another one" },
      { false, "t1", "interface 't1': not an Ethernet device (hardware type 65534); name another one" },
      { true, "nosuch", "bridge 'nosuch': No such device; 'ip link show type bridge' lists the bridges there are" },
      { true, "a0", "bridge 'a0': not a bridge; 'ip link show type bridge' lists the bridges there are" },
   };
   for( const auto& c : cases ) {
      bench.reports.clear();
      if( c.bridge ) follow( c.name );
      else listen( c.name );
      EXPECT_FALSE( source->usable() );
      EXPECT_EQ( source->descriptor(), -1 );
      EXPECT_TRUE( bench.reported( c.text ) ) << bench.reports[ 0 ];
      source->service( source->due() );
      EXPECT_EQ( bench.reports.size(), 1u ) << "a source that is still missing is no news";
   }
}

TEST_F( Live, BridgeIsFollowedAsTheKernelSeesIt ) {
   addBridge();
   send( "h1", 1 ), send( "h2", 2 );
   follow( "br0" );
   ASSERT_TRUE( source->usable() ) << bench.reports[ 0 ];
   expectKernelsView( 2 );
   send( "h3", 3 );
   send( "h3", 1 ); // moves
   output( "bridge fdb add 02:00:00:00:00:77 dev p2 master static" );
   output( "bridge fdb add 02:00:00:00:00:78 dev p2 self" );
   output( "bridge fdb add 02:00:00:00:00:79 dev p2 master permanent" );
   expectKernelsView( 4 );
   EXPECT_EQ( bench.sink.hosts[ HostId( 1, mac( 1 ) ) ].moves, 1u );
   EXPECT_EQ( bench.sink.hosts[ HostId( 1, mac( 0x77 ) ) ].kind, HostKind::configured );
   output( "bridge fdb del 02:00:00:00:00:02 dev p2 master" );
   output( "bridge fdb replace 02:00:00:00:00:03 dev p3 master permanent" ); // an address of the bridge's own now
   expectKernelsView( 2 );
   output( "ip link set p3 nomaster" ); // the port goes, and with it what was behind it; the bridge stays
   expectKernelsView( 1 );
   output( "ip link add br1 type bridge && ip link set p3 master br1 && ip link set br1 up" );
   forAWhile();
   send( "h3", 5 ); // another bridge's host
   forAWhile();
   expectKernelsView( 1 );
   EXPECT_TRUE( bench.reports.empty() ) << bench.reports[ 0 ];
}

TEST_F( Live, BridgeWithVlans ) {
   if( !succeeds( "ip link add probe type bridge vlan_filtering 1" ) ) GTEST_SKIP() << "this kernel's bridges have no VLANs";
   addBridge( "vlan_filtering 1 vlan_default_pvid 1" );
   output( "bridge vlan add dev p1 vid 10 && bridge vlan add dev p2 vid 10 && bridge vlan add dev p1 vid 20 pvid untagged" );
   follow( "br0" );
   send( "h1", 1 ), send( "h1", 2, { { 0x8100, 10 } } ), send( "h2", 2 ), send( "h2", 3, { { 0x8100, 0xa000 } } ),
      send( "h2", 4, { { 0x8100, 10 } } );
   EXPECT_TRUE( untilHosts( { host( 1, 2, "p2" ), host( 1, 3, "p2" ), host( 10, 2, "p1" ), host( 10, 4, "p2" ),
                              host( 20, 1, "p1" ) } ) );
   expectKernelsView( 5 );
}

TEST_F( Live, LostChangesAreMadeUpForByAFreshDump ) {
   addBridge();
   follow( "br0", 1 ); // the kernel makes it the smallest buffer it has
   send( "h1", 1, {}, 500 );
   expectKernelsView( 500 );
   // All that happens while nobody reads: additions, moves and removals.
   send( "h2", 400, {}, 600 );
   output( "ip link set p1 nomaster" );
   send( "h3", 900, {}, 300 );
   expectKernelsView( 800 );
   Statistics total;
   source->addTo( total );
   EXPECT_GE( total.bridgeOverruns, 2u );
   EXPECT_TRUE( bench.reported( "bridge 'br0': changes were lost because there were too many at once; "
                                "reading its forwarding database again" ) );
}

TEST_F( Live, HostsOfABridgeThatDisappearsStay ) {
   addBridge();
   follow( "br0" );
   send( "h1", 1 ), send( "h2", 2 );
   const std::vector< std::string > hosts = { host( 1, 1, "p1" ), host( 1, 2, "p2" ) };
   EXPECT_TRUE( untilHosts( hosts ) );
   output( "ip link del br0" );
   EXPECT_TRUE( until( [ & ] { return source->descriptor() < 0; } ) );
   EXPECT_TRUE( bench.reported( "bridge 'br0': has disappeared; its hosts stay until they age, "
                                "and it is looked for every second" ) );
   EXPECT_EQ( bench.sink.lines(), hosts );
   output( "ip link add br0 type bridge && ip link set br0 up && ip link set p1 master br0 && ip link set p2 master br0" );
   EXPECT_TRUE( until( [ & ] { return source->descriptor() >= 0; } ) );
   EXPECT_TRUE( bench.reported( "bridge 'br0': is there, following its forwarding database" ) );
   forAWhile();
   send( "h2", 1 );
   EXPECT_TRUE( untilHosts( { host( 1, 1, "p2" ), hosts[ 1 ] } ) );
   EXPECT_EQ( bench.reports.size(), 2u );
   // The one that the bridge has not seen since it came back ages.
   bench.learner.timeIs( monotonicNow() + 301 * nanosPerSecond );
   EXPECT_EQ( bench.sink.lines(), std::vector< std::string >{ host( 1, 1, "p2" ) } );
}

TEST_F( Live, HostsStayThoughTheBridgeRemovesThemOneByOneBeforeItGoes ) {
   addBridge();
   follow( "br0", 1 << 25 );
   send( "h1", 1, {}, 20000 );
   ASSERT_TRUE( until( [ & ] { return bench.sink.hosts.size() == 20000; } ) );
   // Its removals are read while the kernel is still at it.
   output( "ip link del br0 > /dev/null &" );
   EXPECT_TRUE( until( [ & ] { return source->descriptor() < 0; } ) );
   EXPECT_EQ( bench.sink.hosts.size(), 20000u );
}

/// As a neighbour in the agent's process asks, and as a person sees it in another.
TEST_F( Live, CountersAreClearedByPathWhileTheAgentRuns ) {
   using Root = Kel::Ptr< Kel::Dir >;
   const Plexo::TestDirectory home{ { "PLEXO_DIR", "RILO_DIR" } };
   addPort( 1 );
   RunningAgent agent( { "--interface", "p1", "--vlan-counters", "c" } );
   auto* const requests = agent.inTree( []( const Root& root ) {
      for( const char* const path : { "status", "plexoStatus", "vlanCounters", "vlanCounterSnapshots" } )
         EXPECT_TRUE( Kel::entityAtPath( root, std::string( "bridging/" ) + path ) ) << path;
      return Kel::entityAtPath< Bridging::VlanCountersCliReq >( root, "bridging/vlanCountersCliReq" ).ptr();
   } );
   const auto shows = [ & ]( int vlan, int broadcasts ) { // of 60 octets each
      const std::string row = "{\"vlan\":" + std::to_string( vlan ) + ",\"inOctets\":" + std::to_string( broadcasts * 60 ) +
                              ",\"inUcastPkts\":0,\"inMcastPkts\":0,\"inBcastPkts\":" + std::to_string( broadcasts ) + ",";
      return until( [ & ] { return output( VANTA_PROGRAM " counters show --table c --json" ).find( row ) != row.npos; } );
   };
   send( "h1", 1, { { 0x8100, 10 } }, 3 ), send( "h1", 1, { { 0x8100, 20 } }, 2 );
   EXPECT_TRUE( shows( 10, 3 ) && shows( 20, 2 ) );
   agent.inTree( [ & ]( const Root& ) { // 30 has counted nothing
      for( const Vlan vlan : { Vlan( 10 ), Vlan( 20 ), Vlan( 30 ) } )
         requests->clearCountersRequestIs( Bridging::VlanId( vlan ), vlan == 10 );
   } );
   const auto allServed = [ & ]( const Root& ) { return requests->clearCountersRequestCount() == 0; };
   EXPECT_TRUE( until( [ & ] { return agent.inTree( allServed ); } ) ) << "though nothing arrives";
   EXPECT_TRUE( shows( 10, 0 ) && shows( 20, 0 ) );
   send( "h1", 1, { { 0x8100, 10 } } );
   EXPECT_TRUE( shows( 10, 1 ) && shows( 20, 0 ) );
}

}
