#include "ShmTest.h"
#include "TestPeer.h"

#include <limits>

// Both ends of a table in processes of their own: programs of this word size, and of the other one where they are at hand.
namespace Bridging {
namespace {

class ProcessTest : public ShmTest, public testing::WithParamInterface< bool > {
 protected:
   void SetUp() override {
      program = GetParam() ? Plexo::otherProgram( "fdb_peer" ) : FDB_PEER;
      if( program.empty() ) GTEST_SKIP() << "VANTA_OTHER_BUILD does not name a build for the other word size";
   }
   Peer peer( const char* role ) const { return Peer( program, role, "t" ); }
   /// Asks a reader until the answer is the expected one, for at most some seconds.
   static void expectShown( Peer& reader, const std::string& expected ) {
      std::string shown;
      for( int tries = 0; tries < 400 && shown != expected; ++tries ) {
         if( tries ) usleep( 50000 );
         shown = reader.say( "show" );
      }
      EXPECT_EQ( expected, shown );
   }
   void publish() {
      table = tableOf( "t", TableMode::writer );
      writer = writerFdbStatusSmFactory( source, table );
   }
   void retire() {
      writer = nullptr;
      table = nullptr;
   }

   std::string program;
   Ptr< Plexo::Bridging::Status > table;
   Ptr< WriterFdbStatusSm > writer;
};

/// Readers that start before, during and after the writer's life all come to see the same.
TEST_P( ProcessTest, ReadersStartAtAnyTime ) {
   constexpr U32 hosts = 5000;                                          // the table's index doubles several times
   Peer before = peer( "read" );
   EXPECT_EQ( "", before.say( "show" ) );
   const double times[] =
      { 0, -1.5, 0.1, 1e300, 5e-324, std::numeric_limits< double >::infinity(), std::numeric_limits< double >::quiet_NaN() };
   for( U32 n = 1; n <= hosts; ++n ) {
      LearnedHost h = host( n, n % 16000 + 1, n );
      h.lastMoveTimeIs( times[ n % std::size( times ) ] );
      h.entryTypeIs( static_cast< EntryType >( n % 19 ) );
      if( n % 3 == 0 ) h.intfIs( Quor::IntfId( "Port-Channel" + std::to_string( n ) + ".268435455" ) );
      source->fdbStatusIs( n % 2 ? 65535 : 0 )->learnedHostIs( h );
   }
   publish();
   Peer during = peer( "read" );
   expectShown( before, linesOf( hostsOf( *source ) ) );
   expectShown( during, linesOf( hostsOf( *source ) ) );
   for( U32 n = 2; n <= hosts; n += 2 ) forget( 0, n );
   learn( 7, 1, 1 );
   const std::string expected = linesOf( hostsOf( *source ) );
   retire();
   Peer after = peer( "read" );
   for( Peer* each : { &before, &during, &after } ) {
      expectShown( *each, expected );
      EXPECT_EQ( 0, each->end() );
   }
}

/// A writer that died is followed by one that knows other hosts: a reader that follows ends with those, and loses none that both
/// know on its way.
TEST_P( ProcessTest, TheNextWriterKnowsOtherHosts ) {
   struct Absences : FdbStatus::NotifieeConst {
      using NotifieeConst::NotifieeConst;
      using NotifieeConst::onLearnedHost;
      void onLearnedHost( const Quor::EthAddr& address ) override {
         missed += address == mac( 1 ) && !notifier()->learnedHost( address );
      }
      int missed = 0;
   };
   const auto target = statusFactory( "target" );
   table = tableOf( "t", TableMode::reader );
   const auto reader = readerFdbStatusSmFactory( target, table );
   const auto shows = [ & ]( const std::string& expected ) {
      const bool done = drainUntil( table, [ & ] { return linesOf( hostsOf( *target ) ) == expected; } );
      return done ? "" : linesOf( hostsOf( *target ) );
   };
   Peer follower = peer( "read" );
   Peer first = peer( "write" );
   for( U32 n = 1; n <= 500; ++n ) learn( n <= 25 ? 1 : 2, n, 1 );
   for( U32 n = 1; n <= 500; ++n ) first.learn( n <= 25 ? 1 : 2, host( n, 1 ) );
   first.say( "publish" );
   const std::string all = linesOf( hostsOf( *source ) );
   EXPECT_EQ( "", shows( all ) );
   expectShown( follower, all );
   const auto absences = Kel::makePtr< Absences >( target->fdbStatus( 1 ) );
   EXPECT_EQ( -SIGKILL, first.end( SIGKILL ) );

   Peer second = peer( "write" );
   source->fdbStatusDel( 2 );
   for( U32 n = 2; n <= 25; n += 2 ) forget( 1, n );
   learn( 1, 3, 9, 1 );
   learn( 3, 1, 1 );
   for( const auto& [ key, text ] : hostsOf( *source ) ) second.say( "host " + std::to_string( key.fid().value() ) + " " + text );
   EXPECT_EQ( "", shows( all ) ) << "before it publishes, the table stands as it was left";
   second.say( "publish" );
   EXPECT_EQ( "", shows( linesOf( hostsOf( *source ) ) ) );
   expectShown( follower, linesOf( hostsOf( *source ) ) );
   EXPECT_EQ( 0, absences->missed );

   second.forget( 1, mac( 3 ) );
   second.say( "drop 3" );
   forget( 1, 3 );
   source->fdbStatusDel( 3 );
   EXPECT_EQ( "", shows( linesOf( hostsOf( *source ) ) ) );
   expectShown( follower, linesOf( hostsOf( *source ) ) );
   EXPECT_EQ( 0, second.end() );
   // A third writer, in this process, takes over what the one of the other program left.
   retire();
   publish();
   learn( 1, 600, 1 );
   expectShown( follower, linesOf( hostsOf( *source ) ) );
}

INSTANTIATE_TEST_SUITE_P( Sizes, ProcessTest, testing::Bool(),
                          []( const auto& which ) { return which.param ? "Other" : "Same"; } );

}
}
