#include <Vanta/SubIntfDetails.h>
#include <Vanta/VantaIntfId.h>
#include <Vanta/VlanIntf.h>
#include <gtest/gtest.h>
#include <intfbase/IntfDetails.h>
#include <kel/Dir.h>
#include <kel/ThrownTest.h>
#include <quor/EthIntfId.h>

// What network management is told of sub-interfaces.

namespace Interface {
namespace {

using Kel::Name;
using Kel::S32;
using Kel::U32;
using Quor::IntfId;

IntfId eth( U32 module, U32 port, U32 lane, U32 subIntf ) { return Quor::EthIntfId::make( module, port, lane, subIntf ); }
IntfId channel( U32 number, U32 subIntf ) { return { Quor::IntfTypeId::portChannel << 25 | number, subIntf }; }

S32 ifIndex( const IntfStatus& status ) { return intfDetailsProvider( status )->ifIndex( status ); }
S32 ifIndexOf( const IntfId& intfId ) { return ifIndex( *subIntfStatusFactory( intfId, nullptr, 1 ) ); }

/// An interface and its index, or the assertion that it stops at.
struct Row {
   IntfId intfId;
   S32 index;
   const char* assertion = nullptr;
};
const Row rows[] = {
   { eth( 0, 3, 2, 100 ), ( 100 << 18 ) | 82 },
   { channel( 7, 5 ), ( 5 << 18 ) | 0x3e000 | 7 },
   { eth( 0, 1, 0, 1 ), ( 1 << 18 ) | 1 },
   { eth( 30, 8191, 0, 4094 ), ( 4094 << 18 ) | ( 30 << 13 ) | 8191 },
   { eth( 30, 204, 40, 4094 ), ( 4094 << 18 ) | ( 30 << 13 ) | 8160 },
   { eth( 5, 3, 0, 0 ), ( 5 << 13 ) | 3 },
   { channel( 7, 0x20000005 ), ( 5 << 18 ) | 0x3e000 | 7 },   // an ECMP group
   { channel( 0x1ffffff, 4094 ), 0x3fffffff },
   // Each stops at its own check, whatever comes behind it.
   { eth( 31, 0, 41, 4095 ), 0, "subIntfNum <= 4094" },
   { eth( 31, 0, 41, 4094 ), 0, "module <= 30" },
   { eth( 30, 0, 41, 4094 ), 0, "lane <= 40" },
   { eth( 30, 0, 40, 4094 ), 0, "port" },
   { eth( 0, 205, 1, 1 ), 0, "port <= 204" },
   { eth( 0, 8192, 0, 1 ), 0, "port <= 8191" },
   { channel( 7, 4095 ), 0, "subIntfNum <= 4094" },
   { IntfId( "Vlan10" ), 0, "0" },
   { IntfId( "Cpu" ), 0, "0" },
   { IntfId(), 0, "0" },
};

TEST( SubIntfDetailsDeathTest, IndicesComeFromTheIdentifier ) {
   for( const Row& row : rows ) {
      if( !row.assertion ) EXPECT_EQ( ifIndexOf( row.intfId ), row.index ) << row.intfId;
      else EXPECT_DEATH( ifIndexOf( row.intfId ), std::string( "SubIntf: ifIndex: assertion \"" ) + row.assertion + "\" failed" ) << row.intfId;
   }
}

TEST( SubIntfDetails, OtherStatusesHaveNoIndexOfASubInterface ) {
   const auto sub = subIntfStatusFactory( IntfId( "Ethernet3.5" ), nullptr, 1 );
   const auto vlan = vlanIntfStatusFactory( IntfId( "Vlan10" ), nullptr, 1, "Vlan10" );
   EXPECT_EQ( intfDetailsProvider( *sub )->ifIndex( *vlan ), -1 );
   EXPECT_EQ( intfDetailsProvider( *sub )->ianaType( *sub ), IanaType::l2vlan );
   EXPECT_FALSE( intfDetailsProvider( *sub )->connectorPresent( *sub ) );
}

TEST( SubIntfDetails, TheBaseIsAddedLast ) {
   EXPECT_EQ( subIntfIfIndexBase(), 0 );
   for( const S32 refused : { -1, subIntfIfIndexBaseMax + 1 } ) {
      EXPECT_EQ( thrown( [ & ] { subIntfIfIndexBaseIs( refused ); } ), "subIntfIfIndexBase < 0 or > 1073741824 not allowed" );
   }
   subIntfIfIndexBaseIs( subIntfIfIndexBaseMax );
   EXPECT_EQ( ifIndexOf( channel( 0x1ffffff, 4094 ) ), 0x7fffffff );
   subIntfIfIndexBaseIs( 1000 );
   EXPECT_EQ( ifIndexOf( eth( 0, 3, 2, 100 ) ), ( ( 100 << 18 ) | 82 ) + 1000 );
   subIntfIfIndexBaseIs( 0 );
}

TEST( SubIntfDetails, TheSpeedIsTheParents ) {
   const auto eth = Kel::dirFactory( Name( "eth" ) ), slices = Kel::dirFactory( Name( "slice" ) );
   const auto subs = subIntfStatusDirFactory( Name( "subintf" ) );
   const auto phy = vlanIntfStatusDirFactory( Name( "1" ) ), lag = vlanIntfStatusDirFactory( Name( "lag" ) );
   const auto sub = subs->intfStatusIs( IntfId( "Ethernet3/2.5" ), nullptr, 1 );
   const auto speed = []( const Kel::Ptr< SubIntfStatus >& status ) { return intfDetailsProvider( *status )->speed( *status ); };
   EXPECT_EQ( speed( sub ), 0u );
   eth->entryIs( subs );
   eth->entryIs( slices );
   slices->entryIs( phy );
   slices->entryIs( Name( "again" ), eth->entry( Name( "subintf" ) ) );
   eth->entryIs( lag );
   lag->intfStatusIs( IntfId( "Port-Channel7" ), nullptr, 1, "po" )->speedIs( 20 );
   EXPECT_EQ( speed( sub ), 0u );
   phy->intfStatusIs( IntfId( "Ethernet3/2" ), nullptr, 1, "et" )->speedIs( 10 );
   EXPECT_EQ( speed( sub ), 10u );
   EXPECT_EQ( speed( subs->intfStatusIs( IntfId( "Port-Channel7.1" ), nullptr, 1 ) ), 20u );
   // One that has no parent is not its own.
   EXPECT_EQ( speed( subs->intfStatusIs( IntfId( "Ethernet3/2" ), nullptr, 1 ) ), 0u );
}

}
}
