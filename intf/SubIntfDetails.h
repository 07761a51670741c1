#pragma once

#include <Vanta/SubIntf.h>

// What network management asks of sub-interfaces (`intfDetailsProvider` of a `SubIntfStatus`) is answered once the library is
// loaded: type l2vlan, no connector, the speed of the parent, and an index that is made of the interface's identifier and a base.
//
// The parent's status is looked for in the directory that holds the sub-interface's status directory: in every other status
// directory there, then in those of the directories that stand there, however deep. The speed is 0 while it is not found.
//
// The index of a sub-interface of an Ethernet port has from the top the sub-interface number (12 bits, up to 4094), the module (5
// bits, up to 30) and the port (13 bits): its number, up to 8191, or where it has lanes (port - 1) * 40 + lane with ports up to
// 204 and lanes up to 40. That of a port channel has 31 for the module and the channel's number for the port; only up to 8191 is
// it one of its own. Any other interface, and other numbers beyond these, stop the process.
namespace [[gnu::visibility("default")]] Interface {

/// The greatest base: up to it no index overflows.
inline constexpr Kel::S32 subIntfIfIndexBaseMax = 1 << 30;

/// What is added to the indices of all sub-interfaces of this process, to keep them apart from those of other interfaces; 0 at
/// first.
Kel::S32 subIntfIfIndexBase();
/// For any thread, best before somebody has asked for an index. Throws `RangeException` for a base < 0 or >
/// `subIntfIfIndexBaseMax`.
void subIntfIfIndexBaseIs( Kel::S32 base );

}
