#include <kel/Hash.h>

namespace Kel {

U32 murmur3( const void* data, std::size_t size, U32 seed ) noexcept {
   const auto* at = static_cast< const unsigned char* >( data );
   U32 h = seed;
   std::size_t left = size;
   for( ; left >= 4; left -= 4, at += 4 ) {
      U32 k;
      std::memcpy( &k, at, 4 );
      h = Detail::murmurMix( h, k );
   }
   U32 tail = 0;
   for( std::size_t i = left; i > 0; --i ) tail = tail << 8 | at[ i - 1 ];
   if( left ) h ^= Detail::murmurBlock( tail );
   return Detail::murmurFinal( h, static_cast< U32 >( size ) );
}

}
