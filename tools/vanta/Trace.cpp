#include "Cli.h"
#include "Output.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <kel/Exception.h>
#include <kel/RiloReader.h>
#include <memory>
#include <poll.h>
#include <unistd.h>

namespace Tool {

namespace {

using Ring = std::unique_ptr< Kel::RiloReader >;

constexpr double nanoseconds = 1e-9;
constexpr int pollMilliseconds = 100;

volatile std::sig_atomic_t interrupted = 0;

/// The rings of this machine, the newest first, and the files that this user may not read. Files that are no rings are passed
/// over.
struct Rings {
   std::vector< Ring > readable;
   std::vector< std::string > hidden;
};

/// Throws `Failure` when their directory can't be read.
Rings rings() {
   const std::string directory = Kel::riloDirectory();
   std::error_code error;
   std::filesystem::directory_iterator( directory, error );
   if( error && error != std::errc::no_such_file_or_directory )
      throw Failure( exitNotConnected, "cannot read the ring directory " + directory + ": " + error.message() );
   Rings found;
   for( const std::string& file : Kel::riloFiles( directory ) ) {
      try {
         found.readable.push_back( std::make_unique< Kel::RiloReader >( file ) );
      } catch( const Kel::Exception& ) {
         if( faccessat( AT_FDCWD, file.c_str(), R_OK, AT_EACCESS ) != 0 && errno == EACCES ) found.hidden.push_back( file );
      }
   }
   std::stable_sort( found.readable.begin(), found.readable.end(),
                     []( const Ring& a, const Ring& b ) { return a->openedAt() > b->openedAt(); } );
   return found;
}

std::string hiddenText( const std::vector< std::string >& files ) {
   const std::string more = files.size() > 1 ? " and " + std::to_string( files.size() - 1 ) + " more" : "";
   return "cannot read " + printable( files.front() ) + more + ": " + std::strerror( EACCES ) + "; ask as the user of the process";
}

/// Whether a ring's file, whose name is PROGRAM.PID, is of that process or program.
bool isNamed( const std::string& file, const std::string& name ) {
   const std::size_t base = file.rfind( '/' ) + 1, dot = file.rfind( '.' );
   return dot != file.npos && dot >= base && ( file.substr( base, dot - base ) == name || file.substr( dot + 1 ) == name );
}

/// The ring that a person names by its file, its process number or its program; the newest when several match.
Ring ringNamed( const std::string& name ) {
   if( name.find( '/' ) != name.npos ) return std::make_unique< Kel::RiloReader >( name );
   auto [ all, hidden ] = rings();
   const auto first = [ &all = all ]( const auto& matches ) -> Ring {
      const auto at = std::find_if( all.begin(), all.end(), matches );
      return at == all.end() ? nullptr : std::move( *at );
   };
   if( Ring byPid = first( [ & ]( const Ring& ring ) { return std::to_string( ring->pid() ) == name; } ) ) return byPid;
   if( Ring byProgram = first( [ & ]( const Ring& ring ) { return ring->program() == name; } ) ) return byProgram;
   std::erase_if( hidden, [ & ]( const std::string& file ) { return !isNamed( file, name ); } );
   if( !hidden.empty() ) throw Failure( exitNotConnected, hiddenText( hidden ) );
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
   const auto [ all, hidden ] = rings();
   if( all.empty() && !hidden.empty() ) throw Failure( exitNotConnected, hiddenText( hidden ) );
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
   if( !hidden.empty() ) std::fprintf( stderr, "vanta trace: %s\n", hiddenText( hidden ).c_str() );
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
