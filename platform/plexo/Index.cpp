#include <plexo/Index.h>

// A key is never stored in a bucket that its path meets a second time (its first bucket may lie among the later ones): the
// bucket was full at the first meeting and nobody else writes meanwhile. So a place on the path is unambiguous and `erase` can
// take back exactly the overflow counts that `insert` raised.
//
// Against readers: a lane's slot number stands before its tag; counts on the path are raised before the entry appears and
// lowered after it went. A key that is present throughout a search is therefore found by it.

namespace Plexo {

void Index::tagIs( U32 bucket, U32 lane, U8 tag ) noexcept {
   std::byte* word = at( bucket ) + tagOffset + ( lane & ~3u );
   const U32 shift = ( lane & 3 ) * 8;
   SharedStore::release32( word, ( SharedLoad::word32( word ) & ~( 0xffu << shift ) ) | U32( tag ) << shift );
}

bool Index::insert( const KeyHash& hash, U32 slot ) noexcept {
   bool done = false;
   walk( hash, [ & ]( U32 bucket, U8 tag ) {
      const Line line( at( bucket ) );
      if( const U32 empty = line.lanesWith( 0 ) ) {
         const U32 lane = U32( std::countr_zero( empty ) );
         SharedStore::word32( at( bucket ) + lane * 4, slot );
         tagIs( bucket, lane, tag );
         done = true;
         return false;
      }
      SharedStore::word32( at( bucket ) + overflowOffset, line.overflow() + 1 );
      return true;
   } );
   return done;
}

void Index::erase( const KeyHash& hash, const Place& place ) noexcept {
   tagIs( place.bucket, place.lane, 0 );
   U32 left = place.step;
   walk( hash, [ & ]( U32 bucket, U8 ) {
      if( left == 0 ) return false;
      --left;
      const U32 overflow = Line( at( bucket ) ).overflow();
      if( overflow ) SharedStore::word32( at( bucket ) + overflowOffset, overflow - 1 );
      return true;
   } );
}

}
