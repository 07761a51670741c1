#include <Vanta/VantaIntfId.h>
#include <kel/Assert.h>
#include <quor/EthIntfId.h>

// A port channel's high word holds the sub-interface number in its low 28 bits and the sub-type in its top 4. The parent of a
// sub-interface has a zero high word, whatever it is a sub-interface of.

namespace Quor {

namespace {

constexpr char source[] = "VantaIntfId";
constexpr Kel::U32 recirculation = 1;
constexpr Kel::U32 ecmp = 2;
constexpr Kel::U32 channelSubIntfMask = 0xfffffff;

constexpr IntfId withoutHighWord( const IntfId& intfId ) { return { intfId.low(), 0 }; }

}

bool CpuIntfId::isCpuIntfId( const IntfId& intfId ) { return typeId( intfId ) == IntfTypeId::cpu; }

bool PortChannelIntfId::isPortChannelIntfId( const IntfId& intfId ) { return typeId( intfId ) == IntfTypeId::portChannel; }

bool PortChannelIntfId::isRecirc( const IntfId& intfId ) {
   return isPortChannelIntfId( intfId ) && subType( intfId ) == recirculation;
}

bool PortChannelIntfId::isEcmp( const IntfId& intfId ) { return isPortChannelIntfId( intfId ) && subType( intfId ) == ecmp; }

Kel::U32 PortChannelIntfId::portChannel( const IntfId& intfId ) {
   KEL_ASSERT( source, isPortChannelIntfId( intfId ) );
   return part( intfId, 1 );
}

Kel::U32 PortChannelIntfId::subIntf( const IntfId& intfId ) {
   KEL_ASSERT( source, isPortChannelIntfId( intfId ) );
   return part( intfId, 0 ) & channelSubIntfMask;
}

IntfId PortChannelIntfId::parentIntfIdFromSubIntf( const IntfId& subIntfId ) {
   KEL_ASSERT( source, isPortChannelIntfId( subIntfId ) );
   return withoutHighWord( subIntfId );
}

bool PeerEthIntfId::isPeerEthIntfId( const IntfId& intfId ) { return typeId( intfId ) == IntfTypeId::peerEthernet; }

IntfId PeerEthIntfId::toPeerEthIntfId( const IntfId& intfId ) {
   KEL_ASSERT( source, EthIntfId::isEthIntfId( intfId ) );
   return typeIdIs( intfId, IntfTypeId::peerEthernet );
}

IntfId PeerEthIntfId::fromPeerEthIntfId( const IntfId& intfId ) {
   KEL_ASSERT( source, isPeerEthIntfId( intfId ) );
   return typeIdIs( intfId, IntfTypeId::ethernet );
}

bool PeerPortChannelIntfId::isPeerPortChannelIntfId( const IntfId& intfId ) {
   return typeId( intfId ) == IntfTypeId::peerPortChannel;
}

IntfId PeerPortChannelIntfId::toPeerPortChannelIntfId( const IntfId& intfId ) {
   KEL_ASSERT( source, PortChannelIntfId::isPortChannelIntfId( intfId ) );
   return typeIdIs( intfId, IntfTypeId::peerPortChannel );
}

IntfId PeerPortChannelIntfId::fromPeerPortChannelIntfId( const IntfId& intfId ) {
   KEL_ASSERT( source, isPeerPortChannelIntfId( intfId ) );
   return typeIdIs( intfId, IntfTypeId::portChannel );
}

bool SubIntfId::isSubIntfId( const IntfId& intfId ) {
   if( EthIntfId::isEthIntfId( intfId ) ) return EthIntfId::subIntf( intfId ) != 0;
   return PortChannelIntfId::isPortChannelIntfId( intfId ) && PortChannelIntfId::subIntf( intfId ) != 0;
}

IntfId SubIntfId::parentIntfId( const IntfId& intfId ) { return isSubIntfId( intfId ) ? withoutHighWord( intfId ) : intfId; }

}
