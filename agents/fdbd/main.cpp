#include "Run.h"
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <kel/Exception.h>
#include <kel/Trace.h>

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

int program( int argc, char** argv ) {
   const Options options = parseOptions( argc, argv );
   if( options.action == Options::Action::help ) return print( helpText );
   if( options.action == Options::Action::version ) return print( "vanta-fdbd " VANTA_VERSION "\n" );
   traceAs( options.trace );
   // A reader of our lines that goes away is no reason to stop learning.
   std::signal( SIGPIPE, SIG_IGN );
   Kel::Activity activity;
   const Kel::SignalWatch signals( activity, { SIGTERM, SIGINT }, [ & ]( int ) { activity.stop(); } );
   return run( options, activity, Kel::dirFactory( "vanta-fdbd" ), line );
}

}

}

int main( int argc, char** argv ) try {
   return Fdbd::program( argc, argv );
} catch( const Fdbd::UsageError& e ) {
   Fdbd::line( std::string( e.what() ) + " (see 'vanta-fdbd --help')" );
   return 2;
} catch( const std::exception& e ) {
   Fdbd::line( e.what() );
   return 1;
}
