#include "TestSupport.h"
#include <random>

namespace Fdbd {

using namespace Test;

namespace {

constexpr Nanos s = nanosPerSecond;

FdbLearner::Settings agingAfter( Nanos time ) { return { .nativeVlan = 1, .agingTime = time, .capacity = 1000 }; }

}

TEST( FdbLearner, OnlyStationsInRealVlansAreLearned ) {
   struct {
      const char* name;
      Bytes frame;
      std::vector< std::string > learned;
      std::uint64_t Statistics::*counter;
   } const cases[] = {
      { "untagged", frameFrom( mac( 1 ) ), { "9 02:00:00:00:00:01 Ethernet3" }, &Statistics::learned },
      { "tagged", frameFrom( mac( 1 ), { { 0x8100, 4094 } } ), { "4094 02:00:00:00:00:01 Ethernet3" }, &Statistics::learned },
      { "priority", frameFrom( mac( 1 ), { { 0x8100, 0xe000 } } ), { "9 02:00:00:00:00:01 Ethernet3" }, &Statistics::learned },
      { "reserved", frameFrom( mac( 1 ), { { 0x8100, 4095 } } ), {}, &Statistics::reservedVlan },
      { "zero source", frameFrom( Quor::EthAddr() ), {}, &Statistics::notStation },
      { "group source", frameFrom( Quor::EthAddr( 1, 0, 0x5e, 0, 0, 1 ) ), {}, &Statistics::notStation },
      { "broadcast source", frameFrom( Quor::EthAddr::broadcast() ), {}, &Statistics::notStation },
      { "cut", Bytes( 13, 2 ), {}, &Statistics::truncated },
   };
   for( const auto& c : cases ) {
      SCOPED_TRACE( c.name );
      Bench bench( { .nativeVlan = 9 } );
      bench.learner.frame( port( 3 ), c.frame, 1 );
      EXPECT_EQ( bench.sink.lines(), c.learned );
      EXPECT_EQ( bench.learner.statistics().*c.counter, 1u );
      EXPECT_EQ( bench.learner.statistics().frames, 1u );
   }
}

TEST( FdbLearner, MoveCountsAndTakesTheTimeOfItsFrame ) {
   Bench bench;
   const HostId id( 1, mac( 1 ) );
   bench.learner.seen( id, port( 1 ), 100.5 );
   EXPECT_EQ( bench.sink.hosts[ id ], ( Host{ port( 1 ), 0, 0, HostKind::learned } ) );
   bench.learner.seen( id, port( 1 ), 101 );
   bench.learner.seen( id, port( 2 ), 102.25 );
   EXPECT_EQ( bench.sink.hosts[ id ], ( Host{ port( 2 ), 1, 102.25, HostKind::learned } ) );
   bench.learner.seen( id, port( 1 ), 103 );
   EXPECT_EQ( bench.sink.hosts[ id ], ( Host{ port( 1 ), 2, 103, HostKind::learned } ) );
   // The same address in another VLAN is another host.
   bench.learner.seen( HostId( 2, mac( 1 ) ), port( 7 ), 104 );
   EXPECT_EQ( bench.sink.hosts.size(), 2u );
   EXPECT_EQ( bench.learner.statistics().moved, 2u );
}

TEST( FdbLearner, AgesOutExactlyAgingTimeAfterItWasLastSeen ) {
   Bench bench( agingAfter( 300 * s ) );
   bench.learner.timeIs( 10 * s );
   bench.learner.seen( HostId( 1, mac( 1 ) ), port( 1 ), 0 );
   bench.learner.seen( HostId( 1, mac( 2 ) ), port( 1 ), 0 );
   bench.learner.timeIs( 200 * s );
   bench.learner.seen( HostId( 1, mac( 1 ) ), port( 1 ), 0 );
   bench.learner.timeIs( 310 * s - 1 );
   EXPECT_EQ( bench.sink.hosts.size(), 2u );
   EXPECT_EQ( bench.learner.nextAging(), 310 * s );
   bench.learner.timeIs( 310 * s );
   EXPECT_EQ( bench.sink.lines(), std::vector< std::string >{ "1 02:00:00:00:00:01 Ethernet1" } );
   bench.learner.timeIs( 5 * s ); // time does not go back
   bench.learner.seen( HostId( 1, mac( 3 ) ), port( 1 ), 0 );
   bench.learner.timeIs( 500 * s );
   EXPECT_EQ( bench.sink.lines(), std::vector< std::string >{ "1 02:00:00:00:00:03 Ethernet1" } );
   EXPECT_EQ( bench.learner.statistics().aged, 2u );
}

TEST( FdbLearner, AgingTimeZeroKeepsHosts ) {
   Bench bench( agingAfter( 0 ) );
   bench.learner.seen( HostId( 1, mac( 1 ) ), port( 1 ), 0 );
   bench.learner.timeIs( 1'000'000'000 * s );
   EXPECT_EQ( bench.sink.hosts.size(), 1u );
   EXPECT_EQ( bench.learner.nextAging(), never );
}

TEST( FdbLearner, FullTableRefusesNewHostsAndSaysSoOnce ) {
   Bench bench( { .agingTime = 10 * s, .capacity = 3 } );
   for( int i = 1; i <= 5; ++i ) bench.learner.seen( HostId( 1, mac( i ) ), port( 1 ), 0 );
   bench.learner.seen( HostId( 1, mac( 2 ) ), port( 2 ), 1 ); // those that are there still move
   EXPECT_EQ( bench.sink.hosts.size(), 3u );
   EXPECT_EQ( bench.learner.statistics().refused, 2u );
   ASSERT_EQ( bench.reports.size(), 1u );
   EXPECT_EQ( bench.reports[ 0 ], "the table is full at 3 hosts, further hosts are not learned: start with a larger --capacity" );
   bench.learner.timeIs( 10 * s );
   bench.learner.seen( HostId( 1, mac( 9 ) ), port( 1 ), 0 );
   EXPECT_EQ( bench.sink.lines(), std::vector< std::string >{ "1 02:00:00:00:00:09 Ethernet1" } );
}

TEST( FdbLearner, BridgeAgesItsOwnHosts ) {
   Bench bench( agingAfter( 300 * s ) );
   bench.learner.bridgeHost( 1, 0, mac( 1 ), port( 1 ), HostKind::learned, 5 );
   bench.learner.bridgeHost( 1, 20, mac( 2 ), port( 2 ), HostKind::configured, 5 );
   bench.learner.timeIs( 1000 * s );
   EXPECT_EQ( bench.sink.lines(), ( std::vector< std::string >{ "1 02:00:00:00:00:01 Ethernet1", "20 02:00:00:00:00:02 Ethernet2" } ) );
   bench.learner.bridgeHostGone( 2, 0, mac( 1 ) ); // another bridge's word
   EXPECT_EQ( bench.sink.hosts.size(), 2u );
   bench.learner.bridgeHostGone( 1, 0, mac( 1 ) );
   bench.learner.bridgeHostGone( 1, 0, mac( 1 ) );
   bench.learner.seen( HostId( 20, mac( 2 ) ), port( 9 ), 6 ); // what a person has set stays
   EXPECT_EQ( bench.sink.lines(), std::vector< std::string >{ "20 02:00:00:00:00:02 Ethernet2" } );
   EXPECT_EQ( bench.learner.statistics().removed, 1u );
}

TEST( FdbLearner, HostBelongsToWhoeverReportedItLastOnItsPort ) {
   Bench bench( agingAfter( 300 * s ) );
   const HostId id( 1, mac( 1 ) );
   bench.learner.bridgeHost( 1, 1, mac( 1 ), port( 1 ), HostKind::learned, 5 );
   bench.learner.seen( id, port( 1 ), 6 ); // the same frame, seen on the bridge's port: still the bridge's host
   bench.learner.timeIs( 400 * s );
   EXPECT_EQ( bench.sink.hosts.size(), 1u );
   bench.learner.seen( id, port( 2 ), 7 );
   bench.learner.bridgeHostGone( 1, 1, mac( 1 ) );
   EXPECT_EQ( bench.sink.hosts[ id ], ( Host{ port( 2 ), 1, 7, HostKind::learned } ) );
   bench.learner.bridgeHost( 1, 1, mac( 1 ), port( 1 ), HostKind::learned, 8 );
   EXPECT_EQ( bench.sink.hosts[ id ], ( Host{ port( 1 ), 2, 8, HostKind::learned } ) );
   bench.learner.timeIs( 900 * s );
   bench.learner.bridgeHostGone( 1, 1, mac( 1 ) );
   EXPECT_TRUE( bench.sink.hosts.empty() );
}

TEST( FdbLearner, FreshDumpRemovesWhatHasGone ) {
   Bench bench;
   for( int i = 1; i <= 3; ++i ) bench.learner.bridgeHost( 1, 1, mac( i ), port( 1 ), HostKind::learned, 5 );
   bench.learner.bridgeHost( 2, 1, mac( 4 ), port( 2 ), HostKind::learned, 5 );
   bench.learner.seen( HostId( 1, mac( 5 ) ), port( 3 ), 5 );
   bench.learner.bridgeDumpBegins( 1 );
   bench.learner.bridgeHost( 1, 1, mac( 2 ), port( 1 ), HostKind::learned, 6 );
   bench.learner.bridgeHost( 1, 1, mac( 6 ), port( 1 ), HostKind::learned, 6 );
   bench.learner.bridgeDumpEnds( 1 );
   EXPECT_EQ( bench.sink.lines(), ( std::vector< std::string >{ "1 02:00:00:00:00:02 Ethernet1", "1 02:00:00:00:00:04 Ethernet2",
                                                                "1 02:00:00:00:00:05 Ethernet3", "1 02:00:00:00:00:06 Ethernet1" } ) );
}

TEST( FdbLearner, HostsOfABridgeThatIsGoneAgeFromThenOn ) {
   Bench bench( agingAfter( 300 * s ) );
   bench.learner.bridgeHost( 1, 1, mac( 1 ), port( 1 ), HostKind::learned, 5 );
   bench.learner.bridgeHost( 1, 1, mac( 2 ), port( 1 ), HostKind::configured, 5 );
   bench.learner.timeIs( 1000 * s );
   bench.learner.bridgeGone( 1 );
   bench.learner.timeIs( 1300 * s - 1 );
   EXPECT_EQ( bench.sink.hosts.size(), 2u );
   bench.learner.bridgeHost( 1, 1, mac( 1 ), port( 1 ), HostKind::learned, 6 ); // the bridge is back and has it still
   bench.learner.timeIs( 2000 * s );
   EXPECT_EQ( bench.sink.lines(), std::vector< std::string >{ "1 02:00:00:00:00:01 Ethernet1" } );
}

namespace {

/// The rules again, as slowly and simply as can be.
struct Model {
   struct Entry {
      Host host;
      BridgeId bridge;
      Nanos lastSeen;
   };
   void timeIs( Nanos t ) {
      now = t;
      std::erase_if( hosts, [ & ]( const auto& e ) { return e.second.bridge == 0 && e.second.lastSeen + aging <= now; } );
   }
   void seen( HostId id, Quor::IntfId p, double time ) {
      const bool isNew = !hosts.contains( id );
      Entry& e = hosts[ id ];
      if( isNew ) e = { { p, 0, 0, HostKind::learned }, 0, now };
      if( e.bridge != 0 && ( e.host.kind == HostKind::configured || e.host.port == p ) ) return;
      e.bridge = 0;
      e.lastSeen = now;
      if( e.host.port != p ) e.host = { p, e.host.moves + 1, time, HostKind::learned };
   }
   void bridgeHost( BridgeId b, HostId id, Quor::IntfId p, HostKind kind, double time ) {
      const bool isNew = !hosts.contains( id );
      Entry& e = hosts[ id ];
      if( isNew ) e.host = { p, 0, 0, kind };
      e.bridge = b;
      e.host.kind = kind;
      if( e.host.port != p ) e.host = { p, e.host.moves + 1, time, kind };
   }
   void bridgeHostGone( BridgeId b, HostId id ) {
      if( hosts.contains( id ) && hosts[ id ].bridge == b ) hosts.erase( id );
   }
   void bridgeGone( BridgeId b ) {
      for( auto& [ id, e ] : hosts )
         if( e.bridge == b ) e.bridge = 0, e.lastSeen = now;
   }

   Nanos aging = 20;
   Nanos now = 0;
   std::map< HostId, Entry > hosts;
};

}

TEST( FdbLearner, AgreesWithTheModelOnRandomHistories ) {
   for( unsigned seed = 1; seed <= 20; ++seed ) {
      std::mt19937 random( seed );
      const auto below = [ & ]( unsigned n ) { return random() % n; };
      Bench bench( { .agingTime = 20, .capacity = 1000 } );
      Model model;
      for( int step = 0; step < 3000; ++step ) {
         const HostId id( static_cast< Vlan >( 1 + below( 2 ) ), mac( 1 + below( 12 ) ) );
         const Quor::IntfId p = port( 1 + static_cast< int >( below( 3 ) ) );
         const auto b = static_cast< BridgeId >( 1 + below( 2 ) );
         const HostKind kind = below( 4 ) ? HostKind::learned : HostKind::configured;
         switch( below( 16 ) ) {
         case 0: bench.learner.bridgeHost( b, id.fid(), id.address(), p, kind, step ), model.bridgeHost( b, id, p, kind, step ); break;
         case 1: bench.learner.bridgeHostGone( b, id.fid(), id.address() ), model.bridgeHostGone( b, id ); break;
         case 2:
            if( below( 20 ) == 0 ) bench.learner.bridgeGone( b ), model.bridgeGone( b );
            break;
         case 3:
         case 4:
         case 5: {
            const Nanos now = model.now + below( 8 );
            bench.learner.timeIs( now ), model.timeIs( now );
            break;
         }
         default: bench.learner.seen( id, p, step ), model.seen( id, p, step );
         }
         std::map< HostId, Host > expected;
         for( const auto& [ at, e ] : model.hosts ) expected[ at ] = e.host;
         ASSERT_EQ( bench.sink.hosts, expected ) << "seed " << seed << ", step " << step;
         ASSERT_EQ( bench.learner.size(), expected.size() );
      }
   }
}

}
