#pragma once

#include <cstddef>
#include <kel/Types.h>
#include <new>

namespace [[gnu::visibility("default")]] Kel {

/// Storage for the nodes of one container, all of one size. Nodes lie side by side without a header each; the memory goes
/// back when the last node does. The pool outlives its container while a node is still being destroyed.
class NodePool {
 public:
   /// Throws `std::bad_alloc`. `nodeBytes` is a multiple of the node's alignment, which is at most that of `std::max_align_t`.
   static NodePool* make( std::size_t nodeBytes ) { return new NodePool( nodeBytes ); }
   NodePool( const NodePool& ) = delete;
   NodePool& operator=( const NodePool& ) = delete;

   /// Storage for one node. Throws `std::bad_alloc`.
   void* allocate();
   /// Takes one node's storage back.
   void release( void* node ) noexcept;
   /// Its container has done with it: destroyed `nodes` of the nodes without their release. The pool goes as soon as the
   /// remaining ones have been released.
   void abandon( std::size_t nodes ) noexcept;

 private:
   struct Free {
      Free* next;
   };
   struct alignas( std::max_align_t ) Slab {
      Slab* next;
   };

   explicit NodePool( std::size_t nodeBytes ) : nodeBytes_( nodeBytes ) {}
   ~NodePool() { freeSlabs(); }
   void refill();
   void freeSlabs() noexcept;

   std::size_t nodeBytes_;
   std::size_t live_ = 0;
   Free* free_ = nullptr;
   char* fresh_ = nullptr;      ///< the part of the newest slab that was never used
   char* freshEnd_ = nullptr;
   Slab* slabs_ = nullptr;
   bool abandoned_ = false;
};

}
