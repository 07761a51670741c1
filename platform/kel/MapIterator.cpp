#include <kel/MapIterator.h>

#include <atomic>

namespace Kel::Detail {

U64 newErasures() noexcept {
   static constinit std::atomic< U32 > last{ 0 };
   return U64( last.fetch_add( 1, std::memory_order_relaxed ) + 1 ) << 32;
}

}
