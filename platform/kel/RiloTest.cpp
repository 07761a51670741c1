#include <kel/Rilo.h>
#include <kel/RiloLayout.h>
#include <kel/RiloReader.h>
#include <kel/ThrownTest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Kel::Rilo;
using Kel::RiloReader;
using Kel::U32;
using Kel::U64;
namespace fs = std::filesystem;
namespace Layout = Kel::RiloLayout;

/// Rings in a folder of the test's own. The process's ring is made once, so the cases run in children.
class RiloRing : public ::testing::Test {
 protected:
   RiloRing() {
      std::string name = ::testing::TempDir() + "rilo-XXXXXX";
      directory = ::mkdtemp( name.data() );
      ::setenv( "RILO_DIR", directory.c_str(), 1 );
   }
   ~RiloRing() override {
      for( const pid_t pid : std::vector( children ) ) end( pid ); // of a case that failed
      ::unsetenv( "RILO_DIR" );
      fs::remove_all( directory );
   }

   /// Runs `work` in a child, which then dies by SIGKILL or lives on until `end`.
   pid_t child( const std::function< void() >& work, bool die = true ) {
      int ready[ 2 ];
      EXPECT_EQ( 0, ::pipe( ready ) );
      const pid_t pid = ::fork();
      if( pid == 0 ) {
         work();
         if( die ) ::kill( ::getpid(), SIGKILL );
         (void)!::write( ready[ 1 ], "r", 1 );
         for( ;; ) ::pause();
      }
      if( die ) {
         expectKilled( pid );
      } else {
         char byte;
         children.push_back( pid );
         EXPECT_EQ( 1, ::read( ready[ 0 ], &byte, 1 ) );
      }
      ::close( ready[ 0 ] );
      ::close( ready[ 1 ] );
      return pid;
   }
   void end( pid_t pid ) {
      ::kill( pid, SIGKILL );
      std::erase( children, pid );
      expectKilled( pid );
   }
   void expectKilled( pid_t pid ) {
      int status = 0;
      EXPECT_EQ( pid, ::waitpid( pid, &status, 0 ) );
      EXPECT_TRUE( WIFSIGNALED( status ) ) << "the child failed: " << status;
   }
   std::string fileOf( pid_t pid, const std::string& program = "prog" ) const {
      return directory + '/' + program + '.' + std::to_string( pid );
   }
   /// Overwrites bytes of a ring file.
   template< class T >
   static void poke( const std::string& path, std::size_t offset, T value ) {
      std::fstream file( path, std::ios::in | std::ios::out | std::ios::binary );
      file.seekp( static_cast< std::streamoff >( offset ) );
      file.write( reinterpret_cast< const char* >( &value ), sizeof value );
   }
   static std::size_t slotAt( U32 index, std::size_t member ) {
      return Layout::headerBytes + std::size_t( index ) * Layout::slotBytes + member;
   }

   std::string directory;
   std::vector< pid_t > children;
};

void need( bool ok ) {
   if( !ok ) ::_exit( 9 );
}

TEST_F( RiloRing, survivesSigkill ) {
   const pid_t pid = child( [] {
      need( Rilo::open( "prog" ) );
      Rilo::message( "FdbStatusSm", "WriterFdbStatusSm::handleInitialized()" );
      Rilo::message( std::string( 300, 'x' ) );
      Rilo::message( std::string( 230, 's' ), "t" );
      Rilo::message( "S", std::string_view( "a\0b\n", 4 ) );
      Rilo::message( "", "" );
   } );
   RiloReader reader( fileOf( pid ) );
   EXPECT_EQ( "prog", reader.program() );
   EXPECT_EQ( U32( pid ), reader.pid() );
   EXPECT_EQ( 4096u, reader.slots() );
   EXPECT_FALSE( reader.alive() );
   const auto batch = reader.read();
   ASSERT_EQ( 5u, batch.messages.size() );
   EXPECT_EQ( 0u, batch.lost );
   EXPECT_EQ( 6u, batch.next );
   const auto& m = batch.messages;
   EXPECT_EQ( "FdbStatusSm", m[ 0 ].source );
   EXPECT_EQ( "WriterFdbStatusSm::handleInitialized()", m[ 0 ].text );
   EXPECT_EQ( U32( pid ), m[ 0 ].thread );
   EXPECT_FALSE( m[ 0 ].cut );
   EXPECT_EQ( std::string( 224, 'x' ), m[ 1 ].text );
   EXPECT_TRUE( m[ 1 ].cut );
   EXPECT_EQ( std::string( 224, 's' ), m[ 2 ].source );
   EXPECT_TRUE( m[ 2 ].text.empty() && m[ 2 ].cut );
   EXPECT_EQ( std::string( "a\0b\n", 4 ), m[ 3 ].text );
   for( std::size_t i = 0; i < m.size(); ++i ) {
      EXPECT_EQ( i + 1, m[ i ].sequence );
      EXPECT_GE( m[ i ].time, reader.openedAt() );
   }
}

TEST_F( RiloRing, fileIsPrivateAndItsFolderShared ) {
   fs::remove( directory );
   ::umask( 027 );
   const pid_t pid = child( [] { need( Rilo::open( "prog", 0 ) ); } );
   ::umask( 022 );
   struct stat status;
   ASSERT_EQ( 0, ::stat( fileOf( pid ).c_str(), &status ) );
   EXPECT_EQ( 0640u, status.st_mode & 07777 );
   EXPECT_EQ( 4096 + 16 * 256, status.st_size );
   ASSERT_EQ( 0, ::stat( directory.c_str(), &status ) );
   EXPECT_EQ( 01777u, status.st_mode & 07777 );
}

TEST_F( RiloRing, wrapsAround ) {
   const pid_t pid = child( [] {
      need( Rilo::open( "prog", Rilo::minBytes ) );
      for( int i = 1; i <= 100; ++i ) Rilo::message( "m" + std::to_string( i ) );
   } );
   RiloReader reader( fileOf( pid ) );
   const auto all = reader.read();
   ASSERT_EQ( 16u, all.messages.size() );
   EXPECT_EQ( 84u, all.lost );
   EXPECT_EQ( "m85", all.messages.front().text );
   EXPECT_EQ( "m100", all.messages.back().text );
   const auto some = reader.read( 90 );
   EXPECT_EQ( 11u, some.messages.size() );
   EXPECT_EQ( 0u, some.lost );
   const auto none = reader.read( all.next );
   EXPECT_TRUE( none.messages.empty() && none.lost == 0 && none.next == 101 );
}

TEST_F( RiloRing, aForkedChildSpeaksForItself ) {
   const pid_t parent = child( [] {
      need( Rilo::open( "prog" ) );
      Rilo::message( "parent" );
      const pid_t pid = ::fork();
      if( pid == 0 ) {
         need( Rilo::path().empty() );
         Rilo::message( "child" );
         need( Rilo::path().ends_with( "." + std::to_string( ::getpid() ) ) );
         ::_exit( 0 );
      }
      int status = -1;
      ::waitpid( pid, &status, 0 );
      need( status == 0 );
      Rilo::message( std::to_string( pid ) );
   } );
   RiloReader ofParent( fileOf( parent ) );
   const auto said = ofParent.read().messages;
   ASSERT_EQ( 2u, said.size() );
   EXPECT_EQ( "parent", said[ 0 ].text );
   const pid_t grandchild = std::stoi( said[ 1 ].text );
   RiloReader ofChild( fileOf( grandchild ) );
   const auto childSaid = ofChild.read().messages;
   ASSERT_EQ( 1u, childSaid.size() );
   EXPECT_EQ( "child", childSaid[ 0 ].text );
   EXPECT_EQ( U32( grandchild ), childSaid[ 0 ].thread );
}

/// The content of the message `sequence` of `chatter`.
std::string chatterText( U64 sequence ) {
   return std::string( static_cast< std::size_t >( sequence % 200 ), static_cast< char >( 'a' + sequence % 26 ) );
}

/// Writes on and on, from a thread of its own.
void chatter( U32 bytes ) {
   need( Rilo::open( "prog", bytes ) );
   std::thread( [] {
      for( U64 i = 1;; ++i ) Rilo::message( "S" + std::to_string( i ), chatterText( i ) );
   } ).detach();
}

// In a small ring, which the writer overtakes all the time, and in one that holds what the reader has yet to read.
TEST_F( RiloRing, followsALivingWriterAndReportsNothingTorn ) {
   for( const U32 bytes : { Rilo::minBytes, U32( 1 << 18 ) } ) {
      const pid_t pid = child( [ bytes ] { chatter( bytes ); }, false );
      RiloReader reader( fileOf( pid ) );
      EXPECT_TRUE( reader.alive() );
      U64 next = 1, seen = 0, lost = 0;
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds( 20 );
      while( seen < 20000 && std::chrono::steady_clock::now() < deadline ) {
         const auto batch = reader.read( next );
         for( const auto& m : batch.messages ) {
            ASSERT_GE( m.sequence, next );
            ASSERT_EQ( "S" + std::to_string( m.sequence ), m.source );
            ASSERT_EQ( chatterText( m.sequence ), m.text );
            next = m.sequence + 1;
            ++seen;
         }
         lost += batch.lost;
         next = batch.next;
      }
      EXPECT_EQ( next - 1, seen + lost );
      EXPECT_GE( seen, 20000u );
      end( pid );
      EXPECT_FALSE( reader.alive() );
   }
}

TEST_F( RiloRing, manyThreadsLoseNothingInALargeRing ) {
   const pid_t pid = child( [] {
      need( Rilo::open( "prog" ) );
      const auto work = [] {
         for( int i = 0; i < 500; ++i ) Rilo::message( "T", std::to_string( i ) );
      };
      std::vector< std::thread > threads;
      for( int i = 0; i < 4; ++i ) threads.emplace_back( work );
      for( auto& t : threads ) t.join();
      need( Rilo::dropped() == 0 );
   } );
   RiloReader reader( fileOf( pid ) );
   const auto batch = reader.read();
   EXPECT_EQ( 2000u, batch.messages.size() );
   EXPECT_EQ( 0u, batch.lost );
   std::map< U32, int > said;
   for( const auto& m : batch.messages ) ASSERT_EQ( std::to_string( said[ m.thread ]++ ), m.text ) << "thread " << m.thread;
   EXPECT_EQ( 4u, said.size() );
}

TEST_F( RiloRing, aNumberThatIsUsedAgainIsNotTakenForTheProcess ) {
   const pid_t pid = child( [] { need( Rilo::open( "prog" ) ); }, false );
   poke( fileOf( pid ), offsetof( Layout::Header, processStart ), U64( 1 ) );
   EXPECT_FALSE( RiloReader( fileOf( pid ) ).alive() );
   poke( fileOf( pid ), offsetof( Layout::Header, pid ), U32( 0 ) );
   EXPECT_FALSE( RiloReader( fileOf( pid ) ).alive() );
   end( pid );
}

// A slot that stays busy is what a death in mid-message leaves, one with an older message what a stopped thread has yet to
// claim.
TEST_F( RiloRing, waitsOnceForAMessageInTheMaking ) {
   const pid_t pid = child(
      [] {
         need( Rilo::open( "prog", Rilo::minBytes ) );
         for( int i = 1; i <= 20; ++i ) Rilo::message( std::to_string( i ) );
      },
      false );
   const auto wordOf18 = slotAt( 1, offsetof( Layout::Slot, word ) );
   poke( fileOf( pid ), wordOf18, Layout::wordOf( 18 ) | Layout::busy );
   RiloReader reader( fileOf( pid ) );
   EXPECT_EQ( 15u, reader.read().messages.size() );
   auto batch = reader.read( 10 );
   EXPECT_EQ( 8u, batch.messages.size() );
   EXPECT_EQ( 18u, batch.next );
   EXPECT_EQ( 0u, batch.lost );
   poke( fileOf( pid ), wordOf18, Layout::wordOf( 18 ) );
   batch = reader.read( batch.next );
   EXPECT_EQ( 3u, batch.messages.size() );
   poke( fileOf( pid ), wordOf18, Layout::wordOf( 2 ) );
   EXPECT_EQ( 18u, reader.read( 17 ).next );
   batch = reader.read( 18 );
   EXPECT_EQ( 2u, batch.messages.size() );
   EXPECT_EQ( 1u, batch.lost );
   EXPECT_EQ( 21u, batch.next );
   end( pid );
   EXPECT_EQ( 21u, reader.read( 17 ).next );
}

TEST_F( RiloRing, aWriterGoesRoundABusySlot ) {
   const pid_t pid = child( [] {
      need( Rilo::open( "prog", Rilo::minBytes ) );
      for( int i = 1; i <= 16; ++i ) Rilo::message( "old" );
      // One busy, one that already holds a newer message.
      poke( Rilo::path(), slotAt( 0, offsetof( Layout::Slot, word ) ), Layout::wordOf( 1 ) | Layout::busy );
      poke( Rilo::path(), slotAt( 1, offsetof( Layout::Slot, word ) ), Layout::wordOf( 34 ) );
      for( int i = 17; i <= 32; ++i ) Rilo::message( "new" );
      need( Rilo::dropped() == 2 );
   } );
   const auto batch = RiloReader( fileOf( pid ) ).read();
   ASSERT_EQ( 14u, batch.messages.size() );
   EXPECT_EQ( 19u, batch.messages.front().sequence );
   EXPECT_EQ( 18u, batch.lost );
}

TEST_F( RiloRing, theNewestDeadRingsOfItsProgramStay ) {
   std::vector< pid_t > pids;
   const pid_t living = child( [] { need( Rilo::open( "prog", Rilo::minBytes ) ); }, false );
   for( U32 i = 0; i < Rilo::deadRingsKept + 3; ++i )
      pids.push_back( child( [] { need( Rilo::open( "prog", Rilo::minBytes ) ); } ) );
   std::ofstream( directory + "/prog.notes" ) << "not a ring";
   fs::create_symlink( fileOf( pids.back() ), directory + "/prog.1" );
   const pid_t other = child( [] { need( Rilo::open( "other", Rilo::minBytes ) ); } );
   const pid_t last = child( [] { need( Rilo::open( "prog", Rilo::minBytes ) ); } );
   std::vector< std::string > want{ fileOf( living ), fileOf( other, "other" ), fileOf( last ), directory + "/prog.notes",
                                    directory + "/prog.1" };
   for( U32 i = 3; i < pids.size(); ++i ) want.push_back( fileOf( pids[ i ] ) );
   std::ranges::sort( want );
   EXPECT_EQ( want, Kel::riloFiles( directory ) );
   end( living );
}

TEST_F( RiloRing, withoutARingMessagesAreCounted ) {
   child( [ & ] {
      ::setenv( "RILO_DIR", "/proc/self/rilo", 1 );
      Rilo::message( "lost" );
      need( !Rilo::open( "prog" ) && Rilo::path().empty() );
      need( Rilo::problem() == "folder /proc/self/rilo can't be opened: No such file or directory" );
      ::setenv( "RILO_DIR", "/dev/null", 1 );
      need( !Rilo::open( "prog" ) && Rilo::problem() == "folder /dev/null can't be opened: Not a directory" );
      Rilo::message( "lost" );
      need( Rilo::dropped() == 2 );
      // A later attempt may succeed; the name can't lead out of the folder.
      ::setenv( "RILO_DIR", directory.c_str(), 1 );
      need( Rilo::open( "../a\n" ) && Rilo::problem().empty() );
      need( Rilo::path() == directory + "/_.._a_." + std::to_string( ::getpid() ) );
   } );
}

TEST_F( RiloRing, refusesWhatIsNoRing ) {
   const pid_t pid = child( [] { need( Rilo::open( "prog", Rilo::minBytes ) ); } );
   const std::string good = fileOf( pid ), bad = directory + "/bad.1";
   const std::string is = bad + " is no trace ring: ";
   const struct {
      std::function< void() > damage;
      std::string reason;
   } rows[] = {
      { [ & ] { fs::resize_file( bad, 111 ); }, is + "shorter than its header" },
      { [ & ] { fs::resize_file( bad, 8191 ); }, is + "it is cut short: 8191 bytes for 16 messages" },
      { [ & ] { poke( bad, 0, U64( 0 ) ); }, is + "it is still being made, or was never finished" },
      { [ & ] { poke( bad, 0, U32( 0 ) ); }, is + "it begins with other bytes than RILORING" },
      { [ & ] { poke( bad, 8, U32( 2 ) ); }, is + "it has format version 2, this program reads version 1" },
      { [ & ] { poke( bad, 12, U32( 0 ) ); }, is + "its sizes are impossible" },
      { [ & ] { poke( bad, 20, U32( 15 ) ); }, is + "its sizes are impossible" },
      { [ & ] { poke( bad, 20, U32( 1 ) << 31 ); }, is + "its sizes are impossible" },
      { [ & ] { fs::remove( bad ), ::mkfifo( bad.c_str(), 0600 ); }, is + "not a regular file" },
      { [ & ] { fs::remove( bad ), fs::create_symlink( good, bad ); },
        "trace ring " + bad + " can't be opened: Too many levels of symbolic links" },
      { [ & ] { fs::remove( bad ); }, "trace ring " + bad + " can't be opened: No such file or directory" },
   };
   for( const auto& r : rows ) {
      fs::remove( bad );
      fs::copy_file( good, bad );
      r.damage();
      EXPECT_EQ( r.reason, thrown< Kel::Exception >( [ & ] { RiloReader reader( bad ); } ) );
   }
}

TEST_F( RiloRing, hostileBytesDoNoHarm ) {
   const pid_t pid = child( [] {
      need( Rilo::open( "prog", Rilo::minBytes ) );
      for( int i = 1; i <= 40; ++i ) Rilo::message( "S", std::to_string( i ) );
   } );
   std::stringstream content;
   content << std::ifstream( fileOf( pid ), std::ios::binary ).rdbuf();
   const std::string good = content.str(), bad = directory + "/bad.1";
   std::mt19937 random( 11 );
   U64 opened = 0, intact = 0;
   for( int round = 0; round < 1500; ++round ) {
      std::string bytes = good;
      for( auto n = 1 + random() % 20; n > 0; --n ) {
         // Mostly where it hurts: the header, and the first words of the slots.
         const auto slot = slotAt( random() % 16, random() % 32 );
         const auto at = random() % 8 == 0 ? random() % 112 : random() % 4 == 0 ? random() % bytes.size() : slot;
         bytes[ at ] = random() % 2 ? static_cast< char >( random() ) : static_cast< char >( 0xff );
      }
      if( random() % 16 == 0 ) bytes.resize( random() % bytes.size() );
      fs::remove( bad );
      std::ofstream( bad, std::ios::binary ) << bytes;
      try {
         RiloReader reader( bad );
         ++opened;
         for( const U64 from : { U64( 0 ), U64( 1 ), U64( 30 ), ~U64( 0 ) } ) {
            const auto batch = reader.read( from );
            ASSERT_LE( batch.messages.size(), 16u );
            U64 last = 0;
            for( const auto& m : batch.messages ) {
               ASSERT_GT( m.sequence, last );
               last = m.sequence;
               ASSERT_LE( m.source.size() + m.text.size(), 224u );
               intact += m.text == std::to_string( m.sequence );
            }
            ASSERT_GE( batch.next, last );
         }
      } catch( const Kel::Exception& ) {}
   }
   EXPECT_GT( opened, 500u );
   EXPECT_GT( intact, 500u );
}

// docs/rilo.md shows these bytes.
TEST_F( RiloRing, bytesOfTheWorkedExample ) {
   const pid_t pid = child( [] {
      need( Rilo::open( "fdbd", Rilo::minBytes ) );
      for( int i = 1; i <= 16; ++i ) Rilo::message( "x" );
      Rilo::message( "Sm", "hello" );
   } );
   std::ifstream file( fileOf( pid, "fdbd" ), std::ios::binary );
   std::string bytes( 8192, '?' );
   ASSERT_TRUE( file.read( bytes.data(), 8192 ) );
   const auto hexAt = [ & ]( std::size_t offset, std::size_t n ) {
      std::string text;
      for( std::size_t i = 0; i < n; ++i ) {
         char two[ 4 ];
         std::snprintf( two, sizeof two, "%02x ", static_cast< unsigned char >( bytes[ offset + i ] ) );
         text += two;
      }
      return text;
   };
   EXPECT_EQ( "52 49 4c 4f 52 49 4e 47 01 00 00 00 00 10 00 00 00 01 00 00 10 00 00 00 ", hexAt( 0, 24 ) );
   EXPECT_EQ( "66 64 62 64 00 ", hexAt( 48, 5 ) );
   EXPECT_EQ( "46 00 00 00 ", hexAt( 4096, 4 ) );
   EXPECT_EQ( "11 00 00 00 00 00 00 00 ", hexAt( 4096 + 8, 8 ) );
   EXPECT_EQ( "02 00 05 00 00 00 00 00 53 6d 68 65 6c 6c 6f ", hexAt( 4096 + 24, 15 ) );
}

}
