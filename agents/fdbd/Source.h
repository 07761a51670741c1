#pragma once

#include "Host.h"
#include "Statistics.h"
#include <functional>
#include <limits>
#include <span>
#include <string>

namespace Fdbd {

/// Which bridge reports a host; 0 is none: the host was learned from frames and ages by our own clock.
using BridgeId = std::uint16_t;

/// Receives what sources see.
class EventSink {
 public:
   virtual ~EventSink() = default;
   /// The start of a frame that arrived on `port`. `length`: octets of the whole frame, its tag included and its check sequence
   /// not. `time`: seconds since 1970.
   virtual void frame( Quor::IntfId port, std::span< const std::uint8_t > bytes, std::size_t length, double time ) = 0;
   /// Likewise, for a frame whose tag the kernel has taken out of the bytes.
   virtual void untaggedFrame( Quor::IntfId port, std::span< const std::uint8_t > bytes, std::size_t length, std::uint16_t tpid,
                               std::uint16_t tci, double time ) = 0;
   /// Time has come to `now` on the clock that hosts age by; it never goes back.
   virtual void timeIs( Nanos now ) = 0;

   /// A bridge has, or still has, this host. `vlan` 0: the bridge keeps no VLANs.
   virtual void bridgeHost( BridgeId bridge, Vlan vlan, const Quor::EthAddr& address, Quor::IntfId port, HostKind kind,
                            double time ) = 0;
   /// A bridge has removed this host.
   virtual void bridgeHostGone( BridgeId bridge, Vlan vlan, const Quor::EthAddr& address ) = 0;
   /// What the bridge has between these two is all that it has: its other hosts are gone.
   virtual void bridgeDumpBegins( BridgeId bridge ) = 0;
   virtual void bridgeDumpEnds( BridgeId bridge ) = 0;
   /// The bridge is no more. Its hosts stay, and age from now on.
   virtual void bridgeGone( BridgeId bridge ) = 0;
};

/// Takes one line for people: what happened, on what, what to do.
using Reporter = std::function< void( const std::string& ) >;

/// A point on the monotonic clock that never comes.
constexpr Nanos never = std::numeric_limits< Nanos >::max();

/// Something that hosts are learned from. It never blocks and does a bounded amount of work at a time.
class Source {
 public:
   virtual ~Source() = default;
   /// Becomes readable when there is something to do; -1 when there is no such descriptor now.
   virtual int descriptor() const { return -1; }
   /// When there is something to do without the descriptor's saying so, on the monotonic clock; `never` when not.
   virtual Nanos due() const { return never; }
   /// Does what there is to do at `now` on the monotonic clock.
   virtual void service( Nanos now ) = 0;
   /// Nothing will ever come from it again.
   virtual bool ended() const { return false; }
   /// Whether it could be opened at the start; a source that could not may yet come.
   virtual bool usable() const = 0;
   /// Adds the counts that only the source knows.
   virtual void addTo( Statistics& ) {}
};

/// Now, on the monotonic clock.
Nanos monotonicNow();
/// Now, in seconds since 1970.
double wallNow();

}
