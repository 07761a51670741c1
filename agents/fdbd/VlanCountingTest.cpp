#include "VlanCounting.h"

#include "TestSupport.h"
#include <kel/Path.h>
#include <plexo/TestFiles.h>
#include <regex>

// The agent's counters as `vanta` shows them in another process, and the requests to clear them.

namespace Fdbd {

using namespace Test;

namespace {

const Quor::EthAddr group( 1, 0, 0x5e, 0, 0, 1 );

/// A frame of so many octets, of which 60 are recorded.
Sent sent( const Quor::EthAddr& to, std::size_t length, std::initializer_list< std::pair< int, int > > tags = {} ) {
   Sent out{ 1, frameFrom( mac( 1 ), tags ), length };
   std::copy( to.bytes().begin(), to.bytes().end(), out.frame.begin() );
   return out;
}

class VlanCounters : public ::testing::Test {
 protected:
   /// What a command writes to standard output.
   std::string outputOf( const std::string& command ) const {
      EXPECT_EQ( std::system( ( "timeout 20 " + command + " >" + home.path + "/out" ).c_str() ), 0 ) << command;
      return Plexo::contentOf( home.path + "/out" );
   }

   const Plexo::TestDirectory home{ { "PLEXO_DIR", "RILO_DIR" } };
};

/// Counters and what stands in their tree.
struct Counting {
   template< class T >
   Kel::Ptr< T > at( const char* path ) const {
      return Kel::entityAtPath< T >( tree, path );
   }
   void arrive( Vlan vlan, std::size_t octets ) { counters.arrived( vlan, group, octets ); }
   /// Asks for it, with either value.
   void request( Vlan vlan ) { requests->clearCountersRequestIs( Bridging::VlanId( vlan ), vlan % 2 ); }
   /// Serves what is due, and says how many requests are left.
   std::size_t waiting() {
      activity.dispatch( std::chrono::seconds( 10 ) );
      return requests->clearCountersRequestCount();
   }
   /// How many snapshots there are. Each is what its VLAN has counted.
   std::size_t snapshots() const {
      const auto dir = at< Plexo::Bridging::VlanCounterSnapshotDir >( "vlanCounterSnapshots" );
      for( auto i = dir->vlanCounterSnapshotIterConst(); i; ++i ) EXPECT_EQ( i.value(), live->vlanCounter( i.key() ) );
      return dir->vlanCounterSnapshotCount();
   }

   Kel::Activity activity;
   const Kel::Ptr< Kel::Dir > tree = Kel::dirFactory( "tree" );
   std::string reports;
   VlanCounting counters{ activity, *tree, "c", "s", [ this ]( const std::string& line ) { reports += line + '\n'; } };
   const Kel::Ptr< Plexo::Bridging::VlanCounterDir > live = at< Plexo::Bridging::VlanCounterDir >( "vlanCounters" );
   const Kel::Ptr< Bridging::VlanCountersCliReq > requests = at< Bridging::VlanCountersCliReq >( "vlanCountersCliReq" );
};

}

TEST_F( VlanCounters, AnotherProcessShowsExactlyWhatACaptureHolds ) {
   const std::vector< Sent > frames = {
      sent( mac( 2 ), 60 ), sent( group, 60, { { 0x8100, 0xe000 } } ),                  // untagged and priority: the native VLAN
      sent( mac( 2 ), 1500, { { 0x88a8, 10 }, { 0x8100, 10 } } ),                       // a service tag as well
      sent( mac( 2 ), 1518, { { 0x8100, 10 } } ), sent( Quor::EthAddr::broadcast(), 60, { { 0x8100, 10 } } ),
      sent( Quor::EthAddr::broadcast(), 60, { { 0x8100, 10 } } ), sent( group, 60, { { 0x8100, 4094 } } ),
      sent( mac( 2 ), 60, { { 0x8100, 4095 } } ), { 1, Bytes( 13, 2 ) },                // in no VLAN
   };
   std::ofstream( home.path + "/a.pcap", std::ios::binary ) << pcapOf( frames );
   const std::string fdbd =
      FDBD_PROGRAM " --capture " + home.path + "/a.pcap --vlan-counters c --pace max --exit-at-end --native-vlan 9";
   outputOf( fdbd + "99" ); // another run, whose counters go
   const double before = wallNow();
   outputOf( fdbd );
   const std::string shown = outputOf( VANTA_PROGRAM " counters show --table c --json 2>/dev/null" );
   const std::regex row( R"(\{"vlan":(\d+),"inOctets":(\d+),"inUcastPkts":(\d+),"inMcastPkts":(\d+),"inBcastPkts":(\d+),)"
                         R"("outOctets":0,"outUcastPkts":0,"outMcastPkts":0,"outBcastPkts":0,"statsUpdateTime":([0-9.]+)\},?)" );
   EXPECT_EQ( std::regex_replace( shown, row, "($1: $2 $3 $4 $5)" ),
              "{\"table\":\"c\",\"state\":\"stale\",\"vlans\":[(9: 1620 2 1 0)(10: 1638 1 0 2)(4094: 60 0 1 0)]}\n" );
   for( std::sregex_iterator i( shown.begin(), shown.end(), row ), end; i != end; ++i )
      EXPECT_TRUE( std::stod( ( *i )[ 6 ] ) >= before && std::stod( ( *i )[ 6 ] ) <= wallNow() ) << ( *i )[ 6 ];
}

TEST_F( VlanCounters, RequestLeavesASnapshotAndGoes ) {
   Counting c;
   c.arrive( 10, 100 );
   c.arrive( 20, 100 );
   c.counters.publish( 1e10 );
   c.arrive( 10, 23 );
   EXPECT_EQ( c.live->vlanCounter( Bridging::VlanId( 10 ) ).vlanStats().inOctets(), 100u );
   c.request( 10 );
   EXPECT_EQ( c.waiting(), 0u );
   EXPECT_EQ( c.live->vlanCounter( Bridging::VlanId( 10 ) ).vlanStats().inOctets(), 123u ) << "with what had not been published";
   EXPECT_GT( c.live->vlanCounter( Bridging::VlanId( 10 ) ).statsUpdateTime(), 1e10 ) << "though the clock has gone back";
   EXPECT_EQ( c.snapshots(), 1u );
   c.request( 31 ); // has counted nothing
   EXPECT_EQ( c.waiting(), 0u );
   EXPECT_EQ( c.snapshots(), 1u );

   Plexo::FileBytes( home.path + "/s.plexo" ).put( 0, 0 ); // no snapshot can be written any more
   c.request( 20 );
   EXPECT_THROW( c.waiting(), Plexo::AssertionException );
   c.requests->clearCountersRequestNotifyCollection();
   EXPECT_THROW( c.waiting(), Plexo::AssertionException ) << "it has stayed";
}

TEST_F( VlanCounters, RequestWaitsForRoomInTheFileSystem ) {
   const bool isSmall = mountsArePrivate() && mount( "none", home.path.c_str(), "tmpfs", 0, "size=2m" ) == 0;
   if( !isSmall ) GTEST_SKIP() << "needs root, to mount a small file system";
   {
      Counting c;
      for( Vlan vlan = minVlan; vlan <= maxVlan; ++vlan ) c.arrive( vlan, vlan );
      c.counters.publish( 1 );
      const std::regex once( "clearing the counters of VLANs waits, and is tried again every second: table .*/s.plexo cannot "
                             "grow: .*; make room there, or name another directory in PLEXO_DIR\n" );
      for( const Vlan last : { Vlan( maxVlan / 2 ), maxVlan } ) { // it waits, is served, and waits once more
         const std::size_t served = c.snapshots();
         std::ofstream( home.path + "/filler" ) << std::string( 1 << 21, 'x' );
         for( Vlan vlan = Vlan( served + 1 ); vlan <= last; ++vlan ) c.request( vlan );
         const std::size_t waiting = c.waiting();
         EXPECT_TRUE( waiting > 0 && c.snapshots() == last - waiting ) << waiting;
         c.request( minVlan ); // needs no room, and does not wait for the next attempt
         EXPECT_EQ( c.waiting(), waiting );
         EXPECT_TRUE( std::regex_match( c.reports, once ) ) << c.reports;
         std::filesystem::remove( home.path + "/filler" );
         const Kel::Timer done = c.activity.every( std::chrono::milliseconds( 10 ), [ & ] {
            if( c.requests->clearCountersRequestCount() == 0 ) c.activity.stop();
         } );
         EXPECT_TRUE( c.activity.runFor( std::chrono::seconds( 20 ) ) );
         EXPECT_EQ( c.snapshots(), std::size_t( last ) );
         EXPECT_TRUE( std::regex_match( std::exchange( c.reports, {} ), once ) );
      }
   }
   EXPECT_EQ( Counting().snapshots(), 0u ) << "another run";
   EXPECT_EQ( umount( home.path.c_str() ), 0 );
}

}
