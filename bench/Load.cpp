#include "Child.h"

#include <benchmark/benchmark.h>

// How long it takes to load libVanta into a fresh process that has the platform's libraries.

namespace {

void load( benchmark::State& state, const char* introspection ) {
   for( auto _ : state ) {
      Bench::Child child( { Bench::programPath( "vanta-bench-load" ), VANTA_LIBRARY, introspection } );
      state.SetIterationTime( static_cast< double >( child.next().number ) * 1e-9 );
   }
}

BENCHMARK_CAPTURE( load, off, "off" )->Name( "load/introspection-off" )->Iterations( 10 )->UseManualTime()->Unit( benchmark::kMicrosecond );
BENCHMARK_CAPTURE( load, on, "on" )->Name( "load/introspection-on" )->Iterations( 10 )->UseManualTime()->Unit( benchmark::kMicrosecond );

}
