#include <kel/NodePool.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION( at, size ) static_cast< void >( 0 )
#define ASAN_UNPOISON_MEMORY_REGION( at, size ) static_cast< void >( 0 )
#endif

// Slabs grow with the number of nodes, so that a small container takes little; large slabs start at a cache line. Released nodes
// form a list through their own storage. The address sanitizer is told which storage is no node's.
namespace Kel {

namespace {

constexpr std::size_t cacheLine = 64;
constexpr std::size_t largestSlab = 32 * 1024;
constexpr std::size_t alignedSlab = 2048;

}

void* NodePool::allocate() {
   void* node = free_;
   if( node ) {
      ASAN_UNPOISON_MEMORY_REGION( node, nodeBytes_ );
      free_ = free_->next;
   } else {
      if( fresh_ == freshEnd_ ) refill();
      node = fresh_;
      ASAN_UNPOISON_MEMORY_REGION( node, nodeBytes_ );
      fresh_ += nodeBytes_;
   }
   ++live_;
   return node;
}

void NodePool::release( void* node ) noexcept {
   auto* released = static_cast< Free* >( node );
   released->next = free_;
   free_ = released;
   ASAN_POISON_MEMORY_REGION( node, nodeBytes_ );
   if( --live_ > 0 ) return;
   if( abandoned_ ) delete this;
   else freeSlabs();
}

void NodePool::abandon( std::size_t nodes ) noexcept {
   live_ -= nodes;
   abandoned_ = true;
   if( live_ == 0 ) delete this;
}

void NodePool::refill() {
   const std::size_t nodes = std::max( std::size_t( 1 ), std::min( live_ / 2, largestSlab / nodeBytes_ ) );
   const std::size_t bytes = nodes * nodeBytes_;
   const std::size_t padding = bytes >= alignedSlab ? cacheLine : 0;
   auto* slab = static_cast< Slab* >( std::malloc( sizeof( Slab ) + bytes + padding ) );
   if( !slab ) throw std::bad_alloc();
   slab->next = slabs_;
   slabs_ = slab;
   fresh_ = reinterpret_cast< char* >( slab + 1 );
   if( padding ) fresh_ += -reinterpret_cast< std::uintptr_t >( fresh_ ) % cacheLine;
   freshEnd_ = fresh_ + bytes;
   ASAN_POISON_MEMORY_REGION( fresh_, bytes );
}

void NodePool::freeSlabs() noexcept {
   while( Slab* slab = slabs_ ) {
      slabs_ = slab->next;
      std::free( slab );
   }
   free_ = nullptr;
   fresh_ = freshEnd_ = nullptr;
}

}
