#include "TestSupport.h"
#include <Vanta/PlexoBridging.h>
#include <csignal>
#include <cstdio>
#include <plexo/TestFiles.h>
#include <regex>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// The program as a person runs it, and its table as another process reads it.

namespace Fdbd {

using namespace Test;
using Plexo::contentOf;

namespace {

struct Result {
   int code;
   std::string text;
};

std::string captureFile( const std::string& name ) { return FDBD_CAPTURES "/" + name; }

const std::string demoCaptures =
   " --capture " + captureFile( "port1.pcap" ) + " --capture " + captureFile( "port2.pcap" ) + " --capture " +
      captureFile( "port3.pcapng" ) + " ";

class Program : public ::testing::Test {
 protected:
   void TearDown() override {
      if( pid > 0 ) stop( SIGKILL );
   }

   /// Runs it to its end, 20 seconds at most; everything that it writes.
   static Result run( const std::string& arguments ) {
      Result out;
      std::FILE* pipe = popen( ( "{ timeout 20 " FDBD_PROGRAM " " + arguments + "; } 2>&1" ).c_str(), "r" );
      char buffer[ 4096 ];
      while( std::fgets( buffer, sizeof buffer, pipe ) ) out.text += buffer;
      out.code = WEXITSTATUS( pclose( pipe ) );
      return out;
   }
   void start( const std::string& arguments ) {
      pid = fork();
      if( pid == 0 ) {
         alarm( Plexo::longestTest );
         execl( "/bin/sh", "sh", "-c", ( "exec " FDBD_PROGRAM " " + arguments + " 2> " + directory + "/stderr" ).c_str(),
                nullptr );
         _exit( 127 );
      }
   }
   /// Stops it, and returns its exit code.
   int stop( int signal ) {
      kill( pid, signal );
      int status = 0;
      waitpid( pid, &status, 0 );
      pid = 0;
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : -1;
   }
   /// The table's records, as `MirrorSink::lines` writes them.
   static std::vector< std::string > table( const std::string& name = "fdb" ) {
      const auto status = Plexo::Bridging::statusFactory( "reader" );
      status->plexoFdbStatusControl().setUp( { .name = name, .mode = Plexo::TableMode::reader } );
      MirrorSink all;
      for( auto i = status->plexoFdbStatusIterConst(); i; ++i ) {
         const auto& record = i.value();
         all.hosts[ HostId( record.key().fid().value(), record.key().addr() ) ].port = record.intf();
      }
      return all.lines();
   }
   /// Waits for 5 seconds at most.
   template< class Condition >
   static bool until( Condition condition ) {
      for( int i = 0; i < 500 && !condition(); ++i ) std::this_thread::sleep_for( std::chrono::milliseconds( 10 ) );
      return condition();
   }
   std::string file( const std::string& name, const std::string& content ) const {
      std::ofstream( directory + "/" + name, std::ios::binary ) << content;
      return directory + "/" + name;
   }
   /// A capture of the hosts 1 to `count`, one frame each.
   std::string hostsCapture( int count ) const {
      std::vector< Sent > frames;
      for( int i = 1; i <= count; ++i ) frames.push_back( { 1000 * nanosPerSecond, frameFrom( mac( std::uint64_t( i ) ) ) } );
      return file( "hosts.pcap", pcapOf( frames ) );
   }
   /// What `table` tells of the first `count` of them.
   static std::vector< std::string > hostLines( int count ) {
      MirrorSink all;
      for( int i = 1; i <= count; ++i ) all.hosts[ HostId( 1, mac( std::uint64_t( i ) ) ) ].port = port( 1 );
      return all.lines();
   }
   const Plexo::TestDirectory home{ { "PLEXO_DIR", "RILO_DIR" } };
   const std::string& directory = home.path;
   pid_t pid = 0;
};

/// What the kernel's own tool said at the end of the recording; the port pN became EthernetN.
std::vector< std::string > kernelView() {
   const std::string text = contentOf( captureFile( "expected.json" ) );
   MirrorSink all;
   for( std::size_t at = text.find( '{' ); at != std::string::npos; at = text.find( '{', at + 1 ) ) {
      char address[ 18 ];
      int portNumber = 0, vlan = 0;
      const char* const form = R"({"mac":"%17[0-9a-f:]","ifname":"p%d","vlan":%d)";
      const int found = std::sscanf( text.c_str() + at, form, address, &portNumber, &vlan );
      EXPECT_EQ( found, 3 );
      if( found == 3 )
         all.hosts[ HostId( static_cast< Vlan >( vlan ), Quor::EthAddr( std::string_view( address ) ) ) ].port =
            port( portNumber );
   }
   return all.lines();
}

}

TEST_F( Program, RecordedTrafficGivesTheKernelsTableAndALaterRunRemovesWhatIsNoMore ) {
   const Result result = run( demoCaptures + "--pace max --exit-at-end --statistics --json" );
   EXPECT_EQ( result.code, 0 ) << result.text;
   EXPECT_NE( result.text.find( "\"hosts\":7,\"learned\":7,\"moved\":1," ), std::string::npos ) << result.text;
   EXPECT_EQ( table(), kernelView() );
   const std::string other = "--capture " + captureFile( "port1.pcap" ) + "=Port-Channel7 --native-vlan 9";
   EXPECT_EQ( run( other + " --pace max --exit-at-end" ).code, 0 );
   EXPECT_EQ( table(),
              ( std::vector< std::string >{ "9 02:00:00:00:00:01 Port-Channel7", "10 02:00:00:00:00:02 Port-Channel7" } ) );
}

TEST_F( Program, StaysUntilItIsStoppedAndLeavesItsTable ) {
   for( const int signal : { SIGTERM, SIGINT } ) {
      const std::string name = "table" + std::to_string( signal );
      start( demoCaptures + "--pace max --statistics --table " + name );
      EXPECT_TRUE( until( [ & ] { return table( name ) == kernelView(); } ) );
      EXPECT_EQ( stop( signal ), 0 );
      EXPECT_EQ( table( name ), kernelView() );
      const std::string lines = contentOf( directory + "/stderr" );
      EXPECT_EQ( std::count( lines.begin(), lines.end(), '\n' ), 1 ) << lines;
      EXPECT_EQ( lines.rfind( "vanta-fdbd: hosts 7, learned 7, moved 1, ", 0 ), 0u ) << lines;
   }
}

TEST_F( Program, HostsAgeAfterTheCaptureHasEnded ) {
   start( demoCaptures + "--pace max --aging-time 3" );
   EXPECT_TRUE( until( [] { return !table().empty() && table() != kernelView(); } ) );
   EXPECT_TRUE( until( [] { return table().empty(); } ) );
   EXPECT_EQ( stop( SIGTERM ), 0 );
}

TEST_F( Program, EachFatalErrorIsOneLineAndLeavesTheTable ) {
   EXPECT_EQ( run( demoCaptures + "--pace max --exit-at-end" ).code, 0 );
   ASSERT_EQ( kernelView().size(), 7u );
   start( "--capture " + captureFile( "port1.pcap" ) + " --table taken --pace max" );
   ASSERT_TRUE( until( [] { return !table( "taken" ).empty(); } ) );
   const std::string notes = file( "notes", "no capture" ), foreign = file( "foreign.plexo", "no table" );
   struct {
      std::string arguments;
      int code;
      std::string text;
   } const cases[] = {
      { "", 2, "nothing to learn from: give at least one --capture, --interface or --bridge (see 'vanta-fdbd --help')" },
      { "--bridge b --trace 'X/a'", 2, "--trace 'X/a': " },
      { "--bridge nosuch", 1, "bridge 'nosuch': No such device; " },
      { "--capture " + notes, 1, "capture '" + notes + "': not a pcap or pcapng file that can be read" },
      { demoCaptures + "--table foreign", 1,
        "refusing to replace " + foreign + ": it is no table: its first 8 bytes are not PLEXOTBL; remove the file or " },
      { demoCaptures + "--table taken", 1, "has a writer already (process " + std::to_string( pid ) + ")" },
      { demoCaptures + "--capacity 6 --pace max --exit-at-end", 1, "6" },
   };
   for( const auto& c : cases ) {
      const Result result = run( c.arguments );
      EXPECT_EQ( result.code, c.code ) << c.arguments;
      EXPECT_EQ( result.text.rfind( "vanta-fdbd: ", 0 ), 0u ) << result.text;
      EXPECT_NE( result.text.find( c.text ), std::string::npos ) << result.text;
      EXPECT_EQ( std::count( result.text.begin(), result.text.end(), '\n' ), 1 ) << result.text;
      EXPECT_EQ( table(), kernelView() ) << c.arguments;
   }
   EXPECT_EQ( contentOf( foreign ), "no table" );
   setenv( "PLEXO_DIR", notes.c_str(), 1 );
   const Result result = run( demoCaptures );
   EXPECT_EQ( result.code, 1 );
   EXPECT_EQ( std::count( result.text.begin(), result.text.end(), '\n' ), 1 ) << result.text;
}

TEST_F( Program, CapacityThatIsReachedIsOneLineAndAnExitCode ) {
   const std::string hosts = hostsCapture( 5 );
   const Result result = run( "--capture " + hosts + " --pace max --exit-at-end --capacity 3" );
   EXPECT_EQ( result.code, 1 );
   EXPECT_EQ( result.text,
              "vanta-fdbd: the table is full at 3 hosts, further hosts are not learned: start with a larger --capacity\n" );
   EXPECT_EQ( table(), hostLines( 3 ) );
}

TEST_F( Program, FileSystemThatIsFullIsOneLineAndTheHostsBeforeItStay ) {
   const std::string hosts = hostsCapture( 100000 ), small = directory + "/small";
   if( !mountsArePrivate() ) GTEST_SKIP() << "needs root, to mount a small file system";
   mkdir( small.c_str(), 0755 );
   setenv( "PLEXO_DIR", small.c_str(), 1 );
   for( const bool isTooSmallAtOnce : { false, true } ) {
      ASSERT_EQ( mount( "none", small.c_str(), "tmpfs", 0, isTooSmallAtOnce ? "size=64k" : "size=3m" ), 0 );
      const Result result = run( "--capture " + hosts + " --pace max --exit-at-end --statistics" );
      EXPECT_EQ( result.code, 1 );
      const std::regex line( "vanta-fdbd: table " + small +
                             "/fdb.plexo cannot grow: the file system has no room for [0-9]+ more bytes; "
                             "make room there, or name another directory in PLEXO_DIR\n" );
      EXPECT_TRUE( std::regex_match( result.text, line ) ) << result.text;
      const auto kept = table();
      EXPECT_TRUE( isTooSmallAtOnce ? kept.empty() : kept.size() > 10000 && kept.size() < 100000 ) << kept.size();
      EXPECT_TRUE( kept == hostLines( int( kept.size() ) ) ) << "those that came first, without a gap";
      EXPECT_EQ( umount( small.c_str() ), 0 );
   }
}

TEST_F( Program, DamagedCaptureKeepsWhatCameBeforeAndIsToldByTheExitCode ) {
   const std::string whole = contentOf( captureFile( "port2.pcap" ) );
   const std::string cut = file( "cut.pcap", whole.substr( 0, whole.size() - 1 ) );
   const Result result = run( "--capture " + captureFile( "port1.pcap" ) + " --capture " + cut + " --pace max --exit-at-end" );
   EXPECT_EQ( result.code, 1 );
   EXPECT_NE( result.text.find( "vanta-fdbd: capture '" + cut + "': damaged after frame 9, before byte " ), std::string::npos )
      << result.text;
   EXPECT_EQ( table().size(), 6u );
   // With another that can be used, one that can't be opened is only told.
   EXPECT_EQ( run( demoCaptures + "--capture nosuch --pace max --exit-at-end" ).code, 1 );
   EXPECT_EQ( table(), kernelView() );
}

TEST_F( Program, PrintsInsteadOfPublishing ) {
   const Result result = run( "--capture " + captureFile( "port1.pcap" ) + " --print --pace max --exit-at-end" );
   EXPECT_EQ( result.code, 0 );
   const auto learned = []( int vlan, int n ) {
      return R"({"event":"learned","vlan":)" + std::to_string( vlan ) + R"(,"address":"02:00:00:00:00:0)" + std::to_string( n ) +
             "\",\"port\":\"Ethernet1\",\"moves\":0,\"lastMoveTime\":0,\"kind\":\"learned\"}\n";
   };
   EXPECT_EQ( result.text, learned( 1, 1 ) + learned( 10, 2 ) );
   EXPECT_TRUE( table().empty() );
   const Result closed = run( demoCaptures + "--print --pace max > /dev/full" );
   EXPECT_EQ( closed.code, 1 );
   EXPECT_EQ( closed.text, "vanta-fdbd: standard output can't be written; keep its reader running\n" );
   for( const char* const option : { "--help", "--version" } ) {
      const Result full = run( std::string( option ) + " > /dev/full" );
      EXPECT_EQ( full.text, "vanta-fdbd: cannot write the output: No space left on device\n" );
      EXPECT_EQ( full.code, 3 );
   }
}

TEST_F( Program, ReaderOfItsLinesThatGoesAwayDoesNotEndIt ) {
   int ends[ 2 ];
   ASSERT_TRUE( pipe( ends ) == 0 && dup2( ends[ 1 ], 9 ) == 9 );
   for( const int end : ends ) close( end );
   EXPECT_EQ( run( demoCaptures + "--pace max --exit-at-end --statistics 2>&9" ).code, 0 );
   close( 9 );
   EXPECT_EQ( table(), kernelView() );
}

/// One that comes back has a new reactor.
TEST_F( Program, FilteringDatabaseGoesWithItsLastHost ) {
   const auto at = []( Nanos seconds, int vlan ) {
      return Sent{ seconds * nanosPerSecond, frameFrom( mac( 1 ), { { 0x8100, vlan } } ) };
   };
   const std::string hosts = file( "hosts.pcap", pcapOf( { at( 1000, 5 ), at( 1010, 6 ), at( 1020, 5 ) } ) );
   const std::string text =
      run( "--capture " + hosts + " --pace max --exit-at-end --aging-time 3 --trace FdbStatusSm/5" ).text;
   const std::regex reactor( "KelFdbStatus::handleLearnedHosts" );
   EXPECT_EQ( std::distance( std::sregex_iterator( text.begin(), text.end(), reactor ), {} ), 3 ) << text;
}

}
