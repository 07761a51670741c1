#include "VlanCounting.h"

#include "TestSupport.h"
#include <fstream>
#include <kel/Notifiee.h>
#include <plexo/TestFiles.h>
#include <regex>
#include <sstream>

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
      std::ostringstream out;
      out << std::ifstream( home.path + "/out" ).rdbuf();
      return out.str();
   }

   const Plexo::TestDirectory home{ { "PLEXO_DIR", "RILO_DIR" } };
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
   VlanCounting counting( "c", "s" );
   const auto live = Plexo::Bridging::vlanCounterDirFactory( "live" );
   live->vlanCounterControl().setUp( { .name = "c" } );
   const auto snapshots = Plexo::Bridging::vlanCounterSnapshotDirFactory( "snapshots" );
   snapshots->vlanCounterSnapshotControl().setUp( { .name = "s" } );
   const Bridging::VlanId ten( 10 ), twenty( 20 );
   counting.arrived( 10, group, 100 );
   counting.arrived( 20, group, 100 );
   counting.publish( 1e10 );
   counting.arrived( 10, group, 23 );
   EXPECT_EQ( live->vlanCounter( ten ).vlanStats().inOctets(), 100u );
   counting.requests()->clearCountersRequestIs( ten, false );
   EXPECT_EQ( live->vlanCounter( ten ).vlanStats().inOctets(), 123u ) << "with what had not been published";
   EXPECT_GT( live->vlanCounter( ten ).statsUpdateTime(), 1e10 ) << "though the clock has gone back";
   EXPECT_EQ( snapshots->vlanCounterSnapshot( ten ), live->vlanCounter( ten ) );
   counting.requests()->clearCountersRequestIs( Bridging::VlanId( 30 ), true ); // has counted nothing
   EXPECT_EQ( snapshots->vlanCounterSnapshotCount(), 1u );
   EXPECT_EQ( counting.requests()->clearCountersRequestCount(), 0u );

   Plexo::FileBytes( home.path + "/s.plexo" ).put( 0, 0 ); // no snapshot can be written any more
   Kel::CallbackFailure failure;
   counting.requests()->clearCountersRequestIs( twenty, true );
   EXPECT_THROW( failure.rethrow(), Plexo::AssertionException );
   counting.requests()->clearCountersRequestNotifyCollection();
   EXPECT_THROW( failure.rethrow(), Plexo::AssertionException ) << "it has stayed, and is tried again";
}

}
