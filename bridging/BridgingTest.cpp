#include <Vanta/Bridging.h>
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kel/ThrownTest.h>
#include <limits>

namespace Bridging {
namespace {

using Kel::strepToValue;
using Kel::U32;
using Quor::EthAddr;
using Quor::IntfId;
using testing::ElementsAre;

const EthAddr mac( "02:00:00:00:00:01" );
const EthAddr next( "02:00:00:00:00:02" );

/// The value has this text, which gives it back.
template< class T >
void hasText( const T& value, const std::string& text ) {
   EXPECT_EQ( Bridging::valueToStrep( value ).str(), text );
   EXPECT_EQ( strepToValue< T >( text ), value ) << text;
}

TEST( Bridging, TextForms ) {
   hasText( HostKey( 7, mac ), "Value('Bridging::HostKey', ** {'fid': 7, 'addr': '02:00:00:00:00:01'})" );
   hasText( LearnedHost( mac, IntfId( "Port-Channel7.5" ), 4294967295, 1735689600.25, EntryType::peerRouterMac ),
            "Value('Bridging::LearnedHost', ** {'address': '02:00:00:00:00:01', 'intf': 'Port-Channel7.5', 'moves': 4294967295, "
            "'lastMoveTime': 1735689600.25, 'entryType': 'peerRouterMac'})" );
   hasText( ConfiguredHost( mac, IntfId( "Ethernet3/2" ), EntryType::configuredStaticMac ),
            "Value('Bridging::ConfiguredHost', ** {'address': '02:00:00:00:00:01', 'intf': 'Ethernet3/2', "
            "'entryType': 'configuredStaticMac'})" );
   // A number, not a VLAN: it is 0 for every VLAN and may be anything.
   hasText( HostTableFlushRequest(), "Value('Bridging::HostTableFlushRequest', ** {'vlanId': 0, 'intf': ''})" );
   hasText( HostTableFlushRequest( 65535, IntfId( "Cpu" ) ),
            "Value('Bridging::HostTableFlushRequest', ** {'vlanId': 65535, 'intf': 'Cpu'})" );
   hasText( InternalVlanRange( 4094, 1006 ), "Value('Bridging::InternalVlanRange', ** {'vlanBegin': 4094, 'vlanEnd': 1006})" );
   hasText( Fid( 65535 ), "65535" );
   EXPECT_NE( thrown( [] { strepToValue< Fid >( "65536" ); } ), "nothing" );
   EXPECT_EQ( thrown( [] { strepToValue< InternalVlanRange >( "Value('Bridging::InternalVlanRange', ** {'vlanEnd': 0})" ); } ),
              "InternalVlanRange::vlanEnd: VlanId::value < 1 or > 4094 not allowed" );
}

TEST( Bridging, HostKeysStandByDatabaseThenAddress ) {
   const HostKey ascending[] = { { 0, EthAddr() }, { 0, EthAddr::broadcast() }, { 1, EthAddr() },  { 1, mac },
                                 { 1, next },      { 2, mac },                  { 256, mac },      { 65535, EthAddr() } };
   EXPECT_TRUE( std::ranges::is_sorted( ascending, std::ranges::less_equal() ) );
   static_assert( sizeof( HostKey ) == 8 );
}

TEST( Bridging, HostKeyHashIsTheAddressesWithTheDatabaseFoldedIn ) {
   EXPECT_EQ( HostKey( 0, mac ).hash(), mac.hash() );
   EXPECT_EQ( HostKey( 0x8001, mac ).hash(), mac.hash() ^ 0x8001 );
   EXPECT_EQ( Kel::hashOf( HostKey( 5, mac ) ), mac.hash() ^ 5 );   // which is what the containers ask
}

template< class T >
constexpr bool isOrdered = requires( T v ) { v < v; };
template< class T >
constexpr bool isHashed = requires( T v ) { v.hash(); };

TEST( Bridging, OrderAndHashStandWhereTheyAreDefined ) {
   static_assert( isOrdered< Fid > && isHashed< Fid > );
   static_assert( !isOrdered< LearnedHost > && isHashed< LearnedHost > );
   static_assert( !isOrdered< InternalVlanRange > && !isHashed< InternalVlanRange > );
   EXPECT_EQ( Fid( 0x0102 ).hash(), Kel::murmur3( "\x02\x01", 2 ) );
   // The hash of a double does not tell the two zeros apart, since they are equal.
   LearnedHost a, b;
   b.lastMoveTimeIs( -0.0 );
   EXPECT_EQ( a, b );
   EXPECT_EQ( a.hash(), b.hash() );
}

TEST( Bridging, AHostIsTestedByAllItsFields ) {
   EXPECT_TRUE( !LearnedHost() );
   LearnedHost host[ 5 ];
   host[ 0 ].addressIs( EthAddr( "00:00:00:00:00:01" ) );
   host[ 1 ].intfIs( IntfId( "Ethernet1" ) );
   host[ 2 ].movesIs( 1 );
   host[ 3 ].lastMoveTimeIs( std::numeric_limits< double >::quiet_NaN() );
   host[ 4 ].entryTypeIs( EntryType::learnedSecureMac );
   for( const LearnedHost& h : host ) {
      EXPECT_FALSE( !h ) << h;
      EXPECT_NE( h, LearnedHost() );
   }
   EXPECT_NE( host[ 3 ], host[ 3 ] );
}

/// Writes down what a filtering database's reactors hear.
struct HostLog : FdbStatus::NotifieeConst {
   using NotifieeConst::NotifieeConst;
   void onLearnedHost() override { heard.push_back( "all" ); }
   void onLearnedHost( const EthAddr& address ) override {
      heard.push_back( address.stringValue().str() + " " + notifier()->learnedHost( address ).intf().stringValue().str() );
   }
   void onLearnedHostkelImmediate() override { heard.push_back( "now" ); }
   std::vector< std::string > heard;
};

TEST( Bridging, AHostIsReplacedUnderItsAddress ) {
   const auto fdb = statusFactory( "status" )->fdbStatusIs( 10 );
   const auto log = Kel::makePtr< HostLog >( fdb );
   const LearnedHost first( mac, IntfId( "Ethernet1" ), 0, 0, EntryType::learnedDynamicMac );
   EXPECT_EQ( fdb->learnedHostIs( first ), first );
   fdb->learnedHostIs( first );
   fdb->learnedHostIs( { mac, IntfId( "Ethernet2" ), 1, 5, EntryType::learnedDynamicMac } );
   EXPECT_EQ( fdb->learnedHostCount(), 1u );
   EXPECT_EQ( fdb->learnedHostDel( mac ).moves(), 1u );
   EXPECT_EQ( fdb->learnedHostDel( mac ), LearnedHost() );
   EXPECT_THAT( log->heard, ElementsAre( "now", "02:00:00:00:00:01 Ethernet1", "now", "02:00:00:00:00:01 Ethernet2", "now",
                                         "02:00:00:00:00:01 " ) );
}

/// The names of an enumeration are these, from 0 on.
template< class FromNumber >
void enumerates( const std::string& type, std::initializer_list< const char* > names, FromNumber fromNumber ) {
   U32 number = 0;
   for( const char* name : names ) EXPECT_EQ( Bridging::stringValue( fromNumber( number++ ) ), name );
   EXPECT_EQ( thrown( [ & ] { fromNumber( number ); } ), type );
}

TEST( Bridging, Enumerations ) {
   enumerates( "SwitchportMode", { "access", "trunk", "dot1qTunnel", "tap", "tool", "routed" },
               []( U32 v ) { return SwitchportModeInstance( v ); } );
   enumerates( "SwitchForwardingMode", { "defaultMode", "cutThrough", "storeAndForward" },
               []( U32 v ) { return SwitchForwardingModeInstance( v ); } );
   enumerates( "InternalVlanAllocationPolicy", { "ascending", "descending" },
               []( U32 v ) { return InternalVlanAllocationPolicyInstance( v ); } );
}

}
}

