#include "IdsTest.h"

#include <Vanta/BridgingHostEntryType.h>
#include <gtest/gtest.h>
#include <sstream>

namespace Bridging {
namespace {

TEST( EntryType, NamesAndNumbers ) {
   const char* const names[] = { "learnedDynamicMac", "learnedSecureMac", "configuredDynamicMac", "configuredSecureMac", "configuredStaticMac",
                                 "peerDynamicMac", "peerStaticMac", "peerSecureMac", "learnedRemoteMac", "configuredRemoteMac",
                                 "receivedRemoteMac", "peerLearnedRemoteMac", "peerConfiguredRemoteMac", "peerReceivedRemoteMac",
                                 "evpnDynamicRemoteMac", "evpnConfiguredRemoteMac", "peerEvpnRemoteMac", "configuredRouterMac", "peerRouterMac" };
   static_assert( std::size( names ) == 19 );
   for( unsigned i = 0; i < std::size( names ); ++i ) {
      const EntryType type = EntryTypeInstance( i );
      EXPECT_EQ( static_cast< unsigned >( type ), i );
      EXPECT_EQ( EntryTypeInstance( Kel::String8( names[ i ] ) ), type );
      EXPECT_EQ( Bridging::stringValue( type ), names[ i ] );
      EXPECT_EQ( Bridging::valueToStrep( type ).str(), "'" + std::string( names[ i ] ) + "'" );
      EXPECT_EQ( Kel::strepToValue< EntryType >( "'" + std::string( names[ i ] ) + "'" ), type );
      std::ostringstream out;
      out << type;
      EXPECT_EQ( out.str(), names[ i ] );
   }
}

TEST( EntryType, OutsideTheTable ) {
   for( unsigned number : { 19u, 0x80000000u, 0xffffffffu } ) {
      EXPECT_EQ( refusal( [ & ] { EntryTypeInstance( number ); } ), "EntryType" );
   }
   EXPECT_EQ( Bridging::stringValue( static_cast< EntryType >( 19 ) ), "EntryType(19)" );
   for( const char* name : { "", "learnedDynamicMa", "learneddynamicmac", "'learnedDynamicMac'", "19" } )
      EXPECT_NE( refusal( [ & ] { EntryTypeInstance( Kel::String8( name ) ); } ), "nothing" ) << name;
}

}
}
