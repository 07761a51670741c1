#pragma once

#include "Source.h"
#include "Statistics.h"
#include <unordered_map>
#include <vector>

namespace Fdbd {

struct Frame;

/// The forwarding database: turns what sources see into hosts that are learned, move, and go.
class FdbLearner final : public EventSink {
 public:
   struct Settings {
      /// The VLAN of frames that name none, and of bridges that keep none.
      Vlan nativeVlan = 1;
      /// How long a host stays after it was last seen; 0: for ever.
      Nanos agingTime = 300 * nanosPerSecond;
      /// How many hosts there may be.
      std::size_t capacity = 1'048'576;
   };

   FdbLearner( const Settings& settings, HostSink& sink, Reporter report );

   void frame( Quor::IntfId port, std::span< const std::uint8_t > bytes, std::size_t length, double time ) override;
   void untaggedFrame( Quor::IntfId port, std::span< const std::uint8_t > bytes, std::size_t length, std::uint16_t tpid,
                       std::uint16_t tci, double time ) override;
   void timeIs( Nanos now ) override;
   void bridgeHost( BridgeId bridge, Vlan vlan, const Quor::EthAddr& address, Quor::IntfId port, HostKind kind,
                    double time ) override;
   void bridgeHostGone( BridgeId bridge, Vlan vlan, const Quor::EthAddr& address ) override;
   void bridgeDumpBegins( BridgeId bridge ) override;
   void bridgeDumpEnds( BridgeId bridge ) override;
   void bridgeGone( BridgeId bridge ) override;

   /// A host was seen on `port`. The core of `frame`.
   void seen( HostId id, Quor::IntfId port, double time );

   /// When the next host ages out, on the clock of `timeIs`; `never` when none will.
   Nanos nextAging() const;
   /// The host, or null. Valid until the next change.
   const Host* host( HostId id ) const;
   std::size_t size() const { return hosts_.size(); }
   /// The counters; the sources' own counts are added by whoever owns the sources.
   Statistics& statistics();

 private:
   /// A host and its place in the line of those that will age.
   struct Record {
      Host host;
      BridgeId bridge = 0;
      std::uint32_t dump = 0;
      Nanos lastSeen = 0;
      Record* older = nullptr;
      Record* newer = nullptr;
      HostId id;
   };
   /// MAC addresses come from the wire: without a secret in the hash, anybody could send addresses that share a bucket.
   struct IdHash {
      std::uint64_t secret;
      std::size_t operator()( HostId id ) const noexcept;
   };
   using Records = std::unordered_map< HostId, Record, IdHash >;

   void decoded( Quor::IntfId port, const Frame& frame, std::size_t length, double time );
   Record* added( HostId id, Quor::IntfId port, HostKind kind );
   void moved( Record& record, Quor::IntfId port, double time );
   void erase( Record& record, std::uint64_t& counter );
   void linkNewest( Record& record );
   void unlink( Record& record );
   Vlan vlanOr( Vlan vlan ) const { return vlan ? vlan : settings_.nativeVlan; }
   std::vector< Record* > recordsOf( BridgeId bridge );

   const Settings settings_;
   HostSink& sink_;
   const Reporter report_;
   Nanos now_ = 0;
   Records hosts_;
   Record* oldest_ = nullptr;
   Record* newest_ = nullptr;
   std::unordered_map< BridgeId, std::uint32_t > dumps_;
   Statistics statistics_;
   bool fullReported_ = false;
};

}
