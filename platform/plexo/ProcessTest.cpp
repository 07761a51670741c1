#include <fcntl.h>
#include <plexo/Shared.h>
#include <plexo/TestTable.h>
#include <sched.h>
#include <sys/mount.h>

namespace Plexo {

namespace {

using ProcessTest = TableTest;

// --- a writer that dies ----------------------------------------------------------------------------------------------------

/// Ends the process after the given number of stores.
void dieAfter( int stores ) {
   static int left;
   left = stores;
   SharedStore::hookIs( []( void* ) {
      if( --left == 0 ) _exit( 0 );
   }, nullptr );
}

constexpr int finished = 99;

/// What a writer does when it dies; `prepare` builds the table before.
struct Crash {
   const char* name;
   U32 max;
   void ( *prepare )( Writer& );
   void ( *act )( Writer& );
};

void tenHosts( Writer& writer ) {
   for( U32 i = 0; i < 10; ++i ) learn( writer, i, 1 );
}
void fullIndex( Writer& writer ) {
   for( U32 i = 0; i < 160; ++i ) learn( writer, i, 1 );
}
/// Slots 0 to 9 are free and rested.
void freeSlots( Writer& writer ) {
   tenHosts( writer );
   writer.eraseAll();
   for( U32 i = 0; i < 2000; ++i ) learn( writer, 100, i );
}

constexpr Crash crashes[] = {
   { "insert", 100, tenHosts, []( Writer& w ) { learn( w, 50, 2 ); } },
   { "overwrite", 100, tenHosts, []( Writer& w ) { learn( w, 5, 2 ); } },
   { "erase", 100, tenHosts, []( Writer& w ) { forget( w, 5 ); } },
   { "insert into an erased slot", 100, freeSlots, []( Writer& w ) { learn( w, 50, 2 ); } },
   { "insert that doubles the index", 400, fullIndex, []( Writer& w ) { learn( w, 500, 2 ); } },
   { "direct", 100, tenHosts, []( Writer& w ) { w.commit( ::new( w.direct() ) Host( 50, 2 ) ); } },
};

class CrashTest : public TableTest, public testing::WithParamInterface< Crash > {};

/// Whatever store a writer dies after: readers see the table before or after the change, look-ups as walks, and the next writer
/// finds just what they saw.
TEST_P( CrashTest, ReadersSeeBeforeOrAfter ) {
   const Crash& crash = GetParam();
   const auto open = [ & ] { return std::make_unique< Writer >( hostLayout, "t", 1, crash.max ); };
   Contents after;
   {
      const auto writer = open();
      crash.prepare( *writer );
      crash.act( *writer );
      after = walk( *writer );
   }
   U32 befores = 0;
   U32 afters = 0;
   int status = 0;
   for( int stores = 1; status != finished; ++stores ) {
      std::filesystem::remove( file() );
      Contents before;
      {
         const auto writer = open();
         crash.prepare( *writer );
         before = walk( *writer );
      }
      Follower follower;
      follower.drain();
      status = Child( [ & ] {
                  const auto writer = open();
                  dieAfter( stores );
                  crash.act( *writer );
                  return finished;
               } ).wait();
      const Contents seen = walk( follower.reader );
      ( seen == before ? befores : afters ) += 1;
      EXPECT_TRUE( seen == before || seen == after ) << crash.name << " after store " << stores;
      for( const Contents* keys : { &before, &after } ) {
         for( const auto& [ key, port ] : *keys ) {
            EXPECT_EQ( seen.contains( key ) ? long( seen.at( key ) ) : -1, portOf( follower.reader, key.second ) );
         }
      }
      follower.drain();
      const auto writer = open();
      expectContents( *writer, seen );
      ASSERT_TRUE( follower.waitFor( [ & ] { return follower.seen == seen; } ) ) << crash.name << " after store " << stores;
      learn( *writer, 77, 7 );
      EXPECT_EQ( 7, portOf( follower.reader, 77 ) );
   }
   EXPECT_GT( befores, 2u );
   EXPECT_GT( afters, 1u );
}

INSTANTIATE_TEST_SUITE_P( All, CrashTest, testing::ValuesIn( crashes ), []( const auto& crash ) {
   std::string name = crash.param.name;
   std::replace( name.begin(), name.end(), ' ', '_' );
   return name;
} );

/// The life of the file itself: a writer that dies while it creates, takes over or replaces a table.
TEST_F( ProcessTest, WriterDiesWhileItOpens ) {
   for( const U32 max : { 100u, 200u } ) {
      int status = 0;
      for( int stores = 1; status != finished; stores += 1 + stores / 10 ) {
         std::filesystem::remove_all( directory );
         std::filesystem::create_directory( directory );
         if( max == 200 ) {
            Writer writer( hostLayout, "t", 1, 100 );
            tenHosts( writer );
         }
         Follower follower;
         follower.drain();
         status = Child( [ & ] {
                     dieAfter( stores );
                     Writer writer( hostLayout, "t", 1, max );
                     return finished;
                  } ).wait();
         Writer writer( hostLayout, "t", 1, max );
         EXPECT_EQ( max == 200 ? 10u : 0u, walk( writer ).size() ) << stores;
         learn( writer, 77, 7 );
         ASSERT_TRUE( follower.waitFor( [ & ] { return follower.seen == walk( writer ); } ) ) << stores;
      }
   }
}

TEST_F( ProcessTest, TakeOverMayDieToo ) {
   int status = 0;
   for( int stores = 1; status != finished; stores += 1 + stores / 20 ) {
      std::filesystem::remove( file() );
      {
         Writer writer( hostLayout, "t", 1, 100 );
         tenHosts( writer );
      }
      Follower follower;
      follower.drain();
      Child( [] {                                                       // leaves a busy slot, which changed just before
         Writer writer( hostLayout, "t", 1, 100 );
         learn( writer, 5, 3 );
         dieAfter( 10 );
         learn( writer, 5, 2 );
         return finished;
      } ).wait();
      status = Child( [ & ] {
                  dieAfter( stores );
                  Writer writer( hostLayout, "t", 1, 100 );
                  return finished;
               } ).wait();
      EXPECT_EQ( 10u, walk( follower.reader ).size() );
      EXPECT_EQ( 3, portOf( follower.reader, 5 ) );
      Writer writer( hostLayout, "t", 1, 100 );
      forget( writer, 9 );
      ASSERT_TRUE( follower.waitFor( [ & ] { return follower.seen == walk( writer ); } ) ) << stores;
   }
}

// --- two processes at once -------------------------------------------------------------------------------------------------

/// A writer that grows, overwrites and erases at full speed, stopped at random; readers see whole records, and what never
/// changes exactly once.
TEST_F( ProcessTest, ReadsBesideABusyWriter ) {
   Signal ready;
   Child writer( [ & ] {
      Writer table( hostLayout, "t", 1, 60000 );
      for( U32 i = 0; i < 1100; ++i ) learn( table, i, 1 );
      ready.give();
      for( U32 round = 2;; ++round ) {
         for( U32 i = 1000; i < 1100; ++i ) learn( table, i, round );
         for( U32 i = 2000 + round * 10; i < 2010 + round * 10; ++i ) learn( table, i, round );
         if( round % 5000 == 0 ) {
            for( U32 i = 2000; i < 2010 + round * 10; ++i ) forget( table, i );
         } else if( round > 5000 ) {
            for( U32 i = 1990 + round * 10; i < 2000 + round * 10; ++i ) forget( table, i );
         }
      }
      return 0;
   } );
   ready.take();
   Follower follower;
   U32 rounds = 0;
   const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds( 1500 );
   while( std::chrono::steady_clock::now() < end ) {
      writer.signal( ++rounds % 3 ? SIGCONT : SIGSTOP );
      const Contents contents = walk( follower.reader );
      for( U32 i = 0; i < 1000; ++i ) {
         ASSERT_TRUE( contents.contains( { 0, i } ) ) << i;
         ASSERT_EQ( 1, portOf( follower.reader, i ) );
         ASSERT_GE( portOf( follower.reader, 1000 + i % 100 ), 1 );
      }
      follower.reader.dispatch( std::chrono::milliseconds( 1 ) );
   }
   EXPECT_GT( rounds, 10u );
   writer.signal( SIGKILL );
   EXPECT_EQ( -SIGKILL, writer.wait() );
   EXPECT_TRUE( follower.waitFor( TableState::stale ) );
   const Contents left = walk( follower.reader );
   Writer next( hostLayout, "t", 1, 60000 );
   expectContents( next, left );
   EXPECT_TRUE( follower.waitFor( [ & ] { return follower.reader.state() == TableState::live && follower.seen == left; } ) );
}

// --- fork ------------------------------------------------------------------------------------------------------------------

TEST_F( ProcessTest, ChildOfForkHasNoPartInTheRole ) {
   Signal died;
   Signal checked;
   Follower follower;
   std::unique_ptr< Child > grandchild;
   Signal lives;
   Child writer( [ & ] {
      Writer table( hostLayout, "t", 10, 10 );
      learn( table, 1, 1 );
      const pid_t child = fork();
      if( child == 0 ) {                                                // outlives the writer
         int errors = 0;
         try {
            learn( table, 2, 2 );
            errors |= 1;
         } catch( const AssertionException& ) {
         }
         if( table.records() != 1 ) errors |= 2;
         died.take();
         try {
            Writer mine( hostLayout, "t", 10, 10 );                     // now it may become one itself
            learn( mine, 3, U32( errors ) );
            checked.give();
            lives.take();
         } catch( const std::exception& e ) {
            fprintf( stderr, "%s\n", e.what() );
            checked.give();
         }
         _exit( 0 );
      }
      return raise( SIGKILL );
   } );
   EXPECT_EQ( -SIGKILL, writer.wait() );
   EXPECT_TRUE( follower.waitFor( TableState::stale ) );
   died.give();
   checked.take();
   EXPECT_TRUE( follower.waitFor( TableState::live ) );
   EXPECT_EQ( 0, portOf( follower.reader, 3 ) );
   EXPECT_EQ( -1, portOf( follower.reader, 2 ) );
   lives.give();
}

TEST_F( ProcessTest, ChildOfForkReadsOnButIsToldNothing ) {
   Writer table( hostLayout, "t", 10, 10 );
   learn( table, 1, 1 );
   Follower follower;
   follower.drain();
   const int status = Child( [ & ] {
                         int errors = follower.reader.fd() == -1 ? 0 : 1;
                         if( portOf( follower.reader, 1 ) != 1 ) errors |= 2;
                         if( follower.reader.dispatch() || follower.reader.state() != TableState::degraded ) errors |= 4;
                         Follower own;
                         own.drain();
                         if( own.seen.size() != 1 ) errors |= 8;
                         return errors;
                      } ).wait();
   EXPECT_EQ( 0, status );
   learn( table, 2, 1 );
   EXPECT_TRUE( follower.waitFor( [ & ] { return follower.seen.size() == 2; } ) );
}

TEST_F( ProcessTest, ExecedProgramHoldsNothing ) {
   auto table = std::make_unique< Writer >( hostLayout, "t", 10, 10 );
   const pid_t child = vfork();
   if( child == 0 ) {
      execl( "/bin/sleep", "sleep", "30", nullptr );
      _exit( 1 );
   }
   table.reset();
   EXPECT_NO_THROW( Writer( hostLayout, "t", 10, 10 ) );
   kill( child, SIGKILL );
   waitpid( child, nullptr, 0 );
}

// --- a file system without room --------------------------------------------------------------------------------------------

void put( const char* path, const std::string& text ) {
   const int fd = open( path, O_WRONLY | O_CLOEXEC );
   EXPECT_EQ( ssize_t( text.size() ), write( fd, text.data(), text.size() ) );
   close( fd );
}

/// Mounts a small tmpfs that only this process sees, as root or in a user namespace of its own.
bool privateTmpfs( const std::string& directory ) {
   if( unshare( CLONE_NEWNS ) != 0 ) {
      const std::string map = "0 " + std::to_string( geteuid() ) + " 1";
      if( unshare( CLONE_NEWUSER | CLONE_NEWNS ) != 0 ) return false;
      put( "/proc/self/uid_map", map );
   }
   return mount( nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr ) == 0 &&
          mount( "none", directory.c_str(), "tmpfs", 0, "size=3m" ) == 0;
}

/// Skipped where the system allows no mount.
TEST_F( ProcessTest, FullFileSystemIsAnException ) {
   const int status = Child( [ & ] {
                         if( !privateTmpfs( directory ) ) return 77;
                         Writer table( hostLayout, "t", 1, 200000 );
                         Reader reader( hostLayout, "t" );
                         U32 stored = 0;
                         try {
                            for( ;; ++stored ) learn( table, stored, 1 );
                         } catch( const TableFullException& e ) {
                            if( !std::strstr( e.what(), "cannot grow: the file system has no room for" ) ) return 1;
                         }
                         if( stored < 1000 || stored > 100000 ) return 2;
                         learn( table, 5, 2 );                          // the table goes on with what it has
                         forget( table, 6 );
                         if( walk( reader ).size() != stored - 1 || portOf( reader, 5 ) != 2 ) return 3;
                         try {
                            Writer other( hostLayout, "other", 100000, 200000 );
                            return 4;
                         } catch( const TableFullException& ) {
                         }
                         return std::filesystem::exists( directory + "/other.plexo" ) ? 5 : testing::Test::HasFailure();
                      } ).wait();
   if( status == 77 ) GTEST_SKIP() << "no private tmpfs here";
   EXPECT_EQ( 0, status );
}

}

}
