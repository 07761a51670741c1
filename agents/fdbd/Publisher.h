#pragma once

#include "Source.h"
#include <kel/Activity.h>
#include <kel/Dir.h>
#include <memory>
#include <string>

namespace Fdbd {

/// The forwarding database as entities, published in a table in shared memory. While it lives its entities stand in a tree,
/// whose thread is the agent's own:
///
///    bridging/status                 Bridging::Status: the forwarding databases and their hosts
///    bridging/plexoStatus            Plexo::Bridging::Status: the owner of the table that they are published in
///    bridging/vlanCounters           Plexo::Bridging::VlanCounterDir: what each VLAN has counted
///    bridging/vlanCounterSnapshots   Plexo::Bridging::VlanCounterSnapshotDir: the same when it was last cleared
///    bridging/vlanCountersCliReq     Bridging::VlanCountersCliReq: a VLAN that is entered here is cleared
///
/// The last three are there once VLANs are counted.
class Publisher final : public HostSink {
 public:
   /// Entities alone, below `root`; hosts may come already.
   explicit Publisher( const Kel::Ptr< Kel::Dir >& root );
   ~Publisher() override;

   /// Becomes the writer of the table and brings it in step with the entities: what an earlier run has left there and is no more
   /// is removed, what is still true is not touched. Throws `Kel::Exception`: the table has another writer, or can't be made.
   void open( const std::string& table, std::size_t capacity );

   /// Counts the frames of each VLAN from now on, see `VlanCounting`. Throws `Kel::Exception`.
   void countVlans( Kel::Activity& activity, const std::string& table, const std::string& snapshots, Reporter report );

   // These throw `Kel::Exception` once the table is open: it is full, or corrupted.
   void learned( HostId id, const Host& host ) override;
   void gone( HostId id ) override;
   void arrived( Vlan vlan, const Quor::EthAddr& destination, std::size_t octets ) override;
   void batchBegins() override;
   void batchEnds() override;

 private:
   struct State;
   std::unique_ptr< State > state_;
};

}
