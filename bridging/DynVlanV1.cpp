#include <Vanta/DynVlanV1.h>

namespace Bridging::Input {

Kel::String8 AllowedVlans::vlansByIntfId( const Quor::IntfId& intfId ) const { return vlans( intfId.low() ); }

void AllowedVlans::vlansByIntfIdIs( const Quor::IntfId& intfId, const Kel::String8& text ) { vlansIs( intfId.low(), text ); }

void AllowedVlans::vlansByIntfIdDel( const Quor::IntfId& intfId ) { vlansDel( intfId.low() ); }

}
