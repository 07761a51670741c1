#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <linux/futex.h>
#include <mutex>
#include <plexo/Bell.h>
#include <plexo/BellThread.h>
#include <plexo/Fork.h>
#include <plexo/Shared.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

// The thread holds the mutex except while it sleeps, so a word that `wordIs` has taken back is never loaded again; the kernel
// may still know its address, and answers with an error or a spurious wake-up at worst. A private control word among the
// futexes wakes the thread when the set changes. The thread lives as long as the process: what it uses is never destroyed.
// A child of fork has no such thread: there, the instance is given up and the next watch makes a new one.

namespace Plexo {

namespace {

using Clock = std::chrono::steady_clock;

constexpr U32 maxFutexes = 128;
constexpr auto pollPeriod = std::chrono::milliseconds( 5 );
constexpr U32 defaultTick = 50;

/// The kernel's time limit for futex_waitv: 64 bits in both word sizes.
struct KernelTime {
   Kel::S64 seconds;
   Kel::S64 nanoseconds;
};

}

struct BellWatch::Entry {
   int eventFd;
   const std::byte* word = nullptr;
   U32 seen = 0;
   std::chrono::milliseconds tick{ defaultTick };
   Clock::time_point due = Clock::now();
};

class BellThread {
 public:
   static BellThread* instance();

   void add( BellWatch::Entry* entry );
   void remove( BellWatch::Entry* entry );
   /// Changes an entry under the lock and has the thread look at it.
   template< class F >
   void change( F&& change ) {
      const std::lock_guard held( mutex_ );
      change();
      poke();
   }

 private:
   /// Forgets the instance in a child of fork.
   class Fork : public ForkAware {
      void forked() noexcept override;
   };

   void start();
   void run();
   Clock::time_point look( Clock::time_point now );
   void sleep( std::unique_lock< std::mutex >& held, Clock::time_point until );
   void poke();
   std::byte* control() noexcept { return reinterpret_cast< std::byte* >( &control_ ); }

   static constinit inline std::mutex instanceMutex_;
   static constinit inline BellThread* instance_ = nullptr;
   static constinit inline BellThread* parents_ = nullptr;

   std::mutex mutex_;
   std::vector< BellWatch::Entry* > entries_;
   bool running_ = false;
   bool waitvWorks_ = true;
   alignas( 4 ) U32 control_ = 0;
};

BellThread* BellThread::instance() {
   static auto* const fork = new Fork;                                  // registered for the life of the process
   static_cast< void >( fork );
   const std::lock_guard held( instanceMutex_ );
   if( !instance_ ) instance_ = new BellThread;
   return instance_;
}

void BellThread::Fork::forked() noexcept {
   // Another thread of the parent may have held it; nobody does in the child.
   new( &instanceMutex_ ) std::mutex;
   parents_ = std::exchange( instance_, nullptr );
}

void BellThread::add( BellWatch::Entry* entry ) {
   const std::lock_guard held( mutex_ );
   if( !running_ ) start();
   entries_.push_back( entry );
   poke();
}

void BellThread::remove( BellWatch::Entry* entry ) {
   const std::lock_guard held( mutex_ );
   std::erase( entries_, entry );
   poke();
}

/// The thread takes no signals: they belong to the program's own threads.
void BellThread::start() {
   sigset_t all;
   sigset_t before;
   sigfillset( &all );
   pthread_sigmask( SIG_BLOCK, &all, &before );
   try {
      std::thread thread( [ this ] { run(); } );
      pthread_setname_np( thread.native_handle(), "plexo-bell" );
      thread.detach();
      running_ = true;
   } catch( const std::system_error& e ) {
      pthread_sigmask( SIG_SETMASK, &before, nullptr );
      throw SystemException( std::string( "cannot start the thread that waits for tables: " ) + e.what() );
   }
   pthread_sigmask( SIG_SETMASK, &before, nullptr );
}

void BellThread::run() {
   std::unique_lock held( mutex_ );
   for( ;; ) sleep( held, look( Clock::now() ) );
}

/// Signals whoever has news or is due, and returns when the next one is due.
Clock::time_point BellThread::look( Clock::time_point now ) {
   auto next = now + std::chrono::hours( 1 );
   for( BellWatch::Entry* entry : entries_ ) {
      bool signal = now >= entry->due;
      if( entry->word ) {
         const U32 word = SharedLoad::acquire32( entry->word );
         if( word != entry->seen ) {
            entry->seen = word;
            Bell::wakeOne( entry->word );
            signal = true;
         }
      }
      if( signal ) {
         entry->due = now + entry->tick;
         const U64 one = 1;
         static_cast< void >( ::write( entry->eventFd, &one, sizeof one ) == sizeof one );
      }
      next = std::min( next, entry->due );
   }
   return next;
}

void BellThread::sleep( std::unique_lock< std::mutex >& held, Clock::time_point until ) {
   futex_waitv waiters[ maxFutexes ] = {};
   const U32 control = std::atomic_ref( control_ ).load();
   waiters[ 0 ] = { control, reinterpret_cast< std::uintptr_t >( &control_ ), FUTEX_32 | FUTEX_PRIVATE_FLAG, 0 };
   U32 count = 1;
   bool poll = false;
   for( const BellWatch::Entry* entry : entries_ ) {
      if( !entry->word ) continue;
      if( count == maxFutexes || !waitvWorks_ ) poll = true;
      else waiters[ count++ ] = { entry->seen, reinterpret_cast< std::uintptr_t >( entry->word ), FUTEX_32, 0 };
   }
   if( poll ) until = std::min( until, Clock::now() + pollPeriod );
   const auto since = until.time_since_epoch();
   const auto seconds = std::chrono::duration_cast< std::chrono::seconds >( since );
   const KernelTime limit = { seconds.count(), std::chrono::nanoseconds( since - seconds ).count() };
   held.unlock();
   const long woken = waitvWorks_ ? ::syscall( SYS_futex_waitv, waiters, count, 0, &limit, CLOCK_MONOTONIC ) : -1;
   const int error = errno;
   // Kernels before 5.16 do not know the call, and a sandbox may forbid it; a word that is gone leaves nothing to wait for.
   const bool unusable = woken < 0 && error != EAGAIN && error != ETIMEDOUT && error != EINTR;
   if( !waitvWorks_ || unusable ) std::this_thread::sleep_until( std::min( until, Clock::now() + pollPeriod ) );
   held.lock();
   if( unusable && ( error == ENOSYS || error == EPERM ) ) waitvWorks_ = false;
}

void BellThread::poke() {
   std::atomic_ref( control_ ).fetch_add( 1 );
   ::syscall( SYS_futex, &control_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0 );
}

// --- BellWatch -------------------------------------------------------------------------------------------------------------

BellWatch::BellWatch( int eventFd ) : thread_( BellThread::instance() ), entry_( new Entry{ .eventFd = eventFd } ) {
   thread_->add( entry_.get() );
}

BellWatch::~BellWatch() {
   if( thread_ ) thread_->remove( entry_.get() );
}

void BellWatch::wordIs( const std::byte* word ) {
   thread_->change( [ & ] {
      entry_->word = word;
      entry_->seen = word ? SharedLoad::acquire32( word ) : 0;
   } );
}

void BellWatch::tickIs( U32 milliseconds ) {
   thread_->change( [ & ] {
      entry_->tick = std::chrono::milliseconds( milliseconds );
      entry_->due = std::min( entry_->due, Clock::now() + entry_->tick );
   } );
}

}
