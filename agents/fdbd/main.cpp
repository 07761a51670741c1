#include "Agent.h"
#include "PrintSink.h"
#include "Publisher.h"
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <kel/Exception.h>
#include <kel/Trace.h>

// The order matters: the sources are opened before the table, so that a command line that nothing can come of leaves the table of
// an earlier run as it is; and what bridges have already is known before the table is brought in step.

namespace Fdbd {

namespace {

void line( const std::string& text ) { std::fprintf( stderr, "vanta-fdbd: %s\n", text.c_str() ); }

void traceAs( const std::string& setting ) try {
   if( !setting.empty() ) Kel::traceSettingIs( setting );
} catch( const Kel::Exception& e ) {
   throw UsageError( "--trace '" + setting + "': " + e.what() );
}

int print( const char* text ) {
   if( std::fputs( text, stdout ) >= 0 && std::fflush( stdout ) == 0 ) return 0;
   line( std::string( "cannot write the output: " ) + std::strerror( errno ) );
   return 3;
}

int learn( const Options& options, HostSink& sink, const std::function< void() >& open ) {
   Kel::Activity activity;
   const Kel::SignalWatch signals( activity, { SIGTERM, SIGINT }, [ & ]( int ) { activity.stop(); } );
   const auto statistics = [ & ]( const std::string& text ) {
      if( options.json ) std::fprintf( stderr, "%s\n", text.c_str() );
      else line( text );
   };
   Agent agent( activity, options, sink, line, statistics );
   if( !agent.usable() ) return 1;
   open();
   return agent.run();
}

int run( int argc, char** argv ) {
   const Options options = parseOptions( argc, argv );
   if( options.action == Options::Action::help ) return print( helpText );
   if( options.action == Options::Action::version ) return print( "vanta-fdbd " VANTA_VERSION "\n" );
   traceAs( options.trace );
   // A reader of our lines that goes away is no reason to stop learning.
   std::signal( SIGPIPE, SIG_IGN );
   if( options.print ) {
      PrintSink sink( std::cout );
      return learn( options, sink, [] {} );
   }
   Publisher sink;
   return learn( options, sink, [ & ] {
      sink.open( options.table, options.learning.capacity );
      if( options.countsVlans() ) sink.countVlans( options.vlanCounters, options.vlanCounters + snapshotSuffix );
   } );
}

}

}

int main( int argc, char** argv ) try {
   return Fdbd::run( argc, argv );
} catch( const Fdbd::UsageError& e ) {
   Fdbd::line( std::string( e.what() ) + " (see 'vanta-fdbd --help')" );
   return 2;
} catch( const std::exception& e ) {
   Fdbd::line( e.what() );
   return 1;
}
