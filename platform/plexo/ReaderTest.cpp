#include <plexo/TestTable.h>
#include <thread>

namespace Plexo {

namespace {

using ReaderTest = TableTest;

Contents numbered( U32 from, U32 to, U32 port ) {
   Contents out;
   for( U32 i = from; i < to; ++i ) out[ { 0, i } ] = port;
   return out;
}

TEST_F( ReaderTest, ComesBeforeTheWriterAndAfterIt ) {
   Follower early;
   EXPECT_EQ( TableState::connecting, early.reader.state() );
   expectContents( early.reader, {} );
   {
      Writer writer( hostLayout, "t", 10, 100 );
      for( U32 i = 0; i < 50; ++i ) learn( writer, i, 5 );
      EXPECT_TRUE( early.waitFor( [ & ] { return early.collections == 1; } ) );
      EXPECT_EQ( TableState::live, early.reader.state() );
      EXPECT_EQ( numbered( 0, 50, 5 ), early.seen );
   }
   Follower late;
   EXPECT_EQ( TableState::stale, late.reader.state() );
   late.drain();
   EXPECT_EQ( numbered( 0, 50, 5 ), late.seen );
   EXPECT_EQ( 50u, late.keys );
   EXPECT_EQ( 1u, late.collections );
}

TEST_F( ReaderTest, OneNotificationPerChangedKeyWithTheNewestValue ) {
   Writer writer( hostLayout, "t", 10, 100 );
   Follower follower;
   follower.drain();
   for( U32 i = 0; i < 100; ++i ) learn( writer, i % 10, i );
   learn( writer, 50, 1 );
   forget( writer, 50 );
   follower.drain();
   EXPECT_EQ( 11u, follower.keys );
   EXPECT_EQ( walk( writer ), follower.seen );
   EXPECT_EQ( 1u, follower.collections );                               // the first announcement's
   follower.drain();
   EXPECT_EQ( 11u, follower.keys );
}

/// A key that changes in every moment is told in every batch, not once it rests.
TEST_F( ReaderTest, RestlessKeyIsNotPutOff ) {
   Writer writer( hostLayout, "t", 10, 100 );
   Follower follower;
   follower.drain();
   U32 rounds = 0;
   U32 told = 0;
   const auto changeBoth = [ & ] {
      learn( writer, 1, ++rounds );
      learn( writer, 2, rounds );
   };
   follower.onEach = [ & ]( U32 number ) {
      if( number == 2 ) ++told;
      else if( rounds < 500 ) changeBoth();                             // so host 2 changes just before its turn, each time
   };
   changeBoth();
   follower.drain();
   EXPECT_EQ( 500u, follower.seen.at( { 0, 2 } ) );
   EXPECT_GE( told, 500u );
}

TEST_F( ReaderTest, LappedReaderMissesNothing ) {
   Writer writer( hostLayout, "t", 10, 3000 );                          // a ring of 4096
   Follower follower;
   for( U32 i = 0; i < 1000; ++i ) learn( writer, i, 1 );
   follower.drain();
   EXPECT_EQ( 1u, follower.collections );
   // Goes twice round the ring: removals whose slots other keys have taken since, changes, new keys, a key that came back.
   for( U32 i = 0; i < 500; ++i ) forget( writer, i );
   for( U32 round = 0; round < 3; ++round ) {
      for( U32 i = 1000; i < 3000; ++i ) learn( writer, i, round );
      for( U32 i = 2000; i < 3000; ++i ) forget( writer, i );
   }
   learn( writer, 7, 77 );
   learn( writer, 600, 66 );
   follower.drain();
   EXPECT_EQ( 2u, follower.collections );
   EXPECT_EQ( walk( writer ), follower.seen );
   EXPECT_EQ( 77u, follower.seen.at( { 0, 7 } ) );
}

TEST_F( ReaderTest, BudgetLeavesTheRestForLater ) {
   Writer writer( hostLayout, "t", 10, 100000 );
   Follower follower;
   for( U32 i = 0; i < 100000; ++i ) learn( writer, i, 1 );
   U32 rounds = 1;
   while( follower.reader.dispatch( std::chrono::microseconds( 100 ) ) ) {
      pollfd ready{ follower.reader.fd(), POLLIN, 0 };
      ASSERT_EQ( 1, poll( &ready, 1, 0 ) );
      ++rounds;
   }
   EXPECT_GT( rounds, 10u );
   EXPECT_EQ( 100000u, follower.seen.size() );
}

TEST_F( ReaderTest, FollowsAWriterThatRestartsWithOtherRecords ) {
   Follower follower;
   {
      Writer writer( hostLayout, "t", 10, 1000 );
      for( U32 i = 0; i < 100; ++i ) learn( writer, i, 1 );
      follower.drain();
      for( U32 i = 100; i < 200; ++i ) learn( writer, i, 1 );
   }
   EXPECT_TRUE( follower.waitFor( TableState::stale ) );
   EXPECT_EQ( numbered( 0, 200, 1 ), follower.seen );
   // The same file, a new one in its place, one that knows nothing.
   for( const U32 max : { 1000u, 5000u, 0u } ) {
      if( max == 0 ) std::filesystem::remove( file() );
      Writer writer( hostLayout, "t", 10, max ? max : 1000 );
      for( U32 i = 0; i < 50; ++i ) forget( writer, i );
      for( U32 i = 300; i < 350; ++i ) learn( writer, i, max );
      EXPECT_TRUE( follower.waitFor( TableState::live ) );
      EXPECT_TRUE( follower.waitFor( [ & ] { return follower.seen == walk( writer ); } ) );
      expectContents( follower.reader, walk( writer ) );
   }
   EXPECT_EQ( numbered( 300, 350, 0 ), follower.seen );
   EXPECT_EQ( TableState::live, follower.states.back().first );
}

TEST_F( ReaderTest, RefusesAnotherLayoutAndComesBack ) {
   auto other = std::make_unique< Writer >( oldHostLayout, "t", 10, 10 );
   Follower follower;
   EXPECT_EQ( TableState::degraded, follower.reader.state() );
   EXPECT_EQ( file() + " is refused: its records are \"" + std::string( oldHostLayout.text ) + "\" where this program's are \"" +
                 std::string( hostLayout.text ) + "\"",
              follower.reader.reason() );
   EXPECT_EQ( -1, portOf( follower.reader, 1 ) );
   other.reset();
   Writer writer( hostLayout, "t", 10, 10 );
   learn( writer, 1, 2 );
   EXPECT_TRUE( follower.waitFor( [ & ] { return follower.seen.size() == 1; } ) );
   EXPECT_EQ( TableState::live, follower.reader.state() );
   EXPECT_TRUE( follower.reader.reason().empty() );
}

TEST_F( ReaderTest, ShadowChangesOnlyInDispatch ) {
   Writer writer( hostLayout, "t", 10, 3000 );
   for( U32 i = 0; i < 100; ++i ) learn( writer, i, 1 );
   Follower shadow( hostLayout, "t", ReaderRole::shadow );
   EXPECT_EQ( 0u, shadow.reader.records() );
   shadow.drain();
   expectContents( shadow.reader, numbered( 0, 100, 1 ) );
   learn( writer, 5, 2 );
   forget( writer, 6 );
   EXPECT_EQ( 1, portOf( shadow.reader, 5 ) );
   EXPECT_EQ( 1, portOf( shadow.reader, 6 ) );
   shadow.onEach = [ & ]( U32 number ) { EXPECT_EQ( number == 5 ? 2 : -1, portOf( shadow.reader, number ) ); };
   shadow.drain();
   shadow.onEach = nullptr;
   expectContents( shadow.reader, walk( writer ) );
   for( U32 i = 0; i < 3000; ++i ) forget( writer, i );
   for( U32 i = 10000; i < 13000; ++i ) learn( writer, i, 3 );          // a whole new set, and the ring went round
   shadow.drain();
   expectContents( shadow.reader, numbered( 10000, 13000, 3 ) );
}

TEST_F( ReaderTest, BatchedLookUpsAgree ) {
   Writer writer( hostLayout, "t", 10, 1000 );
   Reader reader( hostLayout, "t" );
   for( U32 i = 0; i < 1000; i += 2 ) learn( writer, i, i );
   std::vector< U64 > keys;
   for( U32 i = 0; i < 1000; ++i ) keys.push_back( i );
   std::vector< Host > out( 1000 );
   const auto found = std::make_unique< bool[] >( 1000 );
   EXPECT_EQ( 500u, reader.findMany( keys.data(), 1000, out.data(), found.get() ) );
   for( U32 i = 0; i < 1000; ++i ) {
      EXPECT_EQ( i % 2 == 0, found[ i ] );
      EXPECT_TRUE( !found[ i ] || out[ i ].port == i );
   }
}

/// By polling.
TEST_F( ReaderTest, FollowsWhereNoDoorbellCanBeOpened ) {
   Writer writer( hostLayout, "t", 10, 1000 );
   std::filesystem::remove( directory + "/t.bell" );
   Follower follower;
   EXPECT_TRUE( follower.waitFor( [ & ] { return follower.collections == 1; } ) );
   learn( writer, 1, 1 );
   EXPECT_TRUE( follower.waitFor( [ & ] { return follower.seen == numbered( 1, 2, 1 ); } ) );
}

TEST_F( ReaderTest, ManyTablesInOneProcess ) {
   constexpr U32 count = 150;                                           // more than one futex_waitv call takes
   std::vector< std::unique_ptr< Writer > > writers;
   std::vector< std::unique_ptr< Follower > > followers;
   for( U32 i = 0; i < count; ++i ) {
      writers.push_back( std::make_unique< Writer >( hostLayout, "t" + std::to_string( i ), 1, 10 ) );
      followers.push_back( std::make_unique< Follower >( hostLayout, "t" + std::to_string( i ) ) );
      followers.back()->drain();
   }
   for( U32 i = 0; i < count; ++i ) learn( *writers[ i ], i, i );
   for( U32 i = 0; i < count; ++i ) {
      EXPECT_TRUE( followers[ i ]->waitFor( [ & ] { return followers[ i ]->seen == Contents{ { { 0, i }, i } }; } ) );
   }
}

TEST_F( ReaderTest, ObserverMayEndTheReader ) {
   struct Ender : TableObserver {
      std::unique_ptr< Reader > reader;
      int when = 0;
      void at( int what ) {
         if( what == when ) reader.reset();
      }
      void onKey( const void* ) override { at( 0 ); }
      void onCollection() override { at( 1 ); }
      void onState( TableState, const std::string& ) override { at( 2 ); }
   };
   auto writer = std::make_unique< Writer >( hostLayout, "t", 10, 10 );
   learn( *writer, 1, 1 );
   for( const int when : { 0, 1, 2 } ) {
      Ender ender;
      ender.when = when;
      ender.reader = std::make_unique< Reader >( hostLayout, "t" );
      ender.reader->observerIs( &ender );
      if( when == 2 ) writer.reset();
      for( int i = 0; ender.reader && i < 100; ++i ) {
         std::this_thread::sleep_for( std::chrono::milliseconds( 10 ) );
         ender.reader->dispatch();
      }
      EXPECT_FALSE( ender.reader ) << when;
   }
}

TEST_F( ReaderTest, ExceptionOfAnObserverLosesOnlyItsKey ) {
   Writer writer( hostLayout, "t", 10, 10 );
   for( U32 i = 0; i < 5; ++i ) learn( writer, i, 1 );
   Follower follower;
   follower.onEach = []( U32 number ) {
      if( number == 2 ) throw std::runtime_error( "no" );
   };
   EXPECT_THROW( follower.drain(), std::runtime_error );
   follower.drain();
   EXPECT_EQ( 5u, follower.keys );
   EXPECT_EQ( 1u, follower.collections );
}

}

}
