#include "VlanCounting.h"

#include "Source.h"
#include <algorithm>
#include <cmath>
#include <limits>

// Counting a frame touches only memory of the agent's own. The table is written once for each VLAN that a dispatch has brought
// frames of, so readers see what has arrived as soon as the agent has gone through it, and an idle VLAN costs nothing.

namespace Fdbd {

namespace {

Plexo::TableSetup writing( const std::string& table ) {
   return { .name = table, .mode = Plexo::TableMode::writer, .initialRecords = 64, .maxRecords = maxVlan };
}

}

/// Serves each request when it is entered.
class VlanCounting::Server final : public Bridging::VlanCountersCliReq::NotifieeConst {
 public:
   explicit Server( VlanCounting& owner ) : NotifieeConst( owner.requests_ ), owner_( owner ) {}
   void onClearCountersRequest() override {
      std::vector< Bridging::VlanId > all;
      for( auto i = notifier()->clearCountersRequestIterConst(); i; ++i ) all.push_back( i.key() );
      for( const Bridging::VlanId vlan : all ) owner_.serve( vlan );
   }
   void onClearCountersRequest( Bridging::VlanId vlan ) override { owner_.serve( vlan ); }

 private:
   VlanCounting& owner_;
};

VlanCounting::VlanCounting( const std::string& table, const std::string& snapshots )
    : counters_( Plexo::Bridging::vlanCounterDirFactory( "vlanCounters" ) ),
      snapshots_( Plexo::Bridging::vlanCounterSnapshotDirFactory( "vlanCounterSnapshots" ) ),
      requests_( Bridging::vlanCountersCliReqFactory( "vlanCountersCliReq" ) ), counts_( maxVlan + 1 ) {
   counters_->vlanCounterControl().setUp( writing( table ) );
   snapshots_->vlanCounterSnapshotControl().setUp( writing( snapshots ) );
   // In this order: who reads a counter and then its snapshot never subtracts an earlier run's snapshot from this run's count.
   snapshots_->vlanCounterSnapshotDelAll();
   counters_->vlanCounterDelAll();
   server_ = Kel::makePtr< Server >( *this );
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

void VlanCounting::serve( Bridging::VlanId vlan ) {
   // The removal of a request is announced as well.
   if( !requests_->clearCountersRequestMap_().contains( vlan ) ) return;
   publish( wallNow() );
   const Plexo::Bridging::VlanCounter live = counters_->vlanCounter( vlan );
   // The default record stands for none: a VLAN that has counted nothing needs no snapshot.
   if( live != Plexo::Bridging::VlanCounter() ) snapshots_->vlanCounterSnapshotIs( live );
   requests_->clearCountersRequestDel( vlan );
}

}
