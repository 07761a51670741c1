#pragma once

#include <kel/Types.h>
#include <memory>
#include <vector>

namespace Bench {

/// A frame of the benchmarks with `bytes` bytes. The ones of a set differ in their addresses.
inline std::vector< Kel::U8 > frameOf( Kel::U32 bytes, Kel::U32 number ) {
   std::vector< Kel::U8 > out{ 2, 0, 0, 0, 1, Kel::U8( number ), 2, 0, 0, 0, 2, Kel::U8( number ), 0x88, 0xb5 };
   out.resize( bytes, Kel::U8( number ) );
   return out;
}

/// The VLAN that the n-th turn tags with.
inline Kel::U16 vlanOf( Kel::U32 turn ) { return static_cast< Kel::U16 >( 1 + turn % 4094 ); }

/// Registers a measure for one frame that stays in the cache, and for 256 in turn; short ones and long ones. The benchmarks take
/// the bytes of a frame and the number of frames, a power of two.
template< class Run >
void forEachLoad( Run registered ) {
   for( const int bytes : { 64, 1500 } )
      for( const int frames : { 1, 256 } ) registered( bytes, frames );
}

}
