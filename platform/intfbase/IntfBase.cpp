#include <IntfBase/IntfBase.h>

namespace Interface {

void IntfCounterDirBase::doGetIntfCounter( const Kel::String8&, IntfCounter** const& counter ) { *counter = nullptr; }

void IntfCounterDirDirBase::doGetIntfCounterDir( const Quor::IntfId&, IntfCounterDirBase** const& counterDir ) { *counterDir = nullptr; }

}
