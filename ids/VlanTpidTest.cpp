#include "IdsTest.h"

#include <Vanta/VlanTpid.h>
#include <gtest/gtest.h>

namespace Bridging {
namespace {

TEST( VlanTpid, Limits ) {
   EXPECT_EQ( VlanTpid().value(), 0x8100 );
   EXPECT_EQ( VlanTpid( 65535 ).value(), 65535 );
   EXPECT_EQ( VlanTpid( 1 ).value(), 1 );
   EXPECT_EQ( thrown( [] { VlanTpid( 0 ); } ), "VlanTpid::value <= 0 not allowed" );
   EXPECT_EQ( logged( VlanTpid() ), bytes( { 0x81, 0 } ) );
   EXPECT_EQ( VlanTpidOrNone().value(), 0 );
   EXPECT_EQ( VlanTpidOrNone( 65535 ).value(), 65535 );
}

}
}
