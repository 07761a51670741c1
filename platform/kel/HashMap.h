#pragma once

#include <bit>
#include <concepts>
#include <kel/Hash.h>
#include <kel/MapIterator.h>
#include <kel/NodePool.h>
#include <memory>
#include <utility>

namespace [[gnu::visibility("default")]] Kel {

namespace Detail {

/// What every node of a hashed map begins with.
struct HashNode {
   HashNode* child[ 2 ] = { nullptr, nullptr };   ///< the nodes before and behind this one in its bucket
   U32 hash = 0;                                  ///< of the key
   U32 priority = 0;                              ///< no child's is greater
};

/// Whether a hash, read with its bits reversed, is less than another: the lowest bit in which they differ decides.
constexpr bool hashPrecedes( U32 a, U32 b ) noexcept { return ( ( a ^ b ) & -( a ^ b ) & b ) != 0; }

/// A node's order relative to a key, where both hashes are equal: negative, zero or positive.
using HashOrder = int ( * )( const HashNode* node, const void* key );

/// A point in a hashed map's total order.
struct HashPoint {
   U32 hash;
   const void* key;
   HashOrder order;
};

/// The part of a hashed map that does not depend on its types. It owns the table of buckets and the storage of the nodes; its
/// user makes and destroys the nodes in it.
class HashCore {
 public:
   constexpr HashCore() noexcept = default;
   HashCore( const HashCore& ) = delete;
   HashCore& operator=( const HashCore& ) = delete;
   void swap( HashCore& other ) noexcept { std::swap( table_, other.table_ ); }

   std::size_t size() const noexcept { return table_ ? table_->size : 0; }
   /// Changes with every removal, and is unlike that of any other map that was ever filled.
   U64 erasures() const noexcept { return table_ ? table_->erasures : 0; }
   /// The link to the root of the bucket of a hash. It is not to be written while the map is empty.
   HashNode** root( U32 hash ) const noexcept {
      return table_ ? table_->bucket( hash ) : const_cast< HashNode** >( &noNode );
   }

   /// Where the nodes lie, from the first one on. Throws `std::bad_alloc`.
   NodePool& pool( std::size_t nodeBytes ) {
      if( !table_ ) create( nodeBytes );
      return *table_->pool;
   }
   /// Takes a node in. REQUIRES: it lies in the pool, no node stands at this point. Throws `std::bad_alloc` before it changes
   /// anything.
   void link( HashNode* node, const HashPoint& point );
   /// Takes out the node that a link leads to.
   void unlink( HashNode** link ) noexcept;
   HashNode* first() const noexcept;
   /// The first node behind a point, or null.
   HashNode* after( const HashPoint& point ) const noexcept;
   /// The node behind `node`, which stands at `point`, or null.
   HashNode* next( const HashNode* node, const HashPoint& point ) const noexcept;
   /// Empties the map, then calls `destroy` for every node, which may use the map again.
   void clear( void ( *destroy )( HashNode* ) ) noexcept;

 private:
   struct Table {
      U64 erasures;
      U32 size;
      U32 random;   ///< state of the generator of priorities, never 0
      U32 count;    ///< the number of buckets, a power of two
      NodePool* pool;
      HashNode** buckets() noexcept { return reinterpret_cast< HashNode** >( this + 1 ); }
      /// By how many bits a reversed hash is shifted to give the number of its bucket, and a reversed number to give the bucket.
      int shift() const noexcept { return std::countl_zero( count ) + 1; }
      HashNode** bucket( U32 hash ) noexcept { return &buckets()[ hash & ( count - 1 ) ]; }
      U32 nextRandom() noexcept;
   };

   static Table* resized( Table* table, U32 count ) noexcept;
   void create( std::size_t nodeBytes );
   void grow();
   void shrink() noexcept;
   HashNode* firstFrom( U32 number ) const noexcept;
   HashNode* firstBehind( U32 hash ) const noexcept;

   static constexpr HashNode* noNode = nullptr;

   Table* table_ = nullptr;
};

}

/// A hashed map. It costs one pointer while it is empty, and elements never move while they are in it.
///
/// The hash of a key is `hashOf( key )`, 32-bit MurmurHash3. A key stands in the bucket numbered by the top bits of the
/// bit-reversed hash, so the order of iteration, bucket by bucket, is that of ( reversed hash, key ) and does not depend on
/// the number of buckets or on the map's history. Keys are ordered by `<`. Keys that share one hash cost a logarithm, not a
/// chain.
///
/// An element whose destructor or assignment uses the map again finds it in order.
template< class K, class V >
class HashMap {
   struct Node final : Detail::HashNode {
      Node( U32 at, const K& k, V&& v ) : key( k ), value( std::move( v ) ) { hash = at; }
      const K key;
      V value;
   };
   static_assert( alignof( Node ) <= alignof( std::max_align_t ) );

   struct Release {
      NodePool* pool;
      void operator()( void* storage ) const noexcept { pool->release( storage ); }
   };
   /// Destroys a node, during which the map may be used or emptied, then gives its storage back.
   struct Destroy : Release {
      void operator()( Node* node ) const noexcept {
         node->~Node();
         Release::operator()( node );
      }
   };

 public:
   using Key = K;
   using Value = V;
   using Iterator = MapIterator< HashMap, V >;
   using ConstIterator = MapIterator< HashMap, const V >;

   constexpr HashMap() noexcept = default;
   HashMap( const HashMap& other ) : HashMap() {
      for( ConstIterator i = other.iterator(); i; ++i ) insert( i.key(), i.value() );
   }
   HashMap( HashMap&& other ) noexcept { core_.swap( other.core_ ); }
   HashMap& operator=( HashMap other ) noexcept {
      core_.swap( other.core_ );
      return *this;
   }
   ~HashMap() { clear(); }

   std::size_t size() const noexcept { return core_.size(); }
   bool empty() const noexcept { return size() == 0; }

   /// The element, or null. It stays where it is until it is removed.
   V* find( const K& key ) {
      Node* node = nodeAt( hashOf( key ), key );
      return node ? &node->value : nullptr;
   }
   const V* find( const K& key ) const { return const_cast< HashMap* >( this )->find( key ); }
   bool contains( const K& key ) const { return find( key ) != nullptr; }

   /// The element under the key, and true when it is new. One that exists is left as it is.
   std::pair< V*, bool > insert( const K& key, V value ) {
      const U32 hash = hashOf( key );
      if( Node* existing = nodeAt( hash, key ) ) return { &existing->value, false };
      return { add( hash, key, std::move( value ) ), true };
   }
   /// Inserts the element or replaces the one that exists.
   V* assign( const K& key, V value ) {
      const U32 hash = hashOf( key );
      Node* existing = nodeAt( hash, key );
      if( !existing ) return add( hash, key, std::move( value ) );
      // The old element outlives the assignment: its destructor may use the map.
      std::swap( existing->value, value );
      return &existing->value;
   }

   /// Removes the element, to `*removed` if that is given. False when the key is absent.
   bool erase( const K& key, V* removed = nullptr ) { return eraseAt( hashOf( key ), key, removed ); }
   /// Removes the element at the iterator, which then stands on the removed position. False when it was gone already.
   bool erase( Iterator& at, V* removed = nullptr ) {
      return at && eraseAt( at.position_->hash, at.position_->key, removed );
   }
   void clear() noexcept {
      core_.clear( []( Detail::HashNode* node ) { static_cast< Node* >( node )->~Node(); } );
   }

   Iterator iterator() { return Iterator( *this, cursorFirst() ); }
   ConstIterator iterator() const { return ConstIterator( *this, cursorFirst() ); }
   /// At the first element behind a key, which need not be there.
   Iterator iteratorAfter( const K& key ) { return Iterator( *this, cursorAfter( { hashOf( key ), key } ) ); }
   ConstIterator iteratorAfter( const K& key ) const { return ConstIterator( *this, cursorAfter( { hashOf( key ), key } ) ); }

 private:
   template< class, class >
   friend class MapIterator;

   struct Position {
      U32 hash;
      K key;
   };
   using Cursor = Node*;

   static int order( const Detail::HashNode* node, const void* key ) {
      const K& a = static_cast< const Node* >( node )->key;
      const K& b = *static_cast< const K* >( key );
      return a < b ? -1 : b < a ? 1 : 0;
   }
   /// Whether it is the node of the key. A number is as quickly compared as its hash.
   static bool isAt( const Detail::HashNode* node, U32 hash, const K& key ) {
      const K& at = static_cast< const Node* >( node )->key;
      if constexpr( std::is_integral_v< K > ) return at == key;
      else if constexpr( std::equality_comparable< K > ) return node->hash == hash && at == key;
      else return node->hash == hash && order( node, &key ) == 0;
   }
   static Detail::HashPoint point( U32 hash, const K& key ) { return { hash, &key, &order }; }

   /// The link that leads to the key's node, or the null link where it would hang as a leaf.
   Detail::HashNode** linkTo( U32 hash, const K& key ) const {
      Detail::HashNode** link = core_.root( hash );
      while( Detail::HashNode* node = *link ) {
         if( isAt( node, hash, key ) ) break;
         link = &node->child[ node->hash != hash ? Detail::hashPrecedes( node->hash, hash ) : order( node, &key ) < 0 ];
      }
      return link;
   }
   Node* nodeAt( U32 hash, const K& key ) const { return static_cast< Node* >( *linkTo( hash, key ) ); }
   V* add( U32 hash, const K& key, V&& value ) {
      NodePool& pool = core_.pool( sizeof( Node ) );
      std::unique_ptr< void, Release > storage( pool.allocate(), { &pool } );
      std::unique_ptr< Node, Destroy > node( new( storage.get() ) Node( hash, key, std::move( value ) ), { { &pool } } );
      storage.release();
      core_.link( node.get(), point( hash, node->key ) );
      return &node.release()->value;
   }
   bool eraseAt( U32 hash, const K& key, V* removed ) {
      Detail::HashNode** link = linkTo( hash, key );
      if( !*link ) return false;
      const std::unique_ptr< Node, Destroy > node( static_cast< Node* >( *link ), { { &core_.pool( sizeof( Node ) ) } } );
      core_.unlink( link );
      if( removed ) *removed = std::move( node->value );
      return true;
   }

   // What an iterator asks of its map.
   U64 erasures() const noexcept { return core_.erasures(); }
   Cursor cursorFirst() const noexcept { return static_cast< Node* >( core_.first() ); }
   Cursor cursorAt( const Position& p ) const { return nodeAt( p.hash, p.key ); }
   Cursor cursorAfter( const Position& p ) const { return static_cast< Node* >( core_.after( point( p.hash, p.key ) ) ); }
   Cursor cursorNext( Cursor at, const Position& p ) const {
      return static_cast< Node* >( core_.next( at, point( p.hash, p.key ) ) );
   }
   static bool cursorIsEnd( Cursor at ) noexcept { return at == nullptr; }
   static Position cursorPosition( Cursor at ) { return { at->hash, at->key }; }
   static V* cursorElement( Cursor at ) noexcept { return &at->value; }

   Detail::HashCore core_;
};

}
