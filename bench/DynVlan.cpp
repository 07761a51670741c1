#include <Vanta/VlanDynIntfSm.h>
#include <benchmark/benchmark.h>
#include <kel/Dir.h>
#include <string>
#include <vector>

// The merge of VLAN interface requests at full size: 16 sources that ask for the same 4,000 interfaces, so that every change is
// contested.

namespace {

using Kel::Ptr;
using Kel::U32;

constexpr U32 sourceCount = 16, intfCount = 4000;

struct Merge {
   Merge() {
      for( U32 n = 1; n <= intfCount + 1; ++n ) intfs.emplace_back( "Vlan" + std::to_string( n ) );
      for( U32 s = 0; s < sourceCount; ++s ) {
         const std::string name = "source" + std::to_string( 10 + s );
         dirs.push_back( Interface::vlanIntfConfigDirFactory( name ) );
         dirs.back()->configPriorityIs( static_cast< Interface::VlanIntfConfigPriority >( s % 3 ) );
         for( U32 n = 0; n < intfCount; ++n ) dirs.back()->intfConfigIs( intfs[ n ] );
         sources->entryIs( dirs.back() );
         errors->entryIs( Interface::vlanIntfConfigErrorDirFactory( name ) );
      }
      reactor = Vanta::dynVlanIntfReactorFactory( sources, errors, list, false );
   }

   std::vector< Quor::IntfId > intfs;
   std::vector< Ptr< Interface::VlanIntfConfigDir > > dirs;
   Ptr< Kel::Dir > sources = Kel::dirFactory( "sources" ), errors = Kel::dirFactory( "errors" );
   Ptr< Vanta::DynVlanIntfList > list = Vanta::dynVlanIntfListFactory( "list" );
   Ptr< Vanta::DynVlanIntfReactor > reactor;
};

constexpr U32 best = 2, worst = 15;   // by priority, then by name

/// A source withdraws one interface and asks for it again: two changes a turn.
void dynVlanIntf( benchmark::State& state, U32 source ) {
   Merge merge;
   U32 turn = 0;
   for( auto _ : state ) {
      const auto& intf = merge.intfs[ ( turn += 1009 ) % intfCount ];
      merge.dirs[ source ]->intfConfigDel( intf );
      merge.dirs[ source ]->intfConfigIs( intf );
   }
}

/// An interface that one source alone asks for: two changes a turn.
void dynVlanOwnIntf( benchmark::State& state ) {
   Merge merge;
   for( auto _ : state ) {
      merge.dirs[ best ]->intfConfigIs( merge.intfs[ intfCount ] );
      merge.dirs[ best ]->intfConfigDel( merge.intfs[ intfCount ] );
   }
}

/// A source goes; that it comes back is not timed.
void dynVlanSource( benchmark::State& state, U32 source ) {
   Merge merge;
   for( auto _ : state ) {
      merge.sources->entryDel( merge.dirs[ source ]->name() );
      state.PauseTiming();
      merge.sources->entryIs( merge.dirs[ source ] );
      state.ResumeTiming();
   }
}

BENCHMARK_CAPTURE( dynVlanIntf, best, best )->Name( "dynvlan-change/best" );
BENCHMARK_CAPTURE( dynVlanIntf, worst, worst )->Name( "dynvlan-change/worst" );
BENCHMARK( dynVlanOwnIntf )->Name( "dynvlan-change/alone" );
BENCHMARK_CAPTURE( dynVlanSource, best, best )->Name( "dynvlan-source/best" )->Unit( benchmark::kMillisecond );
BENCHMARK_CAPTURE( dynVlanSource, worst, worst )->Name( "dynvlan-source/worst" )->Unit( benchmark::kMillisecond );

}
