#include "IdsTest.h"

#include <Vanta/BridgingHostEntryType.h>
#include <gtest/gtest.h>

namespace Bridging {
namespace {

TEST( EntryType, NamesAndNumbers ) {
   const char* const names[] = {
      "learnedDynamicMac",       "learnedSecureMac",      "configuredDynamicMac", "configuredSecureMac",
      "configuredStaticMac",     "peerDynamicMac",        "peerStaticMac",        "peerSecureMac",
      "learnedRemoteMac",        "configuredRemoteMac",   "receivedRemoteMac",    "peerLearnedRemoteMac",
      "peerConfiguredRemoteMac", "peerReceivedRemoteMac", "evpnDynamicRemoteMac", "evpnConfiguredRemoteMac",
      "peerEvpnRemoteMac",       "configuredRouterMac",   "peerRouterMac"
   };
   static_assert( std::size( names ) == 19 );
   for( unsigned i = 0; i < std::size( names ); ++i ) {
      EXPECT_EQ( Bridging::stringValue( EntryTypeInstance( i ) ), names[ i ] );
      EXPECT_EQ( static_cast< unsigned >( EntryTypeInstance( Kel::String8( names[ i ] ) ) ), i );
   }
   EXPECT_EQ( thrown( [] { EntryTypeInstance( 19 ); } ), "EntryType" );
   for( const char* name : { "", "learnedDynamicMa", "learneddynamicmac", "'learnedDynamicMac'", "19" } )
      EXPECT_NE( thrown( [ & ] { EntryTypeInstance( Kel::String8( name ) ); } ), "nothing" ) << name;
}

}
}
