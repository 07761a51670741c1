#include <plexo/Listing.h>
#include <plexo/Shared.h>
#include <plexo/TestTable.h>
#include <random>

// Tables whose bytes are anything: whatever a file holds, a reader ends each call with an answer, a state or the corruption
// exception, within a bounded time, and a writer replaces what it cannot continue.
namespace Plexo {

namespace {

class HostileTest : public TableTest {
 protected:
   HostileTest() {
      Writer writer( hostLayout, "t", 1, 200 );
      for( U32 i = 0; i < 150; ++i ) learn( writer, i, 1 );
      for( U32 i = 0; i < 20; ++i ) forget( writer, i );
   }

   /// Everything that a reader can be asked. Each of its calls ends; what it yields does not matter.
   static void useFully( Reader& reader ) {
      const auto attempt = []( auto&& call ) {
         try {
            call();
         } catch( const CorruptionException& ) {
         }
      };
      Host host;
      for( U32 i = 0; i < 160; ++i ) {
         const Host key( i, 0 );
         attempt( [ & ] { reader.find( &key, &host ); } );
      }
      attempt( [ & ] {
         U32 count = 0;
         for( U32 at = 0; reader.next( at, &host ); ) ++count;
         EXPECT_LE( count, 200u + Format::minRing );
      } );
      std::vector< U64 > keys( 64, 5 );
      std::vector< Host > out( 64 );
      bool found[ 64 ];
      attempt( [ & ] { reader.findMany( keys.data(), 64, out.data(), found ); } );
      for( U32 rounds = 0; reader.dispatch( std::chrono::seconds( 1 ) ) && rounds < 10; ++rounds ) {
      }
   }
};

class Quiet : public TableObserver {
   void onKey( const void* ) override {}
   void onCollection() override {}
   void onState( TableState, const std::string& ) override {}
};

TEST_F( HostileTest, RandomBytesInEveryRegion ) {
   FileBytes bytes( file() );
   const std::string sound = bytes.copy();
   const U64 slab = bytes.get64( Format::At::slabOffset );
   const U64 index = bytes.get64( Format::At::indexOffset );
   const std::pair< U64, U64 > regions[] = {
      { 0, 512 }, { Format::At::undo, 64 }, { Format::headerBytes, 1200 }, { slab, 7000 }, { index, 4096 } };
   std::mt19937 random( 4711 );
   Quiet quiet;
   for( U32 round = 0; round < 1500; ++round ) {
      std::memcpy( bytes.base, sound.data(), sound.size() );
      const auto spoil = [ & ] {
         for( U32 i = 0; i < 1 + random() % 20; ++i ) {
            const auto [ start, length ] = regions[ random() % std::size( regions ) ];
            const std::size_t at = std::size_t( start + random() % length ) & ~std::size_t( 3 );
            const U32 values[] = { 0, 1, 0xffffffff, 0x7fffffff, 130, U32( random() ), bytes.get( at ) ^ 1u << random() % 32 };
            bytes.put( at, values[ random() % std::size( values ) ] );
         }
      };
      if( round % 2 ) spoil();
      Reader reader( hostLayout, "t", round % 5 ? ReaderRole::reader : ReaderRole::shadow );
      reader.observerIs( &quiet );
      if( round % 2 == 0 ) spoil();                                     // under the reader's feet
      useFully( reader );
      EXPECT_EQ( 1u, listTables().size() );
   }
}

/// A writer that takes such a table over ends with one that works, whether it kept the records or began afresh.
TEST_F( HostileTest, TakeOverOfRandomBytes ) {
   const std::string sound = FileBytes( file() ).copy();
   std::mt19937 random( 4712 );
   U32 kept = 0;
   for( U32 round = 0; round < 500; ++round ) {
      std::string spoilt = sound;
      const std::size_t regions[] = { 512, 12000, spoilt.size() };
      for( U32 i = 0; i < 1 + random() % 4; ++i ) spoilt[ random() % regions[ random() % 3 ] ] ^= char( 1 << random() % 8 );
      spoilt.replace( 0, 12, sound, 0, 12 );                            // a table, which it may replace
      std::filesystem::remove( file() );
      std::ofstream( file(), std::ios::binary ) << spoilt;
      Writer writer( hostLayout, "t", 1, 200 );
      kept += writer.records() > 100;
      writer.eraseAll();
      for( U32 i = 0; i < 200; ++i ) learn( writer, i, 2 );
      EXPECT_EQ( 200u, walk( writer ).size() ) << round;
      Reader reader( hostLayout, "t" );
      expectContents( reader, walk( writer ) );
   }
   EXPECT_GT( kept, 100u );
}

TEST_F( HostileTest, FilesOfEveryLength ) {
   const auto full = std::filesystem::file_size( file() );
   Quiet quiet;
   for( const std::uintmax_t size : std::initializer_list< std::uintmax_t >{ 0, 24, 4095, 4096, full / 2, full - 1 } ) {
      Reader reader( hostLayout, "t" );
      reader.observerIs( &quiet );
      useFully( reader );
      std::filesystem::resize_file( file(), size );
      reader.dispatch();                                                // notices before it touches anything
      EXPECT_EQ( TableState::degraded, reader.state() );
      const char* const why = size < 4096 ? "it is shorter than" : "where its header needs";
      EXPECT_NE( std::string::npos, reader.reason().find( why ) ) << reader.reason();
      useFully( reader );
      Reader late( hostLayout, "t" );
      EXPECT_EQ( TableState::degraded, late.state() );
      useFully( late );
      if( size == 0 ) std::filesystem::remove( file() );
      { Writer( hostLayout, "t", 1, 200 ); }                            // puts a new file in its place
      Writer writer( hostLayout, "t", 1, 200 );
      for( U32 i = 0; i < 150; ++i ) learn( writer, i, 1 );
   }
}

struct Spoiling {
   const char* reason;
   void ( *spoil )( std::function< void( std::size_t, U32 ) > put, std::size_t slab );
};

/// Each of these is a corruption by its name.
TEST_F( HostileTest, CorruptionIsNamed ) {
   const Spoiling cases[] = {
      { "its magic is gone", []( auto put, std::size_t ) { put( 0, 7 ); } },
      { "its index is arena 255", []( auto put, std::size_t ) { put( Format::At::indexWord, 0xff ); } },
      { "its high-water mark is 100000 of 1224 slots", []( auto put, std::size_t ) { put( Format::At::highWater, 100000 ); } },
      { "slot 40 is being changed, yet the undo cell belongs to another",
        []( auto put, std::size_t slab ) { put( slab + 40 * 40, 7 ); } },
   };
   for( const Spoiling& spoiling : cases ) {
      Reader reader( hostLayout, "t" );
      FileBytes bytes( file() );
      spoiling.spoil( [ & ]( std::size_t at, U32 v ) { bytes.put( at, v ); }, bytes.get( Format::At::slabOffset ) );
      std::string text;
      try {
         walk( reader );
         for( U32 i = 0; i < 150; ++i ) portOf( reader, i );
      } catch( const CorruptionException& e ) {
         text = e.what();
      }
      EXPECT_EQ( std::string( "table t is corrupted: " ) + spoiling.reason, text );
      bytes.put( Format::At::magic, U32( Format::magic ) );
      Writer writer( hostLayout, "t", 1, 200 );
      for( U32 i = 0; i < 150; ++i ) learn( writer, i, 1 );
   }
}

/// The doorbell is writable by every reader; what stands in it can cost a writer time and nothing else.
TEST_F( HostileTest, DoorbellHoldsNothingOfWorth ) {
   Writer writer( hostLayout, "t", 1, 200 );
   Follower follower;
   follower.drain();
   FileBytes bell( directory + "/t.bell" );
   std::mt19937 random( 1 );
   for( U32 i = 0; i < 200; ++i ) {
      for( std::size_t at = 0; at < 4096; at += 4 ) bell.put( at, U32( random() ) );
      learn( writer, i, i + 2 );
   }
   EXPECT_TRUE( follower.waitFor( [ & ] { return follower.seen == walk( writer ); } ) );
}

TEST_F( HostileTest, WriterNoticesAForeignHand ) {
   Writer writer( hostLayout, "t", 1, 200 );
   FileBytes bytes( file() );
   for( std::size_t at = bytes.get( Format::At::indexOffset ); at < bytes.size; at += 64 ) {
      for( std::size_t lane = 0; lane < 48; lane += 4 ) bytes.put( at + lane, 5000 );
   }
   EXPECT_THROW( learn( writer, 100, 5 ), AssertionException );
   EXPECT_THROW( learn( writer, 1000, 5 ), AssertionException );
   EXPECT_EQ( "table t is corrupted: slot number 5000 where 150 are in use", writer.corruptReason() );
   EXPECT_EQ( 130u, walk( writer ).size() );
}

}

}
