#include <Vanta/VlanIntf.h>

namespace Interface {

void VlanIntfCounterDir::doGetIntfCounter( const Kel::String8& name, IntfCounter** const& counter ) {
   *counter = intfCounter( Kel::Name( name ) ).ptr();
}

void AllVlanIntfCounterDir::doGetIntfCounterDir( const Quor::IntfId& intfId, IntfCounterDirBase** const& counterDir ) {
   *counterDir = intfCounterDir( intfId ).ptr();
}

}
