#pragma once

#include "Host.h"
#include <unordered_map>

namespace Fdbd {

/// Which port a network device is.
class Ports {
 public:
   /// The port that was bound to the device `ifindex`, else Ethernet<ifindex>. An index beyond 16383, the highest port number,
   /// takes the module and the lane as its further digits, so that indices below 2^25 have ports of their own.
   Quor::IntfId devicePort( int ifindex ) const;
   /// Gives the device a port; one that vanishes and comes back under another index is bound again.
   void bindDevice( int ifindex, Quor::IntfId port ) { bound_[ ifindex ] = port; }

 private:
   std::unordered_map< int, Quor::IntfId > bound_;
};

}
