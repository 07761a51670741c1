#include <kel/HashMap.h>

#include <cstdlib>
#include <new>

// A table of buckets, each a treap: a binary search tree by ( place, key ) that is a heap by random priorities, so its depth
// stays logarithmic whatever the keys are. Nearly all buckets hold one node or two. Bucket b of 2^n holds the places whose
// top n bits are b; neighbouring buckets therefore hold neighbouring places. Doubling splits bucket b by place into 2b and 2b
// + 1, halving joins those two again, both without looking at a key, and neither changes the order of iteration.
//
// Invariants: all points in child[ 0 ] and child[ 1 ] come before and behind the node's own; no child has a greater priority than
// its parent.
namespace Kel::Detail {

namespace {

constexpr U32 widest = 30;   // the shift of a table of four buckets, the smallest
constexpr U32 narrowest = sizeof( void* ) == 8 ? 2 : 6;   // the shift of the largest table
constexpr std::size_t lookAhead = 16;   // buckets whose first nodes are fetched in advance

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
   return node->place != point.place ? node->place < point.place : point.order( node, point.key ) < 0;
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

HashCore::Table* HashCore::resized( Table* table, U32 shift ) noexcept {
   return static_cast< Table* >( std::realloc( table, sizeof( Table ) + ( sizeof( HashNode* ) << ( 32 - shift ) ) ) );
}

void HashCore::create( std::size_t nodeBytes ) {
   Table* table = resized( nullptr, widest );
   if( !table ) throw std::bad_alloc();
   std::unique_ptr< Table, void ( * )( void* ) > guard( table, &std::free );
   const auto address = reinterpret_cast< std::uintptr_t >( table );
   *table = { newErasures(), 0, hashOf( address ) | 1u, widest, NodePool::make( nodeBytes ) };
   for( std::size_t i = 0; i < table->count(); ++i ) table->buckets()[ i ] = nullptr;
   table_ = guard.release();
}

void HashCore::grow() {
   const std::size_t before = table_->count();
   Table* table = resized( table_, table_->shift - 1 );
   if( !table ) throw std::bad_alloc();
   table_ = table;
   const U32 shift = --table->shift;
   HashNode** buckets = table->buckets();
   for( std::size_t i = before; i-- > 0; ) {
      if( i >= lookAhead ) __builtin_prefetch( buckets[ i - lookAhead ] );
      HashNode* const root = buckets[ i ];
      HashNode** const pair = &buckets[ 2 * i ];
      pair[ 0 ] = pair[ 1 ] = nullptr;
      if( !root ) continue;
      const U32 pivot = static_cast< U32 >( 2 * i + 1 ) << shift;
      if( !root->child[ 0 ] && !root->child[ 1 ] ) {
         pair[ root->place >= pivot ] = root;
      } else {
         split( root, [ pivot ]( const HashNode* n ) { return n->place < pivot; }, pair[ 0 ], pair[ 1 ] );
      }
   }
}

void HashCore::shrink() noexcept {
   const std::size_t after = table_->count() / 2;
   HashNode** buckets = table_->buckets();
   for( std::size_t i = 0; i < after; ++i ) buckets[ i ] = join( buckets[ 2 * i ], buckets[ 2 * i + 1 ] );
   ++table_->shift;
   if( Table* table = resized( table_, table_->shift ) ) table_ = table;
}

void HashCore::link( HashNode* node, const HashPoint& point ) {
   if( table_->size >= table_->count() / 4 * 3 && table_->shift > narrowest ) grow();
   node->priority = table_->nextRandom();
   HashNode** at = &table_->buckets()[ point.place >> table_->shift ];
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
   if( table_->size < table_->count() / 8 && table_->shift < widest ) shrink();
}

HashNode* HashCore::firstFrom( std::size_t bucket ) const noexcept {
   const std::size_t count = table_->count();
   HashNode** buckets = table_->buckets();
   for( ; bucket < count; ++bucket ) {
      if( buckets[ bucket ] ) {
         if( bucket + lookAhead < count ) __builtin_prefetch( buckets[ bucket + lookAhead ] );
         return leftmost( buckets[ bucket ] );
      }
   }
   return nullptr;
}

HashNode* HashCore::first() const noexcept { return table_ ? firstFrom( 0 ) : nullptr; }

HashNode* HashCore::after( const HashPoint& point ) const noexcept {
   if( !table_ ) return nullptr;
   const U32 bucket = point.place >> table_->shift;
   HashNode* found = nullptr;
   for( HashNode* node = table_->buckets()[ bucket ]; node; ) {
      const bool passed = isBefore( node, point ) || ( node->place == point.place && point.order( node, point.key ) == 0 );
      if( !passed ) found = node;
      node = node->child[ passed ];
   }
   return found ? found : firstFrom( std::size_t( bucket ) + 1 );
}

HashNode* HashCore::next( const HashNode* node, const HashPoint& point ) const noexcept {
   if( node->child[ 1 ] ) return leftmost( node->child[ 1 ] );
   const U32 bucket = point.place >> table_->shift;
   return table_->buckets()[ bucket ] == node ? firstFrom( std::size_t( bucket ) + 1 ) : after( point );
}

void HashCore::clear( void ( *destroy )( HashNode* ) ) noexcept {
   Table* table = std::exchange( table_, nullptr );
   if( !table ) return;
   for( std::size_t i = 0; i < table->count(); ++i ) destroyAll( table->buckets()[ i ], destroy );
   table->pool->abandon( table->size );
   std::free( table );
}

}
