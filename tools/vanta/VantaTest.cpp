#include "VantaTest.h"

#include <kel/Rilo.h>

namespace Tool {
namespace {

using Vanta = VantaCommand;

TEST_F( Vanta, RefusesACommandLineInOneLineThatPointsToTheHelp ) {
   struct Case {
      const char* arguments;
      const char* text;
   };
   const Case cases[] = {
      { "show", "vanta: no such command: 'show'; see 'vanta --help'\n" },
      { "fdb list", "vanta fdb: no such command: 'list'; see 'vanta fdb --help'\n" },
      { "types --jsn", "vanta types: no such option: '--jsn'; see 'vanta types --help'\n" },
      { "types --json=yes", "vanta types: no such option: '--json=yes'; see 'vanta types --help'\n" },
      { "types -x", "vanta types: no such option: '-x'; see 'vanta types --help'\n" },
      { "types a b", "vanta types: unexpected argument: 'b'; see 'vanta types --help'\n" },
      { "tables a", "vanta tables: unexpected argument: 'a'; see 'vanta tables --help'\n" },
      { "fdb show --vlan", "vanta fdb show: option '--vlan' needs an argument; see 'vanta fdb show --help'\n" },
      { "fdb show --vlan ten", "vanta fdb show: --vlan is a number from 0 to 65535, not 'ten'; see 'vanta fdb show --help'\n" },
      { "fdb show --vlan 65536",
        "vanta fdb show: --vlan is a number from 0 to 65535, not '65536'; see 'vanta fdb show --help'\n" },
      { "fdb watch --timeout -1",
        "vanta fdb watch: --timeout is a time in seconds, at most a day, not '-1'; see 'vanta fdb watch --help'\n" },
      { "fdb watch --timeout nan",
        "vanta fdb watch: --timeout is a time in seconds, at most a day, not 'nan'; see 'vanta fdb watch --help'\n" },
   };
   for( const Case& c : cases ) {
      const Outcome result = run( c.arguments );
      EXPECT_EQ( result.err, c.text ) << c.arguments;
      EXPECT_EQ( result.code, 2 ) << c.arguments;
      EXPECT_EQ( result.out, "" ) << c.arguments;
   }
   EXPECT_EQ( run( "" ).code, 2 );
   EXPECT_EQ( run( "fdb" ).code, 2 );
}

TEST_F( Vanta, EveryCommandHasItsHelp ) {
   for( const char* command : { "", "fdb", "fdb show", "fdb watch", "counters", "counters show", "tables", "types", "trace" } ) {
      const Outcome result = run( std::string( command ) + " --help" );
      const std::string usage = std::string( "Usage: vanta" ) + ( *command ? " " : "" ) + command;
      EXPECT_EQ( result.code, 0 ) << command;
      EXPECT_EQ( result.out.substr( 0, usage.size() ), usage );
      EXPECT_EQ( result.err, "" ) << command;
   }
}

TEST_F( Vanta, OutputThatCantBeWrittenEndsTheCommand ) {
   const int status = std::system( ( "'" + program() + "' types >/dev/full 2>'" + directory_ + "/err'" ).c_str() );
   EXPECT_EQ( exitCode( status ), 3 );
   EXPECT_EQ( contentOf( directory_ + "/err" ), "vanta: cannot write the output: No space left on device\n" );
   // A reader that stops early is no error, also where the signal for it is ignored.
   EXPECT_EQ( run( "types", "| true" ).err, "" );
   EXPECT_EQ( run( "types", "| true", "trap '' PIPE;" ).err, "" );
}

TEST_F( Vanta, TraceOfAProcessThatWasKilled ) {
   EXPECT_EQ( run( "trace" ).code, 1 );
   const Outcome none = run( "trace agent" );
   EXPECT_EQ( none.code, 3 );
   EXPECT_EQ( none.err, "vanta trace: no process or program 'agent' has a trace ring in " + directory_ +
                           "; 'vanta trace' lists the rings\n" );

   const pid_t child = fork();
   if( child == 0 ) {
      Kel::Rilo::open( "agent" );
      for( int i = 1; i <= 3; ++i ) Kel::Rilo::message( "Source", "message " + std::to_string( i ) + "\033[31m" );
      raise( SIGKILL );
   }
   int status = 0;
   ASSERT_EQ( waitpid( child, &status, 0 ), child );
   ASSERT_TRUE( WIFSIGNALED( status ) );
   std::ofstream( directory_ + "/foreign.1" ) << "no ring";

   const std::string pid = std::to_string( child ), file = directory_ + "/agent." + pid;
   for( const std::string& name : { pid, std::string( "agent" ), file } ) {
      const Outcome text = run( "trace --last 2 " + name );
      EXPECT_EQ( text.code, 0 ) << text.err;
      EXPECT_EQ( text.out.find( "message 1" ), std::string::npos );
      EXPECT_NE( text.out.find( "  Source  message 2\\x1b[31m\n" ), std::string::npos ) << text.out;
   }
   const Outcome followed = run( "trace --json --follow agent" ); // ends by itself: the process has
   std::istringstream lines( followed.out );
   int count = 0;
   for( std::string line; std::getline( lines, line ); ) {
      EXPECT_EQ( parsed( line )[ "text" ].GetString(), "message " + std::to_string( ++count ) + "\033[31m" );
   }
   EXPECT_EQ( count, 3 );

   const auto list = parsed( run( "trace --json" ).out );
   ASSERT_EQ( list.Size(), 1u );
   EXPECT_EQ( list[ 0 ][ "pid" ].GetInt(), child );
   EXPECT_FALSE( list[ 0 ][ "alive" ].GetBool() );
}

TEST_F( Vanta, WhatIsNoneOrCantBeReadIsNoUsageError ) {
   const std::string file = directory_ + "/file";
   std::ofstream( file ) << "no ring, no library, and no directory";
   const std::tuple< std::string, std::string, std::string > cases[] = {
      { "tables", "PLEXO_DIR='" + file + "'", "tables: cannot read the table directory " + file + ": Not a directory" },
      { "fdb show", "PLEXO_DIR='" + file + "'", "fdb show: table 'fdb' in " + file + " can't be used: cannot open the table " },
      { "trace", "RILO_DIR='" + file + "'", "trace: cannot read the ring directory " + file + ": Not a directory" },
      { "trace /nope/x", "", "trace: trace ring /nope/x can't be opened: No such file or directory" },
      { "trace " + file, "", "trace: " + file + " is no trace ring: shorter than its header" },
      { "types /nope", "", "types: cannot read '/nope': No such file or directory" },
      { "types /dev/zero", "", "types: cannot read '/dev/zero': it is not a regular file" },
      { "types " + file, "", "types: cannot read '" + file + "': it is not an ELF file" },
      { "types --schema /nope T", "", "types: cannot read the schema directory '/nope': No such file or directory" },
   };
   for( const auto& [ arguments, environment, text ] : cases ) {
      const Outcome result = run( arguments, "", environment );
      EXPECT_EQ( result.err.rfind( "vanta " + text, 0 ), 0u ) << result.err;
      EXPECT_EQ( result.code, 3 ) << arguments;
      EXPECT_EQ( result.out, "" ) << arguments;
   }
}

TEST_F( Vanta, WhatAnotherUserHidesIsNotToldAsAbsent ) {
   const std::string ring = directory_ + "/agent.7";
   std::ofstream( ring ) << "hidden";
   std::filesystem::permissions( ring, std::filesystem::perms::none );
   std::filesystem::permissions( directory_, std::filesystem::perms( 0755 ) );
   const std::string as = geteuid() == 0 ? "setpriv --reuid=12345 --regid=12345 --clear-groups" : "";
   if( run( "--version", "", as ).code != 0 ) GTEST_SKIP() << "the build is hidden from other users, too";
   for( const char* arguments : { "trace", "trace --json", "trace 7", "trace agent" } ) {
      const Outcome result = run( arguments, "", as );
      EXPECT_EQ( result.err, "vanta trace: cannot read " + ring + ": Permission denied; ask as the user of the process\n" );
      EXPECT_EQ( result.code, 3 ) << arguments;
   }
   EXPECT_EQ( run( "trace other", "", as ).err.find( "vanta trace: no process or program 'other' " ), 0u );
}

TEST_F( Vanta, CompletionOffersWhatTheHelpLists ) {
   const auto offers = [ & ]( const std::string& words, int at ) {
      const std::string script = "PATH=\"$(dirname '" + program() + "'):$PATH\"; . '" VANTA_COMPLETION "'; COMP_WORDS=( " +
         words + " ); COMP_CWORD=" + std::to_string( at ) + "; COMP_LINE=\"${COMP_WORDS[*]}\"; COMP_POINT=${#COMP_LINE}; _vanta; " +
         "echo \"${COMPREPLY[*]}\"";
      std::ofstream( directory_ + "/script" ) << script;
      const int status = std::system( ( "bash '" + directory_ + "/script' >'" + directory_ + "/out'" ).c_str() );
      EXPECT_EQ( status, 0 );
      return contentOf( directory_ + "/out" );
   };
   EXPECT_EQ( offers( "vanta ''", 1 ), "fdb counters tables types trace\n" );
   EXPECT_EQ( offers( "vanta fdb ''", 2 ), "show watch\n" );
   EXPECT_EQ( offers( "vanta fdb show --v", 3 ), "--vlan\n" );
   EXPECT_EQ( offers( "vanta types --", 2 ), "--json --schema --help\n" );
   EXPECT_EQ( offers( "vanta types VlanTp", 2 ), "VlanTpidOrNone VlanTpid\n" );
   EXPECT_EQ( offers( "vanta types Interface::SubIntfConfig", 2 ), "SubIntfConfigDir SubIntfConfig\n" ); // behind the last colon
   EXPECT_EQ( offers( "vanta fdb show --vlan ''", 4 ), "\n" );
   EXPECT_EQ( offers( "vanta fdb show --vlan 1 --ad", 5 ), "--address\n" );
}

}
}
