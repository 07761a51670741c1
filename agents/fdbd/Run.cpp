#include "Run.h"

#include "Agent.h"
#include "PrintSink.h"
#include "Publisher.h"
#include <cstdio>
#include <iostream>

// The order matters: the sources are opened before the table, so that a command line that nothing can come of leaves the table of
// an earlier run as it is; and what bridges have already is known before the table is brought in step.

namespace Fdbd {

namespace {

int learn( const Options& options, Kel::Activity& activity, HostSink& sink, const Reporter& report,
           const std::function< void() >& open ) {
   const auto statistics = [ & ]( const std::string& text ) {
      if( options.json ) std::fprintf( stderr, "%s\n", text.c_str() );
      else report( text );
   };
   Agent agent( activity, options, sink, report, statistics );
   if( !agent.usable() ) return 1;
   open();
   return agent.run();
}

}

int run( const Options& options, Kel::Activity& activity, const Kel::Ptr< Kel::Dir >& root, const Reporter& report ) {
   if( options.print ) {
      PrintSink sink( std::cout );
      return learn( options, activity, sink, report, [] {} );
   }
   Publisher sink( root );
   return learn( options, activity, sink, report, [ & ] {
      sink.open( options.table, options.learning.capacity );
      if( options.countsVlans() )
         sink.countVlans( activity, options.vlanCounters, options.vlanCounters + snapshotSuffix, report );
   } );
}

}
