#include "IdsTest.h"

#include <Vanta/VantaIntfId.h>
#include <gtest/gtest.h>
#include <quor/EthIntfId.h>

namespace Quor {
namespace {

using Kel::U32;

constexpr IntfId make( U32 type, U32 index, U32 high = 0 ) { return { type << 25 | index, high }; }

TEST( VantaIntfId, Kinds ) {
   struct Row {
      const char* name;
      bool cpu, portChannel, recirc, ecmp, peerEth, peerPortChannel, sub;
   };
   const Row rows[] = {
      { "", false, false, false, false, false, false, false },
      { "Ethernet3/2", false, false, false, false, false, false, false },
      { "Ethernet3/2.100", false, false, false, false, false, false, true },
      { "Ethernet3.4294967295", false, false, false, false, false, false, true },
      { "Vlan10", false, false, false, false, false, false, false },
      { "Cpu", true, false, false, false, false, false, false },
      { "Port-Channel7", false, true, false, false, false, false, false },
      { "Port-Channel7.5", false, true, false, false, false, false, true },
      { "Recirculation1", false, true, true, false, false, false, false },
      { "Recirculation1.5", false, true, true, false, false, false, true },
      { "Ecmp3", false, true, false, true, false, false, false },
      { "Ecmp3.1", false, true, false, true, false, false, true },
      { "Intf-300000000e000007", false, true, false, false, false, false, false },   // a port channel of sub-type 3
      { "PeerEthernet3.5", false, false, false, false, true, false, false },
      { "PeerPort-Channel7.5", false, false, false, false, false, true, false },
      { "PeerRecirculation7", false, false, false, false, false, true, false },
      { "Pseudowire-Ethernet3.5", false, false, false, false, false, false, false },
   };
   for( const Row& row : rows ) {
      const IntfId id( row.name );
      EXPECT_EQ( CpuIntfId::isCpuIntfId( id ), row.cpu ) << row.name;
      EXPECT_EQ( PortChannelIntfId::isPortChannelIntfId( id ), row.portChannel ) << row.name;
      EXPECT_EQ( PortChannelIntfId::isRecirc( id ), row.recirc ) << row.name;
      EXPECT_EQ( PortChannelIntfId::isEcmp( id ), row.ecmp ) << row.name;
      EXPECT_EQ( PeerEthIntfId::isPeerEthIntfId( id ), row.peerEth ) << row.name;
      EXPECT_EQ( PeerPortChannelIntfId::isPeerPortChannelIntfId( id ), row.peerPortChannel ) << row.name;
      EXPECT_EQ( SubIntfId::isSubIntfId( id ), row.sub ) << row.name;
   }
}

TEST( VantaIntfId, PortChannelParts ) {
   const IntfId id( "Ecmp33554431.268435455" );
   EXPECT_EQ( PortChannelIntfId::portChannel( id ), 0x1ffffffu );
   EXPECT_EQ( PortChannelIntfId::subIntf( id ), 0xfffffffu );
   EXPECT_EQ( PortChannelIntfId::subIntf( IntfId( "Recirculation1" ) ), 0u );
}

TEST( VantaIntfId, Parents ) {
   struct {
      const char* name;
      const char* parent;
   } const rows[] = { { "Ethernet1/3/2.100", "Ethernet1/3/2" }, { "Ethernet3", "Ethernet3" },
                      { "Port-Channel7.5", "Port-Channel7" },   { "Port-Channel7", "Port-Channel7" },
                      { "Recirculation1", "Recirculation1" },   { "Cpu", "Cpu" } };
   for( const auto& row : rows ) EXPECT_EQ( SubIntfId::parentIntfId( IntfId( row.name ) ), IntfId( row.parent ) ) << row.name;
   EXPECT_EQ( PortChannelIntfId::parentIntfIdFromSubIntf( IntfId( "Port-Channel7.5" ) ), IntfId( "Port-Channel7" ) );
   EXPECT_EQ( part( SubIntfId::parentIntfId( IntfId( "Recirculation1.5" ) ), 0 ), 0u );
}

TEST( VantaIntfId, TwinsDifferInTheirKindOnly ) {
   for( const U32 bits : { 0x0234567u, 0x1ffffffu } ) {
      const IntfId eth = make( 0, bits, ~bits ), peerEth = make( 8, bits, ~bits );
      EXPECT_EQ( PeerEthIntfId::toPeerEthIntfId( eth ), peerEth );
      EXPECT_EQ( PeerEthIntfId::fromPeerEthIntfId( peerEth ), eth );
      const IntfId channel = make( 7, bits, ~bits ), peerChannel = make( 9, bits, ~bits );
      EXPECT_EQ( PeerPortChannelIntfId::toPeerPortChannelIntfId( channel ), peerChannel );
      EXPECT_EQ( PeerPortChannelIntfId::fromPeerPortChannelIntfId( peerChannel ), channel );
   }
}

TEST( VantaIntfIdDeathTest, AnotherKindStopsTheProcess ) {
   const IntfId cpu( "Cpu" );
   const auto text = []( const char* function, const char* assertion ) {
      return "VantaIntfId: " + std::string( function ) + ": assertion \"" + assertion + " \\)\" failed";
   };
   EXPECT_DEATH( PortChannelIntfId::portChannel( cpu ), text( "portChannel", "isPortChannelIntfId\\( intfId" ) );
   EXPECT_DEATH( PortChannelIntfId::subIntf( cpu ), text( "subIntf", "isPortChannelIntfId\\( intfId" ) );
   EXPECT_DEATH( PortChannelIntfId::parentIntfIdFromSubIntf( cpu ),
                 text( "parentIntfIdFromSubIntf", "isPortChannelIntfId\\( subIntfId" ) );
   EXPECT_DEATH( PeerEthIntfId::toPeerEthIntfId( cpu ), text( "toPeerEthIntfId", "EthIntfId::isEthIntfId\\( intfId" ) );
   EXPECT_DEATH( PeerEthIntfId::toPeerEthIntfId( IntfId() ), "EthIntfId::isEthIntfId" );
   EXPECT_DEATH( PeerEthIntfId::fromPeerEthIntfId( cpu ), text( "fromPeerEthIntfId", "isPeerEthIntfId\\( intfId" ) );
   EXPECT_DEATH( PeerPortChannelIntfId::toPeerPortChannelIntfId( cpu ),
                 text( "toPeerPortChannelIntfId", "PortChannelIntfId::isPortChannelIntfId\\( intfId" ) );
   EXPECT_DEATH( PeerPortChannelIntfId::fromPeerPortChannelIntfId( cpu ),
                 text( "fromPeerPortChannelIntfId", "isPeerPortChannelIntfId\\( intfId" ) );
}

}
}
