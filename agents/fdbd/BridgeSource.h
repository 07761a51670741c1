#pragma once

#include "Netlink.h"
#include "Ports.h"
#include "Source.h"
#include <memory>

namespace Fdbd {

/// The forwarding database of a Linux bridge, followed through rtnetlink: a dump, then each change, and a fresh dump whenever
/// changes have been lost. A bridge that disappears is reported once, its hosts stay until they age, and it is looked for every
/// second until it is back; so is one that is not there at the start.
class BridgeSource final : public Source {
 public:
   /// `receiveBuffer`: bytes of changes that may wait to be read.
   BridgeSource( std::string bridge, BridgeId id, Ports& ports, EventSink& sink, Reporter report, int receiveBuffer = 4 << 20 );

   int descriptor() const override { return events_ ? events_->descriptor() : -1; }
   Nanos due() const override { return events_ && !lost_ ? never : checkAt_; }
   void service( Nanos now ) override;
   bool usable() const override { return usable_; }
   void addTo( Statistics& statistics ) override { statistics.bridgeOverruns += overruns_; }

 private:
   /// One entry that the kernel has added, changed or removed.
   struct Change {
      bool isRemoval = false;
      HostKind kind = HostKind::learned;
      Vlan vlan = 0;
      Quor::EthAddr address;
      int ifindex = 0;
   };
   enum class Event { none, change, bridgeRemoved };

   std::string open();
   void retry( Nanos now );
   bool isThere( bool* isBridge = nullptr );
   int dump();
   int dumpOnce();
   bool readAhead( std::size_t limit );
   bool drain();
   bool removalPending() const;
   void resynchronise( Nanos now );
   void applyPending( Nanos now );
   void vanished( const std::string& how, Nanos now );
   Event parse( std::uint16_t type, std::span< const std::uint8_t > payload, Change& out ) const;
   Event parseNeighbour( std::uint16_t type, std::span< const std::uint8_t > payload, Change& out ) const;
   void apply( const Change& change, double time );

   const std::string bridge_;
   const BridgeId id_;
   Ports& ports_;
   EventSink& sink_;
   const Reporter report_;
   const int receiveBuffer_;
   std::unique_ptr< NetlinkSocket > events_;
   std::unique_ptr< NetlinkSocket > requests_;
   int ifindex_ = 0;
   /// Changes that were read and are not applied yet, in their order.
   std::vector< Change > pending_;
   bool bridgeRemoved_ = false;
   /// Changes were lost, and no dump since has made up for them.
   bool lost_ = false;
   bool usable_ = false;
   Nanos checkAt_ = 0;
   std::uint64_t overruns_ = 0;
   std::string fault_;
   std::vector< std::uint8_t > datagram_;
};

}
