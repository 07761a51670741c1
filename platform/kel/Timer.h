#pragma once

#include <chrono>
#include <functional>
#include <kel/Types.h>
#include <memory>
#include <utility>
#include <vector>

namespace [[gnu::visibility("default")]] Kel {

/// Timers ordered by deadline, those with the same deadline by age: the part of `Activity` that needs no clock and no
/// descriptor. Times are nanoseconds of whatever clock the caller goes by. Not safe from several threads.
class TimerQueue {
 public:
   using Callback = std::function< void() >;
   /// Stands for no deadline.
   static constexpr S64 never = INT64_MAX;

   /// A timer due at `deadline`, and every `period` after that if it is not 0. Returns its id, never 0.
   U64 add( S64 deadline, S64 period, Callback callback );
   /// Does nothing for a timer that is gone.
   void cancel( U64 id ) noexcept;
   bool active( U64 id ) const noexcept;
   std::size_t size() const noexcept { return heap_.size(); }
   S64 earliest() const noexcept { return heap_.empty() ? never : entries_[ heap_.front() ].deadline; }

   /// Runs the first timer if it is due at `now`, and says whether it did. A periodic one is due next at the first multiple
   /// of its period after `now`: what was missed is not made up for. The callback may add and cancel any timer, its own too;
   /// what it throws leaves this function with the timer dealt with.
   bool runOne( S64 now );

 private:
   struct Entry {
      S64 deadline = 0;
      S64 period = 0;
      U64 age = 0;
      U32 generation = 0;
      U32 place = noPlace; // in heap_
      Callback callback;
   };
   struct Running;
   static constexpr U32 noPlace = UINT32_MAX;

   U32 allocate();
   void release( U32 index ) noexcept;
   bool before( U32 a, U32 b ) const noexcept;
   void put( U32 place, U32 index ) noexcept;
   void siftUp( U32 place ) noexcept;
   void siftDown( U32 place ) noexcept;
   void removeAt( U32 place ) noexcept;
   const Entry* find( U64 id ) const noexcept;

   std::vector< Entry > entries_;
   std::vector< U32 > free_;
   std::vector< U32 > heap_;
   U64 lastAge_ = 0;
};

/// Holds a timer of an `Activity`: its end cancels it. It may outlive the activity.
class [[nodiscard]] Timer {
 public:
   Timer() noexcept = default;
   Timer( std::weak_ptr< TimerQueue > queue, U64 id ) noexcept : queue_( std::move( queue ) ), id_( id ) {}
   Timer( Timer&& other ) noexcept : queue_( std::move( other.queue_ ) ), id_( std::exchange( other.id_, 0 ) ) {}
   Timer& operator=( Timer&& other ) noexcept;
   ~Timer() { cancel(); }

   void cancel() noexcept;
   /// Whether it will still run: false for a one-shot timer from the start of its callback.
   bool active() const noexcept;

 private:
   std::weak_ptr< TimerQueue > queue_;
   U64 id_ = 0;
};

}
