#pragma once

#include <plexo/Index.h>
#include <string>

namespace Plexo {

/// What stands at a slot beside its record.
struct SlotState {
   U32 version = 0;
   bool live = false;
};

/// The reading side of a table in memory: lookups, the slab walk, the journal. It stores nothing, waits for nobody and trusts
/// nothing that it has not checked on its own copy; bad content throws `CorruptionException`.
class TableView {
 public:
   static constexpr U32 noSlot = 0xffffffff;

   TableView() = default;
   TableView( std::string name, std::byte* base, const Format::Geometry& geometry, const RecordLayout& layout, U32 hashSeed );

   const std::string& name() const noexcept { return name_; }
   const Format::Geometry& geometry() const noexcept { return geometry_; }
   const RecordLayout& layout() const noexcept { return *layout_; }
   bool attached() const noexcept { return base_ != nullptr; }

   /// Copies the record with this key to `out` (`recordBytes`); false, with `out` undefined, when there is none.
   bool find( const void* key, void* out ) const { return lookUp( hashOf( key ), key, out ); }
   /// As `find` for `count` keys that stand one after another; overlaps their memory latencies. `found[ i ]` tells whether
   /// record i of `out` is there. Returns how many are.
   U32 findMany( const void* keys, U32 count, void* out, bool* found ) const;
   /// Copies the first live record at slot `at` or after it to `out` and moves `at` behind it; false at the end. A record that
   /// lives throughout a walk is met exactly once.
   bool next( U32& at, void* out ) const;

   /// Copies one slot as its last finished change left it.
   SlotState read( U32 slot, void* out ) const;
   /// Slots below it may hold or have held a record.
   U32 highWater() const {
      const U32 mark = SharedLoad::acquire32( base_ + Format::At::highWater );
      if( mark > geometry_.slotCount ) [[unlikely]] badHighWater( mark );
      return highWater_ = mark;
   }
   U32 liveRecords() const noexcept { return SharedLoad::word32( base_ + Format::At::liveRecords ); }
   U64 head() const noexcept { return SharedLoad::acquire64( base_ + Format::At::head ); }
   U64 floor() const noexcept { return SharedLoad::acquire64( base_ + Format::At::floor ); }
   U64 writerInstance() const noexcept { return SharedLoad::acquire64( base_ + Format::At::writerInstance ); }
   U32 writerPid() const noexcept { return SharedLoad::word32( base_ + Format::At::writerPid ); }
   bool replaced() const noexcept { return SharedLoad::word32( base_ + Format::At::replaced ) != 0; }
   /// The journal's entry for the change at `position`, unchecked: the ring may have gone over it.
   U32 journalEntry( U64 position ) const noexcept;

   KeyHash hashOf( const void* key ) const noexcept { return KeyHash( *layout_, key, hashSeed_ ); }
   U32 indexWord() const noexcept { return SharedLoad::acquire32( base_ + Format::At::indexWord ); }
   /// The arena that an index word names.
   Index index( U32 indexWord ) const;
   void slotCheck( U32 slot ) const;
   /// Throws `CorruptionException` with the table's name before the text.
   [[noreturn, gnu::cold]] void corrupt( const std::string& what ) const;

 protected:
   std::byte* slotAt( U32 slot ) const noexcept { return base_ + std::size_t( geometry_.slotOffset( slot ) ); }
   [[noreturn, gnu::cold]] void badSlot( U32 slot, U32 used ) const;
   bool lookUp( const KeyHash& hash, const void* key, void* out ) const;
   void magicCheck() const {
      if( SharedLoad::word32( base_ ) != U32( Format::magic ) ) [[unlikely]] corrupt( "its magic is gone" );
   }

   std::byte* base_ = nullptr;
   Format::Geometry geometry_;
   const RecordLayout* layout_ = nullptr;
   U32 hashSeed_ = 0;
   std::string name_;

 private:
   [[noreturn, gnu::cold]] void badHighWater( U32 mark ) const;
   [[noreturn, gnu::cold]] void undoOfAnother( U32 slot ) const;
   bool readUndo( U32 slot, U32 sequence, SlotState& state, void* out ) const;

   mutable U32 highWater_ = 0;
};

}
