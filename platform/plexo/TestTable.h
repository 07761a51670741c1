#pragma once

#include <plexo/Format.h>
#include <plexo/Reader.h>
#include <plexo/TestFiles.h>
#include <plexo/TestRecord.h>
#include <signal.h>
#include <sys/wait.h>

// Helpers of the table tests: a directory of its own per test, a follower, and processes.
namespace Plexo {

using Contents = std::map< std::pair< U32, U32 >, U32 >;                 // (space, number) -> port

/// What a walk yields; fails on a torn record and on a key that is met twice.
template< class Table >
Contents walk( const Table& table ) {
   Contents out;
   Host host;
   for( U32 at = 0; table.next( at, &host ); ) {
      EXPECT_TRUE( host.whole() ) << host.number;
      EXPECT_TRUE( out.emplace( std::pair( host.space, host.number ), host.port ).second ) << host.number << " met twice";
   }
   return out;
}

/// The port of a host, or -1.
template< class Table >
long portOf( const Table& table, U32 number, U32 space = 0 ) {
   Host host;
   const Host key( number, 0, space );
   if( !table.find( &key, &host ) ) return -1;
   EXPECT_TRUE( host.whole() && host.number == number && host.space == space );
   return host.port;
}

/// Look-ups and walk agree with `expected`.
template< class Table >
void expectContents( const Table& table, const Contents& expected ) {
   EXPECT_EQ( expected, walk( table ) );
   EXPECT_EQ( expected.size(), table.records() );
   for( const auto& [ key, port ] : expected ) EXPECT_EQ( long( port ), portOf( table, key.second, key.first ) );
}

/// Follows a table as a consumer does: looks each announced key up.
class Follower : public TableObserver {
 public:
   explicit Follower( const RecordLayout& layout = hostLayout, const std::string& name = "t",
                      ReaderRole role = ReaderRole::reader )
         : reader( layout, name, role ) {
      reader.observerIs( this );
   }
   void onKey( const void* key ) override {
      ++keys;
      Host host;
      std::memcpy( static_cast< void* >( &host ), key, 8 );
      const std::pair where( host.space, host.number );
      const long port = portOf( reader, host.number, host.space );
      if( port < 0 ) seen.erase( where );
      else seen[ where ] = U32( port );
      if( onEach ) onEach( where.second );
   }
   void onCollection() override { ++collections; }
   void onState( TableState state, const std::string& reason ) override { states.emplace_back( state, reason ); }

   /// Takes what there is now.
   void drain() {
      while( reader.dispatch( std::chrono::seconds( 10 ) ) ) {
      }
   }
   /// Waits on the descriptor until `done`, for at most some seconds.
   bool waitFor( const std::function< bool() >& done ) {
      return drainUntil( [ & ] { return reader.fd(); }, [ & ] { drain(); }, done );
   }
   bool waitFor( TableState state ) {
      return waitFor( [ & ] { return reader.state() == state; } );
   }

   Reader reader;
   Contents seen;
   U32 keys = 0;
   U32 collections = 0;
   std::vector< std::pair< TableState, std::string > > states;
   std::function< void( U32 number ) > onEach;
};

class TableTest : public testing::Test {
 protected:
   std::string file( const std::string& table = "t" ) const { return directory + "/" + table + ".plexo"; }

   const TestDirectory home{ { "PLEXO_DIR" } };
   const std::string& directory = home.path;
};

/// A child process that runs `body` and ends without the parent's destructors, after some seconds at the latest; its exit status
/// is what `body` returns.
class Child {
 public:
   explicit Child( const std::function< int() >& body ) : pid_( fork() ) {
      if( pid_ != 0 ) return;
      alarm( longestTest );
      _exit( body() );
   }
   ~Child() {
      if( pid_ > 0 ) {
         kill( pid_, SIGKILL );
         wait();
      }
   }
   void signal( int number ) const { kill( pid_, number ); }
   /// The exit status, or minus the signal that ended it.
   int wait() {
      int status = 0;
      if( waitpid( std::exchange( pid_, -1 ), &status, 0 ) < 0 ) return -1000;
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : -WTERMSIG( status );
   }

 private:
   pid_t pid_;
};

/// Lets one process tell another that it has come to a point.
class Signal {
 public:
   Signal() { EXPECT_EQ( 0, pipe( ends_ ) ); }
   ~Signal() {
      close( ends_[ 0 ] );
      close( ends_[ 1 ] );
   }
   void give() const { EXPECT_EQ( 1, write( ends_[ 1 ], "x", 1 ) ); }
   void take() const {
      pollfd given{ ends_[ 0 ], POLLIN, 0 };
      char c;
      EXPECT_TRUE( poll( &given, 1, longestTest * 1000 ) == 1 && read( ends_[ 0 ], &c, 1 ) == 1 );
   }

 private:
   int ends_[ 2 ];
};

}
