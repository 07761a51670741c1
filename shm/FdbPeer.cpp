#include "TestFdb.h"

#include <cstdio>
#include <iostream>
#include <poll.h>
#include <sstream>
#include <unistd.h>

// fdb_peer: one end of a table of learned hosts, for the tests that put two processes, of one word size or of both, at its ends.
// It takes a command from each line of its input and answers each with a line "." at least:
//
//    fdb_peer write TABLE        host FID VALUE | gone FID ADDRESS | drop FID   changes the forwarding database
//                                publish                                        has it written to the table from now on
//    fdb_peer read TABLE         show                                           one line a host, from the entities
//
// It ends by itself when there is no command for a while, so that no test that hangs keeps it.
namespace {

using namespace Bridging;

/// The next command; false at the end of the input.
bool nextLine( std::string& line ) {
   alarm( 25 );
   return bool( std::getline( std::cin, line ) );
}

std::string rest( std::istream& in ) {
   std::string text;
   std::getline( in >> std::ws, text );
   return text;
}

int write( const std::string& name ) {
   const auto status = statusFactory( "status" );
   Kel::Ptr< Plexo::Bridging::Status > table;
   Kel::Ptr< WriterFdbStatusSm > machine;
   for( std::string line; nextLine( line ); std::cout << "." << std::endl ) {
      std::istringstream in( line );
      std::string what;
      Kel::U16 fid = 0;
      in >> what >> fid;
      if( what == "host" ) {
         status->fdbStatusIs( fid )->learnedHostIs( Kel::strepToValue< LearnedHost >( rest( in ) ) );
      } else if( what == "gone" ) {
         status->fdbStatusIs( fid )->learnedHostDel( Quor::EthAddr( rest( in ) ) );
      } else if( what == "drop" ) {
         status->fdbStatusDel( fid );
      } else if( what == "publish" ) {
         table = tableOf( name, Plexo::TableMode::writer );
         machine = writerFdbStatusSmFactory( status, table );
      } else {
         throw Kel::RangeException( "unknown command " + line );
      }
   }
   return 0;
}

int read( const std::string& name ) {
   const auto status = statusFactory( "status" );
   const auto table = tableOf( name, Plexo::TableMode::reader );
   const auto machine = readerFdbStatusSmFactory( status, table );
   auto& control = table->plexoFdbStatusControl();
   alarm( 25 );
   for( ;; ) {
      pollfd ready[] = { { STDIN_FILENO, POLLIN, 0 }, { control.fd(), POLLIN, 0 } };
      if( poll( ready, 2, -1 ) < 0 ) return 1;
      while( control.dispatch() ) {
      }
      if( !ready[ 0 ].revents ) continue;
      // The commands come one by one, each after the answer to the last, so the stream holds none back from poll.
      std::string line;
      if( !nextLine( line ) ) return 0;
      std::cout << linesOf( hostsOf( *status ) ) << "." << std::endl;
   }
}

}

int main( int argc, char** argv ) {
   const std::string what = argc == 3 ? argv[ 1 ] : "";
   try {
      if( what == "write" ) return write( argv[ 2 ] );
      if( what == "read" ) return read( argv[ 2 ] );
   } catch( const std::exception& e ) {
      std::fprintf( stderr, "fdb_peer: %s\n", e.what() );
      return 1;
   }
   std::fprintf( stderr, "usage: fdb_peer write|read TABLE\n" );
   return 2;
}
