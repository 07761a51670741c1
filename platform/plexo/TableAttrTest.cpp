#include <Counts/Counts.h>
#include <kel/Activity.h>
#include <kel/Trace.h>
#include <plexo/TestTable.h>

// The typed attribute of an entity: what it adds to the table under it.
namespace Plexo {

namespace {

using Counts::Count;
using Counts::Counters;
using Counts::Port;

/// Notes what it is told.
class Notes : public Counters::NotifieeConst {
 public:
   using NotifieeConst::NotifieeConst;
   void onCount() override {
      ++collections;
      if( onEach ) onEach();
   }
   void onCount( Port port ) override {
      keys.push_back( port.value() );
      if( onEach ) onEach();
   }
   std::vector< U16 > keys;
   U32 collections = 0;
   std::function< void() > onEach;
};

class TableAttrTest : public TableTest {
 protected:
   Kel::Ptr< Counters > make( TableMode mode, U32 initial = 10 ) {
      const auto counts = Counts::countersFactory( "counts" );
      counts->countControl().setUp( { .name = "c", .mode = mode, .initialRecords = initial, .maxRecords = 50 } );
      return counts;
   }
};

TEST_F( TableAttrTest, ReadsAsEmptyAndRefusesWritesUntilSetUp ) {
   const auto counts = Counts::countersFactory( "counts" );
   EXPECT_EQ( Count(), counts->count( 5 ) );
   EXPECT_FALSE( counts->countIterConst() );
   EXPECT_EQ( 0u, counts->countCount() );
   EXPECT_EQ( TableState::connecting, counts->countControl().state() );
   EXPECT_EQ( "write to table attribute Counts::Counters::count before it is set up as its table's writer",
              thrown< AssertionException >( [ & ] { counts->countIs( Count( 5, 1 ) ); } ) );
   EXPECT_THROW( counts->countDelAll(), AssertionException );
   EXPECT_THROW( counts->countCommit( nullptr ), AssertionException );
   for( const TableMode mode : { TableMode::writer, TableMode::reader } ) {
      EXPECT_EQ( "table c: initial number of records is 0, must be at least 1",
                 thrown< Kel::RangeException >( [ & ] { make( mode, 0 ); } ) );
   }
   EXPECT_THROW( make( TableMode::none ), Kel::RangeException );
   const auto writer = make( TableMode::writer );
   EXPECT_THROW( writer->countControl().setUp( { .name = "d" } ), Kel::InternalException );
   const auto reader = make( TableMode::reader );
   EXPECT_THROW( reader->countDel( 5 ), AssertionException );
   const auto notes = Kel::makePtr< Notes >( writer );
   for( const U32 records : { 0u, 1u } ) {   // what the writer finds when it is set up again
      if( records ) writer->countIs( Count( 5, 1 ) );
      writer->countControl().close();
      writer->countControl().setUp( { .name = "c", .mode = TableMode::writer, .initialRecords = 10, .maxRecords = 50 } );
      EXPECT_EQ( records, notes->collections );
   }
}

/// Bytes between attributes hold what was on the stack; they are no difference.
TEST_F( TableAttrTest, PaddingIsNoChange ) {
   const auto counts = make( TableMode::writer );
   for( const int fill : { 0, 0xff, 0x55 } ) {
      alignas( Count ) unsigned char raw[ sizeof( Count ) ];
      const Count clean( 5, 1 );
      std::memcpy( raw, &clean, sizeof raw );
      std::memset( raw + sizeof( Port ), fill, Count::_Type.attr( 1 ).offset - sizeof( Port ) );
      counts->countIs( *std::launder( reinterpret_cast< const Count* >( raw ) ) );
   }
   EXPECT_EQ( 1u, counts->changeCount() );
}

TEST_F( TableAttrTest, ReadersFollow ) {
   for( const TableMode mode : { TableMode::reader, TableMode::shadow } ) {
      std::filesystem::remove( file( "c" ) );
      const auto reader = make( mode );
      const auto notes = Kel::makePtr< Notes >( reader );
      std::vector< TableState > states;
      reader->countControl().stateHandlerIs( [ & ]( TableState state, const std::string& ) { states.push_back( state ); } );
      auto writer = make( TableMode::writer );
      writer->countIs( Count( 5, 1 ) );
      Kel::Activity activity;
      reader->countControl().attach( activity );
      notes->onEach = [ & ] {
         if( notes->collections && notes->keys.size() == 3 ) activity.stop();
         if( notes->collections == 1 && notes->keys.size() == 1 ) {
            writer->countIs( Count( 6, 2 ) );
            writer->countDel( 5 );
         }
      };
      EXPECT_TRUE( activity.runFor( std::chrono::seconds( 10 ) ) );
      EXPECT_EQ( ( std::vector< U16 >{ 5, 6, 5 } ), notes->keys );
      EXPECT_EQ( Count(), reader->count( 5 ) );
      EXPECT_EQ( Count( 6, 2 ), reader->count( 6 ) );
      EXPECT_EQ( TableState::live, reader->countControl().state() );
      ASSERT_EQ( ( std::vector{ TableState::live } ), states );
      notes->onEach = nullptr;
      writer = nullptr;
      activity.runFor( std::chrono::milliseconds( 300 ) );
      EXPECT_EQ( TableState::stale, states.back() );
   }
}

TEST_F( TableAttrTest, EntityMayGoInItsOwnNotification ) {
   const auto writer = make( TableMode::writer );
   for( U16 i = 1; i <= 20; ++i ) writer->countIs( Count( i, i ) );
   auto reader = make( TableMode::reader );
   const auto notes = Kel::makePtr< Notes >( reader );
   TableControl& control = reader->countControl();
   notes->onEach = [ & ] { reader = nullptr; };
   EXPECT_FALSE( control.dispatch() );
   EXPECT_EQ( 1u, notes->keys.size() );
}

TEST_F( TableAttrTest, CorruptionIsCountedTracedAndMakesItDegraded ) {
   std::vector< std::string > traced;
   const auto destination =
      Kel::traceToCallback( [ & ]( const Kel::TraceLine& line ) { traced.push_back( std::string( line.text ) ); } );
   Kel::traceToStandardErrorIs( false );
   const auto writer = make( TableMode::writer );
   const auto reader = make( TableMode::reader );
   std::string told;
   reader->countControl().corruptionHandlerIs( [ & ]( const std::string& text ) { told = text; } );
   for( const auto& entity : { writer, reader } ) {
      TableControl& control = entity->countControl();
      for( const char* const text : { "slot 3 is odd", "slot 4 is odd" } ) control.corruptionDetected( text );
      EXPECT_EQ( 2u, control.corruptionsDetected() );
      EXPECT_EQ( TableState::degraded, control.state() );
      EXPECT_EQ( "slot 3 is odd", control.reason() );
   }
   Kel::traceToStandardErrorIs( true );
   EXPECT_EQ( "slot 4 is odd", told );
   EXPECT_EQ( ( std::vector< std::string >( 2, " counts: slot 3 is odd" ) ), traced );
   EXPECT_THROW( writer->countIs( Count( 5, 1 ) ), AssertionException );
}

/// A number that its type does not allow is not handed out, wherever it comes from.
TEST_F( TableAttrTest, ValuesKeepTheirBounds ) {
   const auto writer = make( TableMode::writer );
   const U16 tooLarge = 101;
   Count* const direct = writer->countDirect();
   std::memcpy( static_cast< void* >( direct ), &tooLarge, sizeof tooLarge );
   writer->countCommit( direct );
   const auto reader = make( TableMode::reader );
   EXPECT_EQ( "table c is corrupted: port: Port::value < 1 or > 100 not allowed",
              thrown< CorruptionException >( [ & ] { reader->countIterConst(); } ) );
}

TEST_F( TableAttrTest, RowsServeReflection ) {
   const auto counts = make( TableMode::writer );
   const Kel::Attr& row = counts->fwkType().attr( Counters::Attr_::count );
   const Kel::CollectionOps& ops = *row.extra.collection;
   char* table = reinterpret_cast< char* >( counts.ptr() ) + row.offset;
   for( U16 i = 1; i <= 3; ++i ) {
      const Count count( i, i );
      ops.set( *counts, Counters::Attr_::count, table, nullptr, &count );
   }
   EXPECT_EQ( 3u, ops.size( table ) );
   const Port two( 2 );
   EXPECT_EQ( Count( 2, 2 ), *static_cast< const Count* >( ops.find( table, &two ) ) );
   std::vector< U16 > keys;
   Port key;
   for( bool more = ops.next( table, nullptr, &key ); more; more = ops.next( table, &key, &key ) ) keys.push_back( key.value() );
   EXPECT_EQ( ( std::vector< U16 >{ 1, 2, 3 } ), keys );
   EXPECT_TRUE( ops.next( table, &two, &key ) );
   EXPECT_EQ( Port( 3 ), key );
   EXPECT_TRUE( ops.erase( *counts, Counters::Attr_::count, table, &two ) );
   EXPECT_FALSE( ops.erase( *counts, Counters::Attr_::count, table, &two ) );
}

}

}
