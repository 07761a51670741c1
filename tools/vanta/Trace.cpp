#include "Cli.h"
#include "Output.h"

#include <algorithm>
#include <csignal>
#include <kel/Exception.h>
#include <kel/RiloReader.h>
#include <memory>
#include <poll.h>

namespace Tool {

namespace {

using Ring = std::unique_ptr< Kel::RiloReader >;

constexpr double nanoseconds = 1e-9;
constexpr int pollMilliseconds = 100;

volatile std::sig_atomic_t interrupted = 0;

/// The rings of this machine, the newest first. Files that are no rings are passed over.
std::vector< Ring > rings() {
   std::vector< Ring > found;
   for( const std::string& file : Kel::riloFiles() ) {
      try {
         found.push_back( std::make_unique< Kel::RiloReader >( file ) );
      } catch( const Kel::Exception& ) {
      }
   }
   std::stable_sort( found.begin(), found.end(), []( const Ring& a, const Ring& b ) { return a->openedAt() > b->openedAt(); } );
   return found;
}

/// The ring that a person names by its file, its process number or its program; the newest when several match.
Ring ringNamed( const std::string& name ) {
   if( name.find( '/' ) != name.npos ) return std::make_unique< Kel::RiloReader >( name );
   std::vector< Ring > all = rings();
   const auto first = [ & ]( const auto& matches ) -> Ring {
      const auto at = std::find_if( all.begin(), all.end(), matches );
      return at == all.end() ? nullptr : std::move( *at );
   };
   if( Ring byPid = first( [ & ]( const Ring& ring ) { return std::to_string( ring->pid() ) == name; } ) ) return byPid;
   if( Ring byProgram = first( [ & ]( const Ring& ring ) { return ring->program() == name; } ) ) return byProgram;
   throw Failure( exitNotConnected, "no process or program '" + name + "' has a trace ring in " + Kel::riloDirectory() +
                                       "; 'vanta trace' lists the rings" );
}

void listAsJson( const std::vector< Ring >& all ) {
   Json out;
   out.array();
   for( const Ring& ring : all ) {
      out.object().member( "program", ring->program() ).member( "pid", ring->pid() ).member( "alive", ring->alive() );
      out.member( "started", double( ring->openedAt() ) * nanoseconds ).member( "file", ring->path() ).endObject();
   }
   out.endArray().printLine();
}

int list( bool json ) {
   const std::vector< Ring > all = rings();
   if( json ) {
      listAsJson( all );
   } else if( all.empty() ) {
      std::fprintf( stderr, "vanta trace: there is no trace ring in %s\n", Kel::riloDirectory().c_str() );
   } else {
      Table table( { { "PROGRAM" }, { "PID", Table::right }, { "STARTED" }, { "FILE" }, { "STATE" } } );
      for( const Ring& ring : all ) {
         table.row( { printable( ring->program() ), std::to_string( ring->pid() ),
                      dateTime( double( ring->openedAt() ) * nanoseconds ),
                      printable( ring->path() ), ring->alive() ? green( "alive" ) : red( "ended" ) } );
      }
      table.print();
   }
   flushOutput();
   return all.empty() ? exitFalse : exitOk;
}

void show( const Kel::RiloMessage& message, bool json ) {
   const double time = double( message.time ) * nanoseconds;
   if( json ) {
      Json out;
      out.object().member( "sequence", message.sequence ).member( "time", time ).member( "thread", message.thread );
      out.member( "source", message.source ).member( "text", message.text ).member( "cut", message.cut ).endObject().printLine();
      return;
   }
   const std::string source = message.source.empty() ? "" : bold( printable( message.source ) ) + "  ";
   print( dateTime( time, true ) + "  " + source + printable( message.text ) + ( message.cut ? "..." : "" ) + "\n" );
}

/// Prints what the ring holds from `from` on, at most `last` messages; returns where to read on.
std::uint64_t showFrom( Kel::RiloReader& ring, std::uint64_t from, std::uint64_t last, bool json ) {
   const Kel::RiloBatch batch = ring.read( from );
   if( batch.lost > 0 ) {
      if( json ) Json().object().member( "lost", batch.lost ).endObject().printLine();
      else print( "(" + std::to_string( batch.lost ) + " messages are lost here)\n" );
   }
   const std::size_t count = batch.messages.size();
   for( std::size_t i = count - std::size_t( std::min< std::uint64_t >( last, count ) ); i < count; ++i )
      show( batch.messages[ i ], json );
   flushOutput();
   return batch.next;
}

/// Until the process has ended or the person interrupts.
void follow( Kel::RiloReader& ring, std::uint64_t next, bool json ) {
   struct sigaction action {};
   action.sa_handler = []( int ) { interrupted = 1; };
   sigaction( SIGINT, &action, nullptr );
   sigaction( SIGTERM, &action, nullptr );
   while( !interrupted ) {
      const bool alive = ring.alive(); // asked first: what a dying process wrote last is still read
      next = showFrom( ring, next, ~0ull, json );
      if( !alive ) return;
      poll( nullptr, 0, pollMilliseconds );
   }
}

}

int traceCommand( int argc, char** argv ) {
   bool json = false, following = false;
   std::uint64_t last = ~0ull;
   const CommandLine line{
      .name = "vanta trace",
      .operands = "[PID | PROGRAM | FILE]",
      .description = "Prints the last trace messages of a process, also of one that has ended, however it ended. Of several\n"
                     "processes of one program, the newest is taken. Without a name, lists the rings of this machine.",
      .options = { { "follow", nullptr, "go on until the process ends", [ & ]( const char* ) { following = true; } },
                   { "last", "N", "begin with the last N messages",
                     [ & ]( const char* text ) { last = numberOf( "--last", text, 0, ~0ull ); } },
                   { "json", nullptr, "print one JSON object a line", [ & ]( const char* ) { json = true; } } },
      .mostOperands = 1 };
   const auto operands = line.parse( argc, argv );
   if( !operands ) return exitOk;
   if( operands->empty() ) {
      if( following ) throw UsageError( "--follow needs the name of a ring" );
      return list( json );
   }
   const Ring ring = ringNamed( operands->front() );
   const std::uint64_t next = showFrom( *ring, 0, last, json );
   if( following ) follow( *ring, next, json );
   return exitOk;
}

}
