#include "Ports.h"

#include <quor/EthIntfId.h>

namespace Fdbd {

Quor::IntfId Ports::devicePort( int ifindex ) const {
   const auto at = bound_.find( ifindex );
   if( at != bound_.end() ) return at->second;
   const auto index = static_cast< std::uint32_t >( ifindex );
   return Quor::EthIntfId::make( index >> 14 & Quor::EthIntfId::maxModule, index & Quor::EthIntfId::maxPort,
                                 index >> 19 & Quor::EthIntfId::maxLane );
}

}
