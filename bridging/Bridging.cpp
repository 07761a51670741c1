#include <Vanta/Bridging.h>

namespace Bridging {

// The filtering database is folded in as it is, so that the hosts of database 0 hash like their addresses.
Kel::U32 HostKey::hash() const { return addr().hash() ^ fid().value(); }

}
