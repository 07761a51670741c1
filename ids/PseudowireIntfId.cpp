#include <Vanta/PseudowireIntfId.h>
#include <algorithm>
#include <kel/Assert.h>
#include <kel/Exception.h>

namespace Quor {

namespace {

constexpr char source[] = "PseudowireIntfId";
constexpr unsigned vlanShift = 8;
constexpr Kel::U16 wholePort = 4095;

}

bool PseudowireIntfId::isPseudowireIntfId( const IntfId& intfId ) { return typeId( intfId ) == IntfTypeId::pseudowire; }

IntfId PseudowireIntfId::intfIdFromIntfIdVlan( const IntfId& parent, Bridging::VlanIdOrAny vlan ) {
   const Kel::U32 high = Kel::U32( vlan.value() ) << vlanShift | typeId( parent );
   return { typeIdIs( parent, IntfTypeId::pseudowire ).low(), high };
}

IntfId PseudowireIntfId::portIntfIdFromIntfId( const IntfId& parent ) { return intfIdFromIntfIdVlan( parent, wholePort ); }

IntfId PseudowireIntfId::parentIntfId( const IntfId& intfId ) {
   KEL_ASSERT( source, isPseudowireIntfId( intfId ) );
   vlanId( intfId );   // a pseudowire without a valid VLAN has no parent either
   return { part( intfId, 1 ) | Kel::U32( connectorType( intfId ) ) << GenericIntfId::typeIdShift, 0 };
}

Bridging::VlanIdOrAny PseudowireIntfId::vlanId( const IntfId& intfId ) {
   KEL_ASSERT( source, isPseudowireIntfId( intfId ) );
   // All 24 bits count: one above the lower 16 must not be lost before the check.
   return static_cast< Kel::U16 >( std::min( part( intfId, 0 ) >> vlanShift, Kel::U32( 0xffff ) ) );
}

bool PseudowireIntfId::isPortPseudowireIntfId( const IntfId& intfId ) {
   KEL_ASSERT( source, isPseudowireIntfId( intfId ) );
   return vlanId( intfId ).value() == wholePort;
}

Kel::U32 PseudowireIntfId::connectorId( const IntfId& intfId ) {
   KEL_ASSERT( source, isPseudowireIntfId( intfId ) );
   return part( intfId, 1 );
}

Kel::U8 PseudowireIntfId::connectorType( const IntfId& intfId ) {
   KEL_ASSERT( source, isPseudowireIntfId( intfId ) );
   return static_cast< Kel::U8 >( part( intfId, 0 ) );
}

Kel::U64 PseudowireIntfId::pseudowireIntfId( const IntfId& intfId ) {
   KEL_ASSERT( source, isPseudowireIntfId( intfId ) );
   const Kel::U64 vlan = part( intfId, 0 ) >> vlanShift;
   return Kel::U64( connectorId( intfId ) ) << 20 | vlan << 12 | connectorType( intfId );
}

IntfId PseudowireIntfId::localIntfIdFromString( const Kel::String8& name ) {
   const IntfId intfId( name );
   if( isPseudowireIntfId( intfId ) ) return intfId;
   throw Kel::RangeException( "interface name '" + name.str() +
                              "' is no pseudowire's: expected a name like Pseudowire-Ethernet3.100" );
}

}
