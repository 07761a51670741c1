#include "Mux.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <rte_ether.h>

// DPDK's functions for a tag, over packet buffers that are made here: they need no more of DPDK than its headers.

namespace {

using Kel::U32;
using Kel::U8;

struct Buffer {
   Buffer( U32 bytes, U32 number ) : frame( Bench::frameOf( bytes, number ) ) {
      frame.insert( frame.begin(), RTE_PKTMBUF_HEADROOM, 0 );
      head.buf_addr = frame.data();
      head.buf_len = static_cast< uint16_t >( frame.size() );
      head.data_off = RTE_PKTMBUF_HEADROOM;
      head.pkt_len = head.data_len = static_cast< uint16_t >( bytes );
      head.nb_segs = 1;
      head.refcnt = 1;
   }
   rte_mbuf head{};
   std::vector< U8 > frame;
};

void dpdkTag( benchmark::State& state ) {
   const auto bytes = static_cast< U32 >( state.range( 0 ) ), count = static_cast< U32 >( state.range( 1 ) );
   std::vector< std::unique_ptr< Buffer > > frames;
   for( U32 i = 0; i < count; ++i ) frames.push_back( std::make_unique< Buffer >( bytes, i ) );
   U32 turn = 0, wrong = 0;
   for( auto _ : state ) {
      rte_mbuf* frame = &frames[ turn & ( count - 1 ) ]->head;
      const Kel::U16 vlan = Bench::vlanOf( turn++ );
      frame->vlan_tci = vlan;
      wrong += rte_vlan_insert( &frame ) != 0;
      // As between two functions of other libraries, what stands in memory is what counts.
      benchmark::ClobberMemory();
      wrong += rte_vlan_strip( frame ) != 0 || frame->vlan_tci != vlan;
      benchmark::ClobberMemory();
   }
   for( U32 i = 0; i < count; ++i )
      wrong += std::memcmp( rte_pktmbuf_mtod( &frames[ i ]->head, U8* ), Bench::frameOf( bytes, i ).data(), bytes ) != 0;
   if( wrong ) state.SkipWithError( "not the frame that was tagged" );
}

[[maybe_unused]] const bool isRegistered = ( Bench::forEachLoad( []( int bytes, int frames ) {
   benchmark::RegisterBenchmark( "mux-tag/dpdk", dpdkTag )->Args( { bytes, frames } );
} ), true );

}
