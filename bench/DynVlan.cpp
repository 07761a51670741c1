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

constexpr U32 sourceCount = 16, intfCount = 4000, batch = 80;

struct Merge {
   Merge() {
      for( U32 n = 1; n <= intfCount + batch; ++n ) intfs.emplace_back( "Vlan" + std::to_string( n ) );
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

/// Each measure leaves it as it was.
Merge& merged() {
   static Merge merge;
   return merge;
}

constexpr U32 best = 2, middle = 7, worst = 15;   // by priority, then by name

/// A source withdraws a batch of interfaces and asks for them again; one of the two is timed, a turn is an interface. All sources
/// ask for them, or this one alone.
void dynVlanIntf( benchmark::State& state, bool isRequest, U32 source, bool isShared ) {
   Merge& merge = merged();
   U32 turn = 0;
   const auto each = [ & ]( auto step ) {
      for( U32 n = 0; n < batch; ++n ) step( merge.intfs[ isShared ? ( turn + n ) * 1009 % intfCount : intfCount + n ] );
   };
   const auto request = [ & ] { each( [ & ]( const auto& intf ) { merge.dirs[ source ]->intfConfigIs( intf ); } ); };
   const auto withdraw = [ & ] { each( [ & ]( const auto& intf ) { merge.dirs[ source ]->intfConfigDel( intf ); } ); };
   request();
   for( ; state.KeepRunningBatch( batch ); turn = ( turn + batch ) % intfCount ) {
      if( isRequest ) state.PauseTiming();
      withdraw();
      isRequest ? state.ResumeTiming() : state.PauseTiming();
      request();
      if( !isRequest ) state.ResumeTiming();
   }
   if( !isShared ) withdraw();
}

/// A source goes; that it comes back is not timed.
void dynVlanSource( benchmark::State& state, U32 source ) {
   Merge& merge = merged();
   for( auto _ : state ) {
      merge.sources->entryDel( merge.dirs[ source ]->name() );
      state.PauseTiming();
      merge.sources->entryIs( merge.dirs[ source ] );
      state.ResumeTiming();
   }
}

BENCHMARK_CAPTURE( dynVlanIntf, requestBest, true, best, true )->Name( "dynvlan-request/best" );
BENCHMARK_CAPTURE( dynVlanIntf, requestMiddle, true, middle, true )->Name( "dynvlan-request/middle" );
BENCHMARK_CAPTURE( dynVlanIntf, requestWorst, true, worst, true )->Name( "dynvlan-request/worst" );
BENCHMARK_CAPTURE( dynVlanIntf, requestAlone, true, best, false )->Name( "dynvlan-request/alone" );
BENCHMARK_CAPTURE( dynVlanIntf, withdrawBest, false, best, true )->Name( "dynvlan-withdraw/best" );
BENCHMARK_CAPTURE( dynVlanIntf, withdrawMiddle, false, middle, true )->Name( "dynvlan-withdraw/middle" );
BENCHMARK_CAPTURE( dynVlanIntf, withdrawWorst, false, worst, true )->Name( "dynvlan-withdraw/worst" );
BENCHMARK_CAPTURE( dynVlanIntf, withdrawAlone, false, best, false )->Name( "dynvlan-withdraw/alone" );
BENCHMARK_CAPTURE( dynVlanSource, best, best )->Name( "dynvlan-source/best" )->Unit( benchmark::kMillisecond );
BENCHMARK_CAPTURE( dynVlanSource, worst, worst )->Name( "dynvlan-source/worst" )->Unit( benchmark::kMillisecond );

}
