#pragma once

#include <deque>
#include <functional>
#include <plexo/TableView.h>
#include <plexo/Writer.h>
#include <vector>

namespace Plexo {

/// The writing side of a table in memory: one thread of one process uses it. It takes nothing from the shared bytes that it
/// can know itself; what it must take (index entries) it checks, and once that fails every write throws `AssertionException`.
class TableCore : public TableView {
 public:
   /// Makes `bytes` bytes at `offset` of the table usable, or throws.
   using Allocate = std::function< void( U64 offset, U64 bytes ) >;

   TableCore() = default;
   TableCore( TableView view, Allocate allocate );

   /// Turns zeroed memory into an empty table. `tableId` and `hashSeed` are random numbers.
   static TableCore format( std::string name, std::byte* base, const Format::Geometry& geometry, const RecordLayout& layout,
                            U64 tableId, U32 hashSeed, Allocate allocate );
   /// Continues a table that another writer left, in whatever state it stopped: restores the record that it was in the middle
   /// of, rebuilds the index from the slab and makes every reader look at everything again.
   void takeOver();

   Outcome upsert( const void* record );
   /// False when there is no such key. The slot keeps key and version until it is used again.
   bool erase( const void* key );
   void eraseAll();
   U32 records() const noexcept { return live_; }
   /// From here on every write throws `AssertionException` with this reason.
   void corruptIs( std::string reason );
   const std::string& corruptReason() const noexcept { return corruptReason_; }

 private:
   /// A free slot and the head from which it may be used again: when the journal entry of its removal has left the ring.
   struct Resting {
      U64 readyAt;
      U32 slot;
   };

   void writeCheck() const;
   /// Runs a write; a corruption that it meets marks the table and becomes the assertion exception.
   template< class F >
   auto guarded( F&& write );
   bool locate( const KeyHash& hash, const void* key, Index::Place& place );
   void insert( const KeyHash& hash, const void* record );
   void eraseAt( const KeyHash& hash, const Index::Place& place );
   U32 takeSlot();
   void slabGrow();
   void indexGrow();
   void indexBuild( U32 arena );
   void slotIs( U32 slot, const void* record, bool live );
   void append( U32 slot );
   void countIs( U32 live );
   void undoInterrupted();
   void slabScan();

   Allocate allocate_;
   U64 head_ = 0;
   U32 used_ = 0;
   U32 live_ = 0;
   U32 allocatedSlots_ = 0;
   U32 indexWord_ = 0;
   std::deque< Resting > resting_;
   std::vector< std::byte > scratch_;
   std::string corruptReason_;
};

}
