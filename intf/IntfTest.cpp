#include <Vanta/SubIntf.h>
#include <Vanta/VlanIntf.h>
#include <gtest/gtest.h>
#include <intfbase/IntfDetails.h>
#include <kel/AttrLog.h>
#include <kel/Dir.h>
#include <kel/ThrownTest.h>

// Interfaces: how a status is made and remade, who answers for a kind of interface.

namespace Interface {
namespace {

using Kel::Name;
using Quor::IntfId;

struct IntfTest : testing::Test {
   IntfTest() { root->entryIs( configs ); }
   const Kel::Ptr< Kel::Dir > root = Kel::dirFactory( Name( "root" ) );
   const Kel::Ptr< VlanIntfConfigDir > configs = vlanIntfConfigDirFactory( Name( "config" ) );
   const Kel::Ptr< VlanIntfStatusDir > statuses = vlanIntfStatusDirFactory( Name( "status" ) );
   const IntfId vlan10 = IntfId( "Vlan10" ), vlan20 = IntfId( "Vlan20" );
};

TEST_F( IntfTest, AStatusIsRemadeOnlyAsItWas ) {
   const auto config = configs->intfConfigIs( vlan10 );
   const auto status = statuses->intfStatusIs( vlan10, config, 7, "Vlan10" );
   EXPECT_EQ( statuses->intfStatusIs( vlan10, config, 7, "Vlan10" ), status );
   EXPECT_EQ( status->intfName().str(), "Vlan10" );
   EXPECT_EQ( status->defaultConfig(), config );
   const std::string begins = "Reinstantiating the entity with name Vlan10 where constructor parameter attribute _";
   EXPECT_EQ( thrown< Kel::NameInUseException >( [ & ] { statuses->intfStatusIs( vlan10, config, 8, "Vlan10" ); } ),
              begins + "genId has a different value of 8 than the current value of 7 not allowed" );
   // A reference is shown by the full name of its entity.
   const auto other = configs->intfConfigIs( vlan20 );
   EXPECT_EQ( thrown< Kel::NameInUseException >( [ & ] { statuses->newIntfStatus( vlan10, other, 7, "Vlan10" ); } ),
              begins + "defaultConfig has a different value of root/config/Vlan20 than the current value of root/config/Vlan10 "
                       "not allowed" );
   EXPECT_EQ( thrown< Kel::NameInUseException >( [ & ] { statuses->intfStatusIs( vlan10, config, 7, "Vl10" ); } ),
              begins + "intfName has a different value of 'Vl10' than the current value of 'Vlan10' not allowed" );
   EXPECT_EQ( statuses->intfStatus( vlan10 )->genId(), 7u );
   // Sub-interfaces are made without a name.
   const auto subStatuses = subIntfStatusDirFactory( Name( "subintf" ) );
   EXPECT_EQ( subStatuses->intfStatusIs( IntfId( "Ethernet3.5" ), nullptr, 1 )->name().str(), "Ethernet3.5" );
}

TEST_F( IntfTest, AStatusIsReplicatedWithWhatItWasMadeOf ) {
   statuses->intfStatusIs( vlan10, configs->intfConfigIs( vlan10 ), 7, "Vlan10" );
   statuses->attrLogIs( true );
   Kel::LogOut out;
   ASSERT_TRUE( statuses->attrLog()->take( out ) );
   const auto copies = vlanIntfStatusDirFactory( Name( "status" ) );
   root->entryIs( copies );
   Kel::LogIn in( out.bytes() );
   Kel::AttrLogProxy( *copies ).update( in );
   const auto copy = copies->intfStatus( vlan10 );
   ASSERT_TRUE( copy );
   EXPECT_EQ( copy->genId(), 7u );
   EXPECT_EQ( copy->defaultConfig(), configs->intfConfig( vlan10 ) );
   EXPECT_EQ( copy->intfName().str(), "Vlan10" );
}

/// Answers for sub-interfaces.
struct SubIntfDetails : EthIntfDetailsProvider {
   IanaType ianaType( const IntfStatus& ) const override { return IanaType::l2vlan; }
};

TEST_F( IntfTest, DetailsComeFromTheNearestProvider ) {
   const auto vlan = statuses->intfStatusIs( vlan10, nullptr, 1, "Vlan10" );
   vlan->speedIs( 10'000'000'000 );
   vlan->ifIndexIs( 42 );
   const auto sub = subIntfStatusFactory( IntfId( "Ethernet3.5" ), nullptr, 1 );
   const IntfDetailsProvider* const ethernet = intfDetailsProvider( *vlan );
   ASSERT_TRUE( ethernet );
   EXPECT_EQ( ethernet->speed( *vlan ), 10'000'000'000u );
   EXPECT_EQ( ethernet->ifIndex( *vlan ), 42 );
   EXPECT_EQ( ethernet->ifIndex( *sub ), -1 );
   EXPECT_EQ( ethernet->speed( *sub ), 0u );
   const SubIntfDetails own;
   const IntfDetailsProvider* const before = intfDetailsProviderIs( SubIntfStatus::_Type, &own );
   EXPECT_EQ( intfDetailsProvider( *sub ), &own );
   EXPECT_EQ( intfDetailsProvider( *vlan ), ethernet );
   EXPECT_EQ( intfDetailsProviderIs( SubIntfStatus::_Type, before ), &own );
   EXPECT_EQ( intfDetailsProvider( *sub ), before );
}

}
}
