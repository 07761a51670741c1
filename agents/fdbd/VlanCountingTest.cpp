#include "VlanCounting.h"

#include "TestSupport.h"
#include <fstream>
#include <kel/Notifiee.h>
#include <plexo/TestFiles.h>
#include <sstream>

// The agent's counters as `vanta` shows them in another process, and the requests to clear them.

namespace Fdbd {

using namespace Test;

namespace {

const Quor::EthAddr group( 1, 0, 0x5e, 0, 0, 1 );

/// A frame as `frameFrom` makes it, for `destination`.
Bytes frameTo( const Quor::EthAddr& destination, std::initializer_list< std::pair< int, int > > tags = {} ) {
   Bytes out = frameFrom( mac( 1 ), tags );
   std::copy( destination.bytes().begin(), destination.bytes().end(), out.begin() );
   return out;
}

class VlanCounters : public ::testing::Test {
 protected:
   /// What a command writes to standard output; it must exit with 0.
   std::string outputOf( const std::string& command ) const {
      EXPECT_EQ( std::system( ( "timeout 20 " + command + " >" + home.path + "/out" ).c_str() ), 0 ) << command;
      std::ostringstream out;
      out << std::ifstream( home.path + "/out" ).rdbuf();
      return out.str();
   }
   std::string json( int vlan, int octets, int unicast, int multicast, int broadcast ) const {
      std::ostringstream out;
      out << "{\"vlan\":" << vlan << ",\"inOctets\":" << octets << ",\"inUcastPkts\":" << unicast << ",\"inMcastPkts\":" << multicast
          << ",\"inBcastPkts\":" << broadcast
          << ",\"outOctets\":0,\"outUcastPkts\":0,\"outMcastPkts\":0,\"outBcastPkts\":0,\"statsUpdateTime\":";
      return out.str();
   }

   const Plexo::TestDirectory home{ { "PLEXO_DIR", "RILO_DIR" } };
};

}

TEST_F( VlanCounters, AnotherProcessShowsExactlyWhatACaptureHolds ) {
   const Bytes cut( 13, 2 );
   const std::vector< Sent > frames = {
      { 1, frameTo( mac( 2 ) ) },
      { 2, frameTo( group, { { 0x8100, 0xe000 } } ) },                        // priority: the native VLAN
      { 3, frameTo( mac( 2 ), { { 0x88a8, 10 }, { 0x8100, 10 } } ), 1500 },   // so is a service tag; recorded in part
      { 4, frameTo( mac( 2 ), { { 0x8100, 10 } } ), 1518 },
      { 5, frameTo( Quor::EthAddr::broadcast(), { { 0x8100, 10 } } ) },
      { 6, frameTo( Quor::EthAddr::broadcast(), { { 0x8100, 10 } } ) },
      { 7, frameTo( group, { { 0x8100, 4094 } } ) },
      { 8, frameTo( mac( 2 ), { { 0x8100, 4095 } } ) },                       // no VLAN
      { 9, cut },
   };
   std::ofstream( home.path + "/a.pcap", std::ios::binary ) << pcapOf( frames );
   const std::string fdbd = FDBD_PROGRAM " --capture " + home.path + "/a.pcap --pace max --exit-at-end --native-vlan 9";
   outputOf( fdbd + "99" ); // another run, whose counters go
   const double before = wallNow();
   outputOf( fdbd );
   std::string shown = outputOf( VANTA_PROGRAM " counters show --json 2>/dev/null" );
   for( const std::string& line : { json( 9, 1620, 2, 1, 0 ), json( 10, 1638, 1, 0, 2 ), json( 4094, 60, 0, 1, 0 ) } ) {
      const std::size_t at = shown.find( line );
      ASSERT_NE( at, std::string::npos ) << line << " in " << shown;
      const double updated = std::stod( shown.substr( at + line.size() ) );
      EXPECT_TRUE( updated >= before && updated <= wallNow() ) << updated;
   }
   EXPECT_EQ( std::count( shown.begin(), shown.end(), '{' ), 4 ) << "the three, and what they are in";
   outputOf( fdbd + " --vlan-counters other" );
   shown.replace( shown.find( "fdb-vlan-counters" ), 17, "other" );
   EXPECT_EQ( outputOf( VANTA_PROGRAM " counters show --json --table other 2>/dev/null" ).substr( 0, 60 ), shown.substr( 0, 60 ) );
}

TEST_F( VlanCounters, RequestLeavesASnapshotAndGoes ) {
   VlanCounting counting( "c", "s" );
   const auto live = Plexo::Bridging::vlanCounterDirFactory( "live" );
   live->vlanCounterControl().setUp( { .name = "c" } );
   const auto snapshots = Plexo::Bridging::vlanCounterSnapshotDirFactory( "snapshots" );
   snapshots->vlanCounterSnapshotControl().setUp( { .name = "s" } );
   const auto octets = [ & ]( int vlan ) {
      const Bridging::VlanId id( static_cast< Vlan >( vlan ) );
      return std::pair( live->vlanCounter( id ).vlanStats().inOctets(), snapshots->vlanCounterSnapshot( id ).vlanStats().inOctets() );
   };
   using Pair = std::pair< Kel::U64, Kel::U64 >;
   counting.arrived( 10, group, 100 );
   counting.arrived( 20, group, 100 );
   counting.publish( 1e10 );
   counting.arrived( 10, group, 23 );
   EXPECT_EQ( octets( 10 ), Pair( 100, 0 ) );
   counting.requests()->clearCountersRequestIs( Bridging::VlanId( 10 ), false );
   EXPECT_EQ( octets( 10 ), Pair( 123, 123 ) ) << "with what had not been published";
   EXPECT_EQ( octets( 20 ), Pair( 100, 0 ) );
   EXPECT_GT( live->vlanCounter( Bridging::VlanId( 10 ) ).statsUpdateTime(), 1e10 ) << "though the clock has gone back";
   counting.requests()->clearCountersRequestIs( Bridging::VlanId( 30 ), true );
   EXPECT_EQ( snapshots->vlanCounterSnapshotCount(), 1u );
   EXPECT_EQ( counting.requests()->clearCountersRequestCount(), 0u );

   Plexo::FileBytes( home.path + "/s.plexo" ).put( 0, 0 );
   Kel::CallbackFailure failure;
   counting.requests()->clearCountersRequestIs( Bridging::VlanId( 20 ), true );
   EXPECT_THROW( failure.rethrow(), Plexo::AssertionException );
   EXPECT_EQ( counting.requests()->clearCountersRequestCount(), 1u ) << "one that can't be served stays";
   counting.requests()->clearCountersRequestNotifyCollection();
   EXPECT_THROW( failure.rethrow(), Plexo::AssertionException ) << "and is tried again when all are read again";
}

}
