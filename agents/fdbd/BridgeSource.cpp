#include "BridgeSource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/neighbour.h>
#include <net/if.h>
#include <optional>
#include <system_error>

// Two sockets: one subscribed to changes (rtnetlink(7), the groups NEIGH and LINK), one for questions. A dump is taken after the
// subscription, and the changes that came meanwhile are applied on top of it. Each of them is then at least as new as what the
// dump said of its host, or is followed by one that is, so the last word is right.
//
// The kernel gives a long dump in parts and finds its place again by counting, so that an entry can be passed over when another
// one is removed between two parts. A dump during which something was removed is therefore done again, and what is in none of the
// passes is gone.
//
// Removals need a second look: a bridge that is deleted first removes all its entries, and these hosts are to stay. Asking for
// the bridge waits for the kernel's own lock over the whole deletion, so the answer tells one case from the other.

namespace Fdbd {

namespace {

constexpr Nanos retryInterval = nanosPerSecond;
constexpr std::size_t datagramsAtOnce = 256;
constexpr std::size_t drainLimit = 1 << 20;
constexpr int drainAttempts = 16;
constexpr int attempts = 3;
constexpr int passes = 4;

template< class T >
std::optional< T > valueOf( std::span< const std::uint8_t > bytes ) {
   T value;
   if( bytes.size() < sizeof value ) return std::nullopt;
   std::memcpy( &value, bytes.data(), sizeof value );
   return value;
}

template< class T >
std::optional< T > attributeValue( std::span< const std::uint8_t > attributes, std::uint16_t type ) {
   return valueOf< T >( netlinkAttribute( attributes, type ) );
}

/// A request with one 32-bit attribute.
template< class Body >
struct Request {
   nlmsghdr header{};
   Body body{};
   rtattr attribute{};
   std::uint32_t value = 0;

   Request( std::uint16_t type, std::uint16_t flags, std::uint16_t attributeType, std::uint32_t v ) : value( v ) {
      header.nlmsg_type = type;
      header.nlmsg_flags = flags;
      attribute.rta_len = sizeof attribute + sizeof value;
      attribute.rta_type = attributeType;
   }
   std::span< std::uint8_t > bytes() { return { reinterpret_cast< std::uint8_t* >( this ), sizeof *this }; }
};
static_assert( sizeof( Request< ndmsg > ) == sizeof( nlmsghdr ) + sizeof( ndmsg ) + 8 );
static_assert( sizeof( Request< ifinfomsg > ) == sizeof( nlmsghdr ) + sizeof( ifinfomsg ) + 8 );

}

BridgeSource::BridgeSource( std::string bridge, BridgeId id, Ports& ports, EventSink& sink, Reporter report, int receiveBuffer )
    : bridge_( std::move( bridge ) ), id_( id ), ports_( ports ), sink_( sink ), report_( std::move( report ) ),
      receiveBuffer_( receiveBuffer ) {
   fault_ = open();
   usable_ = fault_.empty();
   if( !usable_ ) report_( fault_ );
   checkAt_ = monotonicNow() + retryInterval;
}

/// Subscribes and takes the first dump; the fault, or nothing.
std::string BridgeSource::open() try {
   const std::string what = "bridge '" + bridge_ + "': ";
   ifindex_ = static_cast< int >( if_nametoindex( bridge_.c_str() ) );
   if( ifindex_ == 0 ) return what + std::strerror( errno ) + "; 'ip link show type bridge' lists the bridges there are";
   const unsigned groups[] = { RTNLGRP_NEIGH, RTNLGRP_LINK };
   auto events = std::make_unique< NetlinkSocket >( groups );
   events->receiveBufferIs( receiveBuffer_ );
   if( !requests_ ) requests_ = std::make_unique< NetlinkSocket >();
   bool isBridge = false;
   if( !isThere( &isBridge ) ) return what + "has disappeared";
   if( !isBridge ) return what + "not a bridge; 'ip link show type bridge' lists the bridges there are";
   events_ = std::move( events );
   lost_ = bridgeRemoved_ = false;
   if( const int error = dump() ) {
      events_.reset();
      sink_.bridgeGone( id_ );
      return what + "can't read its forwarding database: " + std::strerror( error );
   }
   applyPending( monotonicNow() );
   return {};
} catch( const std::system_error& e ) {
   events_.reset();
   return "bridge '" + bridge_ + "': " + e.what();
}

void BridgeSource::retry( Nanos now ) {
   checkAt_ = now + retryInterval;
   std::string fault = open();
   if( events_ ) report_( "bridge '" + bridge_ + "': is there, following its forwarding database" );
   // A bridge that is still missing is no news.
   else if( fault != fault_ && if_nametoindex( bridge_.c_str() ) != 0 ) report_( fault );
   fault_ = std::move( fault );
}

void BridgeSource::service( Nanos now ) try {
   if( !events_ ) {
      if( now >= checkAt_ ) retry( now );
      return;
   }
   if( lost_ && now < checkAt_ ) return;
   if( !readAhead( datagramsAtOnce ) || lost_ ) resynchronise( now );
   if( events_ && !lost_ ) applyPending( now );
} catch( const std::system_error& e ) {
   vanished( e.what(), now );
}

/// Reads changes; false when the kernel has dropped some.
bool BridgeSource::readAhead( std::size_t limit ) {
   for( std::size_t i = 0; i < limit; ++i ) {
      const auto result = events_->read( datagram_ );
      if( result == NetlinkSocket::Result::overrun ) return false;
      if( result == NetlinkSocket::Result::empty ) return true;
      forEachNetlinkMessage( datagram_, [ & ]( const nlmsghdr& header, auto payload ) {
         Change change;
         const Event event = parse( header.nlmsg_type, payload, change );
         if( event == Event::change ) pending_.push_back( change );
         else if( event == Event::bridgeRemoved ) bridgeRemoved_ = true;
         return true;
      } );
   }
   return true;
}

/// Reads until nothing waits; false when changes come faster than that.
bool BridgeSource::drain() {
   for( int attempt = 0; attempt < drainAttempts; ++attempt )
      if( readAhead( drainLimit ) ) return true;
   return false;
}

bool BridgeSource::removalPending() const {
   return std::any_of( pending_.begin(), pending_.end(), []( const Change& c ) { return c.isRemoval; } );
}

void BridgeSource::resynchronise( Nanos now ) {
   if( !std::exchange( lost_, true ) ) {
      ++overruns_;
      report_( "bridge '" + bridge_ +
               "': changes were lost because there were too many at once; reading its forwarding database again" );
   }
   const int error = dump();
   if( error == ENOBUFS ) checkAt_ = now + retryInterval; // too busy now
   else if( error == 0 ) lost_ = false;
   else vanished( error == ENODEV ? "has disappeared" : std::string( "can't be read: " ) + std::strerror( error ), now );
}

/// Reads the whole forwarding database. 0, or the error: ENOBUFS when changes come faster than they can be read.
int BridgeSource::dump() {
   for( int attempt = 0; attempt < attempts; ++attempt ) {
      // What has been reported so far is in the dump.
      if( !drain() ) return ENOBUFS;
      pending_.clear();
      sink_.bridgeDumpBegins( id_ );
      bool isLost = false;
      bool isWhole = false;
      for( int pass = 0; pass < passes && !isWhole && !isLost; ++pass ) {
         const int error = dumpOnce();
         if( error != 0 && error != EINTR ) return error;
         isLost = !readAhead( drainLimit );
         isWhole = error == 0 && !removalPending();
      }
      if( isLost ) continue;
      if( !isThere() ) return ENODEV;
      sink_.bridgeDumpEnds( id_ );
      return 0;
   }
   return ENOBUFS;
}

int BridgeSource::dumpOnce() {
   Request< ndmsg > request( RTM_GETNEIGH, NLM_F_DUMP, NDA_MASTER, static_cast< std::uint32_t >( ifindex_ ) );
   request.body.ndm_family = AF_BRIDGE;
   const double time = wallNow();
   return requests_->request( request.bytes(), [ & ]( const nlmsghdr& header, auto payload ) {
      Change change;
      if( header.nlmsg_type == RTM_NEWNEIGH && parse( header.nlmsg_type, payload, change ) == Event::change )
         apply( change, time );
   } );
}

/// Whether the kernel still has the bridge.
bool BridgeSource::isThere( bool* isBridge ) {
   Request< ifinfomsg > request( RTM_GETLINK, 0, IFLA_EXT_MASK, 0 );
   request.body.ifi_index = ifindex_;
   const int error = requests_->request( request.bytes(), [ & ]( const nlmsghdr&, std::span< const std::uint8_t > payload ) {
      if( !isBridge || payload.size() < sizeof( ifinfomsg ) ) return;
      const auto info = netlinkAttribute( payload.subspan( sizeof( ifinfomsg ) ), IFLA_LINKINFO );
      const auto kind = netlinkAttribute( info, IFLA_INFO_KIND );
      *isBridge = kind.size() >= 6 && std::memcmp( kind.data(), "bridge", 6 ) == 0 && ( kind.size() == 6 || kind[ 6 ] == 0 );
   } );
   return error != ENODEV;
}

BridgeSource::Event BridgeSource::parse( std::uint16_t type, std::span< const std::uint8_t > payload, Change& out ) const {
   if( type == RTM_NEWNEIGH || type == RTM_DELNEIGH ) return parseNeighbour( type, payload, out );
   const auto link = valueOf< ifinfomsg >( payload );
   const bool isOurs = link && link->ifi_index == ifindex_ && link->ifi_family == AF_UNSPEC;
   return type == RTM_DELLINK && isOurs ? Event::bridgeRemoved : Event::none;
}

BridgeSource::Event BridgeSource::parseNeighbour( std::uint16_t type, std::span< const std::uint8_t > payload,
                                                  Change& out ) const {
   const auto header = valueOf< ndmsg >( payload );
   if( !header || header->ndm_family != AF_BRIDGE ) return Event::none;
   const auto attributes = payload.subspan( sizeof( ndmsg ) );
   const auto address = netlinkAttribute( attributes, NDA_LLADDR );
   // Entries of a device's own filter carry NTF_SELF and belong to no bridge's forwarding database.
   const bool isOurs = attributeValue< std::int32_t >( attributes, NDA_MASTER ) == ifindex_ && !( header->ndm_flags & NTF_SELF );
   if( !isOurs || address.size() != 6 ) return Event::none;
   out.address = Quor::EthAddr( address.first< 6 >() );
   out.vlan = attributeValue< std::uint16_t >( attributes, NDA_VLAN ).value_or( Vlan( 0 ) );
   out.ifindex = header->ndm_ifindex;
   // A permanent entry is an address of the bridge's own. A host that becomes one is a host no more.
   out.isRemoval = type == RTM_DELNEIGH || ( header->ndm_state & NUD_PERMANENT ) || out.ifindex == ifindex_;
   out.kind = header->ndm_state & NUD_NOARP ? HostKind::configured : HostKind::learned;
   return Event::change;
}

void BridgeSource::apply( const Change& change, double time ) {
   if( change.isRemoval ) sink_.bridgeHostGone( id_, change.vlan, change.address );
   else sink_.bridgeHost( id_, change.vlan, change.address, ports_.devicePort( change.ifindex ), change.kind, time );
}

void BridgeSource::applyPending( Nanos now ) {
   const bool isGone = bridgeRemoved_ || ( removalPending() && !isThere() );
   const double time = wallNow();
   for( const Change& change : pending_ )
      if( !isGone || !change.isRemoval ) apply( change, time );
   pending_.clear();
   if( isGone ) vanished( "has disappeared", now );
}

void BridgeSource::vanished( const std::string& how, Nanos now ) {
   events_.reset();
   pending_.clear();
   bridgeRemoved_ = false;
   sink_.bridgeGone( id_ );
   report_( "bridge '" + bridge_ + "': " + how + "; its hosts stay until they age, and it is looked for every second" );
   checkAt_ = now + retryInterval;
}

}
