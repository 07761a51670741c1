#include <Vanta/Bridging.h>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <malloc.h>
#include <quor/EthIntfId.h>
#include <stdexcept>
#include <unistd.h>

// How much memory the model takes: the whole of a large VLAN configuration, and what one entity more costs.

namespace {

using Kel::U32;
using Kel::U64;

constexpr U32 vlans = 4094;
constexpr U32 portsOfVlan = 500;

/// The pages of this process that are in memory, in bytes.
double resident() {
   FILE* file = std::fopen( "/proc/self/statm", "r" );
   long all = 0, inMemory = 0;
   const bool read = file && std::fscanf( file, "%ld %ld", &all, &inMemory ) == 2;
   if( file ) std::fclose( file );
   if( !read ) throw std::runtime_error( "cannot read /proc/self/statm" );
   return static_cast< double >( inMemory ) * static_cast< double >( sysconf( _SC_PAGESIZE ) );
}

/// Bytes that are allocated, with what the allocator adds to each piece.
double allocated() {
   const auto info = mallinfo2();
   return static_cast< double >( info.uordblks + info.hblkhd );
}

Bridging::VlanId vlanId( U32 n ) { return Bridging::VlanId( static_cast< Kel::U16 >( n ) ); }
Quor::IntfId port( U32 n ) { return Quor::EthIntfId::make( 0, 1 + n, 0 ); }

/// Every VLAN with all of its member ports, as an agent writes them.
void fillVlans( benchmark::State& state ) {
   Bridging::VlanPortConfig member;
   member.tagOnEgressIs( Bridging::TagOnEgress::tagOnEgressEnabled );
   double mebibytes = 0;
   for( auto _ : state ) {
      state.PauseTiming();
      malloc_trim( 0 );
      const double before = resident();
      state.ResumeTiming();
      auto config = Bridging::configFactory( "config" );
      for( U32 v = 1; v <= vlans; ++v ) {
         const auto vlan = config->vlanConfigIs( vlanId( v ), false );
         for( U32 n = 0; n < portsOfVlan; ++n ) vlan->intfIs( port( n ), member );
      }
      state.PauseTiming();
      mebibytes = ( resident() - before ) / ( 1024 * 1024 );
      U64 members = 0;
      for( auto i = config->vlanConfigIterConst(); i; ++i ) members += i.value()->intfCount();
      if( members != U64( vlans ) * portsOfVlan ) state.SkipWithError( "not every member is there" );
      config = nullptr;
      state.ResumeTiming();
   }
   state.counters[ "resident_mib" ] = mebibytes;
}

/// Puts `count` elements with `put( n )` into a collection, and tells what each took with its share of the collection.
template< class Put >
void bytesOfEach( benchmark::State& state, U32 count, Put put ) {
   const double before = allocated();
   for( U32 n = 0; n < count; ++n ) put( n );
   state.counters[ "bytes_each" ] = ( allocated() - before ) / count;
}

void vlanConfigBytes( benchmark::State& state ) {
   for( auto _ : state ) {
      const auto config = Bridging::configFactory( "config" );
      bytesOfEach( state, vlans, [ & ]( U32 n ) { config->vlanConfigIs( vlanId( n + 1 ), false ); } );
   }
}

void switchIntfConfigBytes( benchmark::State& state ) {
   for( auto _ : state ) {
      const auto config = Bridging::configFactory( "config" );
      bytesOfEach( state, vlans, [ & ]( U32 n ) { config->switchIntfConfigIs( port( n ), {} ); } );
   }
}

void learnedHostBytes( benchmark::State& state ) {
   for( auto _ : state ) {
      const auto fdb = Bridging::fdbStatusFactory( Bridging::Fid( 1 ) );
      bytesOfEach( state, static_cast< U32 >( state.range( 0 ) ), [ & ]( U32 n ) {
         const auto address = Quor::EthAddr::fromNumber( 0x020000000000 + U64( n ) * 0x10b1 );
         fdb->learnedHostIs( Bridging::LearnedHost( address, port( n % 48 ), 1, 0, Bridging::EntryType::learnedDynamicMac ) );
      } );
   }
}

BENCHMARK( fillVlans )->Name( "fill-vlans/vanta" )->Iterations( 1 )->Unit( benchmark::kMillisecond );
BENCHMARK( vlanConfigBytes )->Name( "vlan-config-bytes/vanta" )->Iterations( 1 )->Unit( benchmark::kMillisecond );
BENCHMARK( switchIntfConfigBytes )->Name( "switch-intf-config-bytes/vanta" )->Iterations( 1 )->Unit( benchmark::kMillisecond );
// Just before the collection's table doubles, and just behind.
BENCHMARK( learnedHostBytes )
   ->Name( "learned-host-bytes/vanta" )
   ->Arg( 98304 )
   ->Arg( 98305 )
   ->Iterations( 1 )
   ->Unit( benchmark::kMillisecond );

}
