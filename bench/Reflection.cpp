#include "Peers.pb.h"

#include <Bench/Cell.h>
#include <Vanta/VlanId.h>
#include <array>
#include <benchmark/benchmark.h>
#include <string>

// A field is set by a name that only run time knows. Each turn takes the other of the two fields, or the same one where there is one.

namespace {

using Kel::U16;
using Kel::U32;

using Names = std::array< std::string, 2 >;

U16 vid( U32 turn ) { return static_cast< U16 >( 1 + ( turn & 0x7ff ) ); }

void vantaValue( benchmark::State& state ) {
   const Names names{ "outerVid", "innerVid" };
   Bridging::VlanXlateKey key;
   Kel::GenericIfOf< Bridging::VlanXlateKey > adapter( &key, false );
   U32 turn = 0;
   for( auto _ : state ) {
      ++turn;
      const auto attribute = static_cast< U16 >( adapter.attributeId( names[ turn & 1 ] ) );
      if( turn & 1 ) adapter.attributeIs( attribute, Bridging::VlanIdOrNone( vid( turn ) ) );
      else adapter.attributeIs( attribute, Bridging::VlanId( vid( turn ) ) );
   }
   benchmark::DoNotOptimize( key );
   if( ( turn & 1 ? key.innerVid().value() : key.outerVid().value() ) != vid( turn ) ) state.SkipWithError( "not set" );
}

void vantaEntity( benchmark::State& state ) {
   const Names names{ "value", "value" };
   const auto cell = Bench::cellFactory( "cell" );
   const auto adapter = cell->fwkType().genericIf( cell.ptr(), false );
   U32 turn = 0;
   for( auto _ : state ) {
      ++turn;
      adapter->attributeIs( static_cast< U16 >( adapter->attributeId( names[ turn & 1 ] ) ), turn );
   }
   if( cell->value() != turn ) state.SkipWithError( "not set" );
}

void vantaIndex( benchmark::State& state ) {
   Bridging::VlanXlateKey key;
   Kel::GenericIfOf< Bridging::VlanXlateKey > adapter( &key, false );
   const auto attribute = static_cast< U16 >( adapter.attributeId( "outerVid" ) );
   U32 turn = 0;
   for( auto _ : state ) adapter.attributeIs( attribute, Bridging::VlanId( vid( ++turn ) ) );
   benchmark::DoNotOptimize( key );
}

void protobufName( benchmark::State& state ) {
   const Names names{ "outer_vid", "inner_vid" };
   peers::VlanXlateKey key;
   const auto* descriptor = key.GetDescriptor();
   const auto* reflection = key.GetReflection();
   U32 turn = 0;
   for( auto _ : state ) {
      ++turn;
      reflection->SetUInt32( &key, descriptor->FindFieldByName( names[ turn & 1 ] ), vid( turn ) );
   }
   benchmark::DoNotOptimize( key );
   if( ( turn & 1 ? key.inner_vid() : key.outer_vid() ) != vid( turn ) ) state.SkipWithError( "not set" );
}

void protobufField( benchmark::State& state ) {
   peers::VlanXlateKey key;
   const auto* field = key.GetDescriptor()->FindFieldByName( "outer_vid" );
   const auto* reflection = key.GetReflection();
   U32 turn = 0;
   for( auto _ : state ) reflection->SetUInt32( &key, field, vid( ++turn ) );
   benchmark::DoNotOptimize( key );
}

BENCHMARK( vantaValue )->Name( "reflect-value/vanta" );
BENCHMARK( vantaEntity )->Name( "reflect-entity/vanta" );
BENCHMARK( protobufName )->Name( "reflect-name/protobuf" );
BENCHMARK( vantaIndex )->Name( "reflect-handle/vanta" );
BENCHMARK( protobufField )->Name( "reflect-handle/protobuf" );

}
