#pragma once

#include <chrono>
#include <functional>
#include <initializer_list>
#include <kel/Timer.h>
#include <kel/Types.h>
#include <memory>

namespace [[gnu::visibility("default")]] Kel {

/// What a descriptor is watched for, or what it is ready for. `error` (an error or a hang-up) is always watched for.
struct FdEvents {
   bool readable = false;
   bool writable = false;
   bool error = false;

   static constexpr FdEvents reading() noexcept { return { .readable = true, .writable = false, .error = false }; }
   static constexpr FdEvents writing() noexcept { return { .readable = false, .writable = true, .error = false }; }
   friend constexpr bool operator==( FdEvents, FdEvents ) noexcept = default;
};

/// Why `Activity::dispatch` returned.
enum class Dispatched : U32 {
   idle,        ///< nothing was ready any more
   budgetSpent, ///< there may be more to do; `Activity::fd()` is readable if there is
   stopped,     ///< a callback asked for it
};

/// The one-thread loop of an agent: descriptors, timers and deferred work, all behind one descriptor that can be polled by
/// another loop. Everything but `wake`, `stop` and `postFromAnyThread` belongs to the thread that dispatches.
///
/// Work is done in rounds: the timers that are due, then the work that was posted before the round, then each ready
/// descriptor once. A budget that ends in mid-round resumes there with the next call, so no source can keep another from its
/// turn.
///
/// An exception of a callback leaves `dispatch`, `run` or `runFor`. The callback counts as served (a one-shot timer and
/// posted work are gone, a watch and a periodic timer stay) and the activity goes on with the next one when it is called
/// again.
class Activity {
 public:
   using Callback = std::function< void() >;
   using FdCallback = std::function< void( FdEvents ) >;
   using Duration = std::chrono::nanoseconds;
   class Core;
   class Watch;

   /// Throws `Exception` when the system has no descriptor left.
   Activity();
   Activity( const Activity& ) = delete;
   Activity& operator=( const Activity& ) = delete;
   ~Activity();

   /// Readable (for poll, select or another epoll) whenever `dispatch` has something to do.
   int fd() const noexcept;

   /// Calls `callback` in each round in which `fd` is ready, until the handle goes. Level-triggered. The descriptor should be
   /// non-blocking, since an earlier callback of the same round may have taken what made it ready; it stays the caller's, who
   /// ends the watch before closing it (the other order works too unless the descriptor was duplicated). Throws `Exception`
   /// for one that can't be watched or is watched already.
   Watch watch( int fd, FdEvents interest, FdCallback callback );

   /// Once, `delay` from now on the monotonic clock; a delay below 0 is 0.
   Timer after( Duration delay, Callback callback );
   /// Each `period`, the first time one period from now; ticks that were missed are left out. Throws `RangeException` unless
   /// `period` is above 0.
   Timer every( Duration period, Callback callback );

   /// Deferred: runs in the next round. Only from this activity's thread.
   void post( Callback callback );
   /// The same from any thread, which must know that the activity still lives.
   void postFromAnyThread( Callback callback );
   /// Makes `run` or a poll of `fd()` wake once. From any thread and from a signal handler.
   void wake() noexcept;

   /// Runs what is ready, without waiting, at least one callback if any is ready. The budget is looked at after each
   /// callback. Throws `InternalException` when called from a callback.
   Dispatched dispatch( Duration budget );
   /// Waits and dispatches until `stop`.
   void run();
   /// The same, but for `duration` at most. Returns true when it was stopped.
   bool runFor( Duration duration );
   /// Ends the present `dispatch`, `run` or `runFor` after the callback that runs, or the next one at once. From any thread
   /// and from a signal handler.
   void stop() noexcept;

 private:
   std::shared_ptr< Core > core_;
};

/// Holds a watch: its end ends the watch, from within a callback too. It may outlive the activity.
class [[nodiscard]] Activity::Watch {
 public:
   Watch() noexcept = default;
   Watch( std::weak_ptr< Core > core, U64 id ) noexcept : core_( std::move( core ) ), id_( id ) {}
   Watch( Watch&& other ) noexcept : core_( std::move( other.core_ ) ), id_( std::exchange( other.id_, 0 ) ) {}
   Watch& operator=( Watch&& other ) noexcept;
   ~Watch() { close(); }

   void close() noexcept;
   /// Changes what is watched for; nothing at all leaves errors.
   void interestIs( FdEvents interest );

 private:
   std::weak_ptr< Core > core_;
   U64 id_ = 0;
};

/// Turns signals into callbacks of an activity: they are blocked in the calling thread and read from a descriptor
/// (signalfd(2)). Make it before other threads start, so that they inherit the mask. Its end restores the mask; a signal that
/// waits then takes its usual course. Programs started by exec inherit the mask.
class SignalWatch {
 public:
   /// Throws `Exception` when the system refuses.
   SignalWatch( Activity& activity, std::initializer_list< int > signals, std::function< void( int ) > callback );
   SignalWatch( const SignalWatch& ) = delete;
   SignalWatch& operator=( const SignalWatch& ) = delete;
   ~SignalWatch();

 private:
   struct State;
   std::unique_ptr< State > state_;
};

}
