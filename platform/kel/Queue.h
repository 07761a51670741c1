#pragma once

#include <kel/Exception.h>
#include <kel/RbTreeMap.h>
#include <limits>
#include <memory>
#include <string>

namespace [[gnu::visibility("default")]] Kel {

/// A queue whose elements are indexed by a sequence number, which wraps after the last `Index`. It costs one pointer until it
/// is first used.
///
/// Its window reaches from the head, the oldest element, to the tail, the position of the next `enq`; a removal in the middle
/// leaves a gap in it. Iteration goes from head to tail, with the tolerance of `MapIterator`; an iterator's key is an index.
template< class V, class Index = U32 >
class Queue {
   static_assert( std::is_unsigned_v< Index > && sizeof( Index ) <= 4 );

   /// Orders running numbers as serial numbers, so that they may wrap too.
   struct IsEarlier {
      bool operator()( U64 a, U64 b ) const noexcept { return static_cast< S64 >( a - b ) < 0; }
   };
   /// Every position has a running number; its low bits are the index.
   using Elements = RbTreeMap< U64, V, IsEarlier >;

 public:
   using Key = Index;
   using Value = V;
   /// Present in collections that iterate in an order of their own keys.
   using Ordered = void;
   using Iterator = MapIterator< Queue, V >;
   using ConstIterator = MapIterator< Queue, const V >;

   /// How many positions there are.
   static constexpr U64 positions = U64( std::numeric_limits< Index >::max() ) + 1;

   Queue() = default;
   Queue( const Queue& other ) : state_( other.state_ ? std::make_unique< State >( *other.state_ ) : nullptr ) {}
   Queue( Queue&& other ) noexcept = default;
   Queue& operator=( Queue other ) noexcept {
      state_.swap( other.state_ );
      return *this;
   }

   std::size_t size() const noexcept { return state_ ? state_->elements.size() : 0; }
   bool empty() const noexcept { return size() == 0; }
   /// The index of the oldest element; equal to `tail()` when the queue is empty.
   Index head() const noexcept { return indexOf( headNumber() ); }
   /// The index that the next `enq` gives.
   Index tail() const noexcept { return indexOf( tailNumber() ); }

   /// Appends an element and returns its index. Throws `RangeException` when the window covers all positions.
   Index enq( V value ) {
      if( tailNumber() - headNumber() == positions ) full();
      State& s = state();
      s.elements.insert( s.tail, std::move( value ) );
      return indexOf( s.tail++ );
   }
   /// Removes the oldest element and returns it, or a default value when there is none.
   V deq() {
      V removed{};
      if( !empty() ) state_->elements.erase( headNumber(), &removed );
      return removed;
   }

   /// The element at a position, or null. It stays where it is until it is removed.
   V* find( Index index ) { return state_ ? state_->elements.find( numberOf( index ) ) : nullptr; }
   const V* find( Index index ) const { return const_cast< Queue* >( this )->find( index ); }
   bool contains( Index index ) const { return find( index ) != nullptr; }

   /// Writes one position, whether it holds an element or not. A position outside the window widens it at the nearer end, at the
   /// tail when both are equally near; positions in between stay gaps. In an empty queue the position becomes the window.
   V* set( Index index, V value ) { return state().elements.assign( position( index ), std::move( value ) ); }
   /// As `set`, but an element that exists is left as it is. True when the element is new.
   std::pair< V*, bool > insert( Index index, V value ) {
      return state().elements.insert( position( index ), std::move( value ) );
   }

   // --- what the copy of a queue in another process needs to stand at the same positions -----------------------------------------------

   /// Whether the element at `index` is too old for a queue whose tail has come to `tail`.
   bool isBehind( Index index, Index tail ) const noexcept { return tailNumber( tail ) - numberOf( index ) > positions; }
   /// Moves the tail on to a position; no element may be behind it by more than all positions.
   void tailIs( Index tail ) { state().tail = tailNumber( tail ); }
   /// The element at a position, which lies before the tail, or null.
   const V* findBeforeTail( Index index ) const { return state_ ? state_->elements.find( numberBeforeTail( index ) ) : nullptr; }
   /// Writes a position, which lies before the tail.
   V* setBeforeTail( Index index, V value ) { return state().elements.assign( numberBeforeTail( index ), std::move( value ) ); }

   /// Removes the element at a position, to `*removed` if that is given. False when there is none.
   bool erase( Index index, V* removed = nullptr ) { return state_ && state_->elements.erase( numberOf( index ), removed ); }
   /// Removes the element at the iterator, which then stands on the removed position. False when it was gone already.
   bool erase( Iterator& at, V* removed = nullptr ) {
      return at && state_ && state_->elements.erase( at.position_->number, removed );
   }
   /// Removes all elements. The sequence numbers go on.
   void clear() noexcept {
      if( state_ ) state_->elements.clear();
   }

   Iterator iterator() { return Iterator( *this, cursorFirst() ); }
   ConstIterator iterator() const { return ConstIterator( *this, cursorFirst() ); }
   /// At the first element behind a position, which may be a gap or, like a head that was removed meanwhile, lie outside the
   /// window.
   Iterator iteratorAfter( Index index ) { return Iterator( *this, cursorAfter( { numberOf( index ), index } ) ); }
   ConstIterator iteratorAfter( Index index ) const {
      return ConstIterator( *this, cursorAfter( { numberOf( index ), index } ) );
   }

 private:
   template< class, class >
   friend class MapIterator;

   struct State {
      Elements elements;
      U64 tail = 0;
      U64 firstErasures = Detail::newErasures();

      State() = default;
      State( const State& other ) : elements( other.elements ), tail( other.tail ) {}
   };
   struct Position {
      U64 number;
      Index key;
   };
   using Cursor = typename Elements::Cursor;

   static Index indexOf( U64 number ) noexcept { return static_cast< Index >( number ); }
   U64 tailNumber() const noexcept { return state_ ? state_->tail : 0; }
   /// The running number of a tail that has moved on to an index.
   U64 tailNumber( Index tail ) const noexcept { return tailNumber() + static_cast< Index >( tail - indexOf( tailNumber() ) ); }
   U64 numberBeforeTail( Index index ) const noexcept { return tailNumber() - 1 - static_cast< Index >( indexOf( tailNumber() ) - 1 - index ); }
   U64 headNumber() const noexcept { return empty() ? tailNumber() : state_->elements.cursorFirst()->first; }
   /// The running number of an index: in the window, else on the side where it is nearer to it.
   U64 numberOf( Index index ) const noexcept {
      const U64 head = headNumber();
      const U64 number = head + static_cast< Index >( index - indexOf( head ) );
      const U64 window = tailNumber() - head;
      if( number - head < window ) return number;
      const U64 ahead = number - tailNumber();
      const U64 behind = head - 1 - ( number - positions );
      return behind < ahead ? number - positions : number;
   }

   State& state() {
      if( !state_ ) state_ = std::make_unique< State >();
      return *state_;
   }
   /// The running number to write at, in a window that has been widened to hold it.
   U64 position( Index index ) {
      const U64 number = numberOf( index );
      if( empty() || !IsEarlier()( number, state_->tail ) ) state_->tail = number + 1;
      return number;
   }
   [[noreturn, gnu::cold]] void full() const {
      throw RangeException( "queue full: all " + std::to_string( positions ) + " positions from the head, " +
                            std::to_string( head() ) + ", on are taken; remove the head first" );
   }

   // What an iterator asks of its map.
   U64 erasures() const noexcept { return state_ ? state_->firstErasures + state_->elements.erasures() : 0; }
   Cursor cursorFirst() const noexcept { return state_ ? state_->elements.cursorFirst() : Cursor(); }
   Cursor cursorAt( const Position& p ) const { return state_ ? state_->elements.cursorAt( { p.number } ) : Cursor(); }
   Cursor cursorAfter( const Position& p ) const { return state_ ? state_->elements.cursorAfter( { p.number } ) : Cursor(); }
   Cursor cursorNext( Cursor at, const Position& ) const { return ++at; }
   bool cursorIsEnd( Cursor at ) const noexcept { return !state_ || state_->elements.cursorIsEnd( at ); }
   static Position cursorPosition( Cursor at ) { return { at->first, indexOf( at->first ) }; }
   static V* cursorElement( Cursor at ) noexcept { return &at->second; }

   std::unique_ptr< State > state_;
};

}
