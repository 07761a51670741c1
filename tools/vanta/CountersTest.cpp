#include "Counters.h"

#include "VantaTest.h"

#include <Vanta/VlanCounters.h>
#include <atomic>
#include <cmath>
#include <thread>

// This test writes the tables, another process shows them.

namespace Tool {
namespace {

constexpr Kel::U64 highest = ~Kel::U64();

Plexo::Bridging::VlanCounter counter( Kel::U16 vlan, Kel::U64 octets, Kel::U64 packets, double time ) {
   return { Bridging::VlanId( vlan ), { octets, packets, 0, 0, 0, 0, 0, highest }, time };
}

class Counters : public VantaCommand {
 protected:
   Counters() {
      live->vlanCounterControl().setUp( { .name = "fdb-vlan-counters", .mode = Plexo::TableMode::writer } );
   }
   void snapshot( const Plexo::Bridging::VlanCounter& record ) {
      auto& control = snapshots->vlanCounterSnapshotControl();
      if( control.mode() == Plexo::TableMode::none )
         control.setUp( { .name = "fdb-vlan-counters-snapshot", .mode = Plexo::TableMode::writer } );
      snapshots->vlanCounterSnapshotIs( record );
   }

   const Kel::Ptr< Plexo::Bridging::VlanCounterDir > live = Plexo::Bridging::vlanCounterDirFactory( "live" );
   const Kel::Ptr< Plexo::Bridging::VlanCounterSnapshotDir > snapshots =
      Plexo::Bridging::vlanCounterSnapshotDirFactory( "snapshots" );
};

TEST_F( Counters, ShowsWhatPassedSinceTheSnapshot ) {
   live->vlanCounterIs( counter( 4094, 7, 1, 1000000000.5 ) );
   EXPECT_EQ( parsed( run( "counters show --json" ).out )[ "vlans" ][ 0 ][ "inOctets" ].GetUint64(), 7u ) << "never cleared";
   live->vlanCounterIs( counter( 1, 5, 300, 1000000000.5 ) );
   live->vlanCounterIs( counter( 10, 5000, 300, 1000000000 ) );
   snapshot( counter( 1, highest - 4, 100, 1000000000.5 ) ); // the count has wrapped since
   snapshot( counter( 10, 4000, 200, 1000000000.5 ) );       // newer than the count
   snapshot( counter( 11, 4000, 200, 1000000000.5 ) );
   const Outcome text = run( "counters show" );
   EXPECT_EQ( text.out,
              "VLAN  IN OCTETS  IN UCAST  IN MCAST  IN BCAST  OUT OCTETS  OUT UCAST  OUT MCAST             OUT BCAST  UPDATED\n"
              "   1         10       200         0         0           0          0          0                     0  "
              "2001-09-09 01:46:40\n"
              "  10          0         0         0         0           0          0          0                     0  "
              "2001-09-09 01:46:40\n"
              "4094          7         1         0         0           0          0          0  18446744073709551615  "
              "2001-09-09 01:46:40\n" );
   EXPECT_EQ( text.err, "" );
   EXPECT_EQ( run( "counters show --json --vlan 1" ).out,
              "{\"table\":\"fdb-vlan-counters\",\"state\":\"live\",\"vlans\":[{\"vlan\":1,\"inOctets\":10,\"inUcastPkts\":200,"
              "\"inMcastPkts\":0,\"inBcastPkts\":0,\"outOctets\":0,\"outUcastPkts\":0,\"outMcastPkts\":0,\"outBcastPkts\":0,"
              "\"statsUpdateTime\":1000000000.5}]}\n" );
}

TEST_F( Counters, RateIsOfWhatPassesBetweenTwoReadings ) {
   std::atomic< bool > done = false;
   live->vlanCounterIs( counter( 1, 1000, 1, 1 ) );
   std::thread writer( [ & ] {
      for( Kel::U64 n = 2; !done; ++n ) {
         live->vlanCounterIs( counter( 1, n * 1000, n, double( n ) ) );
         snapshot( counter( 1, n * 1000, n, double( n ) ) ); // that somebody clears them is not seen in the rate
         std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
      }
   } );
   const auto json = parsed( run( "counters show --json --rate --interval 0.3" ).out );
   done = true;
   writer.join();
   const auto& vlan = json[ "vlans" ][ 0 ];
   const double seconds = json[ "seconds" ].GetDouble(), packets = vlan[ "inUcastPkts" ].GetDouble() * seconds;
   EXPECT_GE( seconds, 0.3 );
   EXPECT_GE( packets, 1 );
   EXPECT_NEAR( packets, std::round( packets ), 1e-6 );
   EXPECT_NEAR( vlan[ "inOctets" ].GetDouble() * seconds, packets * 1000, 1e-3 );
   EXPECT_EQ( vlan[ "outBcastPkts" ].GetDouble(), 0 );
   EXPECT_EQ( passed( 2, highest - 2 ), 5u ) << "it has wrapped";
   EXPECT_EQ( passed( 300, 1000 ), 300u ) << "it has begun again";
}

TEST_F( Counters, ExitCodesOfShow ) {
   live->vlanCounterIs( counter( 1, 1000, 1, 1 ) );
   std::ofstream( directory_ + "/foreign.plexo" ) << "something else";
   struct {
      const char* arguments;
      int code;
      const char* text;
   } const cases[] = {
      { "--vlan 1", 0, "" },
      { "--vlan 2", 1, "vanta counters show: VLAN 2 has no counters in table 'fdb-vlan-counters' in " },
      { "--vlan 4095", 2, "vanta counters show: --vlan is a number from 1 to 4094, not '4095'; " },
      { "--interval 2", 2, "vanta counters show: --interval is for --rate; " },
      { "--rate --interval 0", 2, "vanta counters show: --interval is more than 0 seconds; " },
      { "--table a/b", 2, "vanta counters show: --table: " },
      { "--table other", 3, "vanta counters show: there is no table 'other' in " },
      { "--table foreign", 3, "vanta counters show: table 'foreign' in " },
   };
   for( const auto& c : cases ) {
      const Outcome result = run( std::string( "counters show " ) + c.arguments );
      EXPECT_EQ( result.code, c.code ) << c.arguments;
      EXPECT_EQ( result.err.rfind( c.text, 0 ), 0u ) << result.err;
   }
}

}
}
