#pragma once

#include <quor/IntfId.h>

namespace [[gnu::visibility("default")]] Quor {

/// VLAN interfaces: kind 1, with the VLAN as index and a zero high word.
class VlanIntfId {
 public:
   static constexpr bool isVlanIntfId( IntfId intfId ) { return typeId( intfId ) == IntfTypeId::vlan; }

   /// The index, whatever it is. Asserts that it is given a VLAN interface.
   static constexpr Kel::U32 vlanId( IntfId intfId ) {
      KEL_ASSERT( "VlanIntfId", isVlanIntfId( intfId ) );
      return part( intfId, 1 );
   }

   /// Asserts that the VLAN is one of 1..4094.
   static constexpr IntfId make( Kel::U32 vlanId ) {
      KEL_ASSERT( "VlanIntfId", vlanId >= 1 && vlanId <= 4094 );
      return { IntfTypeId::vlan << GenericIntfId::typeIdShift | vlanId, 0 };
   }
};

}
