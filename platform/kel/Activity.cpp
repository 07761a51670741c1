#include <kel/Activity.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <deque>
#include <kel/Exception.h>
#include <kel/UniqueFd.h>
#include <limits>
#include <mutex>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unordered_map>
#include <utility>
#include <vector>

// An epoll set holds the watched descriptors, one timerfd for the earliest timer and one eventfd for everything that has no
// descriptor of its own. What has to be true whenever no dispatch runs, so that the epoll descriptor alone tells an embedding
// loop what to do: the timerfd stands at the earliest deadline or before it, and the eventfd is raised while posted work or a
// stop is waiting.
//
// A round goes through three phases, which remember where they are: the timers that are due at its start, as many posted
// pieces of work as there were then, and one sweep over the ready descriptors in the order of their slots. A spent budget or
// an exception leaves the round where it is; the sweep then asks the kernel again, from the next slot on, so that it never
// acts on a stale readiness of an earlier call. A round that served nothing from its start to its end means that nothing is
// ready.
//
// A watch lives in a slot; an event carries the slot's number and generation, so that one for a watch that has gone, or whose
// slot was reused, finds nothing. A callback is held outside of its slot while it runs.

namespace Kel {

namespace {

using Clock = std::chrono::steady_clock;

S64 monotonic() noexcept {
   return std::chrono::duration_cast< std::chrono::nanoseconds >( Clock::now().time_since_epoch() ).count();
}

/// `delay` from now, as late as can be told apart from never.
S64 deadlineAfter( std::chrono::nanoseconds delay ) noexcept {
   const S64 now = monotonic();
   const S64 ahead = std::max< S64 >( delay.count(), 0 );
   return ahead < TimerQueue::never - 1 - now ? now + ahead : TimerQueue::never - 1;
}

[[noreturn]] void fail( const std::string& what ) { throwErrno( "Kel::Activity: " + what ); }

UniqueFd checked( int fd, const char* what ) {
   if( fd < 0 ) fail( std::string( what ) + " can't be made" );
   return UniqueFd( fd );
}

constexpr U64 wakeEvent = ~U64( 0 );
constexpr U64 timerEvent = wakeEvent - 1;
constexpr std::size_t ownEvents = 2;
constexpr S64 noLimit = TimerQueue::never;

U32 epollBits( FdEvents interest ) noexcept {
   return ( interest.readable ? EPOLLIN | EPOLLRDHUP : 0u ) | ( interest.writable ? EPOLLOUT : 0u );
}

}

class Activity::Core {
 public:
   Core();

   U64 watch( int fd, FdEvents interest, FdCallback callback );
   void unwatch( U64 id ) noexcept;
   void interestIs( U64 id, FdEvents interest );
   Timer timer( S64 deadline, S64 period, Callback callback );
   void post( Callback callback );
   void postFromAnyThread( Callback callback );
   void wake() noexcept;
   void stop() noexcept;

   /// Dispatches until `limit` on the monotonic clock, or until idle.
   Dispatched dispatch( S64 limit );
   /// Waits for a round's work and dispatches, until stopped or `done`.
   bool run( const bool& done );

   int fd() const noexcept { return epoll_.get(); }
   void refuseInside( const char* function ) const;

 private:
   struct Slot {
      int fd = -1; // -1: free, or the descriptor was closed under its watch
      U32 generation = 1;
      FdEvents interest;
      FdCallback callback;
   };
   struct Running;
   struct Inside;
   enum class Phase : U32 { start, timers, posted, sweep };
   enum class RoundEnd : U32 { served, nothing, limit, stopped };

   RoundEnd round( S64 limit, bool wait );
   void startRound( bool wait );
   void fetch( bool wait );
   void wakeTaken();
   void timerTaken() noexcept;
   bool serveOne();
   bool serveDescriptor();
   void collectForeign();
   void armTimer() noexcept;
   void settle() noexcept;
   Slot* find( U64 id ) noexcept;
   bool takeStop() noexcept { return stop_.load( std::memory_order_relaxed ) && stop_.exchange( false ); }

   UniqueFd epoll_, timerFd_, wakeFd_;
   std::shared_ptr< TimerQueue > timers_ = std::make_shared< TimerQueue >();
   S64 armedFor_ = TimerQueue::never;
   std::vector< Slot > slots_;
   std::vector< U32 > freeSlots_;
   std::unordered_map< int, U32 > slotOfFd_;
   std::deque< Callback > posted_;
   std::atomic< bool > stop_{ false };

   std::mutex foreignMutex_;
   std::vector< Callback > foreign_; // posted by other threads

   bool inside_ = false;
   Phase phase_ = Phase::start;
   bool served_ = false;       // something in this round
   S64 roundTime_ = 0;         // timers due then belong to this round
   std::size_t toPost_ = 0;    // as many of posted_ belong to this round
   U32 sweptTo_ = 0;           // the next slot of the sweep
   bool eventsFresh_ = false;  // events_ is of this call
   std::size_t nextEvent_ = 0; // in events_
   std::size_t eventsEnd_ = 0;
   std::vector< epoll_event > events_ = std::vector< epoll_event >( ownEvents ); // room for everything that can be ready
};

/// Marks the time that callbacks may run in; leaves everything as an embedding loop needs it.
struct Activity::Core::Inside {
   explicit Inside( Core& c ) : core( c ) {
      core.inside_ = true;
      core.eventsFresh_ = false;
   }
   ~Inside() {
      core.inside_ = false;
      core.settle();
   }
   Core& core;
};

/// Holds a watch's callback while it runs, and puts it back if the watch is still there.
struct Activity::Core::Running {
   ~Running() {
      if( Slot* s = core.find( id ) ) s->callback = std::move( callback );
   }
   Core& core;
   U64 id;
   FdCallback callback;
};

Activity::Core::Core()
    : epoll_( checked( ::epoll_create1( EPOLL_CLOEXEC ), "its epoll set" ) ),
      timerFd_( checked( ::timerfd_create( CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC ), "its timer" ) ),
      wakeFd_( checked( ::eventfd( 0, EFD_NONBLOCK | EFD_CLOEXEC ), "its event counter" ) ) {
   for( const auto& [ fd, data ] : { std::pair( timerFd_.get(), timerEvent ), std::pair( wakeFd_.get(), wakeEvent ) } ) {
      epoll_event event{ .events = EPOLLIN, .data = { .u64 = data } };
      if( ::epoll_ctl( epoll_.get(), EPOLL_CTL_ADD, fd, &event ) != 0 ) fail( "its epoll set can't be filled" );
   }
}

// Watches.

U64 Activity::Core::watch( int fd, FdEvents interest, FdCallback callback ) {
   if( freeSlots_.empty() ) {
      slots_.emplace_back();
      freeSlots_.reserve( slots_.capacity() ); // so that unwatch can't fail
      freeSlots_.push_back( static_cast< U32 >( slots_.size() - 1 ) );
   }
   events_.resize( std::max( events_.size(), slots_.size() + ownEvents ) );
   const U32 index = freeSlots_.back();
   const auto known = slotOfFd_.try_emplace( fd, index );
   Slot& s = slots_[ index ];
   const U64 id = U64( s.generation ) << 32 | index;
   epoll_event event{ .events = epollBits( interest ), .data = { .u64 = id } };
   if( ::epoll_ctl( epoll_.get(), EPOLL_CTL_ADD, fd, &event ) != 0 ) {
      if( known.second ) slotOfFd_.erase( known.first );
      fail( "descriptor " + std::to_string( fd ) + " can't be watched" );
   }
   // An earlier watch that the kernel forgot: its descriptor was closed, and the number given out again.
   if( !known.second ) {
      slots_[ known.first->second ].fd = -1;
      known.first->second = index;
   }
   freeSlots_.pop_back();
   s.fd = fd;
   s.interest = interest;
   s.callback = std::move( callback );
   return id;
}

Activity::Core::Slot* Activity::Core::find( U64 id ) noexcept {
   const U32 index = static_cast< U32 >( id );
   return index < slots_.size() && slots_[ index ].generation == static_cast< U32 >( id >> 32 ) ? &slots_[ index ] : nullptr;
}

void Activity::Core::unwatch( U64 id ) noexcept {
   Slot* s = find( id );
   if( !s ) return;
   if( s->fd >= 0 ) {
      epoll_event event{};
      ::epoll_ctl( epoll_.get(), EPOLL_CTL_DEL, s->fd, &event ); // it may be closed already
      slotOfFd_.erase( s->fd );
   }
   s->fd = -1;
   if( ++s->generation == 0 ) s->generation = 1;
   freeSlots_.push_back( static_cast< U32 >( id ) );
   const FdCallback last = std::exchange( s->callback, nullptr ); // ends last: its captures may end other watches
}

void Activity::Core::interestIs( U64 id, FdEvents interest ) {
   Slot* s = find( id );
   if( !s || s->fd < 0 || s->interest == interest ) return;
   epoll_event event{ .events = epollBits( interest ), .data = { .u64 = id } };
   if( ::epoll_ctl( epoll_.get(), EPOLL_CTL_MOD, s->fd, &event ) != 0 )
      fail( "the watch of descriptor " + std::to_string( s->fd ) + " can't be changed" );
   s->interest = interest;
}

// Timers, posted work, waking.

Timer Activity::Core::timer( S64 deadline, S64 period, Callback callback ) {
   Timer handle( timers_, timers_->add( deadline, period, std::move( callback ) ) );
   if( !inside_ ) armTimer();
   return handle;
}

/// Sets the timerfd to the earliest deadline; an earlier setting may stay, as it costs a vain wake-up at most.
void Activity::Core::armTimer() noexcept {
   const S64 earliest = timers_->earliest();
   if( earliest >= armedFor_ ) return;
   constexpr S64 second = 1000000000;
   const S64 at = std::max< S64 >( earliest, 1 ); // 0 would disarm it
   itimerspec spec{};
   spec.it_value.tv_sec = static_cast< time_t >( std::min< S64 >( at / second, std::numeric_limits< time_t >::max() ) );
   spec.it_value.tv_nsec = static_cast< long >( at % second );
   ::timerfd_settime( timerFd_.get(), TFD_TIMER_ABSTIME, &spec, nullptr );
   armedFor_ = earliest;
}

void Activity::Core::post( Callback callback ) {
   posted_.push_back( std::move( callback ) );
   if( !inside_ && posted_.size() == 1 ) wake();
}

void Activity::Core::postFromAnyThread( Callback callback ) {
   bool first;
   {
      std::lock_guard lock( foreignMutex_ );
      foreign_.push_back( std::move( callback ) );
      first = foreign_.size() == 1;
   }
   if( first ) wake();
}

void Activity::Core::collectForeign() {
   std::vector< Callback > arrived;
   {
      std::lock_guard lock( foreignMutex_ );
      arrived.swap( foreign_ );
   }
   std::ranges::move( arrived, std::back_inserter( posted_ ) );
}

void Activity::Core::wake() noexcept {
   const int saved = errno; // a signal handler may call this
   const U64 one = 1;
   [[maybe_unused]] const ssize_t n = ::write( wakeFd_.get(), &one, sizeof one ); // a full counter is raised all the same
   errno = saved;
}

void Activity::Core::stop() noexcept {
   stop_ = true;
   wake();
}

void Activity::Core::settle() noexcept {
   armTimer();
   if( !posted_.empty() || stop_.load() ) wake();
}

// Rounds.

/// Asks the kernel for what is ready, its own two descriptors aside, from the slot on where the sweep stands.
void Activity::Core::fetch( bool wait ) {
   armTimer();
   nextEvent_ = eventsEnd_ = 0;
   const int n = ::epoll_wait( epoll_.get(), events_.data(), static_cast< int >( events_.size() ), wait ? -1 : 0 );
   if( n < 0 && errno != EINTR ) fail( "its epoll set can't be waited for" );
   for( int i = 0; i < n; ++i ) {
      const epoll_event& event = events_[ static_cast< std::size_t >( i ) ];
      if( event.data.u64 == wakeEvent ) wakeTaken();
      else if( event.data.u64 == timerEvent ) timerTaken();
      else if( static_cast< U32 >( event.data.u64 ) >= sweptTo_ ) events_[ eventsEnd_++ ] = event;
   }
   std::ranges::sort( events_.begin(), events_.begin() + static_cast< std::ptrdiff_t >( eventsEnd_ ), {},
                      []( const epoll_event& e ) { return static_cast< U32 >( e.data.u64 ); } );
   eventsFresh_ = true;
}

void Activity::Core::wakeTaken() {
   U64 count;
   if( ::read( wakeFd_.get(), &count, sizeof count ) > 0 ) collectForeign();
}

void Activity::Core::timerTaken() noexcept {
   U64 count;
   [[maybe_unused]] const ssize_t n = ::read( timerFd_.get(), &count, sizeof count );
   armedFor_ = TimerQueue::never;
}

void Activity::Core::startRound( bool wait ) {
   sweptTo_ = 0;
   fetch( wait && posted_.empty() );
   served_ = false;
   roundTime_ = timers_->size() ? monotonic() : 0;
   toPost_ = posted_.size();
   phase_ = Phase::timers;
}

Activity::Core::RoundEnd Activity::Core::round( S64 limit, bool wait ) {
   if( phase_ == Phase::start ) startRound( wait );
   while( serveOne() ) {
      if( takeStop() ) return RoundEnd::stopped;
      if( limit != noLimit && monotonic() >= limit ) return RoundEnd::limit;
   }
   phase_ = Phase::start;
   return served_ ? RoundEnd::served : RoundEnd::nothing;
}

/// Calls the round's next callback; false when there is none left.
bool Activity::Core::serveOne() {
   if( phase_ == Phase::timers ) {
      if( timers_->earliest() <= roundTime_ ) {
         served_ = true;
         return timers_->runOne( roundTime_ );
      }
      phase_ = Phase::posted;
   }
   if( phase_ == Phase::posted ) {
      if( toPost_ > 0 ) {
         --toPost_;
         served_ = true;
         const Callback callback = std::move( posted_.front() );
         posted_.pop_front();
         callback();
         return true;
      }
      phase_ = Phase::sweep;
   }
   return serveDescriptor();
}

bool Activity::Core::serveDescriptor() {
   if( !eventsFresh_ ) fetch( false );
   while( nextEvent_ < eventsEnd_ ) {
      const epoll_event event = events_[ nextEvent_++ ];
      sweptTo_ = static_cast< U32 >( event.data.u64 ) + 1;
      Slot* s = find( event.data.u64 );
      if( !s ) continue;
      const FdEvents ready{ .readable = s->interest.readable && ( event.events & ( EPOLLIN | EPOLLRDHUP | EPOLLHUP ) ),
                            .writable = s->interest.writable && ( event.events & EPOLLOUT ),
                            .error = ( event.events & ( EPOLLERR | EPOLLHUP ) ) != 0 };
      if( ready == FdEvents{} ) continue;
      served_ = true;
      Running running{ *this, event.data.u64, std::move( s->callback ) };
      running.callback( ready );
      return true;
   }
   return false;
}

Dispatched Activity::Core::dispatch( S64 limit ) {
   refuseInside( "dispatch" );
   const Inside inside( *this );
   if( takeStop() ) return Dispatched::stopped;
   for( ;; ) {
      switch( round( limit, false ) ) {
      case RoundEnd::served: break;
      case RoundEnd::nothing: return Dispatched::idle;
      case RoundEnd::limit: return Dispatched::budgetSpent;
      case RoundEnd::stopped: return Dispatched::stopped;
      }
   }
}

bool Activity::Core::run( const bool& done ) {
   refuseInside( "run" );
   const Inside inside( *this );
   while( !takeStop() ) {
      if( done ) return false;
      if( round( noLimit, true ) == RoundEnd::stopped ) break;
   }
   return true;
}

void Activity::Core::refuseInside( const char* function ) const {
   if( inside_ )
      throw InternalException( std::string( "Kel::Activity::" ) + function +
                               " called from one of the activity's own callbacks" );
}

// The public face. It holds on to the core while that works: a callback may destroy the activity.

Activity::Activity() : core_( std::make_shared< Core >() ) {}
Activity::~Activity() { core_->stop(); }

int Activity::fd() const noexcept { return core_->fd(); }
void Activity::post( Callback callback ) { core_->post( std::move( callback ) ); }
void Activity::postFromAnyThread( Callback callback ) { core_->postFromAnyThread( std::move( callback ) ); }
void Activity::wake() noexcept { core_->wake(); }
void Activity::stop() noexcept { core_->stop(); }

Activity::Watch Activity::watch( int fd, FdEvents interest, FdCallback callback ) {
   return Watch( core_, core_->watch( fd, interest, std::move( callback ) ) );
}

Timer Activity::after( Duration delay, Callback callback ) {
   return core_->timer( deadlineAfter( delay ), 0, std::move( callback ) );
}

Timer Activity::every( Duration period, Callback callback ) {
   if( period.count() <= 0 )
      throw RangeException( "Kel::Activity::every: a period of " + std::to_string( period.count() ) +
                            " ns; it must be above 0" );
   return core_->timer( deadlineAfter( period ), period.count(), std::move( callback ) );
}

Dispatched Activity::dispatch( Duration budget ) {
   const auto core = core_;
   return core->dispatch( deadlineAfter( budget ) );
}

void Activity::run() {
   const auto core = core_;
   core->run( false );
}

bool Activity::runFor( Duration duration ) {
   const auto core = core_;
   core->refuseInside( "runFor" );
   bool done = false;
   const Timer limit = core->timer( deadlineAfter( duration ), 0, [ &done ] { done = true; } );
   return core->run( done );
}

Activity::Watch& Activity::Watch::operator=( Watch&& other ) noexcept {
   if( this != &other ) {
      close();
      core_ = std::move( other.core_ );
      id_ = std::exchange( other.id_, 0 );
   }
   return *this;
}

void Activity::Watch::close() noexcept {
   if( const auto core = core_.lock() ) core->unwatch( id_ );
   id_ = 0;
}

void Activity::Watch::interestIs( FdEvents interest ) {
   if( const auto core = core_.lock() ) core->interestIs( id_, interest );
}

}
