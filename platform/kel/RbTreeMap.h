#pragma once

#include <functional>
#include <kel/MapIterator.h>
#include <map>
#include <utility>

namespace [[gnu::visibility("default")]] Kel {

template< class V, class Index >
class Queue;

/// An ordered map: iteration goes in ascending order of the keys. Elements never move while they are in it. It behaves like
/// `HashMap` in every other respect, the tolerance of its iterators included. `Less` orders the keys.
template< class K, class V, class Less = std::less< K > >
class RbTreeMap {
   using Tree = std::map< K, V, Less >;

 public:
   using Key = K;
   using Value = V;
   /// Present in maps that iterate by key.
   using Ordered = void;
   using Iterator = MapIterator< RbTreeMap, V >;
   using ConstIterator = MapIterator< RbTreeMap, const V >;

   RbTreeMap() = default;
   RbTreeMap( const RbTreeMap& other ) : tree_( other.tree_ ) {}
   RbTreeMap( RbTreeMap&& other ) noexcept { swap( other ); }
   RbTreeMap& operator=( RbTreeMap other ) noexcept {
      swap( other );
      return *this;
   }
   ~RbTreeMap() { clear(); }

   std::size_t size() const noexcept { return tree_.size(); }
   bool empty() const noexcept { return tree_.empty(); }

   /// The element, or null. It stays where it is until it is removed.
   V* find( const K& key ) {
      const auto at = tree_.find( key );
      return at == tree_.end() ? nullptr : &at->second;
   }
   const V* find( const K& key ) const { return const_cast< RbTreeMap* >( this )->find( key ); }
   bool contains( const K& key ) const { return find( key ) != nullptr; }

   /// The element under the key, and true when it is new. One that exists is left as it is.
   std::pair< V*, bool > insert( const K& key, V value ) {
      const auto [ at, isNew ] = tree_.try_emplace( key, std::move( value ) );
      return { &at->second, isNew };
   }
   /// Inserts the element or replaces the one that exists.
   V* assign( const K& key, V value ) {
      const auto [ at, isNew ] = tree_.try_emplace( key, std::move( value ) );
      V* const element = &at->second;
      // The old element outlives the assignment: its destructor may use the map.
      if( !isNew ) std::swap( *element, value );
      return element;
   }

   /// Removes the element, to `*removed` if that is given. False when the key is absent.
   bool erase( const K& key, V* removed = nullptr ) { return eraseAt( tree_.find( key ), removed ); }
   /// Removes the element at the iterator, which then stands on the removed position. False when it was gone already.
   bool erase( Iterator& at, V* removed = nullptr ) { return at.ptr() && eraseAt( at.cursor_, removed ); }
   void clear() noexcept {
      // Destructors of elements may use the map: they find it empty.
      Tree gone;
      gone.swap( tree_ );
      ++erasures_;
   }

   Iterator iterator() { return Iterator( *this, cursorFirst() ); }
   ConstIterator iterator() const { return ConstIterator( *this, cursorFirst() ); }
   /// At the first element behind a key, which need not be there.
   Iterator iteratorAfter( const K& key ) { return Iterator( *this, tree_.upper_bound( key ) ); }
   ConstIterator iteratorAfter( const K& key ) const { return ConstIterator( *this, tree().upper_bound( key ) ); }

 private:
   template< class, class >
   friend class MapIterator;
   template< class, class >
   friend class Queue;

   struct Position {
      K key;
   };
   using Cursor = typename Tree::iterator;

   /// Iterators of const maps only read through the cursors that they hold.
   Tree& tree() const noexcept { return const_cast< Tree& >( tree_ ); }

   bool eraseAt( Cursor at, V* removed ) {
      if( at == tree_.end() ) return false;
      auto node = tree_.extract( at );
      ++erasures_;
      if( removed ) *removed = std::move( node.mapped() );
      return true;
   }
   void swap( RbTreeMap& other ) noexcept {
      tree_.swap( other.tree_ );
      ++erasures_;
      ++other.erasures_;
   }

   // What an iterator asks of its map.
   U64 erasures() const noexcept { return erasures_; }
   Cursor cursorFirst() const noexcept { return tree().begin(); }
   Cursor cursorAt( const Position& p ) const { return tree().find( p.key ); }
   Cursor cursorAfter( const Position& p ) const { return tree().upper_bound( p.key ); }
   Cursor cursorNext( Cursor at, const Position& ) const { return ++at; }
   bool cursorIsEnd( Cursor at ) const noexcept { return at == tree().end(); }
   static Position cursorPosition( Cursor at ) { return { at->first }; }
   static V* cursorElement( Cursor at ) noexcept { return &at->second; }

   Tree tree_;
   U64 erasures_ = 0;
};

}
