#include <kel/Timer.h>

#include <utility>

// Timers stand in reusable entries; a binary heap of entry numbers orders them, and each entry knows its place in the heap,
// so that cancelling costs the logarithm. An id is the entry's number under its generation, which advances with every
// release: an old id finds nothing.
//
// While a callback runs it is held outside of its entry, which may be cancelled, reused or moved meanwhile.

namespace Kel {

namespace {

constexpr U64 idOf( U32 index, U32 generation ) noexcept { return U64( generation ) << 32 | index; }

}

/// Holds a periodic timer's callback while it runs, and puts it back if the timer is still there.
struct TimerQueue::Running {
   ~Running() {
      if( queue.find( id ) ) queue.entries_[ static_cast< U32 >( id ) ].callback = std::move( callback );
   }
   TimerQueue& queue;
   U64 id;
   Callback callback;
};

U64 TimerQueue::add( S64 deadline, S64 period, Callback callback ) {
   const U32 index = allocate();
   Entry& e = entries_[ index ];
   e.deadline = deadline;
   e.period = period;
   e.age = ++lastAge_;
   e.callback = std::move( callback );
   heap_.push_back( index );
   siftUp( static_cast< U32 >( heap_.size() - 1 ) );
   return idOf( index, e.generation );
}

void TimerQueue::cancel( U64 id ) noexcept {
   if( !find( id ) ) return;
   Entry& e = entries_[ static_cast< U32 >( id ) ];
   const Callback last = std::move( e.callback ); // ends after the timer: its captures may cancel others
   removeAt( e.place );
   release( static_cast< U32 >( id ) );
}

bool TimerQueue::active( U64 id ) const noexcept { return find( id ) != nullptr; }

bool TimerQueue::runOne( S64 now ) {
   if( earliest() > now ) return false;
   const U32 index = heap_.front();
   Entry& e = entries_[ index ];
   if( e.period == 0 ) {
      const Callback callback = std::move( e.callback );
      removeAt( 0 );
      release( index );
      callback();
      return true;
   }
   const S64 missed = ( now - e.deadline ) / e.period;
   const S64 step = ( missed + 1 ) * e.period;
   e.deadline = never - 1 - step > e.deadline ? e.deadline + step : never - 1;
   e.age = ++lastAge_;
   siftDown( 0 );
   Running running{ *this, idOf( index, e.generation ), std::move( e.callback ) };
   running.callback();
   return true;
}

U32 TimerQueue::allocate() {
   if( free_.empty() ) {
      entries_.emplace_back().generation = 1;
      heap_.reserve( entries_.capacity() );
      free_.reserve( entries_.capacity() ); // so that release can't fail
      return static_cast< U32 >( entries_.size() - 1 );
   }
   const U32 index = free_.back();
   free_.pop_back();
   return index;
}

void TimerQueue::release( U32 index ) noexcept {
   Entry& e = entries_[ index ];
   e.place = noPlace;
   e.callback = nullptr;
   if( ++e.generation == 0 ) e.generation = 1;
   free_.push_back( index );
}

const TimerQueue::Entry* TimerQueue::find( U64 id ) const noexcept {
   const U32 index = static_cast< U32 >( id );
   if( index >= entries_.size() ) return nullptr;
   const Entry& e = entries_[ index ];
   return e.place != noPlace && e.generation == static_cast< U32 >( id >> 32 ) ? &e : nullptr;
}

bool TimerQueue::before( U32 a, U32 b ) const noexcept {
   const Entry& x = entries_[ a ];
   const Entry& y = entries_[ b ];
   return x.deadline != y.deadline ? x.deadline < y.deadline : x.age < y.age;
}

void TimerQueue::put( U32 place, U32 index ) noexcept {
   heap_[ place ] = index;
   entries_[ index ].place = place;
}

void TimerQueue::siftUp( U32 place ) noexcept {
   const U32 index = heap_[ place ];
   while( place > 0 && before( index, heap_[ ( place - 1 ) / 2 ] ) ) {
      put( place, heap_[ ( place - 1 ) / 2 ] );
      place = ( place - 1 ) / 2;
   }
   put( place, index );
}

void TimerQueue::siftDown( U32 place ) noexcept {
   const U32 index = heap_[ place ];
   const U32 size = static_cast< U32 >( heap_.size() );
   for( U32 child; ( child = 2 * place + 1 ) < size; place = child ) {
      if( child + 1 < size && before( heap_[ child + 1 ], heap_[ child ] ) ) ++child;
      if( !before( heap_[ child ], index ) ) break;
      put( place, heap_[ child ] );
   }
   put( place, index );
}

void TimerQueue::removeAt( U32 place ) noexcept {
   const U32 last = heap_.back();
   heap_.pop_back();
   if( place == heap_.size() ) return;
   put( place, last );
   siftUp( place );
   siftDown( entries_[ last ].place );
}

Timer& Timer::operator=( Timer&& other ) noexcept {
   if( this != &other ) {
      cancel();
      queue_ = std::move( other.queue_ );
      id_ = std::exchange( other.id_, 0 );
   }
   return *this;
}

void Timer::cancel() noexcept {
   if( const auto queue = queue_.lock() ) queue->cancel( id_ );
   id_ = 0;
}

bool Timer::active() const noexcept {
   const auto queue = queue_.lock();
   return queue && queue->active( id_ );
}

}
