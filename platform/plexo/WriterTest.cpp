#include <plexo/Index.h>
#include <plexo/Listing.h>
#include <plexo/TestTable.h>
#include <sys/stat.h>

namespace Plexo {

namespace {

using WriterTest = TableTest;

TEST_F( WriterTest, RefusesBadSizesAndNames ) {
   const auto make = [ & ]( const std::string& name, U32 initial, U32 max ) {
      return thrown< Kel::RangeException >( [ & ] { Writer( hostLayout, name, initial, max ); } );
   };
   EXPECT_EQ( "initial number of records is 0, must be at least 1", make( "t", 0, 10 ) );
   EXPECT_EQ( "maximum number of records 9 is below the initial number 10", make( "t", 10, 9 ) );
   EXPECT_EQ( "maximum number of records 4294967295 is above 1073741824", make( "t", 1, 0xffffffff ) );
   for( const std::string name : { "", ".t", "a/b", "../t" } ) EXPECT_NE( "nothing", make( name, 1, 1 ) ) << name;
   EXPECT_NE( "nothing", make( std::string( 201, 'x' ), 1, 1 ) );
   EXPECT_TRUE( std::filesystem::is_empty( directory ) );
   constexpr RecordLayout bad[] = { { 30, 0, 8, hostHash, "" }, { 0, 0, 0, hostHash, "" }, { 32, 28, 8, hostHash, "" },
                                    { 32, 40, 8, hostHash, "" }, { 32, 0, 0, hostHash, "" }, { 4096, 0, 8, hostHash, "" },
                                    { 32, 0, 8, nullptr, "" } };
   for( const RecordLayout& layout : bad ) EXPECT_THROW( Writer( layout, "t", 1, 1 ), Kel::RangeException );
}

/// A long random history, compared with a map, with growth from one record.
TEST_F( WriterTest, AgreesWithAMap ) {
   Writer writer( hostLayout, "t", 1, 3000 );
   Reader reader( hostLayout, "t" );
   Contents model;
   U32 random = 1;
   for( U32 i = 0; i < 200000; ++i ) {
      random = random * 1664525 + 1013904223;
      const U32 number = ( random >> 8 ) % 4000;
      const auto at = model.find( { 0, number } );
      if( random >> 30 == 0 || ( model.size() >= 3000 && at == model.end() ) ) {
         EXPECT_EQ( model.erase( { 0, number } ) == 1, forget( writer, number ) );
         continue;
      }
      const Host host( number, i / 4096 );
      const bool isNew = at == model.end();
      const Outcome expected = isNew ? Outcome::inserted : at->second == host.port ? Outcome::unchanged : Outcome::changed;
      EXPECT_EQ( expected, writer.upsert( &host ) );
      model[ { 0, number } ] = host.port;
   }
   expectContents( writer, model );
   expectContents( reader, model );
   writer.eraseAll();
   expectContents( reader, {} );
}

TEST_F( WriterTest, IsFullExactlyAtItsMaximum ) {
   for( const RecordLayout* layout : { &hostLayout, &floodLayout } ) {
      const std::string name( layout->text.substr( 0, 4 ) );
      Writer writer( *layout, name, 1, 20000 );
      for( U32 i = 0; i < 20000; ++i ) learn( writer, i, i );
      EXPECT_EQ( "table " + name + " is full: it holds 20000 records, its maximum",
                 thrown< TableFullException >( [ & ] { learn( writer, 20000, 0 ); } ) );
      learn( writer, 7, 8 );                                            // what is there can still change
      forget( writer, 8 );
      learn( writer, 20000, 1 );
      EXPECT_EQ( 20000u, writer.records() );
      EXPECT_EQ( 8, portOf( writer, 7 ) );
      EXPECT_EQ( -1, portOf( writer, 8 ) );
      EXPECT_EQ( 1, portOf( writer, 20000 ) );
   }
}

/// An erased slot keeps its key until its journal entry has left the ring, then the oldest is the first to be used again.
TEST_F( WriterTest, ErasedSlotsRest ) {
   Writer writer( hostLayout, "t", 100, 100 );                          // a ring of 1024
   for( U32 i = 0; i < 10; ++i ) learn( writer, i, 1 );
   const auto slotOf = [ & ]( U32 number ) {
      Host host;
      U32 at = 0;
      while( writer.next( at, &host ) && host.number != number ) {
      }
      return at - 1;
   };
   forget( writer, 7 );
   forget( writer, 3 );
   for( U32 i = 0; i < 1021; ++i ) learn( writer, 5, i );
   learn( writer, 50, 1 );
   EXPECT_EQ( 10u, slotOf( 50 ) );
   learn( writer, 51, 1 );
   learn( writer, 52, 1 );
   EXPECT_EQ( 7u, slotOf( 51 ) );
   EXPECT_EQ( 3u, slotOf( 52 ) );
}

/// Counts and marks that insertions left in the index go with the records, so that churn never makes searches longer.
TEST_F( WriterTest, RemovalLeavesNothingInTheIndex ) {
   Writer writer( floodLayout, "t", 1000, 1000 );                       // one arena
   for( U32 round = 0; round < 3; ++round ) {
      for( U32 i = 0; i < 1000; ++i ) learn( writer, i * 7, i );
      for( U32 i = 0; i < 1000; ++i ) forget( writer, ( i * 333 % 1000 ) * 7 );
   }
   const FileBytes bytes( file() );
   EXPECT_EQ( 0u, bytes.get( Format::At::indexWord ) & 0xff );
   const std::string index = bytes.copy().substr( std::size_t( bytes.get64( Format::At::indexOffset ) ) );
   for( U32 bucket = 0; bucket < 128; ++bucket ) {
      EXPECT_EQ( std::string( 16, '\0' ), index.substr( bucket * Format::bucketBytes + 48, 16 ) ) << bucket;
   }
}

/// What look-ups of keys cost: buckets that they look into and records that they compare.
struct Cost {
   U32 all = 0, worst = 0;
};

/// Of the hosts 0 to `count` - 1, which the table holds, and of as many that it does not hold.
Cost costOfLookUps( const RecordLayout& layout, const std::string& path, U32 count ) {
   const FileBytes bytes( path );
   EXPECT_EQ( 0u, bytes.get( Format::At::indexWord ) & 0xff ) << "one arena";
   const Index index( bytes.base + bytes.get64( Format::At::indexOffset ), bytes.get( Format::At::indexBuckets ) );
   const std::byte* const records = bytes.base + bytes.get64( Format::At::slabOffset ) + Format::slotHeadBytes;
   Cost out;
   for( U32 i = 0; i < 2 * count; ++i ) {
      const Host host( i, 0 );
      U32 cost = 0;
      const auto isIt = [ & ]( U32 slot ) {
         ++cost;
         return std::memcmp( records + std::size_t( slot ) * bytes.get( Format::At::slotBytes ), &host, 8 ) == 0;
      };
      const KeyHash hash( layout, &host, bytes.get( Format::At::hashSeed ) );
      EXPECT_EQ( i < count, index.find( hash, isIt, nullptr, [ & ]( U32 ) { ++cost; } ) );
      out.all += cost;
      out.worst = std::max( out.worst, cost );
   }
   return out;
}

/// Keys that all have one hash must not make a look-up walk along all of them.
TEST_F( WriterTest, KeysOfOneHashCostLittle ) {
   constexpr U32 count = 20000;
   for( const RecordLayout* layout : { &floodLayout, &hostLayout } ) {
      Writer writer( *layout, std::string( layout->text.substr( 0, 4 ) ), count, count );
      for( U32 i = 0; i < count; ++i ) learn( writer, i, 1 );
   }
   const Cost flood = costOfLookUps( floodLayout, file( "Floo" ), count );
   const Cost spread = costOfLookUps( hostLayout, file( "Host" ), count );
   EXPECT_LE( flood.all, 20 * spread.all );
   EXPECT_LE( flood.worst, 20 * spread.worst );
}

TEST_F( WriterTest, DirectModeIsGuarded ) {
   Writer writer( hostLayout, "t", 10, 10 );
   const Host host( 1, 5 );
   EXPECT_EQ( "commit to table t outside direct mode", thrown< AssertionException >( [ & ] { writer.commit( &host ); } ) );
   void* cell = writer.direct();
   EXPECT_THROW( writer.direct(), AssertionException );
   EXPECT_THROW( writer.commit( &host ), AssertionException );
   std::memcpy( cell, &host, sizeof host );
   EXPECT_EQ( -1, portOf( writer, 1 ) );
   EXPECT_EQ( Outcome::inserted, writer.commit( cell ) );
   EXPECT_EQ( 5, portOf( writer, 1 ) );
   EXPECT_THROW( writer.commit( cell ), AssertionException );
}

TEST_F( WriterTest, WalkMeetsWhatStaysExactlyOnce ) {
   Writer writer( hostLayout, "t", 10, 5000 );
   for( U32 i = 0; i < 1000; ++i ) learn( writer, i, 1 );
   std::map< U32, U32 > met;
   Host host;
   U32 fresh = 1000;
   for( U32 at = 0; writer.next( at, &host ); ) {
      ++met[ host.number ];
      if( host.number % 3 == 0 ) forget( writer, host.number );         // its own
      if( host.number % 3 == 1 ) learn( writer, host.number, 2 );
      if( fresh < 4000 ) learn( writer, fresh++, 3 );                   // grows meanwhile
   }
   for( U32 i = 0; i < 1000; ++i ) EXPECT_EQ( 1u, met[ i ] ) << i;
   for( const auto& [ number, times ] : met ) EXPECT_EQ( 1u, times ) << number;
}

TEST_F( WriterTest, OutlivesItsWriterAndChangesSize ) {
   {
      Writer writer( hostLayout, "t", 10, 1000 );
      for( U32 i = 0; i < 500; ++i ) learn( writer, i, i );
      const std::string taken = thrown< RoleException >( [ & ] { Writer( hostLayout, "t", 10, 1000 ); } );
      EXPECT_EQ( "table " + file() + " has a writer already (process " + std::to_string( getpid() ) +
                 "); stop it or choose another name", taken );
   }
   Contents all;
   for( U32 i = 0; i < 500; ++i ) all[ { 0, i } ] = i;
   for( const U32 max : { 1000u, 2000u, 600u, 600u } ) expectContents( Writer( hostLayout, "t", 10, max ), all );
   EXPECT_NE( "nothing", thrown< Kel::RangeException >( [ & ] { Writer( hostLayout, "t", 10, 499 ); } ) );
   expectContents( Writer( hostLayout, "t", 10, 500 ), all );
   expectContents( Writer( oldHostLayout, "t", 10, 500 ), {} );         // another layout begins empty
}

TEST_F( WriterTest, WhatIsNotItsOwnStays ) {
   { Writer( hostLayout, "t", 10, 10 ); }
   const std::string sound = FileBytes( file() ).copy(), newer = std::string( sound ).replace( Format::At::version, 1, "\2" );
   const std::string noTable = "it is no table: its first 8 bytes are not PLEXOTBL";
   const std::tuple< std::string, const RecordLayout*, std::string > cases[] = {
      { "", &hostLayout, noTable },
      { "notes\n", &hostLayout, noTable },
      { std::string( sound.size(), 'x' ), &hostLayout, noTable },
      { newer, &hostLayout, "its format is 2, this library knows 1" },
      { sound, &floodLayout, "its records are of the type \"Host\" where this program's are of \"Flood\"" },
   };
   for( const auto& [ content, layout, reason ] : cases ) {
      std::filesystem::remove( file() );
      std::ofstream( file(), std::ios::binary ) << content;
      EXPECT_EQ( "refusing to replace " + file() + ": " + reason + "; remove the file or choose another name",
                 thrown< ForeignFileException >( [ & ] { Writer( *layout, "t", 10, 10 ); } ) );
      EXPECT_TRUE( contentOf( file() ) == content ) << reason;
   }
}

TEST_F( WriterTest, FilesAreForOwnerAndGroupAndNoLinks ) {
   Writer writer( hostLayout, "t", 10, 10 );
   struct stat found;
   ASSERT_EQ( 0, stat( file().c_str(), &found ) );
   EXPECT_EQ( 0640u, found.st_mode & 07777 );
   std::filesystem::create_symlink( file(), file( "link" ) );
   EXPECT_THROW( Writer( hostLayout, "link", 10, 10 ), SystemException );
   const Reader reader( hostLayout, "link" );
   EXPECT_EQ( TableState::degraded, reader.state() );
   std::filesystem::create_directory( file( "dir" ) );
   EXPECT_THROW( Writer( hostLayout, "dir", 10, 10 ), SystemException );
   EXPECT_EQ( 0, mkfifo( file( "fifo" ).c_str(), 0600 ) );
   EXPECT_THROW( Writer( hostLayout, "fifo", 10, 10 ), SystemException );
   const Reader fifo( hostLayout, "fifo" );
   EXPECT_EQ( TableState::degraded, fifo.state() );
   if( getuid() == 0 ) {
      ASSERT_EQ( 0, chown( file().c_str(), 12345, 12345 ) );
      const Reader foreign( hostLayout, "t" );
      EXPECT_EQ( file() + " is refused: it belongs to user 12345, who does not own the directory", foreign.reason() );
   }
}

TEST_F( WriterTest, TakesRoomAsItGrowsAndNotMuch ) {
   constexpr U32 count = 400000;                                        // less than the 64 MB that /dev/shm has in a container
   const auto used = [] { return listTables().at( 0 ).bytesUsed; };
   Writer small( hostLayout, "t", 1, count );
   EXPECT_LE( used(), ( 1u << 20 ) + 50000u );                          // the journal's ring, and hardly more
   for( U32 i = 0; i < count; ++i ) learn( small, i, i );
   EXPECT_LE( used(), 72u * count );
}

TEST_F( WriterTest, CorruptedTableTakesNoWrites ) {
   {
      Writer writer( hostLayout, "t", 10, 10 );
      learn( writer, 1, 1 );
      writer.corruptIs( "slot 5 is green" );
      EXPECT_EQ( "write to a corrupted table: slot 5 is green",
                 thrown< AssertionException >( [ & ] { learn( writer, 2, 2 ); } ) );
      EXPECT_THROW( forget( writer, 1 ), AssertionException );
      EXPECT_THROW( writer.eraseAll(), AssertionException );
      EXPECT_EQ( 1, portOf( writer, 1 ) );
   }
   Writer writer( hostLayout, "t", 10, 10 );                            // the next one begins afresh
   FILE* raw = fopen( file().c_str(), "r+" );
   fwrite( "XXXX", 4, 1, raw );
   fclose( raw );
   EXPECT_EQ( "write to a corrupted table: table t is corrupted: its magic is gone",
              thrown< AssertionException >( [ & ] { learn( writer, 2, 2 ); } ) );
   EXPECT_THROW( portOf( writer, 1 ), CorruptionException );
}

TEST_F( WriterTest, ListingTellsEveryState ) {
   Writer live( hostLayout, "live", 10, 20 );
   learn( live, 1, 1 );
   learn( live, 1, 2 );
   Writer( hostLayout, "stale", 10, 10 );
   Writer( hostLayout, "short", 10, 10 );
   std::filesystem::resize_file( file( "short" ), 20000 );
   FILE* garbage = fopen( file( "garbage" ).c_str(), "w" );
   fputs( "hello", garbage );
   fclose( garbage );
   const auto tables = listTables();
   ASSERT_EQ( 4u, tables.size() );
   EXPECT_EQ( "garbage", tables[ 0 ].name );
   EXPECT_EQ( "it is shorter than a table's header", tables[ 0 ].reason );
   EXPECT_EQ( TableState::live, tables[ 1 ].state );
   EXPECT_EQ( U32( getpid() ), tables[ 1 ].writerPid );
   EXPECT_EQ( 1u, tables[ 1 ].records );
   EXPECT_EQ( 20u, tables[ 1 ].maxRecords );
   EXPECT_EQ( 2u, tables[ 1 ].changes );
   EXPECT_EQ( hostLayout.text, tables[ 1 ].layout );
   EXPECT_EQ( TableState::degraded, tables[ 2 ].state );
   EXPECT_TRUE( tables[ 2 ].reason.starts_with( "it has 20000 bytes where its header needs " ) ) << tables[ 2 ].reason;
   EXPECT_EQ( TableState::stale, tables[ 3 ].state );
   EXPECT_TRUE( listTables( directory + "/nowhere" ).empty() );
   EXPECT_THROW( listTables( file( "live" ) ), SystemException );
}

}

}
