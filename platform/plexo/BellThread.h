#pragma once

#include <kel/Types.h>
#include <memory>

namespace Plexo {

using Kel::U32;

/// One reader's place in the process's helper thread, which sleeps on the futex words of all attached doorbells and turns a
/// ring into a write to the reader's eventfd. It writes there on a slow tick too, so that a reader looks after its table.
class BellWatch {
 public:
   /// Starts the thread where none runs. `eventFd` stays the caller's and outlives the watch.
   explicit BellWatch( int eventFd );
   ~BellWatch();
   BellWatch( const BellWatch& ) = delete;
   BellWatch& operator=( const BellWatch& ) = delete;

   /// Watches this futex word, or none. It must stay mapped until the next call or the end of the watch.
   void wordIs( const std::byte* word );
   /// Milliseconds between ticks.
   void tickIs( U32 milliseconds );
   /// In a child of fork: the thread is not there.
   void forget() noexcept { thread_ = nullptr; }

 private:
   friend class BellThread;
   struct Entry;
   class BellThread* thread_;
   std::unique_ptr< Entry > entry_;
};

}
