#include "VantaTest.h"

#include <ShmTest.h>
#include <TestPeer.h>
#include <thread>

// The table's writer, the command and this test are three processes.

namespace Tool {
namespace {

/// A process that owns the forwarding database and does what it is told, one order at a time.
class Writer {
 public:
   Writer() { peer_.say( "publish" ); }
   void learn( Kel::U16 vlan, const std::string& address, const char* port, Kel::U32 moves = 0 ) {
      peer_.learn( vlan,
                   { Quor::EthAddr( address ), Quor::IntfId( port ), moves, moves * 1000000000.5,
                     Bridging::EntryType::learnedDynamicMac } );
   }
   void withdraw( Kel::U16 vlan, const std::string& address ) { peer_.forget( vlan, Quor::EthAddr( address ) ); }
   /// In the middle of whatever it does.
   void kill() { peer_.end( SIGKILL ); }

 private:
   Bridging::Peer peer_{ FDB_PEER, "write", "fdb" };
};

/// `vanta fdb watch --json` in the background.
class Watcher {
 public:
   Watcher( std::string file, const std::string& arguments = "" ) : file_( std::move( file ) ) {
      pid_ = fork();
      if( pid_ != 0 ) return;
      alarm( Plexo::longestTest );
      const std::string line = "exec '" + program() + "' fdb watch --json " + arguments + " >'" + file_ + "' 2>/dev/null";
      execl( "/bin/sh", "sh", "-c", line.c_str(), nullptr );
      _exit( 127 );
   }
   ~Watcher() { end( SIGKILL ); }

   /// Waits until the output has `text`; false after ten seconds.
   bool says( const std::string& text ) {
      for( int i = 0; i < 1000; ++i ) {
         if( contentOf( file_ ).find( text ) != std::string::npos ) return true;
         std::this_thread::sleep_for( std::chrono::milliseconds( 10 ) );
      }
      return false;
   }
   /// Its exit code after this signal, or its own end for 0.
   int end( int signal ) {
      if( pid_ <= 0 ) return -1;
      if( signal ) kill( pid_, signal );
      int status = 0;
      waitpid( pid_, &status, 0 );
      pid_ = 0;
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : 128 + WTERMSIG( status );
   }
   std::string output() const { return contentOf( file_ ); }

 private:
   std::string file_;
   pid_t pid_;
};

class Fdb : public VantaCommand {
 protected:
   std::string watched( const std::string& name = "watch" ) const { return directory_ + "/" + name; }

   static std::string host( const char* address, const char* port, int moves = 0 ) {
      return std::string( "{\"event\":\"host\",\"vlan\":10,\"address\":\"" ) + address + "\",\"port\":\"" + port +
             "\",\"moves\":" + std::to_string( moves ) + ",\"lastMoveTime\":" + ( moves ? "1000000000.5" : "0.0" ) +
             ",\"type\":\"learnedDynamicMac\"}\n";
   }
};

constexpr const char* a = "02:00:00:00:00:0a";
constexpr const char* b = "02:00:00:00:00:0b";

TEST_F( Fdb, ShowsHostsInOrderOfVlanAndAddress ) {
   Writer writer;
   writer.learn( 20, a, "Ethernet3/2" );
   writer.learn( 10, b, "Port-Channel7", 1 );
   writer.learn( 10, a, "Ethernet12" );
   const Outcome text = run( "fdb show" );
   EXPECT_EQ( text.out, "VLAN  ADDRESS            PORT           MOVES  LAST MOVE            TYPE\n"
                        "  10  02:00:00:00:00:0a  Ethernet12         0  -                    learnedDynamicMac\n"
                        "  10  02:00:00:00:00:0b  Port-Channel7      1  2001-09-09 01:46:40  learnedDynamicMac\n"
                        "  20  02:00:00:00:00:0a  Ethernet3/2        0  -                    learnedDynamicMac\n"
                        "3 hosts\n" );
   EXPECT_EQ( text.err, "" );
   const Outcome json = run( "fdb show --json --vlan 10 --port Po7" );
   EXPECT_EQ( json.out,
              "{\"table\":\"fdb\",\"state\":\"live\",\"hosts\":[{\"vlan\":10,\"address\":\"02:00:00:00:00:0b\","
              "\"port\":\"Port-Channel7\",\"moves\":1,\"lastMoveTime\":1000000000.5,\"type\":\"learnedDynamicMac\"}]}\n" );
}

TEST_F( Fdb, ExitCodesOfShow ) {
   struct Case {
      const char* arguments;
      int code;
      const char* err;
   };
   Writer writer;
   writer.learn( 10, a, "Ethernet1" );
   const Case cases[] = {
      { "--address 0200.0000.000A", 0, "" },
      { "--address 02:00:00:00:00:0c", 1, "vanta fdb show: no host in table 'fdb' in DIR matches\n" },
      { "--vlan 11", 1, "vanta fdb show: no host in table 'fdb' in DIR matches\n" },
      { "--port Ethernet2 --json", 1, "" },
      { "--table other", 3,
        "vanta fdb show: there is no table 'other' in DIR; is its writer (vanta-fdbd) running? 'vanta tables' lists the "
        "tables\n" },
      { "--port Nothing", 2, "vanta fdb show: --port: interface name 'Nothing' is not valid: expected a name like Ethernet3, "
                             "Ethernet3/2.100, Port-Channel7, Vlan10 or Cpu; see 'vanta fdb show --help'\n" },
   };
   for( const Case& c : cases ) {
      Outcome result = run( std::string( "fdb show " ) + c.arguments );
      if( const auto at = result.err.find( directory_ ); at != std::string::npos )
         result.err.replace( at, directory_.size(), "DIR" );
      EXPECT_EQ( result.err, c.err ) << c.arguments;
      EXPECT_EQ( result.code, c.code ) << c.arguments;
   }
   writer.kill();
   const Outcome stale = run( "fdb show" );
   EXPECT_EQ( stale.code, 0 );
   EXPECT_NE( stale.out.find( "1 host\n" ), std::string::npos );
   EXPECT_EQ( stale.err,
              "vanta fdb show: the writer of table 'fdb' in " + directory_ + " is gone; these are its last records\n" );
}

/// The members of a table in `vanta tables --json`.
std::string member( const rapidjson::Document& tables, const char* name ) {
   const auto& value = tables[ 0 ][ name ];
   if( value.IsNull() ) return "null";
   if( value.IsBool() ) return value.GetBool() ? "true" : "false";
   return value.IsString() ? value.GetString() : std::to_string( value.GetUint64() );
}

TEST_F( Fdb, AFileThatIsNoTableIsRefusedWithItsReason ) {
   std::ofstream( directory_ + "/fdb.plexo" ) << "something else";
   const Outcome show = run( "fdb show" );
   EXPECT_EQ( show.code, 3 );
   EXPECT_NE( show.err.find( "can't be used" ), std::string::npos ) << show.err;
   const auto tables = parsed( run( "tables --json" ).out );
   EXPECT_EQ( member( tables, "state" ), "degraded" );
   EXPECT_EQ( member( tables, "reason" ), "it is shorter than a table's header" );
   for( const char* name : { "records", "capacity", "recordBytes", "changes", "writerPid", "writerAlive", "layout" } )
      EXPECT_EQ( member( tables, name ), "null" );
   EXPECT_NE( run( "tables" ).out.find( "\nfdb          -         -    4        -            -  degraded: it is shorter" ),
              std::string::npos );
}

TEST_F( Fdb, TablesTellsWhetherTheWriterLives ) {
   const Outcome none = run( "tables" );
   EXPECT_EQ( none.code, 1 );
   EXPECT_EQ( none.err, "vanta tables: there is no table in " + directory_ + "\n" );
   EXPECT_EQ( run( "tables --json" ).out, "[]\n" );

   Writer writer;
   writer.learn( 10, a, "Ethernet1" );
   writer.learn( 10, b, "Ethernet1" );
   const auto live = parsed( run( "tables --json" ).out );
   EXPECT_EQ( member( live, "name" ) + " " + member( live, "state" ) + " " + member( live, "writerAlive" ), "fdb live true" );
   EXPECT_EQ( member( live, "records" ) + " of " + member( live, "capacity" ), "2 of 100000" );
   writer.kill();
   const auto stale = parsed( run( "tables --json" ).out );
   EXPECT_EQ( member( stale, "state" ) + " " + member( stale, "writerAlive" ), "stale false" );
}

TEST_F( Fdb, WatchTellsTheTableThenTheMarkerThenTheChanges ) {
   Writer writer;
   writer.learn( 10, a, "Ethernet1" );
   Watcher watcher( watched() );
   ASSERT_TRUE( watcher.says( "\"sync\"" ) );
   writer.learn( 10, b, "Ethernet2" );
   writer.learn( 10, a, "Ethernet2", 1 );
   ASSERT_TRUE( watcher.says( "\"moves\":1" ) );
   writer.withdraw( 10, a );
   ASSERT_TRUE( watcher.says( "\"gone\"" ) );
   EXPECT_EQ( watcher.end( SIGINT ), 0 );
   EXPECT_EQ( watcher.output(), "{\"event\":\"state\",\"state\":\"live\",\"reason\":\"\"}\n" + host( a, "Ethernet1" ) +
                                   "{\"event\":\"sync\",\"hosts\":1}\n" + host( b, "Ethernet2" ) + host( a, "Ethernet2", 1 ) +
                                   "{\"event\":\"gone\",\"vlan\":10,\"address\":\"02:00:00:00:00:0a\",\"port\":\"Ethernet2\"}\n" );
}

TEST_F( Fdb, WatchOutlivesItsWriterAndTellsWhatTheNextOneChanged ) {
   Watcher watcher( watched() );
   ASSERT_TRUE( watcher.says( "connecting" ) );
   {
      Writer writer;
      ASSERT_TRUE( watcher.says( "\"sync\"" ) );
      writer.learn( 10, a, "Ethernet1" );
      writer.learn( 10, b, "Ethernet2" );
      ASSERT_TRUE( watcher.says( host( b, "Ethernet2" ) ) );
   }
   ASSERT_TRUE( watcher.says( "stale" ) );
   const std::size_t before = watcher.output().size();
   Writer next; // it knows nothing, so the hosts of the first one go
   next.learn( 10, b, "Ethernet3", 1 );
   ASSERT_TRUE( watcher.says( host( b, "Ethernet3", 1 ) ) );
   ASSERT_TRUE( watcher.says( "\"gone\",\"vlan\":10,\"address\":\"02:00:00:00:00:0a\"" ) );
   EXPECT_EQ( watcher.output().substr( before ).find( "sync" ), std::string::npos );
   EXPECT_EQ( watcher.end( SIGTERM ), 0 );
}

TEST_F( Fdb, WatchEndsAsItIsAsked ) {
   EXPECT_EQ( run( "fdb watch --timeout 0.1" ).code, 3 );
   Watcher early( watched() );
   ASSERT_TRUE( early.says( "connecting" ) );
   EXPECT_EQ( early.end( SIGINT ), 3 );

   Writer writer;
   writer.learn( 10, a, "Ethernet1" );
   EXPECT_EQ( run( "fdb watch --until-sync" ).code, 0 );
   EXPECT_EQ( run( "fdb watch --timeout 0.1" ).code, 0 );
   EXPECT_EQ( run( "fdb watch --timeout 0.1 --count 1" ).code, 1 );
   Watcher counting( watched( "counting" ), "--count 2 --port Ethernet1" );
   ASSERT_TRUE( counting.says( "sync" ) );
   writer.learn( 11, a, "Ethernet2" );    // not one that is watched
   writer.learn( 10, a, "Ethernet2" );    // no more
   ASSERT_TRUE( counting.says( "\"gone\",\"vlan\":10,\"address\":\"02:00:00:00:00:0a\",\"port\":\"Ethernet1\"" ) );
   writer.learn( 10, a, "Ethernet1", 1 );
   EXPECT_EQ( counting.end( 0 ), 0 );
   EXPECT_TRUE( counting.output().ends_with( "}\n" + host( a, "Ethernet1", 1 ) ) ) << counting.output();
}

/// The marker would say that all hosts have been told.
TEST_F( Fdb, WatchOfACorruptedTableEndsWithoutTheMarker ) {
   for( const bool isIndex : { true, false } ) {
      Writer writer;
      for( const char* address : { a, b } ) writer.learn( 10, address, "Ethernet1" );
      writer.kill();
      Bridging::TableBytes bytes( directory_ + "/fdb.plexo" );
      isIndex ? bytes.spoilIndex() : bytes.spoilFirstSlot();
      for( const char* end : { "--until-sync", "--count 1", "--timeout 0.1" } ) {
         const Outcome result = run( std::string( "fdb watch " ) + end );
         EXPECT_EQ( result.code, 3 ) << end;
         EXPECT_EQ( result.out.find( "---" ), std::string::npos ) << result.out;
         EXPECT_LE( std::count( result.err.begin(), result.err.end(), '\n' ), 2 ) << result.err; // a trace, and the reason
         EXPECT_NE( result.err.find( "can't be used: table fdb is corrupted: slot " ), std::string::npos ) << result.err;
      }
      EXPECT_EQ( run( "fdb show" ).code, 3 );
   }
}

TEST_F( Fdb, WatchEndsWhenNobodyReadsItAnyMore ) {
   Writer writer;
   writer.learn( 10, a, "Ethernet1" );
   // Nothing changes after the first line, so only the closed pipe can end it.
   const Outcome result = run( "fdb watch --timeout 60", "| head -n 1", "timeout 20" );
   EXPECT_NE( result.out.find( "Ethernet1" ), std::string::npos );
   EXPECT_EQ( result.code, 0 );
}

}
}
