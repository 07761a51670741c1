#pragma once

#include <Vanta/VlanIntf.h>

namespace [[gnu::visibility("default")]] Interface {

/// The counters, as a `Counter`, that count now for the interface with this status; null when there are none. `VlanIntfCounter`
/// is the one kind that there is.
///
/// Counters stand in a tree of their own. Where, says the directory that holds the status:
///
/// - "phy": in one of the slices of `counter/eth/slice/phy`, below the entity three parents above the directory;
/// - "subintf": in shared memory, in the directory's `counterDir` or at its `counterDirPath`;
/// - "vlan" with a `counterDirPath` that has "Plexo" in it: in shared memory at that path. `counterDir` spares the search while
///   its full name is that path;
/// - all others: in `counterDir`; without one, at the `counterDirPath`; without that, at `counter/PARENT/NAME`, by the names of
///   the directory's parent and the directory, below the entity three parents above it.
///
/// In shared memory `counterDirPath` is a full name or a path below the root of the tree; in the last case it is a path from the
/// directory itself (`Kel::entityAtPath`), so "/counter/eth/vlan" begins at the root. Counters in shared memory come as a new
/// `PlexoIntfCounter`, which belongs to the caller; all others are those of the tree. Nothing in the tree is changed or created.
///
/// Whatever is missing or of the wrong type is traced at level 0 of "Counter" and gives null; nothing is thrown. A status in an
/// entity that is no `IntfStatusDirBase` stops the process.
template< class Counter >
Kel::Ptr< Counter > counterCommon( Kel::Ptr< const IntfStatus > status );

template<>
Kel::Ptr< VlanIntfCounter > counterCommon< VlanIntfCounter >( Kel::Ptr< const IntfStatus > status );

}
