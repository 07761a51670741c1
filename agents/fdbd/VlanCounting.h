#pragma once

#include "Source.h"
#include <Vanta/VlanCounters.h>
#include <Vanta/VlanCountersCliReq.h>
#include <kel/Activity.h>
#include <kel/Dir.h>
#include <string>
#include <vector>

namespace Fdbd {

/// Counts what arrives in each VLAN, publishes the counts in a table in shared memory, and serves the requests to clear them.
/// What leaves is not seen by any source: those counts stay 0.
class VlanCounting {
 public:
   /// Becomes the writer of both tables and empties them: counts begin with the agent. Puts into `tree` the tables' owners,
   /// `vlanCounters` and `vlanCounterSnapshots`, and `vlanCountersCliReq`: who enters a VLAN there, with either value, has its
   /// counters cleared in the next round of `activity`. The present record is copied to the snapshots, and the entry removed.
   /// While the file system has no room for a snapshot the entry stays, and is tried again every second, which is reported once.
   /// Any other failure, like those of `publish`, leaves the activity. Throws `Kel::Exception`: a table has another writer, or
   /// can't be made.
   VlanCounting( Kel::Activity& activity, Kel::Dir& tree, const std::string& table, const std::string& snapshots,
                 Reporter report );
   ~VlanCounting();
   VlanCounting( const VlanCounting& ) = delete;
   VlanCounting& operator=( const VlanCounting& ) = delete;

   /// A frame of so many octets has arrived for `destination`.
   void arrived( Vlan vlan, const Quor::EthAddr& destination, std::size_t octets );
   /// Puts what has been counted since the last time into the table, as of `now`: seconds since 1970. The time of an update is
   /// later than that of any before it, also where the clock is set back. Throws `Kel::Exception` when the table is full or
   /// corrupted.
   void publish( double now );

 private:
   class Server;
   struct Counts {
      std::uint64_t octets = 0, unicast = 0, multicast = 0, broadcast = 0;
      /// Counted since it was published.
      bool isNew = false;
   };

   void serveIn( Kel::Activity::Duration delay );
   void serve();
   void clear( Bridging::VlanId vlan );

   Kel::Activity& activity_;
   const Reporter report_;
   const Kel::Ptr< Plexo::Bridging::VlanCounterDir > counters_;
   const Kel::Ptr< Plexo::Bridging::VlanCounterSnapshotDir > snapshots_;
   const Kel::Ptr< Bridging::VlanCountersCliReq > requests_;
   std::vector< Counts > counts_; ///< By VLAN.
   std::vector< Vlan > new_;      ///< Those with `isNew`.
   double time_ = 0;
   Kel::Ptr< Server > server_;
   Kel::Timer serveTimer_;
   bool waitingReported_ = false;
};

}
