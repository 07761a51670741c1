#include <gtest/gtest.h>
#include <quor/EthIntfId.h>
#include <quor/VlanIntfId.h>

namespace Quor {
namespace {

TEST( VlanIntfId, FieldsAndLimits ) {
   EXPECT_EQ( VlanIntfId::make( 10 ), IntfId( 1u << 25 | 10, 0 ) );
   EXPECT_EQ( VlanIntfId::vlanId( VlanIntfId::make( 4094 ) ), 4094u );
   EXPECT_FALSE( VlanIntfId::isVlanIntfId( EthIntfId::make( 0, 10, 0 ) ) );
   EXPECT_FALSE( VlanIntfId::isVlanIntfId( IntfId() ) );
   for( Kel::U32 vlan : { 0u, 4095u } ) EXPECT_DEATH( VlanIntfId::make( vlan ), "vlanId >= 1 && vlanId <= 4094" );
   EXPECT_DEATH( VlanIntfId::vlanId( EthIntfId::make( 0, 1, 0 ) ),
                 "VlanIntfId: .*: assertion \"isVlanIntfId\\( intfId \\)\" failed" );
}

}
}
