#include "IdsTest.h"

#include <Vanta/PseudowireIntfId.h>
#include <Vanta/VantaIntfId.h>
#include <gtest/gtest.h>
#include <random>

namespace Quor {
namespace {

using Kel::U32;
using Kel::U64;

constexpr char vlanRefused[] = "VlanIdOrAny::value < 1 or > 4095 not allowed";

constexpr IntfId pseudowire( U32 index, U32 high ) { return { 0x76000000 | index, high }; }

TEST( PseudowireIntfId, BuildAndTakeApart ) {
   constexpr Kel::U16 edges[] = { 1, 2, 4094, 4095 };
   std::mt19937 random( 1 );
   for( int i = 0; i < 2000; ++i ) {
      const IntfId parent( static_cast< U32 >( random() ), static_cast< U32 >( random() ) );
      const auto vlan = static_cast< Kel::U16 >( i < 4 ? edges[ i ] : 1 + random() % 4095 );
      const IntfId id = PseudowireIntfId::intfIdFromIntfIdVlan( parent, vlan );
      ASSERT_EQ( id, IntfId( ( parent.low() & 0x1ffffff ) | 0x76000000, U32( vlan ) << 8 | parent.low() >> 25 ) );
      ASSERT_TRUE( PseudowireIntfId::isPseudowireIntfId( id ) );
      ASSERT_EQ( PseudowireIntfId::vlanId( id ).value(), vlan );
      ASSERT_EQ( PseudowireIntfId::connectorId( id ), part( parent, 1 ) );
      ASSERT_EQ( PseudowireIntfId::connectorType( id ), typeId( parent ) );
      ASSERT_EQ( PseudowireIntfId::parentIntfId( id ), IntfId( parent.low(), 0 ) );
      ASSERT_EQ( PseudowireIntfId::isPortPseudowireIntfId( id ), vlan == 4095 );
      ASSERT_EQ( PseudowireIntfId::portIntfIdFromIntfId( parent ), PseudowireIntfId::intfIdFromIntfIdVlan( parent, 4095 ) );
   }
}

TEST( PseudowireIntfId, NumberOverlaps ) {
   struct {
      U32 index, high;
      U64 number;
   } const rows[] = {
      { 1, 4095 << 8, 0xfff000 },                          // the connector id's bit 0 is the VLAN's bit 8
      { 1, 0xff << 8 | 7, 0x1ff007 },
      { 2, 1 << 8 | 8, 0x201008 },
      { 0x1ffffff, 4095 << 8 | 0xff, 0x1ffffffff0ff },
      { 0, 0xffffffff, 0xffffff0ff },                      // the whole part above bit 8, unchecked
   };
   for( const auto& row : rows ) EXPECT_EQ( PseudowireIntfId::pseudowireIntfId( pseudowire( row.index, row.high ) ), row.number );
}

TEST( PseudowireIntfId, TheVlanIsJudgedOnAllItsBits ) {
   for( U32 vlan : { 0u, 4096u, 65535u, 65536u, 65537u, 0x10fffu, 0xffffffu } ) {
      const IntfId id = pseudowire( 3 << 6, vlan << 8 );
      EXPECT_EQ( thrown( [ & ] { PseudowireIntfId::vlanId( id ); } ), vlanRefused ) << vlan;
      EXPECT_EQ( thrown( [ & ] { PseudowireIntfId::isPortPseudowireIntfId( id ); } ), vlanRefused ) << vlan;
      EXPECT_EQ( thrown( [ & ] { PseudowireIntfId::parentIntfId( id ); } ), vlanRefused ) << vlan;
      EXPECT_EQ( PseudowireIntfId::connectorId( id ), 3u << 6 );
      EXPECT_EQ( PseudowireIntfId::connectorType( id ), 0 );
   }
   // A connector type has eight bits and a kind only seven: the eighth falls off the parent.
   EXPECT_EQ( PseudowireIntfId::connectorType( pseudowire( 1, 1 << 8 | 0x87 ) ), 0x87 );
   EXPECT_EQ( PseudowireIntfId::parentIntfId( pseudowire( 1, 1 << 8 | 0x87 ) ), IntfId( 7u << 25 | 1, 0 ) );
}

TEST( PseudowireIntfId, Names ) {
   const IntfId id = PseudowireIntfId::intfIdFromIntfIdVlan( IntfId( "Ethernet3.7" ), 100 );
   EXPECT_EQ( id.stringValue(), "Pseudowire-Ethernet3.100" );
   EXPECT_EQ( PseudowireIntfId::localIntfIdFromString( "Pseudowire-Ethernet3.100" ), id );
   const IntfId onPort = PseudowireIntfId::portIntfIdFromIntfId( IntfId( "Port-Channel7" ) );
   EXPECT_EQ( PseudowireIntfId::localIntfIdFromString( "Pseudowire-Port-Channel7" ), onPort );
   EXPECT_EQ( PseudowireIntfId::localIntfIdFromString( pseudowire( 0, 0 ).stringValue() ), pseudowire( 0, 0 ) );
   EXPECT_EQ( thrown( [] { PseudowireIntfId::localIntfIdFromString( "Ethernet3" ); } ),
              "interface name 'Ethernet3' is no pseudowire's: expected a name like Pseudowire-Ethernet3.100" );
   for( const char* bad : { "", "Pseudowire-Ethernet3.0", "Pseudowire-Ethernet3.4095", "Pseudowire-Etherne3" } ) {
      const std::string text = thrown( [ & ] { PseudowireIntfId::localIntfIdFromString( bad ); } );
      EXPECT_NE( text.find( "'" + std::string( bad ) + "'" ), std::string::npos ) << text;
   }
}

/// A value type that is an identifier: it has the identifier's text, order, hash and log.
template< class T >
class WrappedIntfId : public testing::Test {};
using Wrappers =
   testing::Types< CpuIntfId, PortChannelIntfId, PeerEthIntfId, PeerPortChannelIntfId, SubIntfId, PseudowireIntfId >;
TYPED_TEST_SUITE( WrappedIntfId, Wrappers );

TYPED_TEST( WrappedIntfId, HasTheFacetsOfItsIdentifier ) {
   static_assert( sizeof( TypeParam ) == 8 && alignof( TypeParam ) == 4 );
   TypeParam last;
   for( const char* name : { "", "Ethernet3/2.100", "Pseudowire-Ethernet3", "Intf-ffffffffffffffff" } ) {
      const IntfId plain( name );
      const TypeParam id{ Kel::String8( name ) };
      EXPECT_EQ( id.value(), plain );
      EXPECT_EQ( Quor::valueToStrep( id ), Quor::valueToStrep( plain ) );
      EXPECT_EQ( Kel::strepToValue< TypeParam >( Quor::valueToStrep( plain ) ), id );
      EXPECT_EQ( id.hash(), plain.hash() );
      EXPECT_EQ( id < last, plain < last.value() );
      const std::string log = logged( id );
      EXPECT_EQ( log, logged( plain ) );
      Kel::LogIn in( { reinterpret_cast< const Kel::U8* >( log.data() ), log.size() } );
      EXPECT_EQ( TypeParam( in ), id );
      last = id;
   }
   const std::string sequence = "'Ethernet3', 7";
   Kel::TextIter from( sequence.data() );
   EXPECT_EQ( TypeParam::sequenceToValue( from, Kel::TextIter( sequence.data() + sequence.size() ) ).value(), IntfId( "Ethernet3" ) );
   EXPECT_EQ( from.ptr(), sequence.data() + 11 );
   EXPECT_NE( thrown( [] { Kel::strepToValue< TypeParam >( "'Ethernet3x'" ); } ), "nothing" );
}

TEST( PseudowireIntfIdDeathTest, AnotherKindStopsTheProcess ) {
   const IntfId ethernet( "Ethernet3" );
   const auto text = []( const char* function ) {
      return "PseudowireIntfId: " + std::string( function ) + ": assertion \"isPseudowireIntfId\\( intfId \\)\" failed";
   };
   EXPECT_DEATH( PseudowireIntfId::parentIntfId( ethernet ), text( "parentIntfId" ) );
   EXPECT_DEATH( PseudowireIntfId::vlanId( ethernet ), text( "vlanId" ) );
   EXPECT_DEATH( PseudowireIntfId::isPortPseudowireIntfId( ethernet ), text( "isPortPseudowireIntfId" ) );
   EXPECT_DEATH( PseudowireIntfId::connectorId( ethernet ), text( "connectorId" ) );
   EXPECT_DEATH( PseudowireIntfId::connectorType( IntfId() ), text( "connectorType" ) );
   EXPECT_DEATH( PseudowireIntfId::pseudowireIntfId( ethernet ), text( "pseudowireIntfId" ) );
}

}
}
