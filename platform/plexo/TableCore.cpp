#include <plexo/TableCore.h>

// One change is a fixed order of stores; wherever it stops, readers see the table either before or after it:
//
//    index entry (new key)   leads to a slot that is not live or holds another key: still absent
//    undo cell               nobody looks at it yet
//    sequence | busy         readers take the undo cell: before
//    version, record         before
//    sequence + 1            the change is visible, to look-ups and walks alike
//    index entry (erase)     leads to a slot that is not live: absent
//    journal entry, head     readers are told
//
// The next writer's `takeOver` restores a busy slot from the undo cell, rebuilds the index and raises the journal's floor, so
// that readers compare everything instead of trusting a journal whose last entry may be missing.

namespace Plexo {

using namespace Format;

namespace {

constexpr U64 firstPosition = 1;
constexpr U32 slabGrowBytes = 1u << 16;

}

TableCore::TableCore( TableView view, Allocate allocate )
      : TableView( std::move( view ) ), allocate_( std::move( allocate ) ), scratch_( geometry_.recordBytes ) {}

TableCore TableCore::format( std::string name, std::byte* base, const Geometry& geometry, const RecordLayout& layout, U64 tableId,
                             U32 hashSeed, Allocate allocate ) {
   allocate( 0, geometry.slabOffset + U64( geometry.initialRecords ) * geometry.slotBytes );
   TableCore core( TableView( std::move( name ), base, geometry, layout, hashSeed ), std::move( allocate ) );
   core.allocatedSlots_ = geometry.initialRecords;
   core.head_ = firstPosition;
   core.indexBuild( geometry.arenaFor( geometry.initialRecords ) );
   SharedStore::word64( base + At::floor, firstPosition );
   SharedStore::word64( base + At::head, firstPosition );
   encode( base, geometry, layout, tableId, hashSeed );
   return core;
}

void TableCore::corruptIs( std::string reason ) {
   if( corruptReason_.empty() ) corruptReason_ = std::move( reason );
}

void TableCore::writeCheck() const {
   if( !attached() ) throw AssertionException( "write to a table without the writer's role" );
   if( !corruptReason_.empty() ) throw AssertionException( "write to a corrupted table: " + corruptReason_ );
   magicCheck();
}

template< class F >
auto TableCore::guarded( F&& write ) {
   try {
      writeCheck();
      return write();
   } catch( const CorruptionException& e ) {
      corruptIs( e.what() );
      throw AssertionException( "write to a corrupted table: " + corruptReason_ );
   }
}

// --- changes ---------------------------------------------------------------------------------------------------------------

Outcome TableCore::upsert( const void* record ) {
   return guarded( [ & ] {
      const void* key = static_cast< const std::byte* >( record ) + geometry_.keyOffset;
      const KeyHash hash = hashOf( key );
      Index::Place place;
      if( !locate( hash, key, place ) ) {
         insert( hash, record );
         return Outcome::inserted;
      }
      if( std::memcmp( scratch_.data(), record, geometry_.recordBytes ) == 0 ) return Outcome::unchanged;
      slotIs( place.slot, record, true );
      append( place.slot );
      return Outcome::changed;
   } );
}

bool TableCore::erase( const void* key ) {
   return guarded( [ & ] {
      const KeyHash hash = hashOf( key );
      Index::Place place;
      const bool found = locate( hash, key, place );
      if( found ) eraseAt( hash, place );
      return found;
   } );
}

void TableCore::eraseAll() {
   guarded( [ & ] {
      std::vector< std::byte > record( geometry_.recordBytes );
      for( U32 at = 0; next( at, record.data() ); ) {
         const void* key = record.data() + geometry_.keyOffset;
         const KeyHash hash = hashOf( key );
         Index::Place place;
         if( !locate( hash, key, place ) ) corrupt( "slot " + std::to_string( at - 1 ) + " is not in the index" );
         eraseAt( hash, place );
      }
   } );
}

/// Leaves the record that it finds in `scratch_`.
bool TableCore::locate( const KeyHash& hash, const void* key, Index::Place& place ) {
   return index( indexWord_ ).find(
      hash,
      [ & ]( U32 slot ) {
         if( slot >= used_ ) badSlot( slot, used_ );
         return read( slot, scratch_.data() ).live &&
                std::memcmp( scratch_.data() + geometry_.keyOffset, key, geometry_.keyBytes ) == 0;
      },
      &place );
}

void TableCore::insert( const KeyHash& hash, const void* record ) {
   if( live_ >= geometry_.maxRecords ) {
      throw TableFullException( "table " + name() + " is full: it holds " + std::to_string( live_ ) + " records, its maximum" );
   }
   if( live_ >= geometry_.arenaBuckets( indexWord_ & 0xff ) * bucketLoad ) indexGrow();
   const U32 slot = takeSlot();
   if( !index( indexWord_ ).insert( hash, slot ) ) corrupt( "its index has no empty lane" );
   slotIs( slot, record, true );
   countIs( live_ + 1 );
   append( slot );
}

void TableCore::eraseAt( const KeyHash& hash, const Index::Place& place ) {
   slotIs( place.slot, nullptr, false );
   index( indexWord_ ).erase( hash, place );
   countIs( live_ - 1 );
   resting_.push_back( { head_ + geometry_.ringEntries, place.slot } );
   append( place.slot );
}

void TableCore::slotIs( U32 slot, const void* record, bool live ) {
   std::byte* at = slotAt( slot );
   std::byte* undo = base_ + At::undo;
   const U32 before = SharedLoad::word32( at );
   SharedStore::word32( undo + Undo::slot, slot + 1 );
   SharedStore::word32( undo + Undo::sequence, before );
   SharedStore::word32( undo + Undo::version, SharedLoad::word32( at + 4 ) );
   SharedStore::copy( undo + Undo::record, at + slotHeadBytes, geometry_.recordBytes );
   SharedStore::release32( at, before | Sequence::busy );
   SharedStore::fence();
   SharedStore::word32( at + 4, U32( head_ ) );
   if( record ) SharedStore::bytes( at + slotHeadBytes, record, geometry_.recordBytes );
   const U32 count = ( before & ~( Sequence::step - 1 ) ) + Sequence::step;
   SharedStore::release32( at, live ? count | Sequence::live : count );
   SharedStore::fence();
}

void TableCore::append( U32 slot ) {
   const U32 at = U32( head_ ) & ( geometry_.ringEntries - 1 );
   SharedStore::word32( base_ + std::size_t( geometry_.ringOffset ) + std::size_t( at ) * 4, slot );
   SharedStore::release64( base_ + At::head, ++head_ );
}

void TableCore::countIs( U32 live ) {
   live_ = live;
   SharedStore::word32( base_ + At::liveRecords, live );
}

// --- room ------------------------------------------------------------------------------------------------------------------

U32 TableCore::takeSlot() {
   if( !resting_.empty() && head_ >= resting_.front().readyAt ) {
      const U32 slot = resting_.front().slot;
      resting_.pop_front();
      return slot;
   }
   // At most maxRecords - 1 slots are live and at most ringEntries rest, so there is one more.
   if( used_ >= geometry_.slotCount ) corrupt( "it has no free slot below its maximum" );
   if( used_ >= allocatedSlots_ ) slabGrow();
   SharedStore::release32( base_ + At::highWater, used_ + 1 );
   return used_++;
}

void TableCore::slabGrow() {
   const U32 more = std::max( allocatedSlots_ / 8, slabGrowBytes / geometry_.slotBytes );
   const U32 wanted = std::min( geometry_.slotCount, allocatedSlots_ + more );
   allocate_( geometry_.slotOffset( allocatedSlots_ ), U64( wanted - allocatedSlots_ ) * geometry_.slotBytes );
   allocatedSlots_ = wanted;
}

void TableCore::indexGrow() {
   const U32 next = ( ( indexWord_ & 0xff ) >> 1 ) + 1;
   if( next < geometry_.indexClasses ) indexBuild( next * 2 );
}

/// Fills an arena from the slab and makes it the index with one store.
void TableCore::indexBuild( U32 arena ) {
   allocate_( geometry_.arenaOffset( arena ), geometry_.arenaBytes( arena ) );
   std::byte* base = base_ + std::size_t( geometry_.arenaOffset( arena ) );
   SharedStore::zero( base, std::size_t( geometry_.arenaBytes( arena ) ) );
   Index fresh( base, geometry_.arenaBuckets( arena ) );
   for( U32 slot = 0; slot < used_; ++slot ) {
      if( !read( slot, scratch_.data() ).live ) continue;
      const KeyHash hash = hashOf( scratch_.data() + geometry_.keyOffset );
      if( !fresh.insert( hash, slot ) ) corrupt( "it holds more records than its maximum" );
   }
   indexWord_ = ( ( indexWord_ >> 8 ) + 1 ) << 8 | arena;
   SharedStore::release32( base_ + At::indexWord, indexWord_ );
}

// --- take-over -------------------------------------------------------------------------------------------------------------

void TableCore::takeOver() {
   head_ = head();
   used_ = highWater();
   indexWord_ = TableView::indexWord();
   allocatedSlots_ = std::max( used_, geometry_.initialRecords );
   allocate_( 0, geometry_.slotOffset( allocatedSlots_ ) );
   undoInterrupted();
   slabScan();
   if( live_ > geometry_.maxRecords ) {
      corrupt( "it holds " + std::to_string( live_ ) + " records, its maximum is " + std::to_string( geometry_.maxRecords ) );
   }
   // Readers may still search the published arena, so the other one of a size is filled.
   const U32 fitting = geometry_.arenaFor( std::max( live_, geometry_.initialRecords ) );
   const U32 current = indexWord_ & 0xff;
   indexBuild( current >> 1 >= geometry_.indexClasses || fitting > current ? fitting : current ^ 1 );
   ++head_;
   SharedStore::release64( base_ + At::floor, head_ );
   SharedStore::release64( base_ + At::head, head_ );
}

/// Gives the slot whose change was interrupted its content back.
void TableCore::undoInterrupted() {
   const std::byte* undo = base_ + At::undo;
   const U32 slot = SharedLoad::word32( undo + Undo::slot ) - 1;
   if( slot >= used_ ) return;
   std::byte* at = slotAt( slot );
   const U32 sequence = SharedLoad::word32( at );
   if( ( SharedLoad::word32( undo + Undo::sequence ) | Sequence::busy ) != sequence ) return;
   SharedStore::word32( at + 4, SharedLoad::word32( undo + Undo::version ) );
   SharedStore::copy( at + slotHeadBytes, undo + Undo::record, geometry_.recordBytes );
   SharedStore::release32( at, ( sequence & ~Sequence::busy ) + Sequence::step );
}

/// Counts the live records and collects the free slots. Every reader will compare the whole slab, so none of them need rest. A
/// slot that is still busy is found when the index is built.
void TableCore::slabScan() {
   live_ = 0;
   resting_.clear();
   for( U32 slot = 0; slot < used_; ++slot ) {
      const U32 sequence = SharedLoad::word32( slotAt( slot ) );
      if( sequence & Sequence::live ) ++live_;
      else resting_.push_back( { 0, slot } );
   }
   countIs( live_ );
}

}
