#include <Vanta/FdbStatusSm.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// The example as it is, over a table that is written here.
TEST( FirstReactor, PrintsHostsAsTheyComeMoveAndGo ) {
   char directory[] = "/dev/shm/first-reactor-XXXXXX";
   ASSERT_TRUE( mkdtemp( directory ) );
   setenv( "PLEXO_DIR", directory, 1 );
   int ends[ 2 ];
   ASSERT_EQ( 0, pipe( ends ) );
   const pid_t pid = fork();
   if( pid == 0 ) {
      prctl( PR_SET_PDEATHSIG, SIGKILL );
      dup2( ends[ 1 ], STDOUT_FILENO );
      alarm( 60 ); // whatever happens, it ends, and so does the reading below
      execl( FIRST_REACTOR, FIRST_REACTOR, nullptr );
      _exit( 127 );
   }
   close( ends[ 1 ] );
   FILE* out = fdopen( ends[ 0 ], "r" );
   const auto line = [ out ] {
      char text[ 200 ];
      return std::string( std::fgets( text, sizeof text, out ) ? text : "nothing" );
   };

   const auto status = Bridging::statusFactory( "status" );
   const auto table = Plexo::Bridging::statusFactory( "table" );
   table->plexoFdbStatusControl().setUp( { .name = "fdb", .mode = Plexo::TableMode::writer } );
   const auto writer = Bridging::writerFdbStatusSmFactory( status, table );
   const auto learn = [ & ]( const char* address, const char* port ) {
      status->fdbStatusIs( 10 )->learnedHostIs( { Quor::EthAddr( address ), Quor::IntfId( port ), 0, 0, {} } );
   };
   learn( "02:00:00:00:00:01", "Ethernet3" );
   EXPECT_EQ( "10 '02:00:00:00:00:01' is on Ethernet3\n", line() );
   learn( "02:00:00:00:00:01", "Port-Channel7" );
   EXPECT_EQ( "10 '02:00:00:00:00:01' is on Port-Channel7\n", line() );
   status->fdbStatusDel( 10 );
   EXPECT_EQ( "10 '02:00:00:00:00:01' is gone\n", line() );

   kill( pid, SIGKILL );
   waitpid( pid, nullptr, 0 );
   std::fclose( out );
   std::filesystem::remove_all( directory );
}

}
