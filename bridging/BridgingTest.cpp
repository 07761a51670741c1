#include <Vanta/Bridging.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kel/GenericIf.h>
#include <limits>
#include <sstream>

namespace Bridging {
namespace {

using Kel::strepToValue;
using Kel::U16;
using Kel::U32;
using Quor::EthAddr;
using Quor::IntfId;
using testing::ElementsAre;

const EthAddr mac( "02:00:00:00:00:01" );
const EthAddr next( "02:00:00:00:00:02" );

template< class Action >
std::string refusal( const Action& action ) {
   try {
      action();
   } catch( const Kel::RangeException& e ) {
      return e.what();
   }
   return "nothing";
}

/// The text is the one of the value in each way of writing it, and gives the value back.
template< class T >
void hasText( const T& value, const std::string& text ) {
   EXPECT_EQ( Bridging::valueToStrep( value ).str(), text );
   EXPECT_EQ( strepToValue< T >( text ), value ) << text;
   std::ostringstream out;
   out << value;
   EXPECT_EQ( out.str(), text );
   EXPECT_EQ( typename T::GenericIf_( value ).stringValue().str(), text );
}

TEST( Bridging, TextForms ) {
   hasText( HostKey( 7, mac ), "Value('Bridging::HostKey', ** {'fid': 7, 'addr': '02:00:00:00:00:01'})" );
   hasText( LearnedHost( mac, IntfId( "Port-Channel7.5" ), 4294967295, 1735689600.25, EntryType::peerRouterMac ),
            "Value('Bridging::LearnedHost', ** {'address': '02:00:00:00:00:01', 'intf': 'Port-Channel7.5', 'moves': 4294967295, "
            "'lastMoveTime': 1735689600.25, 'entryType': 'peerRouterMac'})" );
   hasText( ConfiguredHost( mac, IntfId( "Ethernet3/2" ), EntryType::configuredStaticMac ),
            "Value('Bridging::ConfiguredHost', ** {'address': '02:00:00:00:00:01', 'intf': 'Ethernet3/2', 'entryType': 'configuredStaticMac'})" );
   // A number, not a VLAN: it is 0 for every VLAN and may be anything.
   hasText( HostTableFlushRequest(), "Value('Bridging::HostTableFlushRequest', ** {'vlanId': 0, 'intf': ''})" );
   hasText( HostTableFlushRequest( 65535, IntfId( "Cpu" ) ), "Value('Bridging::HostTableFlushRequest', ** {'vlanId': 65535, 'intf': 'Cpu'})" );
   hasText( InternalVlanRange( 4094, 1006 ), "Value('Bridging::InternalVlanRange', ** {'vlanBegin': 4094, 'vlanEnd': 1006})" );
   hasText( Fid(), "0" );
   hasText( Fid( 65535 ), "65535" );
}

/// Four faults that every composite value has its own text for.
template< class T >
void refusesText( const std::string& name ) {
   const std::string start = "Value('Bridging::" + name + "', ** {";
   EXPECT_EQ( strepToValue< T >( start + "})" ), T() );
   EXPECT_EQ( refusal( [ & ] { strepToValue< T >( start ); } ), "premature end of value type " + name );
   EXPECT_EQ( refusal( [ & ] { strepToValue< T >( start + "}" ); } ), "premature end of value type " + name );
   EXPECT_EQ( refusal( [ & ] { strepToValue< T >( start + "'port': 1})" ); } ), name + " has no such attribute: port" );
   EXPECT_EQ( refusal( [ & ] { strepToValue< T >( start + "})x" ); } ),
              "junk at column " + std::to_string( start.size() + 2 ) + " deserializing Bridging::" + name );
}

TEST( Bridging, TextsThatAreRefused ) {
   refusesText< HostKey >( "HostKey" );
   refusesText< LearnedHost >( "LearnedHost" );
   refusesText< ConfiguredHost >( "ConfiguredHost" );
   refusesText< HostTableFlushRequest >( "HostTableFlushRequest" );
   refusesText< InternalVlanRange >( "InternalVlanRange" );
   EXPECT_EQ( refusal( [] { strepToValue< InternalVlanRange >( "Value('Bridging::InternalVlanRange', ** {'vlanEnd': 0})" ); } ),
              "InternalVlanRange::vlanEnd: VlanId::value < 1 or > 4094 not allowed" );
   for( const char* text : { "65536", "-1", "", "4294967296", "1x" } )
      EXPECT_NE( refusal( [ & ] { strepToValue< Fid >( text ); } ), "nothing" ) << text;
}

TEST( Bridging, HostKeysStandByDatabaseThenAddress ) {
   const HostKey ascending[] = { { 0, EthAddr() }, { 0, EthAddr::broadcast() }, { 1, EthAddr() },  { 1, mac },
                                 { 1, next },      { 2, mac },                  { 256, mac },      { 65535, EthAddr() } };
   for( std::size_t i = 0; i < std::size( ascending ); ++i ) {
      for( std::size_t j = 0; j < std::size( ascending ); ++j ) {
         EXPECT_EQ( ascending[ i ] < ascending[ j ], i < j );
         EXPECT_EQ( ascending[ i ] >= ascending[ j ], i >= j );
         EXPECT_EQ( ascending[ i ] == ascending[ j ], i == j );
      }
   }
   static_assert( sizeof( HostKey ) == 8 );
}

TEST( Bridging, HostKeyHashIsTheAddressesWithTheDatabaseFoldedIn ) {
   EXPECT_EQ( HostKey( 0, mac ).hash(), mac.hash() );
   for( const int fid : { 1, 4094, 0x8001, 0xffff } ) EXPECT_EQ( HostKey( static_cast< U16 >( fid ), mac ).hash(), mac.hash() ^ U32( fid ) );
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
   std::vector< std::string > take() { return std::exchange( heard, {} ); }
   std::vector< std::string > heard;
};

TEST( Bridging, AHostIsReplacedUnderItsAddress ) {
   const auto status = statusFactory( "status" );
   const auto fdb = status->fdbStatusIs( 10 );
   EXPECT_EQ( status->fdbStatusIs( 10 ), fdb );
   const auto log = Kel::makePtr< HostLog >( fdb );
   const LearnedHost first( mac, IntfId( "Ethernet1" ), 0, 0, EntryType::learnedDynamicMac );
   EXPECT_EQ( fdb->learnedHostIs( first ), first );
   EXPECT_THAT( log->take(), ElementsAre( "now", "02:00:00:00:00:01 Ethernet1" ) );
   const U32 before = fdb->changeCount();
   fdb->learnedHostIs( first );
   EXPECT_EQ( fdb->changeCount(), before );
   fdb->learnedHostIs( { mac, IntfId( "Ethernet2" ), 1, 5, EntryType::learnedDynamicMac } );
   EXPECT_EQ( fdb->changeCount(), before + 1 );
   EXPECT_EQ( fdb->learnedHostCount(), 1u );
   EXPECT_THAT( log->take(), ElementsAre( "now", "02:00:00:00:00:01 Ethernet2" ) );
   EXPECT_EQ( fdb->learnedHostDel( mac ).moves(), 1u );
   EXPECT_EQ( fdb->learnedHostDel( mac ), LearnedHost() );
   EXPECT_THAT( log->take(), ElementsAre( "now", "02:00:00:00:00:01 " ) );
   EXPECT_EQ( status->fdbStatusDel( 10 ), fdb );
   EXPECT_FALSE( status->fdbStatusDel( 10 ) );
}

TEST( Bridging, ConfiguredEntitiesKeepTheirKeys ) {
   const auto config = fdbConfigFactory( 3 );
   config->configuredHostIs( { mac, IntfId( "Ethernet1" ), EntryType::configuredStaticMac } );
   config->configuredHostIs( { mac, IntfId( "Ethernet2" ), EntryType::configuredStaticMac } );
   EXPECT_EQ( config->configuredHostCount(), 1u );
   EXPECT_EQ( config->configuredHost( mac ).intf(), IntfId( "Ethernet2" ) );
   const auto group = config->ethGroupIs( mac );
   group->intfIs( IntfId( "Ethernet1" ), true );
   EXPECT_EQ( config->ethGroupIs( mac ), group );
   EXPECT_EQ( group->address(), mac );
   EXPECT_TRUE( group->intf( IntfId( "Ethernet1" ) ) );
   EXPECT_FALSE( group->intf( IntfId( "Ethernet2" ) ) );
   const auto requests = hostTableFlushRequestDirFactory( "requests" );
   requests->hostTableFlushRequestIs( "mine", { 5, IntfId() } );
   EXPECT_EQ( requests->hostTableFlushRequestDel( "mine" ).vlanId(), 5 );
   EXPECT_EQ( requests->hostTableFlushRequestDel( "mine" ), HostTableFlushRequest() );
}

/// The names of an enumeration from 0 on, and what stands for the number behind the last.
template< class E, class FromNumber, class FromName >
void enumerates( const std::string& type, std::initializer_list< const char* > names, FromNumber fromNumber, FromName fromName ) {
   U32 number = 0;
   for( const char* name : names ) {
      EXPECT_EQ( Bridging::stringValue( static_cast< E >( number ) ).str(), name );
      EXPECT_EQ( Bridging::valueToStrep( static_cast< E >( number ) ).str(), "'" + std::string( name ) + "'" );
      EXPECT_EQ( fromNumber( number ), static_cast< E >( number ) );
      EXPECT_EQ( fromName( Kel::String8( name ) ), static_cast< E >( number ) );
      ++number;
   }
   static_assert( sizeof( E ) == 4 );
   for( const U32 outside : { number, U32( 9 ), U32( 4294967295 ) } ) {
      EXPECT_EQ( Bridging::stringValue( static_cast< E >( outside ) ).str(), type + "(" + std::to_string( static_cast< Kel::S32 >( outside ) ) + ")" );
      EXPECT_EQ( strepToValue< E >( Bridging::valueToStrep( static_cast< E >( outside ) ).view() ), static_cast< E >( outside ) );
      EXPECT_EQ( refusal( [ & ] { fromNumber( outside ); } ), type );
   }
}

TEST( Bridging, Enumerations ) {
   const auto of = []( auto instance ) { return [ instance ]( auto v ) { return instance( v ); }; };
   const auto mode = of( []( auto v ) { return SwitchportModeInstance( v ); } );
   enumerates< SwitchportMode >( "SwitchportMode", { "access", "trunk", "dot1qTunnel", "tap", "tool", "routed" }, mode, mode );
   const auto forwarding = of( []( auto v ) { return SwitchForwardingModeInstance( v ); } );
   enumerates< SwitchForwardingMode >( "SwitchForwardingMode", { "defaultMode", "cutThrough", "storeAndForward" }, forwarding, forwarding );
   const auto policy = of( []( auto v ) { return InternalVlanAllocationPolicyInstance( v ); } );
   enumerates< InternalVlanAllocationPolicy >( "InternalVlanAllocationPolicy", { "ascending", "descending" }, policy, policy );
}

}
}
