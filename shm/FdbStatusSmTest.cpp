#include "ShmTest.h"

#include <kel/Rilo.h>
#include <kel/RiloReader.h>
#include <kel/Trace.h>
#include <random>

// The two machines over one table: what they do, in which order, what they tell, and what becomes of it when somebody intervenes.

namespace Bridging {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Writes down what happens to the records, in the process that writes them.
struct RecordLog : Plexo::Bridging::Status::NotifieeConst {
   using NotifieeConst::NotifieeConst;
   using NotifieeConst::onPlexoFdbStatus;
   void onPlexoFdbStatus( const HostKey& key ) override {
      heard.push_back( nameOf( key ) + ( notifier()->plexoFdbStatus( key ) == PlexoFdbStatus() ? " gone" : "" ) );
      const auto now = then;   // which may take itself away
      if( now ) now();
   }
   Strings take() { return std::exchange( heard, {} ); }
   Strings heard;
   std::function< void() > then;
};

struct WriterTest : ShmTest {
   void start() {
      log = Kel::makePtr< RecordLog >( table );
      writer = writerFdbStatusSmFactory( source, table );
   }
   /// The tree and the table say the same.
   void inStep() { EXPECT_EQ( linesOf( hostsOf( *source ) ), linesOf( hostsOf( *table ) ) ); }

   Ptr< Plexo::Bridging::Status > table = tableOf( "t", TableMode::writer );
   Ptr< RecordLog > log;
   Ptr< WriterFdbStatusSm > writer;
};

/// What changes is written once, what does not is not written; a database that goes takes its records with it, and nothing else.
TEST_F( WriterTest, FollowsHostsAndDatabases ) {
   start();
   learn( 1, 1, 1 );
   learn( 2, 1, 1 );
   EXPECT_EQ( source->fdbStatus( 2 ), writer->fdbStatus( 2 )->fdbStatus() );
   EXPECT_EQ( writer.ptr(), writer->fdbStatus( 2 )->writerFdbStatusSm() );
   log->take();
   learn( 1, 1, 1 );
   learn( 1, 1, 2, 10 );
   EXPECT_EQ( 2.5, table->plexoFdbStatus( { 1, mac( 1 ) } ).lastMoveTime() );
   forget( 1, 1 );
   forget( 1, 1 );
   learn( 2, 2, 1 );
   source->fdbStatusDel( 2 );
   EXPECT_THAT( Strings( log->heard.begin(), log->heard.begin() + 3 ), ElementsAre( "1/1", "1/1 gone", "2/2" ) );
   EXPECT_THAT( log->take(), testing::UnorderedElementsAre( "1/1", "1/1 gone", "2/2", "2/1 gone", "2/2 gone" ) );
   EXPECT_EQ( 1u, writer->fdbStatusCount() );
   learn( 2, 3, 1 );
   inStep();
   writer = nullptr;
   learn( 2, 4, 1 );
   EXPECT_EQ( 1u, table->plexoFdbStatusCount() ) << "the table stays, and stays as it is";
}

/// A host whose value is the default one is no host, even where the tree lists it.
TEST_F( WriterTest, ADefaultHostIsNone ) {
   table->plexoFdbStatusIs( { { 0, Quor::EthAddr() }, Quor::IntfId( "Ethernet1" ), 0, 0, {} } );
   source->fdbStatusIs( 0 )->learnedHostIs( LearnedHost() );
   start();
   EXPECT_EQ( 0u, table->plexoFdbStatusCount() );
   LearnedHost zero;
   zero.movesIs( 1 );
   source->fdbStatus( 0 )->learnedHostIs( zero );
   inStep();
   source->fdbStatus( 0 )->learnedHostIs( LearnedHost() );
   EXPECT_THAT( log->take(), ElementsAre( "0/0 gone", "0/0", "0/0 gone" ) );
}

/// What an earlier run left and no longer holds goes before anything is written; what still holds stays in its place throughout.
TEST_F( WriterTest, PurgesBeforeItWrites ) {
   for( U32 n = 1; n <= 4; ++n ) learn( 1, n, 1 );
   learn( 7, 1, 1 );
   start();
   writer = nullptr;
   forget( 1, 2 );
   source->fdbStatusDel( 7 );
   learn( 1, 3, 9 );   // has moved
   learn( 3, 1, 1 );   // is new
   start();
   ASSERT_EQ( 4u, log->heard.size() );
   EXPECT_THAT( Strings( log->heard.begin(), log->heard.begin() + 2 ), testing::UnorderedElementsAre( "1/2 gone", "7/1 gone" ) );
   EXPECT_THAT( Strings( log->heard.begin() + 2, log->heard.end() ), testing::UnorderedElementsAre( "1/3", "3/1" ) );
   inStep();
}

/// Trace lines of the machine: function and text; each line may be looked into as it comes.
struct Traces {
   explicit Traces( std::function< void( const std::string& ) > look = {} )
      : destination( Kel::traceToCallback( [ this, look ]( const Kel::TraceLine& line ) {
           if( line.facility != "FdbStatusSm" ) return;
           EXPECT_EQ( 5u, line.level );
           EXPECT_EQ( "FdbStatusSm", line.source );
           lines.push_back( std::string( line.function ) + std::string( line.text ) );
           if( look ) look( lines.back() );
        } ) ) {
      Kel::traceToStandardErrorIs( false );
      Kel::traceSettingIs( "FdbStatusSm/0-5" );
   }
   ~Traces() {
      Kel::traceSettingReset();
      Kel::traceToStandardErrorIs( true );
   }
   Strings lines;
   Kel::TraceDestination destination;
};

const std::string initializedLine = "virtual void Bridging::WriterFdbStatusSm::handleInitialized()";
const std::string hostsLine = "void Bridging::WriterFdbStatusSm::KelFdbStatus::handleLearnedHosts()";
const std::string waitingLine = hostsLine + " Plexo collection not initialized yet";

TEST_F( WriterTest, AttachesInAscendingOrderThenInitialises ) {
   for( const U16 fid : std::initializer_list< U16 >{ 300, 2, 4094, 1 } ) learn( fid, fid, 1 );
   Strings attached;
   Traces traces( [ & ]( const std::string& line ) {
      if( line != waitingLine ) return;
      Strings now;
      for( auto i = source->fdbStatusIterConst(); i; ++i ) {
         if( i.value()->notifieeCount() ) now.push_back( std::to_string( i.key().value() ) );
      }
      std::sort( now.begin(), now.end() );
      std::string all;
      for( const auto& fid : now ) all += fid + " ";
      attached.push_back( all );
      EXPECT_EQ( 0u, table->plexoFdbStatusCount() );
   } );
   start();
   EXPECT_THAT( traces.lines,
                ElementsAre( waitingLine, waitingLine, waitingLine, waitingLine, initializedLine, hostsLine, hostsLine,
                                           hostsLine, hostsLine ) );
   EXPECT_THAT( attached, ElementsAre( "1 ", "1 2 ", "1 2 300 ", "1 2 300 4094 " ) );
   // The first writes come database by database in the collection's order, and host by host in that of each.
   Strings expected;
   for( auto i = source->fdbStatusIterConst(); i; ++i ) expected.push_back( nameOf( { i.key(), mac( i.key().value() ) } ) );
   EXPECT_EQ( expected, log->take() );
   traces.lines.clear();
   source->fdbStatusIs( 9 );
   learn( 9, 1, 1 );
   EXPECT_THAT( traces.lines, ElementsAre( hostsLine ) );
   EXPECT_EQ( &Kel::traceHandle( "FdbStatusSm" ), &kelModuleFdbStatusSm::_defaultTraceHandle() );
}

TEST_F( WriterTest, ToldInTheRingToo ) {
   ASSERT_TRUE( Kel::Rilo::open( "ShmTest" ) );
   Kel::RiloReader ring( Kel::Rilo::path() );
   const auto before = ring.read().next;
   learn( 1, 1, 1 );
   start();
   Strings messages;
   for( const auto& m : ring.read( before ).messages ) messages.push_back( m.source + ": " + m.text );
   EXPECT_THAT( messages, ElementsAre( "FdbStatusSm: WriterFdbStatusSm::handleInitialized()",
                                       "FdbStatusSm: WriterFdbStatusSm::handleLearnedHosts()" ) );
}

/// Single hosts are written at once, whatever the machine's state; only the walk over all of them waits.
TEST_F( WriterTest, OnlyTheWalkWaits ) {
   learn( 1, 1, 1 );
   learn( 1, 2, 1 );
   start();
   const auto reactor = writer->fdbStatus( 1 );
   reactor->cleanLearnedHosts();
   EXPECT_EQ( 0u, table->plexoFdbStatusCount() );
   writer->initializedIs( false );
   reactor->handleLearnedHosts();
   EXPECT_EQ( 0u, table->plexoFdbStatusCount() );
   reactor->handleLearnedHost( mac( 1 ) );
   EXPECT_EQ( 1u, table->plexoFdbStatusCount() );
   source->fdbStatus( 1 )->learnedHostNotify( mac( 2 ) );
   inStep();
   table->plexoFdbStatusDelAll();
   writer->initializedIs( true );
   source->fdbStatus( 1 )->learnedHostNotifyCollection();
   inStep();
}

/// What a table refuses reaches whoever made the machine, or the reactor whose notification it was.
TEST_F( WriterTest, AFullTableIsNotHidden ) {
   table = tableOf( "small", TableMode::writer, 2 );
   learn( 1, 1, 1 );
   learn( 1, 2, 1 );
   start();
   Traces quiet;
   learn( 1, 3, 1 );
   EXPECT_EQ( 1u, writer->fdbStatus( 1 )->exceptionCount() );
   EXPECT_EQ( 3u, source->fdbStatus( 1 )->learnedHostCount() );
   forget( 1, 1 );
   writer->handleInitialized();
   inStep();
   writer = nullptr;
   learn( 1, 5, 1 );
   EXPECT_EQ( "table small is full: it holds 2 records, its maximum", thrown< Plexo::TableFullException >( [ & ] { start(); } ) );
   learn( 1, 6, 1 );   // nothing is left of the one that failed
   source->fdbStatusDel( 1 );
}

TEST_F( WriterTest, NullStaysUnsetAndIsRefusedLater ) {
   const auto refusal = []( const std::string& machine, const std::string& attribute ) {
      return "null _" + attribute + " parameter to mutator for Bridging::" + machine + "::" + attribute + " not allowed";
   };
   const auto refused = []( const auto& action ) { return thrown< Kel::RangeException >( action ); };
   const auto none = writerFdbStatusSmFactory( nullptr, nullptr );
   EXPECT_TRUE( none->initialized() && !none->status() && !none->plexoStatus() && none->fdbStatusCount() == 0 );
   EXPECT_EQ( refusal( "WriterFdbStatusSm", "fdbStatus" ), refused( [ & ] { none->fdbStatusIs( nullptr ); } ) );
   EXPECT_EQ( refusal( "WriterFdbStatusSm", "status" ), refused( [ & ] { none->statusIs( nullptr ); } ) );
   EXPECT_EQ( refusal( "WriterFdbStatusSm", "plexoStatus" ), refused( [ & ] { none->plexoStatusIs( nullptr ); } ) );
   learn( 1, 1, 1 );
   none->plexoStatusIs( table );
   none->statusIs( source );
   inStep();
   none->statusIs( statusFactory( "other" ) );
   EXPECT_EQ( 0u, table->plexoFdbStatusCount() ) << "nothing holds any more";

   const auto reader = readerFdbStatusSmFactory( nullptr, nullptr );
   reader->handlePlexoFdbStatuses();
   reader->handlePlexoFdbStatus( { 1, mac( 1 ) } );
   EXPECT_EQ( refusal( "ReaderFdbStatusSm", "status" ), refused( [ & ] { reader->statusIs( nullptr ); } ) );
   EXPECT_EQ( refusal( "ReaderFdbStatusSm", "plexoStatus" ), refused( [ & ] { reader->plexoStatusIs( nullptr ); } ) );
   EXPECT_TRUE( WriterFdbStatusSmIs( nullptr, table )->initialized() ) << "all records are stale";
}

/// A reactor of the table is called in the midst of the machine's walks. Whatever it does, the table ends as the tree.
TEST_F( WriterTest, SurvivesWhatReactorsOfTheTableDo ) {
   const struct {
      const char* name;
      std::function< void( WriterTest& ) > meddle;
   } rows[] = {
      { "learn more", []( auto& t ) { t.learn( 1, 500, 1 ), t.learn( 5, 1, 1 ); } },
      { "forget", []( auto& t ) { t.forget( 1, 3 ), t.forget( 1, 11 ); } },
      { "forget all", []( auto& t ) { t.source->fdbStatus( 1 )->learnedHostDelAll(); } },
      { "drop the database", []( auto& t ) { t.source->fdbStatusDel( 1 ), t.source->fdbStatusDel( 2 ); } },
      { "replace the database", []( auto& t ) { t.source->fdbStatusDel( 1 ), t.learn( 1, 2, 7 ); } },
      { "drop all", []( auto& t ) { t.source->fdbStatusDelAll(); } },
   };
   for( const auto& row : rows ) {
      SCOPED_TRACE( row.name );
      source = statusFactory( "source" );
      table->plexoFdbStatusDelAll();
      table->plexoFdbStatusIs( record( 0, 3 ) );   // which a walk that has lost its database must not touch
      for( U32 n = 1; n <= 20; ++n ) learn( 1 + n % 2, n, 1 );
      learn( 0, 3, 1 );
      log = Kel::makePtr< RecordLog >( table );
      int left = 5;
      log->then = [ & ] {
         if( --left == 0 ) row.meddle( *this );
      };
      writer = writerFdbStatusSmFactory( source, table );
      EXPECT_LT( left, 1 );
      inStep();
      learn( 1, 900, 1 );
      inStep();
      writer = nullptr;
      log = nullptr;
   }
}

/// Database or machine go in the midst of the walk over the database's hosts. The hosts of database 0 have the same addresses.
TEST_F( WriterTest, WalksEndWithWhatTheyWalk ) {
   for( const bool machineGoes : { false, true } ) {
      for( U32 n = 1; n <= 9; ++n ) learn( 0, n, 1 ), learn( 1, n, 1 );
      start();
      for( U32 n = 1; n <= 9; ++n ) table->plexoFdbStatusDel( { 1, mac( n ) } );
      log->take();
      log->then = [ & ] {
         log->then = nullptr;
         if( machineGoes ) writer = nullptr;
         else source->fdbStatusDel( 1 );
      };
      source->fdbStatus( 1 )->learnedHostNotifyCollection();
      EXPECT_EQ( machineGoes ? 1u : 2u, log->take().size() ) << "one host written, and erased with its database";
      EXPECT_EQ( machineGoes ? 10u : 9u, table->plexoFdbStatusCount() );
   }
   learn( 1, 10, 1 );
   EXPECT_THAT( log->take(), IsEmpty() );
}

// --- the reader ------------------------------------------------------------------------------------------------------------

struct ReaderTest : ShmTest {
   void start() { reader = readerFdbStatusSmFactory( target, table ); }
   void put( U16 fid, U32 n, U32 port = 1 ) { written->plexoFdbStatusIs( record( fid, n, port ) ); }
   void del( U16 fid, U32 n ) { written->plexoFdbStatusDel( { fid, mac( n ) } ); }
   void inStep() {
      drain( table );
      EXPECT_EQ( linesOf( hostsOf( *written ) ), linesOf( hostsOf( *target ) ) );
      for( auto i = target->fdbStatusIterConst(); i; ++i )
         EXPECT_NE( 0u, i.value()->learnedHostCount() ) << "an empty database is none";
   }

   Ptr< Status > target = statusFactory( "target" );
   Ptr< Plexo::Bridging::Status > written = tableOf( "t", TableMode::writer );
   Ptr< Plexo::Bridging::Status > table = tableOf( "t", TableMode::reader );
   Ptr< ReaderFdbStatusSm > reader;
};

TEST_F( ReaderTest, FollowsTheTable ) {
   put( 1, 1 );
   start();
   EXPECT_EQ( host( 1, 1 ), target->fdbStatus( 1 )->learnedHost( mac( 1 ) ) ) << "read at once";
   put( 2, 1 );
   inStep();
   const auto second = target->fdbStatus( 2 );
   del( 2, 1 );
   inStep();
   EXPECT_TRUE( second->isZombie() ) << "it goes with its last host";
   reader = nullptr;
   del( 1, 1 );
   drain( table );
   EXPECT_EQ( 1u, target->fdbStatusCount() );
}

/// Entities that the table knows nothing of stay until their key is announced.
TEST_F( ReaderTest, LeavesWhatItFindsUntilItIsToldOfIt ) {
   target->fdbStatusIs( 1 )->learnedHostIs( host( 1, 1 ) );
   target->fdbStatusIs( 3 );
   const U32 before = target->changeCount();
   start();
   drain( table );
   EXPECT_EQ( before, target->changeCount() );
   reader->handlePlexoFdbStatus( { 9, mac( 1 ) } );
   EXPECT_EQ( before, target->changeCount() ) << "a database that is not known";
   table->plexoFdbStatusNotify( { 1, mac( 2 ) } );
   EXPECT_EQ( 1u, target->fdbStatus( 1 )->learnedHostCount() ) << "another host of it";
   table->plexoFdbStatusNotifyCollection();
   EXPECT_EQ( before, target->changeCount() );
   table->plexoFdbStatusNotify( { 1, mac( 1 ) } );
   EXPECT_FALSE( target->fdbStatus( 1 ) );
   table->plexoFdbStatusNotify( { 3, mac( 1 ) } );
   EXPECT_FALSE( target->fdbStatus( 3 ) );
}

/// Watches one filtering database of the reader's and does something about the first change.
struct Meddler : FdbStatus::NotifieeConst {
   using NotifieeConst::NotifieeConst;
   using NotifieeConst::onLearnedHost;
   void onLearnedHost( const Quor::EthAddr& ) override {
      if( then ) std::exchange( then, nullptr )();
   }
   std::function< void() > then;
};

TEST_F( ReaderTest, SurvivesWhatItsReactorsDo ) {
   const struct {
      const char* name;
      std::function< void( ReaderTest& ) > meddle;
      bool inStepAfter;
   } rows[] = {
      { "change the table", []( auto& t ) { t.put( 1, 50 ), t.del( 1, 2 ), t.put( 4, 1 ); }, true },
      { "empty the table", []( auto& t ) { t.written->plexoFdbStatusDelAll(); }, true },
      { "forget hosts", []( auto& t ) { t.target->fdbStatus( 1 )->learnedHostDelAll(); }, false },
      { "drop the database", []( auto& t ) { t.target->fdbStatusDel( 1 ); }, false },
      { "replace the database",
        []( auto& t ) { t.target->fdbStatusDel( 1 ), t.target->fdbStatusIs( 1 )->learnedHostIs( host( 77, 1 ) ); }, false },
      { "drop the machine", []( auto& t ) { t.reader = nullptr; }, false },
      { "drop machine, tree and table",
        []( auto& t ) { t.reader = nullptr, t.target = statusFactory( "other" ), t.table = tableOf( "t", TableMode::reader ); },
        false },
   };
   for( const bool removal : { false, true } ) {
      for( const auto& row : rows ) {
         SCOPED_TRACE( row.name );
         written->plexoFdbStatusDelAll();
         put( 1, 1 );
         if( !removal ) put( 1, 2 );
         target = statusFactory( "target" );
         table = tableOf( "t", TableMode::reader );
         start();
         drain( table );
         const auto meddler = Kel::makePtr< Meddler >( target->fdbStatus( 1 ) );
         meddler->then = [ & ] { row.meddle( *this ); };
         if( removal ) del( 1, 1 );
         else put( 1, 1, 9 );
         auto& control = table->plexoFdbStatusControl();
         const Ptr< Plexo::Bridging::Status > hold = table;   // the one whose dispatch runs
         while( control.dispatch() ) {
         }
         EXPECT_FALSE( meddler->then );
         if( row.inStepAfter ) inStep();
         if( row.name == std::string( "replace the database" ) ) {
            EXPECT_TRUE( target->fdbStatus( 1 ) ) << "the one that took its place has a host";
         }
      }
   }
}

// --- both ------------------------------------------------------------------------------------------------------------------

/// Random changes in batches: after each, tree, table and the trees of a reader and of a shadow are the same. Now and then the
/// writer is made anew, or a reader.
TEST_F( WriterTest, TreesStayTheSame ) {
   struct Follower {
      explicit Follower( TableMode mode ) : table( tableOf( "t", mode ) ), reader( readerFdbStatusSmFactory( tree, table ) ) {}
      Ptr< Status > tree = statusFactory( "tree" );
      Ptr< Plexo::Bridging::Status > table;
      Ptr< ReaderFdbStatusSm > reader;
   };
   start();
   std::vector< Follower > followers{ Follower( TableMode::reader ), Follower( TableMode::shadow ) };
   std::mt19937 random( 2718 );
   const auto below = [ & ]( U32 n ) { return static_cast< U32 >( random() % n ); };
   const auto change = [ & ] {
      const auto fid = static_cast< U16 >( below( 4 ) );
      const auto fdb = source->fdbStatus( fid );
      const U32 what = below( 100 );
      if( what < 60 ) learn( fid, below( 300 ), below( 8 ) + 1, below( 3 ) );
      else if( what < 97 && fdb ) forget( fid, below( 300 ) );
      else if( what == 97 && fdb ) fdb->learnedHostDelAll();
      else if( what == 98 ) source->fdbStatusDel( fid );
      else if( what == 99 && fdb ) fdb->learnedHostNotifyCollection();
      else if( what == 99 ) source->fdbStatusNotifyCollection();
   };
   for( U32 batch = 0; batch < 400; ++batch ) {
      const U32 size = batch % 40 == 0 ? 3000 : below( 30 );   // now and then more than a reader's journal holds
      const bool away = below( 20 ) == 0;
      if( away ) writer = nullptr;
      for( U32 i = 0; i < size; ++i ) change();
      if( away ) start();
      if( below( 50 ) == 0 ) followers[ below( 2 ) ] = Follower( below( 2 ) ? TableMode::reader : TableMode::shadow );
      inStep();
      const std::string expected = linesOf( hostsOf( *source ) );
      for( const Follower& f : followers ) {
         drain( f.table );
         ASSERT_EQ( expected, linesOf( hostsOf( *f.tree ) ) ) << "batch " << batch;
      }
   }
}

}
}
