#include "ShmTest.h"

#include <limits>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>

// Both ends of a table in processes of their own: programs of this word size, and of the other one where they are at hand. Their
// directory is given by the build or the environment (VANTA_OTHER_BIN).
namespace Bridging {
namespace {

/// An `fdb_peer` that runs, and the talk with it.
class Peer {
 public:
   Peer( const std::string& program, const char* role ) {
      int ends[ 2 ];
      EXPECT_EQ( 0, socketpair( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends ) );
      pid_ = fork();
      if( pid_ == 0 ) {
         dup2( ends[ 1 ], 0 );
         dup2( ends[ 1 ], 1 );
         execl( program.c_str(), program.c_str(), role, "t", nullptr );
         _exit( 127 );
      }
      close( ends[ 1 ] );
      socket_ = ends[ 0 ];
   }
   Peer( const Peer& ) = delete;
   Peer& operator=( const Peer& ) = delete;
   ~Peer() {
      end( SIGKILL );
      close( socket_ );
   }
   /// Says one line; gives what is answered, without the "." at its end.
   std::string say( const std::string& line ) {
      const std::string text = line + "\n";
      EXPECT_EQ( ssize_t( text.size() ), send( socket_, text.data(), text.size(), MSG_NOSIGNAL ) );
      std::string answer;
      char buffer[ 4096 ];
      while( answer != ".\n" && ( answer.size() < 3 || answer.compare( answer.size() - 3, 3, "\n.\n" ) != 0 ) ) {
         const ssize_t got = recv( socket_, buffer, sizeof buffer, 0 );
         if( got <= 0 ) {
            ADD_FAILURE() << "no answer to " << line;
            return "";
         }
         answer.append( buffer, std::size_t( got ) );
      }
      return answer.substr( 0, answer.size() - 2 );
   }
   void learn( U16 fid, const LearnedHost& host ) { say( "host " + std::to_string( fid ) + " " + textOf( host ) ); }
   /// Asks until the answer is the expected one, for at most some seconds.
   void expectShown( const std::string& expected ) {
      std::string shown;
      for( int tries = 0; tries < 400; ++tries ) {
         shown = say( "show" );
         if( shown == expected ) return;
         usleep( 50000 );
      }
      EXPECT_EQ( expected, shown );
   }
   /// Ends the process by a signal, or by the end of its input; gives its exit status.
   int end( int signal = 0 ) {
      if( pid_ <= 0 ) return 0;
      if( signal ) kill( pid_, signal );
      else shutdown( socket_, SHUT_WR );
      int status = 0;
      waitpid( std::exchange( pid_, -1 ), &status, 0 );
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : -WTERMSIG( status );
   }

 private:
   pid_t pid_ = -1;
   int socket_ = -1;
};

class ProcessTest : public ShmTest, public testing::WithParamInterface< bool > {
 protected:
   void SetUp() override {
      const char* given = std::getenv( "VANTA_OTHER_BIN" );
      const std::string other = given ? given : VANTA_OTHER_BIN;
      program = GetParam() ? other + "/fdb_peer" : FDB_PEER;
      if( GetParam() && other.empty() ) GTEST_SKIP() << "no programs of the other word size; name their directory in VANTA_OTHER_BIN";
      ASSERT_EQ( 0, access( program.c_str(), X_OK ) ) << program;
   }
   void publish() {
      table = tableOf( "t", TableMode::writer );
      writer = writerFdbStatusSmFactory( source, table );
   }
   void retire() {
      writer = nullptr;
      table = nullptr;
   }

   std::string program;
   Ptr< Plexo::Bridging::Status > table;
   Ptr< WriterFdbStatusSm > writer;
};

/// Readers that start before, during and after the writer's life all come to see the same.
TEST_P( ProcessTest, ReadersStartAtAnyTime ) {
   Peer before( program, "read" );
   EXPECT_EQ( "", before.say( "show" ) );
   const double times[] = { 0, -1.5, 0.1, 1e300, 5e-324, std::numeric_limits< double >::infinity(), std::numeric_limits< double >::quiet_NaN() };
   for( U32 n = 1; n <= 200; ++n ) {
      LearnedHost h = host( n, n % 16000 + 1, n );
      h.lastMoveTimeIs( times[ n % std::size( times ) ] );
      h.entryTypeIs( static_cast< EntryType >( n % 19 ) );
      if( n % 3 == 0 ) h.intfIs( Quor::IntfId( "Port-Channel" + std::to_string( n ) + ".268435455" ) );
      source->fdbStatusIs( n % 2 ? 65535 : 0 )->learnedHostIs( h );
   }
   publish();
   Peer during( program, "read" );
   before.expectShown( linesOf( hostsOf( *source ) ) );
   during.expectShown( linesOf( hostsOf( *source ) ) );
   for( U32 n = 2; n <= 200; n += 2 ) forget( 0, n );
   learn( 7, 1, 1 );
   const std::string expected = linesOf( hostsOf( *source ) );
   retire();
   Peer after( program, "read" );
   for( Peer* peer : { &before, &during, &after } ) {
      peer->expectShown( expected );
      EXPECT_EQ( 0, peer->end() );
   }
}

/// A writer that died is followed by one that knows other hosts: a reader that follows ends with those, and loses none that both
/// know on its way.
TEST_P( ProcessTest, TheNextWriterKnowsOtherHosts ) {
   struct Absences : FdbStatus::NotifieeConst {
      using NotifieeConst::NotifieeConst;
      using NotifieeConst::onLearnedHost;
      void onLearnedHost( const Quor::EthAddr& address ) override { missed += address == mac( 1 ) && !notifier()->learnedHost( address ); }
      int missed = 0;
   };
   const auto target = statusFactory( "target" );
   table = tableOf( "t", TableMode::reader );
   const auto reader = readerFdbStatusSmFactory( target, table );
   const auto shows = [ & ]( const std::string& expected ) {
      return drainUntil( table, [ & ] { return linesOf( hostsOf( *target ) ) == expected; } ) ? "" : linesOf( hostsOf( *target ) );
   };
   Peer follower( program, "read" );
   Peer first( program, "write" );
   for( U32 n = 1; n <= 50; ++n ) learn( n <= 25 ? 1 : 2, n, 1 );
   for( U32 n = 1; n <= 50; ++n ) first.learn( n <= 25 ? 1 : 2, host( n, 1 ) );
   first.say( "publish" );
   const std::string all = linesOf( hostsOf( *source ) );
   EXPECT_EQ( "", shows( all ) );
   follower.expectShown( all );
   const auto absences = Kel::makePtr< Absences >( target->fdbStatus( 1 ) );
   EXPECT_EQ( -SIGKILL, first.end( SIGKILL ) );

   Peer second( program, "write" );
   source->fdbStatusDel( 2 );
   for( U32 n = 2; n <= 25; n += 2 ) forget( 1, n );
   learn( 1, 3, 9, 1 );
   learn( 3, 1, 1 );
   for( const auto& [ key, text ] : hostsOf( *source ) ) second.say( "host " + std::to_string( key.fid().value() ) + " " + text );
   EXPECT_EQ( "", shows( all ) ) << "before it publishes, the table stands as it was left";
   second.say( "publish" );
   EXPECT_EQ( "", shows( linesOf( hostsOf( *source ) ) ) );
   follower.expectShown( linesOf( hostsOf( *source ) ) );
   EXPECT_EQ( 0, absences->missed );

   second.say( "gone 1 " + mac( 3 ).stringValue().str() );
   second.say( "drop 3" );
   forget( 1, 3 );
   source->fdbStatusDel( 3 );
   EXPECT_EQ( "", shows( linesOf( hostsOf( *source ) ) ) );
   follower.expectShown( linesOf( hostsOf( *source ) ) );
   EXPECT_EQ( 0, second.end() );
   // A third writer, in this process, takes over what the one of the other program left.
   retire();
   publish();
   learn( 1, 60, 1 );
   follower.expectShown( linesOf( hostsOf( *source ) ) );
}

INSTANTIATE_TEST_SUITE_P( Sizes, ProcessTest, testing::Bool(), []( const auto& which ) { return which.param ? "Other" : "Same"; } );

}
}
