#include <Vanta/BrTopology.h>
#include <Vanta/Bridging.h>
#include <Vanta/DynVlanV1.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kel/AttrLog.h>
#include <kel/Dir.h>
#include <kel/ThrownTest.h>

// What is particular to single types of the configuration: what is computed, refused, or kept in an order.

namespace Bridging {
namespace {

using Kel::Name;
using Quor::EthAddr;
using Quor::IntfId;
using testing::ElementsAre;

const IntfId port( "Ethernet3" );

/// Counts the callbacks of an input port's truncation sizes.
class SizeWatcher : public Input::SwitchIntfConfig::NotifieeConst {
 public:
   using NotifieeConst::NotifieeConst;
   void onTapTruncationSize() override { ++calls; }
   void onToolTruncationSize() override { ++calls; }
   int calls = 0;
};

TEST( InputPort, ARefusedTruncationSizeIsStoredAndNotAnnounced ) {
   const auto config = Input::switchIntfConfigFactory( port, Input::SwitchportMode::tap );
   const auto watcher = Kel::makePtr< SizeWatcher >( config );
   config->tapTruncationSizeIs( 9236 );
   EXPECT_EQ( watcher->calls, 1 );
   const auto changes = config->changeCount();
   EXPECT_EQ( thrown< Kel::RangeException >( [ & ] { config->tapTruncationSizeIs( 9237 ); } ),
              "SwitchIntfConfig::tapTruncationSize > SwitchIntfConfig::tapTruncationSizeMax not allowed" );
   EXPECT_EQ( thrown< Kel::RangeException >( [ & ] { config->toolTruncationSizeIs( 65535 ); } ),
              "SwitchIntfConfig::toolTruncationSize > SwitchIntfConfig::toolTruncationSizeMax not allowed" );
   EXPECT_EQ( config->tapTruncationSize(), 9237 );
   EXPECT_EQ( config->toolTruncationSize(), 65535 );
   config->tapTruncationSizeIs( 9237 ); // what it holds already, so nothing is done
   EXPECT_EQ( watcher->calls, 1 );
   EXPECT_EQ( config->changeCount(), changes );
}

TEST( InputVlan, DefaultNameFollowsTheEntitysName ) {
   const std::pair< const char*, const char* > names[] = {
      { "1", "default" }, { "01", "default" }, { "1x", "default" }, { "7", "VLAN0007" }, { "4094", "VLAN4094" }, { "x7", "VLAN0000" },
      { "", "VLAN0000" }, { "12345 6", "VLAN12345" }, { "2147483647", "VLAN2147483647" }, { "99999999999999999999", "VLAN2147483647" } };
   for( const auto& [ name, expected ] : names ) {
      EXPECT_EQ( Input::vlanConfigFactory( Name( name ), VlanId( 9 ) )->defaultName().str(), expected ) << name;
   }
}

TEST( InputConfig, CreatesWhatIsMissing ) {
   const auto source = Input::cliConfigFactory( Name( "cli" ) );
   const auto vlan = source->doCreateVlan( 10 );
   EXPECT_EQ( source->doCreateVlan( 10 ), vlan );
   EXPECT_EQ( vlan->defaultName().str(), "VLAN0010" );
   const auto fdb = source->fdbConfigIs( 10 );
   const EthAddr mac( "02:00:00:00:00:01" );
   const auto host = fdb->doCreateConfiguredHost( mac, port, EntryType::configuredStaticMac );
   EXPECT_EQ( host, ConfiguredHost( mac, port, EntryType::configuredStaticMac ) );
   EXPECT_EQ( fdb->configuredHost( mac ), host );
}

TEST( AllowedVlans, ArePortsByTheirHandle ) {
   const auto allowed = Input::allowedVlansFactory( Name( "mlag" ) );
   EXPECT_EQ( allowed->vlansByIntfId( port ).str(), "" );
   allowed->vlansByIntfIdIs( port, "10,20" );
   EXPECT_EQ( allowed->vlans( 0xc0 ).str(), "10,20" );
   EXPECT_EQ( allowed->vlansByIntfId( port ).str(), "10,20" );
   allowed->vlansByIntfIdDel( port );
   EXPECT_EQ( allowed->vlansCount(), 0u );
}

TEST( VlanConfig, OnlyAPlainVlanMayBeAPrimary ) {
   const auto config = configFactory( Name( "config" ) );
   const auto vlan = config->vlanConfigIs( 10, false );
   EXPECT_EQ( vlan->name().str(), "10" );
   EXPECT_TRUE( vlan->eligibleToBePrimary() );
   EXPECT_FALSE( config->vlanConfigIs( 11, true )->eligibleToBePrimary() );
   for( const VlanTypeAndPrimaryVlan& role : { VlanTypeAndPrimaryVlan( VlanType::isolated, 0 ), VlanTypeAndPrimaryVlan( VlanType::normal, 20 ) } ) {
      vlan->vlanTypeAndPrimaryVlanIs( role );
      EXPECT_FALSE( vlan->eligibleToBePrimary() );
   }
   vlan->vlanTypeAndPrimaryVlanIs( {} );
   vlan->adminStateIs( VlanAdminState::suspended );
   EXPECT_FALSE( vlan->eligibleToBePrimary() );
}

TEST( Reinstantiation, NamesWhatDiffersAndLeavesTheChildAsItWas ) {
   const auto config = configFactory( Name( "config" ) );
   config->vlanConfigIs( 10, true );
   EXPECT_EQ( thrown< Kel::NameInUseException >( [ & ] { config->vlanConfigIs( 10, false ); } ),
              "Reinstantiating the entity with name 10 where constructor parameter attribute _internal has a different value of False than the "
              "current value of True not allowed" );
   EXPECT_TRUE( config->vlanConfig( 10 )->internal() );

   using Topology::PortState;
   const auto topologies = Topology::configFactory( Name( "topology" ) );
   const auto mst = topologies->topoConfigIs( Name( "Mst0" ), 7, PortState::discarding, false );
   EXPECT_EQ( topologies->topoConfigIs( Name( "Mst0" ), 7, PortState::discarding, false ), mst );
   const std::string begins = "Reinstantiating the entity with name Mst0 where constructor parameter attribute _";
   EXPECT_EQ( thrown< Kel::NameInUseException >( [ & ] { topologies->topoConfigIs( Name( "Mst0" ), 8, PortState::discarding, false ); } ),
              begins + "creationNonce has a different value of 8 than the current value of 7 not allowed" );
   EXPECT_EQ( thrown< Kel::NameInUseException >( [ & ] { topologies->topoConfigIs( Name( "Mst0" ), 7, PortState::forwarding, false ); } ),
              begins + "defaultPortState has a different value of 'forwarding' than the current value of 'discarding' not allowed" );
   EXPECT_EQ( thrown< Kel::NameInUseException >( [ & ] { topologies->topoConfigIs( Name( "Mst0" ), 7, PortState::discarding, true ); } ),
              begins + "standalone has a different value of True than the current value of False not allowed" );
   // A parameter that stays writable is not compared.
   const auto onPort = mst->topoPortConfigIs( port, 1, PortState::learning );
   EXPECT_EQ( mst->topoPortConfigIs( port, 1, PortState::forwarding ), onPort );
   EXPECT_EQ( onPort->state(), PortState::learning );
   topologies->topoConfigDel( Name( "Mst0" ) );
   EXPECT_EQ( topologies->topoConfigIs( Name( "Mst0" ), 8, PortState::discarding, false )->creationNonce(), 8u );
}

/// What a reader that has seen nothing makes of an entity's log; the proxy goes on.
void copyTo( Kel::AttrLogProxy& proxy, Kel::Entity& entity ) {
   if( !entity.attrLog() ) entity.attrLogIs( true );
   Kel::LogOut out;
   entity.attrLog()->difference( 0, out );
   Kel::LogIn in( out.bytes() );
   proxy.update( in );
}

TEST( Topology, IsCopiedWithTheVlansThatReferToIt ) {
   using Topology::PortState;
   const auto tree = Kel::dirFactory( Name( "root" ) ), other = Kel::dirFactory( Name( "root" ) );
   const auto config = Topology::configFactory( Name( "topology" ) ), copy = Topology::configFactory( Name( "topology" ) );
   tree->entryIs( config );
   other->entryIs( copy );
   config->vidToTopoMapIs( 5, config->topoConfigIs( Name( "Mst0" ), 7, PortState::discarding, false ) );
   Kel::AttrLogProxy proxy( *copy );
   copyTo( proxy, *config );
   ASSERT_TRUE( copy->topoConfig( Name( "Mst0" ) ) );
   EXPECT_EQ( copy->vidToTopoMap( 5 ), copy->topoConfig( Name( "Mst0" ) ) );
   EXPECT_EQ( proxy.waiting(), 0u );
}

TEST( References, WaitForWhatIsNotThereYet ) {
   const auto tree = Kel::dirFactory( Name( "root" ) ), other = Kel::dirFactory( Name( "root" ) );
   const auto inputs = Input::configFactory( Name( "inputs" ) );
   const auto directory = switchIntfConfigDirFactory( Name( "ports" ) ), copy = switchIntfConfigDirFactory( Name( "ports" ) );
   tree->entryIs( inputs );
   tree->entryIs( directory );
   other->entryIs( copy );
   directory->switchIntfConfigIs( inputs->switchIntfConfigIs( port, Input::SwitchportMode::trunk ) );
   Kel::AttrLogProxy proxy( *copy );
   copyTo( proxy, *directory );
   EXPECT_EQ( copy->switchIntfConfigCount(), 0u );
   EXPECT_EQ( proxy.waiting(), 1u );
   const auto late = Input::configFactory( Name( "inputs" ) );
   other->entryIs( late );
   EXPECT_EQ( proxy.resolve(), 1u );
   const auto there = late->switchIntfConfigIs( port, Input::SwitchportMode::trunk );
   EXPECT_EQ( proxy.resolve(), 0u );
   EXPECT_EQ( copy->switchIntfConfig( port ), there );
   // One that goes while it waits is not filled in later.
   late->switchIntfConfigDel( port );
   copyTo( proxy, *directory );
   EXPECT_EQ( proxy.waiting(), 1u );
   directory->switchIntfConfigDel( port );
   copyTo( proxy, *directory );
   EXPECT_EQ( proxy.waiting(), 0u );
   // One whose place is taken by another type is refused once.
   directory->switchIntfConfigIs( inputs->switchIntfConfig( port ) );
   copyTo( proxy, *directory );
   other->entryDel( Name( "inputs" ) );
   const auto wrong = configFactory( Name( "inputs" ) );
   other->entryIs( wrong );
   wrong->switchIntfConfigIs( port, SwitchportModeAndNativeVlan() );
   EXPECT_EQ( thrown< Kel::FrameworkException >( [ & ] { proxy.resolve(); } ), "Entity is the wrong type" );
   EXPECT_EQ( proxy.resolve(), 0u );
}

TEST( Views, AreThoseOfTheirValue ) {
   const auto onPort = switchIntfConfigFactory( port, SwitchportModeAndNativeVlan( SwitchportMode::tool, 30 ) );
   EXPECT_EQ( onPort->switchportMode(), SwitchportMode::tool );
   EXPECT_EQ( onPort->nativeVlan(), VlanIdOrNone( 30 ) );
   struct Watch : VlanConfig::NotifieeConst {
      using NotifieeConst::NotifieeConst;
      void onVlanTypeAndPrimaryVlan() override { ++calls; }
      int calls = 0;
   };
   const auto vlan = vlanConfigFactory( Name( "10" ), 10, false );
   vlan->vlanTypeAndPrimaryVlanIs( VlanTypeAndPrimaryVlan( VlanType::isolated, 20 ) );
   const auto watch = Kel::makePtr< Watch >( vlan );
   vlan->vlanTypeAndPrimaryVlanIs( VlanTypeAndPrimaryVlan( VlanType::isolated, 21 ) );
   EXPECT_EQ( watch->calls, 1 );
   EXPECT_EQ( vlan->vlanType(), VlanType::isolated );
   EXPECT_EQ( vlan->primaryVlan(), VlanIdOrNone( 21 ) );
}

TEST( Reflection, OperationsGiveWhatTheyReturn ) {
   const auto allowed = Input::allowedVlansFactory( Name( "mlag" ) );
   allowed->vlansByIntfIdIs( port, "10" );
   const auto call = []( const Kel::Ptr< Kel::GenericIf >& on, const char* name, const Kel::GenericIf& argument ) {
      const Kel::GenericIf* const arguments[] = { &argument };
      Kel::Ptr< Kel::GenericIf > result;
      on->attributeOp( { static_cast< Kel::U16 >( on->attributeId( name ) ), Kel::AttributeOp::Kind::invoke, nullptr, arguments }, nullptr, result );
      return result;
   };
   const auto id = Kel::typeOf< IntfId >().genericIf( Kel::String8( "'Ethernet3'" ), false );
   EXPECT_EQ( call( Input::AllowedVlans::_Type.genericIf( allowed.ptr(), true ), "vlansByIntfId", *id )->stringValue().str(), "'10'" );
   EXPECT_EQ( thrown< Kel::ConstException >( [ & ] { call( Input::AllowedVlans::_Type.genericIf( allowed.ptr(), true ), "vlansByIntfIdDel", *id ); } ),
              "attempting to modify a const instance" );
   const auto source = Input::configFactory( Name( "cli" ) );
   const auto vlan = call( Input::Config::_Type.genericIf( source.ptr(), false ), "doCreateVlan", VlanId::GenericIf_( VlanId( 10 ) ) );
   ASSERT_TRUE( vlan );
   EXPECT_EQ( vlan->object(), source->vlanConfig( 10 ).ptr() );
   Kel::Ptr< Kel::GenericIf > none;
   const auto key = VlanId::_Type.genericIf( Kel::String8( "11" ), false );
   const auto adapter = Input::Config::_Type.genericIf( source.ptr(), false );
   EXPECT_EQ( thrown< Kel::RangeException >( [ & ] {
                 adapter->attributeOp( { static_cast< Kel::U16 >( adapter->attributeId( "vlanConfig" ) ), Kel::AttributeOp::Kind::set, key.ptr(), {} }, nullptr, none );
              } ),
              "null ValidPtr" );
}

TEST( References, StandUnderTheirOwnIdentifierAndMayNotBeNull ) {
   const auto directory = switchIntfConfigDirFactory( Name( "cli" ) );
   const auto input = Input::switchIntfConfigFactory( port, Input::SwitchportMode::trunk );
   EXPECT_EQ( directory->switchIntfConfigIs( input ), input );
   EXPECT_EQ( directory->switchIntfConfig( port ), input );
   EXPECT_EQ( input->parent(), nullptr );
   EXPECT_EQ( thrown< Kel::RangeException >( [ & ] { directory->newSwitchIntfConfig( nullptr ); } ),
              "null _switchIntfConfig parameter to mutator for Bridging::SwitchIntfConfigDir::switchIntfConfig not allowed" );
   EXPECT_EQ( directory->switchIntfConfigCount(), 1u );
}

TEST( VlanXlateStatus, ChildrenComeAndGoByName ) {
   const auto status = vlanXlateStatusFactory( port );
   EXPECT_EQ( status->hwIngressNativeVlanXlate(), nullptr );
   const auto mapping = status->hwIngressNativeVlanXlateIs( Name( "native" ) );
   mapping->mappedVlanIdIs( 20 );
   EXPECT_EQ( status->hwIngressNativeVlanXlateIs( Name( "native" ) ), mapping );
   EXPECT_EQ( mapping->fullName().str(), "Ethernet3/native" );
   EXPECT_EQ( status->hwIngressNativeVlanXlateDel(), mapping );
   EXPECT_EQ( status->hwIngressNativeVlanXlate(), nullptr );
   EXPECT_TRUE( mapping->isZombie() );
}

TEST( HwCapabilities, ComputesAndOrders ) {
   const auto hw = hwCapabilitiesFactory( Name( "hw" ) );
   EXPECT_EQ( hw->maxFrameSizeWithoutL2Encapsulation(), 9214u );
   hw->maxFrameSizeIs( 21 );
   EXPECT_EQ( hw->maxFrameSizeWithoutL2Encapsulation(), 4294967295u );
   hw->supportedForwardingModeIs( 70000, SwitchForwardingMode::storeAndForward );
   hw->supportedForwardingModeIs( 2, SwitchForwardingMode::cutThrough );
   std::vector< Kel::U32 > keys;
   for( auto i = hw->supportedForwardingModeIterConst(); i; ++i ) keys.push_back( i.key() );
   EXPECT_THAT( keys, ElementsAre( 2, 70000 ) );
}

std::vector< unsigned > positions( const IeeeReservedMacForwardGroup& group ) {
   std::vector< unsigned > out;
   for( auto i = group.groupAddrIterConst(); i; ++i ) out.push_back( i.key() );
   return out;
}

/// Brings the copy in step and compares it.
void follow( IeeeReservedMacForwardGroup& group, Kel::AttrLogProxy& proxy, const IeeeReservedMacForwardGroup& copy ) {
   Kel::LogOut out;
   if( !group.attrLog()->take( out ) ) return;
   Kel::LogIn in( out.bytes() );
   proxy.update( in );
   EXPECT_EQ( positions( copy ), positions( group ) );
   EXPECT_EQ( copy.groupAddrMetadata(), group.groupAddrMetadata() );
   for( auto i = group.groupAddrIterConst(); i; ++i ) EXPECT_EQ( copy.groupAddr( i.key() ), i.value() );
}

EthAddr address( int n ) { return EthAddr( 1, 0x80, 0xc2, 0, static_cast< Kel::U8 >( n >> 8 ), static_cast< Kel::U8 >( n ) ); }

TEST( ReservedGroup, QueueOfEightBitPositionsWrapsFillsAndIsCopiedAsItStands ) {
   using Metadata = IeeeReservedMacForwardGroup::GroupAddrMetadata;
   const auto group = ieeeReservedMacForwardGroupFactory( Name( "bpdu" ) ), copy = ieeeReservedMacForwardGroupFactory( Name( "bpdu" ) );
   Kel::AttrLogProxy proxy( *copy );
   group->attrLogIs( true );
   EXPECT_EQ( group->groupAddrMetadata(), Metadata( 0, 0 ) );
   for( int n = 0; n < 200; ++n ) group->groupAddrEnq( address( n ) );
   follow( *group, proxy, *copy );
   for( int n = 0; n < 190; ++n ) EXPECT_EQ( group->groupAddrDeq(), address( n ) );
   for( int n = 200; n < 446; ++n ) group->groupAddrEnq( address( n ) );
   EXPECT_EQ( group->groupAddrMetadata(), Metadata( 190, 190 ) ); // all 256 positions from 190 on
   EXPECT_EQ( thrown< Kel::RangeException >( [ & ] { group->groupAddrEnq( address( 446 ) ); } ),
              "queue full: all 256 positions from the head, 190, on are taken; remove the head first" );
   group->groupAddrIs( 190, address( 1000 ) ); // told last, though it stands first
   follow( *group, proxy, *copy );
   group->groupAddrDel( 195 );
   group->groupAddrDeq();
   group->groupAddrEnq( address( 446 ) );
   follow( *group, proxy, *copy );
   group->groupAddrDelAll();
   follow( *group, proxy, *copy );
   EXPECT_EQ( copy->groupAddrMetadata(), Metadata( 191, 191 ) );
   // A reader that has seen nothing gets the same.
   for( int n = 0; n < 256; ++n ) group->groupAddrEnq( address( n ) );
   group->groupAddrIs( 191, address( 2000 ) );
   const auto late = ieeeReservedMacForwardGroupFactory( Name( "bpdu" ) );
   Kel::LogOut out;
   group->attrLog()->difference( 0, out );
   Kel::LogIn in( out.bytes() );
   Kel::AttrLogProxy( *late ).update( in );
   EXPECT_EQ( positions( *late ), positions( *group ) );
   EXPECT_EQ( late->groupAddrDeq(), address( 2000 ) );
}

}
}
