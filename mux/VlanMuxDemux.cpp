#include <Vanta/VlanMuxDemux.h>

#include <quor/EthTag.h>

// What comes from a wire may be anything: a frame that is too short for its header, or for the tag that it announces, passes as
// it is and counts as one without a tag.

namespace Vanta {

using Kel::U16;
using Kel::U32;
using Quor::ConstDot1qHdr;
using Quor::Dot1qHdr;
using Quor::EthHdr;
using Quor::Packet;

namespace {

constexpr char source[] = "VlanMuxDemux";
/// What the protocols of a single link, such as LACP, are sent to: the Slow Protocols group address (IEEE Std 802.3-2022, 57A.3).
constexpr Quor::EthAddr slowProtocols( 0x01, 0x80, 0xc2, 0x00, 0x00, 0x02 );

/// Traces per frame cost one load and one test while their level is off, so the rest of them stands apart.
[[gnu::cold]] void trace( U32 level, const char* function, const char* text, U32 value ) {
   kelModuleVlanMuxDemux::_defaultTraceHandle().at( level, source, function ) << text << value;
}
[[gnu::always_inline]] inline bool isTraced( U32 level ) {
   static const Kel::TraceHandle& handle = kelModuleVlanMuxDemux::_defaultTraceHandle();
   return handle.enabled( level );
}

enum class Header { plain, tagged, cut };

Header headerOf( const Packet& pkt ) {
   const Kel::U8* start = pkt.data();
   if( pkt.bytes() < EthHdr::bytes ) return Header::cut;
   if( ConstDot1qHdr( start ).tpid() != Dot1qHdr::customerTpid ) return Header::plain;
   return pkt.bytes() < Dot1qHdr::bytes ? Header::cut : Header::tagged;
}

void cutFrame( const Packet& pkt, const char* function ) {
   trace( 0, function, " frame too short for its header, bytes ", pkt.bytes() );
}

}

void VlanMuxDemux::doInitMux() {
   modeIs( Quor::PamMode::both );
   initializedIs( true );
   if( deviceName().empty() ) return;
   const Kel::Ptr< Quor::EthDevPam > device( new Quor::EthDevPam( deviceName() ) );
   device->modeIs( Quor::PamMode::both );
   device->multicastAddrIs( slowProtocols, true );
   device->enabledIs( true );
   ethPamIs( device );
   onePamIs( device );
}

void VlanMuxDemux::doPrepareToDie() {
   if( !ethPam() ) return;
   ethPam()->enabledIs( false );
   ethPamIs( nullptr );
}

U32 VlanMuxDemux::decapsulate( const Kel::Ptr< Packet >& pkt ) {
   static constexpr char function[] = "virtual U32 Vanta::VlanMuxDemux::decapsulate()";
   const Header header = headerOf( *pkt );
   if( header != Header::tagged ) {
      if( header == Header::cut ) cutFrame( *pkt, function );
      return nativeVlanId().value();
   }
   const U32 vlanId = ConstDot1qHdr( pkt->data() ).vlanId();
   if( !leaveVlanHdr() ) Quor::tagPop( *pkt );
   if( isTraced( 8 ) ) [[unlikely]] trace( 8, function, " VLAN ", vlanId );
   return vlanId;
}

void VlanMuxDemux::doEncapsulate( const Kel::Ptr< Packet >& pkt, U32 from ) {
   static constexpr char function[] = "virtual void Vanta::VlanMuxDemux::doEncapsulate()";
   if( isTraced( 8 ) ) [[unlikely]] trace( 8, function, " from ", from );
   if( leaveVlanHdr() ) return;
   if( headerOf( *pkt ) == Header::cut ) return cutFrame( *pkt, function );
   Quor::tagPush( *pkt, Dot1qHdr::customerTpid, static_cast< U16 >( from & Dot1qHdr::vlanIdMask ) );
}

}
