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
      bench.learner.frame( port( 3 ), c.frame, c.frame.size(), 1 );
      EXPECT_EQ( bench.sink.lines(), c.learned );
      EXPECT_EQ( bench.learner.statistics().*c.counter, 1u );
      EXPECT_EQ( bench.learner.statistics().frames, 1u );
   }
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
   Bench forEver( agingAfter( 0 ) );
   forEver.learner.seen( HostId( 1, mac( 1 ) ), port( 1 ), 0 );
   forEver.learner.timeIs( 1'000'000'000 * s );
   EXPECT_EQ( forEver.sink.hosts.size(), 1u );
   EXPECT_EQ( forEver.learner.nextAging(), never );
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

namespace {

/// The rules again, as slowly and simply as can be: a host belongs to whoever reported it last on its port. A bridge ages its own
/// hosts, and what a person has set in it stays; the others age here.
struct Model {
   struct Entry {
      Host host;
      BridgeId bridge = 0;
      Nanos lastSeen = 0;
      int dump = 0;
   };
   void timeIs( Nanos t ) {
      now = t;
      std::erase_if( hosts, [ & ]( const auto& e ) { return e.second.bridge == 0 && e.second.lastSeen + aging <= now; } );
   }
   void seen( HostId id, Quor::IntfId p, double time ) {
      const bool isNew = !hosts.contains( id );
      Entry& e = hosts[ id ];
      if( isNew ) e = { { p, 0, 0, HostKind::learned }, 0, now, 0 };
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
      e.dump = dumps[ b ];
      e.host.kind = kind;
      if( e.host.port != p ) e.host = { p, e.host.moves + 1, time, kind };
   }
   void bridgeHostGone( BridgeId b, HostId id ) {
      if( hosts.contains( id ) && hosts[ id ].bridge == b ) hosts.erase( id );
   }
   void dumpEnds( BridgeId b ) {
      std::erase_if( hosts, [ & ]( const auto& e ) { return e.second.bridge == b && e.second.dump != dumps[ b ]; } );
   }
   void bridgeGone( BridgeId b ) {
      for( auto& [ id, e ] : hosts )
         if( e.bridge == b ) e.bridge = 0, e.lastSeen = now;
   }

   Nanos aging = 20;
   Nanos now = 0;
   std::map< HostId, Entry > hosts;
   std::map< BridgeId, int > dumps;
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
         const auto what = below( 40 );
         if( what == 0 ) bench.learner.bridgeGone( b ), model.bridgeGone( b );
         else if( what == 1 ) bench.learner.bridgeDumpBegins( b ), ++model.dumps[ b ];
         else if( what == 2 ) bench.learner.bridgeDumpEnds( b ), model.dumpEnds( b );
         else if( what < 6 )
            bench.learner.bridgeHost( b, id.fid(), id.address(), p, kind, step ), model.bridgeHost( b, id, p, kind, step );
         else if( what < 8 ) bench.learner.bridgeHostGone( b, id.fid(), id.address() ), model.bridgeHostGone( b, id );
         else if( what < 15 ) model.timeIs( model.now + below( 8 ) ), bench.learner.timeIs( model.now );
         else bench.learner.seen( id, p, step ), model.seen( id, p, step );
         std::map< HostId, Host > expected;
         for( const auto& [ at, e ] : model.hosts ) expected[ at ] = e.host;
         ASSERT_EQ( bench.sink.hosts, expected ) << "seed " << seed << ", step " << step;
         ASSERT_EQ( bench.learner.size(), expected.size() );
      }
   }
}

}
