#include "ShmTest.h"

#include <kel/Trace.h>

// Tables whose file is really spoilt, under the feet of both machines: the corruption is told to the table's hook and goes no
// further, and the machine goes on as if the look-up had found nothing, the walk had ended.

namespace Bridging {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class CorruptionTest : public ShmTest {
 protected:
   CorruptionTest() {
      for( U32 n = 1; n <= 5; ++n ) written->plexoFdbStatusIs( record( 1, n ) );
      Kel::traceToStandardErrorIs( false );
   }
   ~CorruptionTest() override { Kel::traceToStandardErrorIs( true ); }
   TableBytes bytes() const { return TableBytes( directory + "/t.plexo" ); }
   void listen( const Ptr< Plexo::Bridging::Status >& table ) {
      table->plexoFdbStatusControl().corruptionHandlerIs( [ this ]( const std::string& text ) { told.push_back( text ); } );
   }
   /// A reader's table, attached while it was sound.
   Ptr< Plexo::Bridging::Status > following() {
      const auto table = tableOf( "t", TableMode::reader );
      drain( table );
      listen( table );
      return table;
   }

   Ptr< Status > target = statusFactory( "target" );
   Ptr< Plexo::Bridging::Status > written = tableOf( "t", TableMode::writer );
   Strings told;
};

constexpr char badMagic[] = "table t is corrupted";
constexpr char badSlot[] = "is being changed, yet the undo cell belongs to another";

TEST_F( CorruptionTest, InTheFirstStepOfTheReadersWalk ) {
   const auto table = following();
   bytes().spoilHighWater();
   const auto reader = readerFdbStatusSmFactory( target, table );
   EXPECT_THAT( told, ElementsAre( HasSubstr( "high-water mark" ) ) );
   EXPECT_EQ( 0u, target->fdbStatusCount() );
   EXPECT_EQ( 1u, table->plexoFdbStatusControl().corruptionsDetected() );
   EXPECT_EQ( Plexo::TableState::degraded, table->plexoFdbStatusControl().state() );
   reader->handlePlexoFdbStatus( { 1, mac( 2 ) } );
   EXPECT_EQ( 1u, target->fdbStatus( 1 )->learnedHostCount() ) << "look-ups still find what is sound";
   EXPECT_EQ( 1u, told.size() );
}

TEST_F( CorruptionTest, InTheMidstOfTheReadersWalk ) {
   const auto table = following();
   bytes().spoilSlot( 3 );
   const auto reader = readerFdbStatusSmFactory( target, table );
   EXPECT_THAT( told, ElementsAre( HasSubstr( badSlot ) ) );
   EXPECT_EQ( 3u, target->fdbStatus( 1 )->learnedHostCount() ) << "the slots before it";
}

/// The record counts as none, and its host goes.
TEST_F( CorruptionTest, InTheReadersLookUp ) {
   const auto table = following();
   const auto reader = readerFdbStatusSmFactory( target, table );
   EXPECT_EQ( 5u, target->fdbStatus( 1 )->learnedHostCount() );
   bytes().spoilSlot( 3 );
   table->plexoFdbStatusNotify( { 1, mac( 4 ) } );
   EXPECT_THAT( told, ElementsAre( HasSubstr( badSlot ) ) );
   EXPECT_EQ( 4u, target->fdbStatus( 1 )->learnedHostCount() );
   EXPECT_TRUE( !target->fdbStatus( 1 )->learnedHost( mac( 4 ) ) );
   bytes().spoilMagic();
   for( const U32 n : { 1, 2, 3, 5 } ) table->plexoFdbStatusNotify( { 1, mac( n ) } );
   EXPECT_EQ( 5u, told.size() );
   EXPECT_THAT( told.back(), HasSubstr( badMagic ) );
   EXPECT_FALSE( target->fdbStatus( 1 ) );
}

/// The purge ends where it meets the corruption; the machine is initialised all the same. Writes are refused from then on, and
/// that is not hidden.
TEST_F( CorruptionTest, InTheWritersPurge ) {
   listen( written );
   bytes().spoilSlot( 3 );
   const auto writer = writerFdbStatusSmFactory( source, written );
   EXPECT_THAT( told, ElementsAre( HasSubstr( badSlot ) ) );
   EXPECT_TRUE( writer->initialized() );
   EXPECT_EQ( Plexo::TableState::degraded, written->plexoFdbStatusControl().state() );
   EXPECT_EQ( 2u, written->plexoFdbStatusCount() ) << "three stale records went before it";
   learn( 1, 1, 1 );
   EXPECT_EQ( 1u, writer->fdbStatus( 1 )->exceptionCount() );
   EXPECT_EQ( 1u, told.size() );
}

/// A removal looks its record up, and that look-up is part of a write.
TEST_F( CorruptionTest, InTheWritersRemovals ) {
   for( U32 n = 1; n <= 5; ++n ) learn( 1, n, 1 );
   const auto writer = writerFdbStatusSmFactory( source, written );
   bytes().spoilSlot( 3 );
   Strings traced;
   const auto destination =
      Kel::traceToCallback( [ & ]( const Kel::TraceLine& line ) { traced.push_back( std::string( line.text ) ); } );
   forget( 1, 4 );
   EXPECT_EQ( 1u, writer->fdbStatus( 1 )->exceptionCount() );
   EXPECT_THAT( traced, ElementsAre( HasSubstr( "write to a corrupted table" ) ) );
   source->fdbStatusDel( 1 );
   EXPECT_EQ( 0u, writer->fdbStatusCount() );
}

/// Another writer takes over, in place or with a new file, and makes a sound table; the reader follows it there, also to records
/// that have not changed.
TEST_F( CorruptionTest, EndsWithTheNextWriter ) {
   for( U32 n = 1; n <= 5; ++n ) learn( 1, n, 1 );
   for( void ( TableBytes::*const spoil )() : { &TableBytes::spoilIndex, &TableBytes::spoilFirstSlot } ) {
      const auto table = following();
      ( bytes().*spoil )();
      const auto reader = readerFdbStatusSmFactory( target, table );
      EXPECT_EQ( 0u, target->fdbStatusCount() );
      EXPECT_EQ( Plexo::TableState::degraded, table->plexoFdbStatusControl().state() );
      written = nullptr;
      written = tableOf( "t", TableMode::writer );
      const auto writer = writerFdbStatusSmFactory( source, written );
      EXPECT_TRUE( drainUntil( table, [ & ] { return hostsOf( *target ) == hostsOf( *source ); } ) )
         << linesOf( hostsOf( *target ) );
      EXPECT_EQ( Plexo::TableState::live, table->plexoFdbStatusControl().state() );
      target = statusFactory( "target" );
   }
}

}
}
