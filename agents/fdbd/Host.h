#pragma once

#include <cstdint>
#include <quor/EthAddr.h>
#include <quor/IntfId.h>

/// The agent that owns the forwarding database.
namespace Fdbd {

/// A point in time or a span in nanoseconds.
using Nanos = std::int64_t;
constexpr Nanos nanosPerSecond = 1'000'000'000;

/// A VLAN, which is also a filtering database: 1..4094.
using Vlan = std::uint16_t;
constexpr Vlan minVlan = 1;
constexpr Vlan maxVlan = 4094;

/// Whether a station may have it as its source address: individual and not zero.
constexpr bool isStation( const Quor::EthAddr& address ) { return address.isUnicast() && !address.isZero(); }

/// What identifies a host: the filtering database and the address within it, in one word.
class HostId {
 public:
   constexpr HostId() = default;
   constexpr HostId( Vlan fid, const Quor::EthAddr& address ) : word_( std::uint64_t( fid ) << 48 | address.number() ) {}
   constexpr Vlan fid() const { return static_cast< Vlan >( word_ >> 48 ); }
   constexpr Quor::EthAddr address() const { return Quor::EthAddr::fromNumber( word_ & 0xffff'ffff'ffffu ); }
   constexpr std::uint64_t word() const { return word_; }
   friend constexpr auto operator<=>( HostId, HostId ) = default;

 private:
   std::uint64_t word_ = 0;
};

/// How a host came to be known.
enum class HostKind : std::uint8_t {
   learned,    ///< from traffic
   configured, ///< set by a person in a bridge; frames do not change it
};

/// What the rest of the world is told of a host.
struct Host {
   Quor::IntfId port;
   std::uint32_t moves = 0;
   /// Seconds since 1970 by the clock of the source that saw the move; 0 when it never moved.
   double lastMoveTime = 0;
   HostKind kind = HostKind::learned;
   friend bool operator==( const Host&, const Host& ) = default;
};

/// Where the forwarding database goes: told of every host that is new or changed, and of every one that is gone.
class HostSink {
 public:
   virtual ~HostSink() = default;
   virtual void learned( HostId id, const Host& host ) = 0;
   virtual void gone( HostId id ) = 0;
   /// A frame of so many octets, its tag included and its check sequence not, has arrived in a VLAN.
   virtual void arrived( Vlan, const Quor::EthAddr& /*destination*/, std::size_t /*octets*/ ) {}
   /// Many changes may follow one another between these two, and need not be made visible before the second.
   virtual void batchBegins() {}
   virtual void batchEnds() {}
};

}
