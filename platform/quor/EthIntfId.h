#pragma once

#include <quor/IntfId.h>

namespace [[gnu::visibility("default")]] Quor {

/// Ethernet interfaces: kind 0. The index is the module (5 bits), the port (14 bits) and the lane (6 bits), from the top; the
/// whole high word is the sub-interface number. Module 0 is a switch without modules, lane 0 a port that is not split,
/// sub-interface 0 the port itself.
class EthIntfId {
 public:
   static constexpr Kel::U32 maxModule = 31;
   static constexpr Kel::U32 maxPort = 16383;
   static constexpr Kel::U32 maxLane = 63;

   /// The empty identifier is no Ethernet interface.
   static constexpr bool isEthIntfId( IntfId intfId ) { return typeId( intfId ) == IntfTypeId::ethernet && !intfId.isEmpty(); }

   // Each of these asserts that it is given an Ethernet interface.
   static constexpr Kel::U32 module( IntfId intfId ) { return index( intfId ) >> 20; }
   static constexpr Kel::U32 port( IntfId intfId ) { return index( intfId ) >> 6 & maxPort; }
   static constexpr Kel::U32 lane( IntfId intfId ) { return index( intfId ) & maxLane; }
   static constexpr Kel::U32 subIntf( IntfId intfId ) {
      KEL_ASSERT( "EthIntfId", isEthIntfId( intfId ) );
      return part( intfId, 0 );
   }

   /// Asserts that each number fits its field. All zero gives the empty identifier.
   static constexpr IntfId make( Kel::U32 module, Kel::U32 port, Kel::U32 lane, Kel::U32 subIntf = 0 ) {
      KEL_ASSERT( "EthIntfId", module <= maxModule );
      KEL_ASSERT( "EthIntfId", port <= maxPort );
      KEL_ASSERT( "EthIntfId", lane <= maxLane );
      return { module << 20 | port << 6 | lane, subIntf };
   }

 private:
   static constexpr Kel::U32 index( IntfId intfId ) {
      KEL_ASSERT( "EthIntfId", isEthIntfId( intfId ) );
      return part( intfId, 1 );
   }
};

}
