#include "VlanCounting.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <plexo/Exceptions.h>

// Counting a frame touches only memory of the agent's own. The table is written once for each VLAN that a dispatch has brought
// frames of, so readers see what has arrived as soon as the agent has gone through it, and an idle VLAN costs nothing.
//
// Requests are served from a timer, not where they are announced: whoever enters some may be in the midst of walking over them,
// and a failure that the agent can't go on after leaves the activity, and ends it, instead of a reactor, where it would be lost.

namespace Fdbd {

namespace {

constexpr std::chrono::seconds retryInterval( 1 );

Plexo::TableSetup writing( const std::string& table ) {
   return { .name = table, .mode = Plexo::TableMode::writer, .initialRecords = 64, .maxRecords = maxVlan };
}

}

/// Has requests served when one is entered; their removal is announced as well.
class VlanCounting::Server final : public Bridging::VlanCountersCliReq::NotifieeConst {
 public:
   explicit Server( VlanCounting& owner ) : NotifieeConst( owner.requests_ ), owner_( owner ) {}
   void onClearCountersRequest() override { owner_.serveIn( {} ); }
   void onClearCountersRequest( Bridging::VlanId vlan ) override {
      if( notifier()->clearCountersRequestMap_().contains( vlan ) ) owner_.serveIn( {} );
   }

 private:
   VlanCounting& owner_;
};

VlanCounting::VlanCounting( Kel::Activity& activity, Kel::Dir& tree, const std::string& table, const std::string& snapshots,
                            Reporter report )
    : activity_( activity ), report_( std::move( report ) ),
      counters_( Plexo::Bridging::vlanCounterDirFactory( "vlanCounters" ) ),
      snapshots_( Plexo::Bridging::vlanCounterSnapshotDirFactory( "vlanCounterSnapshots" ) ),
      requests_( Bridging::vlanCountersCliReqFactory( "vlanCountersCliReq" ) ), counts_( maxVlan + 1 ) {
   counters_->vlanCounterControl().setUp( writing( table ) );
   snapshots_->vlanCounterSnapshotControl().setUp( writing( snapshots ) );
   // In this order: who reads a counter and then its snapshot never subtracts an earlier run's snapshot from this run's count.
   snapshots_->vlanCounterSnapshotDelAll();
   counters_->vlanCounterDelAll();
   server_ = Kel::makePtr< Server >( *this );
   tree.entryIs( counters_ );
   tree.entryIs( snapshots_ );
   tree.entryIs( requests_ );
}

VlanCounting::~VlanCounting() = default;

void VlanCounting::arrived( Vlan vlan, const Quor::EthAddr& destination, std::size_t octets ) {
   Counts& counts = counts_.at( vlan );
   counts.octets += octets;
   ++( destination.isUnicast() ? counts.unicast : destination.isBroadcast() ? counts.broadcast : counts.multicast );
   if( counts.isNew ) return;
   counts.isNew = true;
   new_.push_back( vlan );
}

void VlanCounting::publish( double now ) {
   if( new_.empty() ) return;
   time_ = std::max( std::nextafter( time_, std::numeric_limits< double >::max() ), now );
   const Plexo::WriterBatch batch( *counters_->vlanCounterControl().writer() );
   for( ; !new_.empty(); new_.pop_back() ) {
      Counts& c = counts_[ new_.back() ];
      counters_->vlanCounterIs(
         { Bridging::VlanId( new_.back() ), { c.octets, c.unicast, c.multicast, c.broadcast, 0, 0, 0, 0 }, time_ } );
      c.isNew = false;
   }
}

void VlanCounting::serveIn( Kel::Activity::Duration delay ) {
   serveTimer_ = activity_.after( delay, [ this ] { serve(); } );
}

void VlanCounting::serve() {
   publish( wallNow() );
   std::string fault;
   for( auto i = requests_->clearCountersRequestIterConst(); i; ++i ) {
      try {
         clear( i.key() );
      } catch( const Plexo::TableFullException& e ) {
         fault = e.what(); // others may yet have room: a snapshot that is there already is overwritten
      }
   }
   const bool waits = !fault.empty();
   if( waits && !serveTimer_.active() ) serveIn( retryInterval );
   if( waits && !waitingReported_ ) report_( "clearing the counters of VLANs waits, and is tried again every second: " + fault );
   waitingReported_ = waits;
}

void VlanCounting::clear( Bridging::VlanId vlan ) {
   const Plexo::Bridging::VlanCounter live = counters_->vlanCounter( vlan );
   // The default record stands for none: a VLAN that has counted nothing needs no snapshot.
   if( live != Plexo::Bridging::VlanCounter() ) snapshots_->vlanCounterSnapshotIs( live );
   requests_->clearCountersRequestDel( vlan );
}

}
