#include <plexo/ChangeFeed.h>

// Position p of the journal names the slot that the change p touched, and the slot's version is the position of its last
// change. Changes are taken in batches that end at the head as it was when the batch began: an entry whose slot changed again
// within the batch is passed over (the later entry speaks for it), one whose slot changed after the batch is announced at once,
// so that a key that never rests is not put off for ever.
//
// The feed keeps the key that it last announced for each slot. A slot that now holds another key tells that the old one went,
// however many changes were missed in between.

namespace Plexo {

namespace {

constexpr U32 walkStride = 256;

}

ChangeFeed::ChangeFeed( const RecordLayout& layout )
      : keyOffset_( layout.keyOffset ), keyBytes_( layout.keyBytes ), record_( layout.recordBytes ) {}

void ChangeFeed::viewIs( const TableView* view ) {
   for( U32 slot = 0; slot < present_.size(); ++slot ) {
      if( present_[ slot ] ) orphans_.insert( orphans_.end(), knownKey( slot ), knownKey( slot ) + keyBytes_ );
   }
   known_.clear();
   present_.clear();
   walking_ = false;
   view_ = view;
   if( !view_ ) return;
   walkBegin( true );
   // What the table holds now may be read by anybody from now on, so its going must be noticed.
   for( U32 slot = 0; slot < walkEnd_; ++slot ) {
      if( view_->read( slot, record_.data() ).live ) knownIs( slot, record_.data() + keyOffset_ );
   }
}

bool ChangeFeed::pending() const {
   if( queueAt_ < queue_.size() ) return true;
   if( !view_ ) return false;
   return walking_ || cursor_ != batchEnd_ || view_->head() != cursor_;
}

ChangeFeed::Step ChangeFeed::next( void* key ) {
   for( ;; ) {
      if( queueAt_ < queue_.size() ) {
         std::memcpy( key, queue_.data() + queueAt_, keyBytes_ );
         queueAt_ += keyBytes_;
         return Step::key;
      }
      queue_.clear();
      queueAt_ = 0;
      if( !view_ ) return Step::none;
      const Step step = walking_ ? walkStep() : journalStep();
      if( step != Step::key ) return step;
   }
}

// --- journal ---------------------------------------------------------------------------------------------------------------

/// The entry at `head - ring` may be in the middle of being written over.
bool ChangeFeed::lostTrack( U64 head ) const { return head < cursor_ || head - cursor_ >= view_->geometry().ringEntries; }

/// `Step::key` when there may be something in the queue.
ChangeFeed::Step ChangeFeed::journalStep() {
   if( cursor_ == batchEnd_ ) {
      const U64 head = view_->head();
      const U64 floor = view_->floor();
      if( head == cursor_ ) return Step::none;
      // A writer that is taking over stores the floor and then the head: up to the head the journal is its predecessor's.
      if( ( cursor_ < floor && floor <= head ) || lostTrack( head ) ) {
         walkBegin( false );
         return Step::key;
      }
      batchEnd_ = head;
   }
   const U32 slot = view_->journalEntry( cursor_ );
   SharedLoad::fence();
   if( lostTrack( view_->head() ) ) {
      walkBegin( false );
      return Step::key;
   }
   view_->slotCheck( slot );
   const SlotState state = view_->read( slot, record_.data() );
   const U32 later = state.version - U32( cursor_ );
   const U32 batchLeft = U32( batchEnd_ - cursor_ );
   ++cursor_;
   if( later == 0 || later >= batchLeft ) announce( slot, state, true );
   return Step::key;
}

/// Queues what one slot tells; `changed` when its record may differ from the one that was announced.
void ChangeFeed::announce( U32 slot, const SlotState& state, bool changed ) {
   const std::byte* key = record_.data() + keyOffset_;
   const bool present = slot < present_.size() && present_[ slot ];
   const bool same = present && std::memcmp( knownKey( slot ), key, keyBytes_ ) == 0;
   if( present && !same ) queue( knownKey( slot ) );
   if( changed || ( state.live ? !same : same ) ) queue( key );
   if( state.live ) knownIs( slot, key );
   else if( present ) present_[ slot ] = false;
}

void ChangeFeed::queue( const std::byte* key ) { queue_.insert( queue_.end(), key, key + keyBytes_ ); }

void ChangeFeed::knownIs( U32 slot, const std::byte* key ) {
   if( slot >= present_.size() ) {
      present_.resize( slot + 1 );
      known_.resize( std::size_t( slot + 1 ) * keyBytes_ );
   }
   present_[ slot ] = true;
   std::memcpy( knownKey( slot ), key, keyBytes_ );
}

// --- walk ------------------------------------------------------------------------------------------------------------------

void ChangeFeed::walkBegin( bool everything ) {
   walking_ = true;
   walkEverything_ = everything;
   walkAt_ = 0;
   walkHead_ = view_->head();
   walkEnd_ = view_->highWater();
}

ChangeFeed::Step ChangeFeed::walkStep() {
   const U32 end = std::min( walkEnd_, walkAt_ + walkStride );
   const U64 since = view_->head() - cursor_;
   const U32 now = U32( cursor_ + since );
   for( ; walkAt_ < end && queue_.empty(); ++walkAt_ ) {
      const SlotState state = view_->read( walkAt_, record_.data() );
      // Versions are 32 bits of a position, so one that is 2^32 changes old may look new: announced once too often.
      const bool changed = walkEverything_ ? state.live : U32( now - state.version ) <= since;
      announce( walkAt_, state, changed );
   }
   if( !queue_.empty() ) return Step::key;
   if( walkAt_ < walkEnd_ ) return Step::working;
   if( !orphans_.empty() ) {
      orphanStep();
      return Step::key;
   }
   walking_ = false;
   cursor_ = batchEnd_ = walkHead_;
   return Step::collection;
}

void ChangeFeed::orphanStep() {
   const std::byte* key = orphans_.data() + orphans_.size() - keyBytes_;
   if( !view_->find( key, record_.data() ) ) queue( key );
   orphans_.resize( orphans_.size() - keyBytes_ );
}

}
