#include <plexo/TableView.h>

// Reading takes no lock and stores nothing. A record is copied between two loads of its slot's sequence word; when they are
// equal and not busy, the copy is whole. While the busy bit is up, the one undo cell of the header holds the record as it was
// before, and it stays valid as long as the slot's sequence does not move: the writer fills the cell for its next change only
// after it has cleared the bit. So a reader is done within one change of the writer, and a writer that died in mid-record costs
// nobody anything. Every loop has a bound; every number from the table is checked on the copy that is used.

namespace Plexo {

using namespace Format;

namespace {

/// Copies are tried again only while a writer changes the very same slot, each of its changes being slower than a copy.
constexpr U32 maxTries = 1u << 20;

}

TableView::TableView( std::string name, std::byte* base, const Geometry& geometry, const RecordLayout& layout, U32 hashSeed )
      : base_( base ), geometry_( geometry ), layout_( &layout ), hashSeed_( hashSeed ), name_( std::move( name ) ) {}

void TableView::corrupt( const std::string& what ) const {
   throw CorruptionException( "table " + name_ + " is corrupted: " + what );
}

void TableView::badHighWater( U32 mark ) const {
   corrupt( "its high-water mark is " + std::to_string( mark ) + " of " + std::to_string( geometry_.slotCount ) + " slots" );
}

void TableView::slotCheck( U32 slot ) const {
   if( slot < highWater_ ) [[likely]] return;
   if( slot >= highWater() ) badSlot( slot, highWater_ );
}

void TableView::badSlot( U32 slot, U32 used ) const {
   corrupt( "slot number " + std::to_string( slot ) + " where " + std::to_string( used ) + " are in use" );
}

void TableView::undoOfAnother( U32 slot ) const {
   corrupt( "slot " + std::to_string( slot ) + " is being changed, yet the undo cell belongs to another" );
}

Index TableView::index( U32 word ) const {
   const U32 arena = word & 0xff;
   if( arena >> 1 >= geometry_.indexClasses ) corrupt( "its index is arena " + std::to_string( arena ) );
   return Index( base_ + std::size_t( geometry_.arenaOffset( arena ) ), geometry_.arenaBuckets( arena ) );
}

U32 TableView::journalEntry( U64 position ) const noexcept {
   const U32 at = U32( position ) & ( geometry_.ringEntries - 1 );
   return SharedLoad::word32( base_ + std::size_t( geometry_.ringOffset ) + std::size_t( at ) * 4 );
}

bool TableView::readUndo( U32 slot, U32 sequence, SlotState& state, void* out ) const {
   const std::byte* undo = base_ + At::undo;
   const U32 owner = SharedLoad::word32( undo + Undo::slot );
   const U32 before = SharedLoad::word32( undo + Undo::sequence );
   state.version = SharedLoad::word32( undo + Undo::version );
   SharedLoad::bytes( out, undo + Undo::record, geometry_.recordBytes );
   SharedLoad::fence();
   if( SharedLoad::word32( slotAt( slot ) ) != sequence ) return false;
   if( owner != slot + 1 || ( before | Sequence::busy ) != sequence ) undoOfAnother( slot );
   state.live = sequence & Sequence::live;
   return true;
}

SlotState TableView::read( U32 slot, void* out ) const {
   const std::byte* at = slotAt( slot );
   SlotState state;
   for( U32 tries = 0; tries < maxTries; ++tries ) {
      const U32 sequence = SharedLoad::acquire32( at );
      if( sequence & Sequence::busy ) [[unlikely]] {
         if( readUndo( slot, sequence, state, out ) ) return state;
         continue;
      }
      state.version = SharedLoad::word32( at + 4 );
      SharedLoad::bytes( out, at + slotHeadBytes, geometry_.recordBytes );
      SharedLoad::fence();
      if( SharedLoad::word32( at ) == sequence ) [[likely]] {
         state.live = sequence & Sequence::live;
         return state;
      }
   }
   corrupt( "slot " + std::to_string( slot ) + " never comes to rest" );
}

bool TableView::lookUp( const KeyHash& hash, const void* key, void* out ) const {
   magicCheck();
   for( U32 tries = 0; tries < maxTries; ++tries ) {
      const U32 word = indexWord();
      const bool found = index( word ).find( hash, [ & ]( U32 slot ) {
         slotCheck( slot );
         return read( slot, out ).live &&
                std::memcmp( static_cast< const std::byte* >( out ) + geometry_.keyOffset, key, geometry_.keyBytes ) == 0;
      } );
      if( found ) return true;
      SharedLoad::fence();
      if( indexWord() == word ) return false;
   }
   corrupt( "its index never comes to rest" );
}

U32 TableView::findMany( const void* keys, U32 count, void* out, bool* found ) const {
   constexpr U32 group = 16;
   const auto* key = static_cast< const std::byte* >( keys );
   auto* record = static_cast< std::byte* >( out );
   U32 hits = 0;
   for( U32 start = 0; start < count; start += group ) {
      const U32 n = std::min( group, count - start );
      const Index now = index( indexWord() );
      for( U32 i = 0; i < n; ++i ) now.prefetch( hashOf( key + std::size_t( start + i ) * geometry_.keyBytes ) );
      for( U32 i = 0; i < n; ++i ) {
         now.find( hashOf( key + std::size_t( start + i ) * geometry_.keyBytes ), [ & ]( U32 slot ) {
            if( slot < geometry_.slotCount ) __builtin_prefetch( slotAt( slot ) );
            return true;
         } );
      }
      for( U32 i = start; i < start + n; ++i ) {
         const std::byte* k = key + std::size_t( i ) * geometry_.keyBytes;
         hits += found[ i ] = lookUp( hashOf( k ), k, record + std::size_t( i ) * geometry_.recordBytes );
      }
   }
   return hits;
}

bool TableView::next( U32& at, void* out ) const {
   magicCheck();
   const U32 end = highWater();
   const std::size_t stride = geometry_.slotBytes;
   const std::byte* slot = slotAt( at );
   for( U32 i = at; i < end; ++i, slot += stride ) {
      const U32 sequence = SharedLoad::acquire32( slot );
      if( !( sequence & Sequence::live ) ) continue;
      SharedLoad::bytes( out, slot + slotHeadBytes, geometry_.recordBytes );
      SharedLoad::fence();
      const bool whole = SharedLoad::word32( slot ) == sequence && !( sequence & Sequence::busy );
      if( whole || read( i, out ).live ) {
         at = i + 1;
         return true;
      }
   }
   at = end;
   return false;
}

}
