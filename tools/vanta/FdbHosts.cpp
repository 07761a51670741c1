#include "FdbHosts.h"

#include <kel/Exception.h>

namespace Tool {

namespace {

template< class T >
T parsed( const char* option, const char* text ) {
   try {
      return T( std::string_view( text ) );
   } catch( const Kel::RangeException& e ) {
      throw UsageError( std::string( option ) + ": " + e.what() );
   }
}

}

bool HostFilter::matches( Bridging::Fid fid, const Bridging::LearnedHost& host ) const {
   return ( !vlan || *vlan == fid ) && ( !port || *port == host.intf() ) && ( !address || *address == host.address() );
}

void HostFilter::addOptionsTo( std::vector< Option >& options ) {
   options.push_back( { "vlan", "N", "only hosts of this VLAN, or filtering database, from 0 to 65535",
                        [ this ]( const char* text ) {
                          vlan = Bridging::Fid( Kel::U16( numberOf( "--vlan", text, 0, 65535 ) ) );
                       } } );
   options.push_back( { "port", "PORT", "only hosts on this port, such as Ethernet3 or Et3", [ this ]( const char* text ) {
                          port = parsed< Quor::IntfId >( "--port", text );
                       } } );
   options.push_back( { "address", "MAC", "only the host with this address, such as 02:00:00:00:00:01",
                        [ this ]( const char* text ) {
                          address = parsed< Quor::EthAddr >( "--address", text );
                       } } );
}

std::string entryTypeName( Bridging::EntryType type ) { return Kel::String8( Kel::stringValue( type ) ).str(); }

void putHost( Json& out, Bridging::Fid fid, const Bridging::LearnedHost& host ) {
   out.member( "vlan", Kel::U32( fid.value() ) ).member( "address", host.address().stringValue().str() );
   out.member( "port", host.intf().stringValue().str() ).member( "moves", host.moves() );
   out.member( "lastMoveTime", double( host.lastMoveTime() ) ).member( "type", entryTypeName( host.entryType() ) );
}

}
