#pragma once

namespace Plexo {

/// Something that must not live on in a child of fork. The child's copy is told, before fork returns there; it gives back what
/// the two processes share (descriptors above all: a lock stays while any copy of its descriptor is open) and touches nothing
/// else. Neither registering nor `forked` allocates.
class ForkAware {
 public:
   ForkAware();
   ForkAware( const ForkAware& ) = delete;
   ForkAware& operator=( const ForkAware& ) = delete;

 protected:
   ~ForkAware();
   virtual void forked() noexcept = 0;

 private:
   friend struct ForkList;
   ForkAware* next_;
   ForkAware* previous_ = nullptr;
};

}
