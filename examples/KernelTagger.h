#pragma once

#include <kel/Types.h>
#include <kel/UniqueFd.h>

/// Two programs in the kernel (bpf(2)) by which a device without VLANs becomes a station of one: what comes from elsewhere is
/// dropped, the tag goes before the stack sees a frame, and comes back when the stack sends one. They work as long as this lives.
class KernelTagger {
 public:
   KernelTagger( const char* device, Kel::U16 vlan );
   /// False where the kernel takes no such programs; those of tcx, of Linux 6.6 and later.
   bool works() const { return ingress_ && egress_; }

 private:
   Kel::UniqueFd ingress_, egress_;
};
