#include <Vanta/Bridging.h>

#include <cstdio>
#include <cstdlib>

namespace Bridging {

// The filtering database is folded in as it is, so that the hosts of database 0 hash like their addresses.
Kel::U32 HostKey::hash() const { return addr().hash() ^ fid().value(); }

bool VlanConfig::eligibleToBePrimary() const {
   return adminState() == VlanAdminState::active && vlanTypeAndPrimaryVlan() == VlanTypeAndPrimaryVlan() && !internal();
}

Kel::U32 HwCapabilities::maxFrameSizeWithoutL2Encapsulation() const {
   // Ethernet header 14, VLAN tag 4, check sequence 4.
   return maxFrameSize() - 22;
}

IeeeReservedMacForwardGroup::GroupAddrMetadata IeeeReservedMacForwardGroup::groupAddrMetadata() const {
   return { groupAddrMap_().head(), groupAddrMap_().tail() };
}

namespace Input {

namespace {

/// The decimal number that a text begins with; 0 without one, the greatest 32-bit number for one that is greater.
Kel::U32 leadingNumber( std::string_view text ) {
   constexpr Kel::U32 most = 2147483647;
   Kel::U32 number = 0;
   for( const char c : text ) {
      if( c < '0' || c > '9' ) break;
      const auto digit = static_cast< Kel::U32 >( c - '0' );
      if( number > ( most - digit ) / 10 ) return most;
      number = number * 10 + digit;
   }
   return number;
}

}

Kel::String8 VlanConfig::defaultName() const {
   const Kel::U32 number = leadingNumber( name().view() );
   if( number == 1 ) return "default";
   char text[ sizeof "VLAN2147483647" ];
   std::snprintf( text, sizeof text, "VLAN%04u", number );
   return text;
}

ConfiguredHost FdbConfig::doCreateConfiguredHost( const Quor::EthAddr& address, const Quor::IntfId& intf, EntryType entryType ) {
   return configuredHostIs( ConfiguredHost( address, intf, entryType ) );
}

Kel::Ptr< VlanConfig > Config::doCreateVlan( VlanId vlanId ) { return newVlanConfig( vlanId ); }

}

}
