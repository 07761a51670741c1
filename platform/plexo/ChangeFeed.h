#pragma once

#include <plexo/TableView.h>
#include <vector>

namespace Plexo {

/// One reader's place in a table's changes. Yields each changed key once with the newest value in place; after it has lost
/// track (the journal went round, another writer took over, another file took the table's place) it compares the whole slab
/// with what it announced before and closes with a step that speaks for the collection.
class ChangeFeed {
 public:
   enum class Step {
      none,                                                             // nothing new
      working,                                                          // more to look at, nothing to announce yet
      key,                                                              // `key` has changed
      collection                                                        // the whole table has been compared
   };

   explicit ChangeFeed( const RecordLayout& layout );

   /// Begins with this table, or goes on with it in the place of another. Every record that it holds and every key that was
   /// announced before and is not in it will be announced.
   void viewIs( const TableView* view );
   /// One step; `key` has `keyBytes`. Throws `CorruptionException`.
   Step next( void* key );
   /// True while `next` would yield anything but `none`.
   bool pending() const;

 private:

   bool lostTrack( U64 head ) const;
   void walkBegin( bool everything );
   Step walkStep();
   void orphanStep();
   Step journalStep();
   void announce( U32 slot, const SlotState& state, bool changed );
   void queue( const std::byte* key );
   void knownIs( U32 slot, const std::byte* key );
   std::byte* knownKey( U32 slot ) noexcept { return known_.data() + std::size_t( slot ) * keyBytes_; }

   const TableView* view_ = nullptr;
   U32 keyOffset_;
   U32 keyBytes_;
   std::vector< std::byte > record_;
   U64 cursor_ = 0;
   U64 batchEnd_ = 0;

   bool walking_ = false;
   bool walkEverything_ = false;
   U32 walkAt_ = 0;
   U32 walkEnd_ = 0;
   U64 walkHead_ = 0;

   /// Per slot the key that was last announced as present.
   std::vector< std::byte > known_;
   std::vector< bool > present_;
   /// Keys that were present in the table before this one.
   std::vector< std::byte > orphans_;
   /// Keys to announce, from `queueAt_` on.
   std::vector< std::byte > queue_;
   std::size_t queueAt_ = 0;
};

}
