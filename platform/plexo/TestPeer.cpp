#include <cstdio>
#include <cstdlib>
#include <plexo/Reader.h>
#include <plexo/TestRecord.h>
#include <poll.h>
#include <string>
#include <unistd.h>

// plexo_peer: one end of a table for the tests that put a process of one word size beside one of the other.
//
//    plexo_peer write NAME COUNT PORT     upserts hosts 0 to COUNT - 1, erases every tenth, says "ready", waits for end of input
//    plexo_peer read NAME COUNT PORT      follows until it knows just the hosts that such a writer leaves
namespace {

using namespace Plexo;

int write( const std::string& name, U32 count, U32 port ) {
   Writer table( hostLayout, name, 1, count );
   for( U32 i = 0; i < count; ++i ) learn( table, i, port );
   for( U32 i = 0; i < count; i += 10 ) forget( table, i );
   std::puts( "ready" );
   std::fflush( stdout );
   while( std::getchar() != EOF ) {
   }
   return 0;
}

class Known : public TableObserver {
 public:
   Known( const std::string& name ) : reader( hostLayout, name ) { reader.observerIs( this ); }
   bool is( U32 count, U32 port ) const {
      if( seen.size() != count - ( count + 9 ) / 10 ) return false;
      for( const auto& [ number, at ] : seen ) {
         if( number % 10 == 0 || number >= count || at != port ) return false;
      }
      return true;
   }

   Reader reader;
   std::map< U32, U32 > seen;

 private:
   void onKey( const void* key ) override {
      Host host;
      U32 number;
      std::memcpy( &number, key, sizeof number );
      if( reader.find( key, &host ) && host.whole() ) seen[ number ] = host.port;
      else seen.erase( number );
   }
   void onCollection() override {}
   void onState( TableState, const std::string& ) override {}
};

int read( const std::string& name, U32 count, U32 port ) {
   Known known( name );
   for( int tries = 0; tries < 200; ++tries ) {
      while( known.reader.dispatch() ) {
      }
      if( known.is( count, port ) ) return 0;
      pollfd ready{ known.reader.fd(), POLLIN, 0 };
      poll( &ready, 1, 50 );
   }
   std::fprintf( stderr, "plexo_peer: table %s: %zu hosts known, state %s %s\n", name.c_str(), known.seen.size(),
                 stringValue( known.reader.state() ), known.reader.reason().c_str() );
   return 1;
}

}

int main( int argc, char** argv ) {
   alarm( 25 );                                                         // a test that hangs does not keep it
   const std::string what = argc > 1 ? argv[ 1 ] : "";
   try {
      if( argc == 5 && ( what == "write" || what == "read" ) ) {
         const auto count = U32( std::strtoul( argv[ 3 ], nullptr, 10 ) );
         const auto port = U32( std::strtoul( argv[ 4 ], nullptr, 10 ) );
         return what == "write" ? write( argv[ 2 ], count, port ) : read( argv[ 2 ], count, port );
      }
   } catch( const std::exception& e ) {
      std::fprintf( stderr, "plexo_peer: %s\n", e.what() );
      return 1;
   }
   std::fprintf( stderr, "usage: plexo_peer write|read NAME COUNT PORT\n" );
   return 2;
}
