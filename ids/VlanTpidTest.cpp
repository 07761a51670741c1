#include "IdsTest.h"

#include <Vanta/VlanTpid.h>
#include <gtest/gtest.h>

namespace Bridging {
namespace {

using Kel::strepToValue;

TEST( VlanTpid, Limits ) {
   EXPECT_EQ( VlanTpid().value(), 0x8100 );
   for( const int number : { 1, 0x88a8, 65535 } ) EXPECT_EQ( VlanTpid( static_cast< Kel::U16 >( number ) ).value(), number );
   EXPECT_EQ( refusal( [] { VlanTpid( 0 ); } ), "VlanTpid::value <= 0 not allowed" );
   EXPECT_EQ( refusal( [] { strepToValue< VlanTpid >( "0" ); } ), "VlanTpid::value <= 0 not allowed" );
   EXPECT_NE( refusal( [] { strepToValue< VlanTpid >( "65536" ); } ), "nothing" );
   EXPECT_EQ( Bridging::valueToStrep( VlanTpid() ), "33024" );
   EXPECT_EQ( logged( VlanTpid() ), bytes( { 0x81, 0 } ) );
   EXPECT_LT( VlanTpid( 1 ), VlanTpid( 0x8100 ) );
}

TEST( VlanTpid, NoneIsZero ) {
   EXPECT_EQ( VlanTpidOrNone().value(), 0 );
   EXPECT_EQ( VlanTpidOrNone( 65535 ).value(), 65535 );
   EXPECT_EQ( strepToValue< VlanTpidOrNone >( "0" ), VlanTpidOrNone() );
   EXPECT_NE( refusal( [] { strepToValue< VlanTpidOrNone >( "65536" ); } ), "nothing" );
}

}
}
