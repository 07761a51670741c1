#pragma once

#include <kel/Assert.h>
#include <kel/Types.h>
#include <optional>
#include <type_traits>

namespace [[gnu::visibility("default")]] Kel {

namespace Detail {
/// Where a new container's count of removals starts: elsewhere than that of any other, so that an iterator notices when its
/// map's content was moved away or replaced.
U64 newErasures() noexcept;
}

/// A walk over a `HashMap`, an `RbTreeMap` or a `Queue` that tolerates any change of the map between two steps: insertions,
/// removals of other elements and of its own, growth, `clear()`. It remembers its position by key, never dangles, never comes
/// to an element twice, and comes to every element that stays for the whole walk; an element that is inserted meanwhile may
/// or may not be met.
///
/// After its own element has been removed, the iterator stands on the removed position: it still converts to true, `key()` is
/// the removed key, `ptr()` is null (or the new element, once the key is inserted again) and `++` goes on behind it. An
/// iterator must not outlive its map. `Element` is the map's value type, const for the walk over a const map.
template< class Map, class Element >
class MapIterator {
   using Cursor = typename Map::Cursor;
   using Position = typename Map::Position;

 public:
   using Key = typename Map::Key;

   /// Stands at the end of no map.
   MapIterator() = default;
   /// A const iterator from a mutable one, at the same position.
   template< class Other >
      requires( std::is_const_v< Element > && std::is_same_v< const Other, Element > && !std::is_const_v< Other > )
   MapIterator( const MapIterator< Map, Other >& other )
      : map_( other.map_ ), cursor_( other.cursor_ ), erasures_( other.erasures_ ), position_( other.position_ ) {}

   /// False at the end. An iterator at the end stays there, whatever is inserted, until `reset()`.
   explicit operator bool() const noexcept { return position_.has_value(); }

   /// Goes on to the next element in the map's order; does nothing at the end.
   MapIterator& operator++() {
      if( position_ ) moveTo( isCurrent() ? map_->cursorNext( cursor_, *position_ ) : map_->cursorAfter( *position_ ) );
      return *this;
   }

   /// REQUIRES: not at the end. A copy, so it remains right whatever becomes of the element; good until the next step.
   const Key& key() const {
      KEL_ASSERT( "Kel/MapIterator", position_.has_value() );
      return position_->key;
   }

   /// The element, or null when it has been removed or the iterator is at the end. The pointer is good until the element is
   /// removed.
   Element* ptr() const {
      if( !position_ ) return nullptr;
      if( !isCurrent() ) {
         cursor_ = map_->cursorAt( *position_ );
         erasures_ = map_->erasures();
      }
      return map_->cursorIsEnd( cursor_ ) ? nullptr : map_->cursorElement( cursor_ );
   }

   /// REQUIRES: the element is there.
   Element& value() const {
      Element* element = ptr();
      KEL_ASSERT( "Kel/MapIterator", element != nullptr );
      return *element;
   }

   Element& operator*() const { return value(); }
   Element* operator->() const { return &value(); }

   /// Goes back to the map's first element.
   void reset() {
      if( map_ ) moveTo( map_->cursorFirst() );
   }

 private:
   friend Map;
   template< class, class >
   friend class MapIterator;

   MapIterator( const Map& map, Cursor cursor ) : map_( &map ) { moveTo( cursor ); }

   /// While nothing is removed, an element's node stays where it is; so only removals make a cursor doubtful.
   bool isCurrent() const { return erasures_ == map_->erasures() && !map_->cursorIsEnd( cursor_ ); }

   void moveTo( Cursor cursor ) {
      cursor_ = cursor;
      erasures_ = map_->erasures();
      if( map_->cursorIsEnd( cursor ) ) position_.reset();
      else position_.emplace( map_->cursorPosition( cursor ) );
   }

   const Map* map_ = nullptr;
   mutable Cursor cursor_{};
   mutable U64 erasures_ = 0;
   std::optional< Position > position_;
};

}
