#include <gtest/gtest.h>
#include <quor/EthIntfId.h>
#include <quor/VlanIntfId.h>

namespace Quor {
namespace {

TEST( EthIntfId, Fields ) {
   const IntfId id = EthIntfId::make( 31, 16383, 63, 0xffffffff );
   EXPECT_EQ( id, IntfId( 0x1ffffff, 0xffffffff ) );
   EXPECT_EQ( EthIntfId::make( 1, 3, 2, 100 ), IntfId( 1 << 20 | 3 << 6 | 2, 100 ) );
   const IntfId each[] = { EthIntfId::make( 31, 0, 0 ), EthIntfId::make( 0, 16383, 0 ), EthIntfId::make( 0, 0, 63 ),
                           EthIntfId::make( 0, 0, 0, 4095 ) };
   for( int i = 0; i < 4; ++i ) {
      EXPECT_TRUE( EthIntfId::isEthIntfId( each[ i ] ) );
      EXPECT_EQ( EthIntfId::module( each[ i ] ), i == 0 ? 31u : 0 );
      EXPECT_EQ( EthIntfId::port( each[ i ] ), i == 1 ? 16383u : 0 );
      EXPECT_EQ( EthIntfId::lane( each[ i ] ), i == 2 ? 63u : 0 );
      EXPECT_EQ( EthIntfId::subIntf( each[ i ] ), i == 3 ? 4095u : 0 );
   }
}

TEST( EthIntfId, TheEmptyIdentifierIsNone ) {
   EXPECT_FALSE( EthIntfId::isEthIntfId( IntfId() ) );
   EXPECT_TRUE( EthIntfId::isEthIntfId( IntfId( 0, 1 ) ) );
   EXPECT_FALSE( EthIntfId::isEthIntfId( typeIdIs( EthIntfId::make( 0, 1, 0 ), IntfTypeId::peerEthernet ) ) );
   EXPECT_DEATH( EthIntfId::port( IntfId() ), "EthIntfId: .*: assertion \"isEthIntfId\\( intfId \\)\" failed" );
   EXPECT_DEATH( EthIntfId::subIntf( VlanIntfId::make( 7 ) ), "isEthIntfId\\( intfId \\)" );
}

TEST( EthIntfId, MakeRefusesWhatDoesNotFit ) {
   EXPECT_DEATH( EthIntfId::make( 32, 1, 0 ), "assertion \"module <= maxModule\" failed" );
   EXPECT_DEATH( EthIntfId::make( 0, 16384, 0 ), "assertion \"port <= maxPort\" failed" );
   EXPECT_DEATH( EthIntfId::make( 0, 1, 64 ), "assertion \"lane <= maxLane\" failed" );
}

}
}
