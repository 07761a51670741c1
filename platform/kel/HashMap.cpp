#include <kel/HashMap.h>

#include <algorithm>
#include <cstdlib>
#include <new>

// A table of buckets, each a treap: a binary search tree by ( reversed hash, key ) that is a heap by random priorities, so its
// depth stays logarithmic whatever the keys are. Nearly all buckets hold one node or two. Of 2^n buckets, each lies where the low n
// bits of its hashes say, which costs a look-up nothing; its number, by which a walk goes, is those bits in reverse. Doubling
// splits bucket b by the next bit into b and b + 2^n, which are neighbours in a walk, halving joins those two again, both without
// looking at a key, and neither changes the order of iteration.
//
// Invariants: all points in child[ 0 ] and child[ 1 ] come before and behind the node's own; no child has a greater priority than
// its parent.
namespace Kel::Detail {

namespace {

constexpr U32 fewest = 4;
constexpr U32 most = sizeof( void* ) == 8 ? 1u << 30 : 1u << 26;
constexpr U32 lookAhead = 16;   // how many buckets before its turn the root of one is fetched
constexpr U32 group = 32;       // how many buckets are fetched together

template< class Before >
void split( HashNode* node, Before before, HashNode*& low, HashNode*& high ) noexcept {
   HashNode** lowEnd = &low;
   HashNode** highEnd = &high;
   while( node ) {
      if( before( node ) ) {
         *lowEnd = node;
         lowEnd = &node->child[ 1 ];
         node = *lowEnd;
      } else {
         *highEnd = node;
         highEnd = &node->child[ 0 ];
         node = *highEnd;
      }
   }
   *lowEnd = *highEnd = nullptr;
}

HashNode* join( HashNode* low, HashNode* high ) noexcept {
   HashNode* root = nullptr;
   HashNode** end = &root;
   while( low && high ) {
      if( low->priority >= high->priority ) {
         *end = low;
         end = &low->child[ 1 ];
         low = *end;
      } else {
         *end = high;
         end = &high->child[ 0 ];
         high = *end;
      }
   }
   *end = low ? low : high;
   return root;
}

bool isBefore( const HashNode* node, const HashPoint& point ) noexcept {
   return node->hash != point.hash ? hashPrecedes( node->hash, point.hash ) : point.order( node, point.key ) < 0;
}

HashNode* leftmost( HashNode* node ) noexcept {
   while( node && node->child[ 0 ] ) node = node->child[ 0 ];
   return node;
}

void destroyAll( HashNode* node, void ( *destroy )( HashNode* ) ) noexcept {
   while( node ) {
      destroyAll( node->child[ 0 ], destroy );
      HashNode* behind = node->child[ 1 ];
      destroy( node );
      node = behind;
   }
}

}

// Marsaglia, "Xorshift RNGs", 2003. It starts from the table's address, so that nobody can choose keys to suit the priorities.
U32 HashCore::Table::nextRandom() noexcept {
   random ^= random << 13;
   random ^= random >> 17;
   random ^= random << 5;
   return random;
}

HashCore::Table* HashCore::resized( Table* table, U32 count ) noexcept {
   return static_cast< Table* >( std::realloc( table, sizeof( Table ) + sizeof( HashNode* ) * count ) );
}

void HashCore::create( std::size_t nodeBytes ) {
   Table* table = resized( nullptr, fewest );
   if( !table ) throw std::bad_alloc();
   std::unique_ptr< Table, void ( * )( void* ) > guard( table, &std::free );
   const auto address = reinterpret_cast< std::uintptr_t >( table );
   *table = { newErasures(), 0, hashOf( address ) | 1u, fewest, NodePool::make( nodeBytes ) };
   std::fill_n( table->buckets(), fewest, nullptr );
   table_ = guard.release();
}

void HashCore::grow() {
   const U32 before = table_->count;
   Table* table = resized( table_, 2 * before );
   if( !table ) throw std::bad_alloc();
   table_ = table;
   table->count = 2 * before;
   HashNode** const low = table->buckets();
   HashNode** const high = low + before;
   // Group by group, its nodes on their way from memory. Nobody can predict which buckets are empty, so those are passed over
   // without a branch.
   U32 filled[ group ];
   for( U32 begin = 0; begin < before; begin += group ) {
      U32 found = 0;
      for( U32 i = begin; i < std::min( begin + group, before ); ++i ) {
         __builtin_prefetch( low[ i ] );
         filled[ found ] = i;
         found += low[ i ] != nullptr;
         high[ i ] = nullptr;
      }
      for( U32 n = 0; n < found; ++n ) {
         const U32 i = filled[ n ];
         HashNode* const root = std::exchange( low[ i ], nullptr );
         // The bit that tells the two halves apart is also how far they lie apart.
         if( !root->child[ 0 ] && !root->child[ 1 ] ) low[ i + ( root->hash & before ) ] = root;
         else split( root, [ before ]( const HashNode* node ) { return !( node->hash & before ); }, low[ i ], high[ i ] );
      }
   }
}

void HashCore::shrink() noexcept {
   const U32 after = table_->count / 2;
   HashNode** const low = table_->buckets();
   for( U32 i = 0; i < after; ++i ) low[ i ] = join( low[ i ], low[ i + after ] );
   table_->count = after;
   if( Table* table = resized( table_, after ) ) table_ = table;
}

void HashCore::link( HashNode* node, const HashPoint& point ) {
   if( table_->size >= table_->count / 4 * 3 && table_->count < most ) grow();
   node->priority = table_->nextRandom();
   HashNode** at = table_->bucket( point.hash );
   while( *at && ( *at )->priority > node->priority ) at = &( *at )->child[ isBefore( *at, point ) ];
   if( *at ) split( *at, [ &point ]( const HashNode* n ) { return isBefore( n, point ); }, node->child[ 0 ], node->child[ 1 ] );
   *at = node;
   ++table_->size;
}

void HashCore::unlink( HashNode** link ) noexcept {
   HashNode* const low = ( *link )->child[ 0 ];
   HashNode* const high = ( *link )->child[ 1 ];
   *link = low && high ? join( low, high ) : low ? low : high;
   --table_->size;
   ++table_->erasures;
   if( table_->size < table_->count / 8 && table_->count > fewest ) shrink();
}

HashNode* HashCore::firstFrom( U32 number ) const noexcept {
   HashNode** const buckets = table_->buckets();
   const int shift = table_->shift();
   for( ; number < table_->count; ++number ) {
      const U32 ahead = number + lookAhead;
      if( ahead < table_->count ) __builtin_prefetch( buckets[ bitReverse( ahead ) >> shift ] );
      if( HashNode* const root = buckets[ bitReverse( number ) >> shift ] ) return leftmost( root );
   }
   return nullptr;
}

HashNode* HashCore::firstBehind( U32 hash ) const noexcept { return firstFrom( ( bitReverse( hash ) >> table_->shift() ) + 1 ); }

HashNode* HashCore::first() const noexcept { return table_ ? firstFrom( 0 ) : nullptr; }

HashNode* HashCore::after( const HashPoint& point ) const noexcept {
   if( !table_ ) return nullptr;
   HashNode* found = nullptr;
   for( HashNode* node = *table_->bucket( point.hash ); node; ) {
      const bool passed = isBefore( node, point ) || ( node->hash == point.hash && point.order( node, point.key ) == 0 );
      if( !passed ) found = node;
      node = node->child[ passed ];
   }
   return found ? found : firstBehind( point.hash );
}

HashNode* HashCore::next( const HashNode* node, const HashPoint& point ) const noexcept {
   if( node->child[ 1 ] ) return leftmost( node->child[ 1 ] );
   return *table_->bucket( point.hash ) == node ? firstBehind( point.hash ) : after( point );
}

void HashCore::clear( void ( *destroy )( HashNode* ) ) noexcept {
   Table* table = std::exchange( table_, nullptr );
   if( !table ) return;
   for( U32 i = 0; i < table->count; ++i ) destroyAll( table->buckets()[ i ], destroy );
   table->pool->abandon( table->size );
   std::free( table );
}

}
