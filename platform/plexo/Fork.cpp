#include <mutex>
#include <plexo/Fork.h>
#include <pthread.h>

namespace Plexo {

struct ForkList {
   static void lock() { mutex.lock(); }
   static void unlock() { mutex.unlock(); }
   static void inChild() {
      for( ForkAware* it = first; it; it = it->next_ ) it->forked();
      mutex.unlock();
   }
   static void installOnce() {
      static const int installed = pthread_atfork( lock, unlock, inChild );
      static_cast< void >( installed );
   }

   static constinit inline std::mutex mutex;
   static constinit inline ForkAware* first = nullptr;
};

ForkAware::ForkAware() {
   ForkList::installOnce();
   const std::lock_guard held( ForkList::mutex );
   next_ = ForkList::first;
   if( next_ ) next_->previous_ = this;
   ForkList::first = this;
}

ForkAware::~ForkAware() {
   const std::lock_guard held( ForkList::mutex );
   ( previous_ ? previous_->next_ : ForkList::first ) = next_;
   if( next_ ) next_->previous_ = previous_;
}

}
