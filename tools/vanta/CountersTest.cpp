#include "Counters.h"

#include "VantaTest.h"

#include <Vanta/VlanCounters.h>
#include <algorithm>
#include <atomic>
#include <thread>

// This test writes the tables, another process shows them.

namespace Tool {
namespace {

constexpr Kel::U64 highest = ~Kel::U64();

struct Counters : VantaCommand {
   Counters() {
      live->vlanCounterControl().setUp( { .name = "fdb-vlan-counters", .mode = Plexo::TableMode::writer } );
      snapshots->vlanCounterSnapshotControl().setUp( { .name = "fdb-vlan-counters-snapshot", .mode = Plexo::TableMode::writer } );
   }
   static Plexo::Bridging::VlanCounter counter( Kel::U16 vlan, Kel::U64 octets, Kel::U64 packets, double time ) {
      return { Bridging::VlanId( vlan ), { octets, packets, 0, 0, 0, 0, 0, highest }, time };
   }

   Kel::Ptr< Plexo::Bridging::VlanCounterDir > live = Plexo::Bridging::vlanCounterDirFactory( "live" );
   const Kel::Ptr< Plexo::Bridging::VlanCounterSnapshotDir > snapshots = Plexo::Bridging::vlanCounterSnapshotDirFactory( "s" );
};

TEST_F( Counters, ShowsWhatPassedSinceTheSnapshot ) {
   live->vlanCounterIs( counter( 4094, 7, 1, 1000000000 ) );
   live->vlanCounterIs( counter( 1, 5, 300, 1000000000 ) );
   live->vlanCounterIs( counter( 10, 5000, 300, 1000000000 ) );
   snapshots->vlanCounterSnapshotIs( counter( 1, highest - 4, 100, 1000000000 ) ); // the count has wrapped since
   snapshots->vlanCounterSnapshotIs( counter( 10, 4000, 200, 1000000000.5 ) );     // newer than the count
   snapshots->vlanCounterSnapshotIs( counter( 11, 4000, 200, 1000000000 ) );
   snapshots->vlanCounterSnapshotIs( { Bridging::VlanId( 4094 ), { 50, 20, 0, 0, 0, 0, 0, 0 }, 1e9 } ); // it has begun again since
   const std::string time = "  2001-09-09 01:46:40\n";
   EXPECT_EQ( run( "counters show" ).out,
      "VLAN  IN OCTETS  IN UCAST  IN MCAST  IN BCAST  OUT OCTETS  OUT UCAST  OUT MCAST             OUT BCAST  UPDATED\n"
      "   1         10       200         0         0           0          0          0                     0" + time +
      "  10          0         0         0         0           0          0          0                     0" + time +
      "4094          7         1         0         0           0          0          0  18446744073709551615" + time );
}

TEST_F( Counters, RateIsOfWhatPassesBetweenTwoReadings ) {
   std::atomic< bool > done = false;
   live->vlanCounterIs( counter( 1, 1000, 1, 1 ) );
   live->vlanCounterIs( counter( 4094, 5000, 5, 1 ) );
   EXPECT_EQ( run( "counters show --rate --interval 0.01" ).out.rfind( "VLAN  IN OCTETS/S  IN UCAST/S  ", 0 ), 0u );
   std::thread writer( [ & ] {
      for( Kel::U16 n = 3; !done; n = std::min< Kel::U16 >( Kel::U16( n + 1 ), 4094 ) ) {
         live->vlanCounterIs( counter( Kel::U16( 4096 - n ), 5000, 5, double( n ) ) ); // another VLAN each time
         live->vlanCounterIs( counter( 1, n * 1000u, n, double( n ) ) );
         snapshots->vlanCounterSnapshotIs( counter( 1, n * 1000u, n, double( n ) ) ); // clearing does not show in the rate
         std::this_thread::sleep_for( std::chrono::milliseconds( 2 ) );
      }
   } );
   const auto json = parsed( run( "counters show --json --rate --interval 0.3" ).out );
   done = true;
   writer.join();
   const auto& vlans = json[ "vlans" ];
   const auto& vlan = vlans[ 0 ];
   const double seconds = json[ "seconds" ].GetDouble();
   EXPECT_GE( seconds, 0.3 );
   EXPECT_NEAR( vlans[ 1 ][ "inUcastPkts" ].GetDouble() * seconds, 5, 1e-6 ) << "it was not there before, others behind it were";
   EXPECT_EQ( vlans[ vlans.Size() - 1 ][ "inUcastPkts" ].GetDouble(), 0 ) << "it was, and nothing has passed";
   const double packets = vlan[ "inUcastPkts" ].GetDouble() * seconds;
   EXPECT_NEAR( packets, double( std::int64_t( packets + 0.5 ) ), 1e-6 );
   EXPECT_GE( packets, 0.9 );
   EXPECT_NEAR( vlan[ "inOctets" ].GetDouble(), vlan[ "inUcastPkts" ].GetDouble() * 1000, 1e-3 );
   EXPECT_EQ( vlan[ "outBcastPkts" ].GetDouble(), 0 );
   EXPECT_EQ( passed( 2, highest - 2 ), 5u ) << "it has wrapped";
   EXPECT_EQ( passed( 300, 1000 ), 300u ) << "it has begun again";
}

TEST_F( Counters, OneVlanOfAWriterThatIsGone ) {
   for( const Kel::U16 vlan : std::initializer_list< Kel::U16 >{ 1, 20, 4094 } ) live->vlanCounterIs( counter( vlan, vlan, 0, 1 ) );
   live = nullptr;
   for( const char* rate : { "", " --rate --interval 0.01" } ) {
      const Outcome result = run( std::string( "counters show --json --vlan 20" ) + rate );
      EXPECT_EQ( result.err, "vanta counters show: the writer of table 'fdb-vlan-counters' in " + directory_ +
                                " is gone; these are its last records\n" );
      const auto json = parsed( result.out );
      ASSERT_EQ( json[ "vlans" ].Size(), 1u );
      EXPECT_EQ( json[ "vlans" ][ 0 ][ "vlan" ].GetInt(), 20 );
      EXPECT_EQ( json[ "vlans" ][ 0 ][ "inOctets" ].GetDouble(), *rate ? 0 : 20 );
      EXPECT_STREQ( json[ "state" ].GetString(), "stale" );
   }
}

TEST_F( Counters, ExitCodesOfShow ) {
   const auto odd = Plexo::Bridging::vlanCounterDirFactory( "odd" );
   live->vlanCounterIs( counter( 1, 1000, 1, 1 ) );
   for( const char* name : { "foreign", "odd-snapshot" } ) std::ofstream( directory_ + "/" + name + ".plexo" ) << "something else";
   odd->vlanCounterControl().setUp( { .name = "odd", .mode = Plexo::TableMode::writer } );
   struct {
      const char* arguments;
      int code;
      std::string text;
   } const cases[] = {
      { "--vlan 1", 0, "" },
      { "--vlan 2", 1, "VLAN 2 has no counters in table 'fdb-vlan-counters' in " },
      { "--vlan 4095", 2, "--vlan is a number from 1 to 4094, not '4095'; " },
      { "--interval 2", 2, "--interval is for --rate; " },
      { "--rate --interval 0", 2, "--interval is more than 0 seconds; " },
      { "--table a/b", 2, "--table: " },
      { "--table other", 3, "there is no table 'other' in " },
      { "--table foreign", 3, "table 'foreign' in " },
      { "--table odd", 3, "table 'odd-snapshot' in " },
      { "--table odd --rate --interval 0.01", 0, "" },
   };
   for( const auto& c : cases ) {
      const Outcome result = run( std::string( "counters show " ) + c.arguments );
      EXPECT_EQ( result.code, c.code ) << c.arguments;
      EXPECT_EQ( result.err.rfind( c.text.empty() ? "" : "vanta counters show: " + c.text, 0 ), 0u ) << result.err;
   }
}

}
}
