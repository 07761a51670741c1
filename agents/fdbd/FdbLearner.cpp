#include "FdbLearner.h"

#include "Frame.h"
#include <random>
#include <utility>

// One record per host in a hashed map, whose nodes never move, so that records can also be strung on a list.
//
// A record is either ours or a bridge's. Ours stand on the list in the order in which they were last seen, the oldest first:
// being seen again moves a record to the end, and what has aged out is always at the head, so that aging costs nothing for the
// hosts that stay. A bridge's records are on no list: the bridge ages them and says so. Whoever last reported a host on its port
// has it: a frame on another port takes a host from its bridge, the bridge's next word on it takes it back.
//
// Invariants: a record is on the list exactly when `bridge` is 0; `lastSeen` never decreases along the list; the sink has been
// told of exactly the hosts in the map, each with its present value.

namespace Fdbd {

std::size_t FdbLearner::IdHash::operator()( HostId id ) const noexcept {
   // The finaliser of MurmurHash3 for 64 bits (Austin Appleby, public domain).
   std::uint64_t h = id.word() ^ secret;
   h = ( h ^ h >> 33 ) * 0xff51afd7ed558ccdu;
   h = ( h ^ h >> 33 ) * 0xc4ceb9fe1a85ec53u;
   return static_cast< std::size_t >( h ^ h >> 33 );
}

FdbLearner::FdbLearner( const Settings& settings, HostSink& sink, Reporter report )
    : settings_( settings ), sink_( sink ), report_( std::move( report ) ),
      hosts_( 16, IdHash{ std::uint64_t( std::random_device{}() ) << 32 | std::random_device{}() } ) {}

void FdbLearner::frame( Quor::IntfId port, std::span< const std::uint8_t > bytes, std::size_t length, double time ) {
   ++statistics_.frames;
   if( const auto frame = decodeFrame( bytes ) ) decoded( port, *frame, length, time );
   else ++statistics_.truncated;
}

void FdbLearner::untaggedFrame( Quor::IntfId port, std::span< const std::uint8_t > bytes, std::size_t length, std::uint16_t tpid,
                                std::uint16_t tci, double time ) {
   ++statistics_.frames;
   if( const auto frame = decodeFrame( bytes, tpid, tci ) ) decoded( port, *frame, length, time );
   else ++statistics_.truncated;
}

void FdbLearner::decoded( Quor::IntfId port, const Frame& frame, std::size_t length, double time ) {
   // IEEE 802.1Q-2018, table 9-2: the VID 0xFFF is reserved and names no VLAN.
   if( frame.vid > maxVlan ) {
      ++statistics_.reservedVlan;
      return;
   }
   const Vlan vlan = vlanOr( frame.vid );
   sink_.arrived( vlan, frame.destination, length );
   if( !isStation( frame.source ) ) ++statistics_.notStation;
   else seen( HostId( vlan, frame.source ), port, time );
}

void FdbLearner::timeIs( Nanos now ) {
   if( now > now_ ) now_ = now;
   while( nextAging() <= now_ ) erase( *oldest_, statistics_.aged );
}

Nanos FdbLearner::nextAging() const {
   return oldest_ && settings_.agingTime ? oldest_->lastSeen + settings_.agingTime : never;
}

void FdbLearner::seen( HostId id, Quor::IntfId port, double time ) {
   const auto at = hosts_.find( id );
   if( at == hosts_.end() ) {
      if( Record* record = added( id, port, HostKind::learned ) ) linkNewest( *record );
      return;
   }
   Record& record = at->second;
   if( record.host.kind == HostKind::configured && record.bridge != 0 ) return;
   const bool isMove = record.host.port != port;
   if( record.bridge == 0 ) unlink( record );
   else if( !isMove ) return;
   record.bridge = 0;
   linkNewest( record );
   if( !isMove ) return;
   record.host.kind = HostKind::learned;
   moved( record, port, time );
}

void FdbLearner::bridgeHost( BridgeId bridge, Vlan vlan, const Quor::EthAddr& address, Quor::IntfId port, HostKind kind,
                             double time ) {
   ++statistics_.bridgeEvents;
   if( !isStation( address ) || vlan > maxVlan ) return;
   const HostId id( vlanOr( vlan ), address );
   const auto at = hosts_.find( id );
   Record* record = at == hosts_.end() ? added( id, port, kind ) : &at->second;
   if( !record ) return;
   if( at != hosts_.end() && record->bridge == 0 ) unlink( *record );
   record->bridge = bridge;
   record->dump = dumps_[ bridge ];
   const bool isOtherKind = std::exchange( record->host.kind, kind ) != kind;
   if( record->host.port != port ) moved( *record, port, time );
   else if( isOtherKind ) sink_.learned( id, record->host );
}

void FdbLearner::bridgeHostGone( BridgeId bridge, Vlan vlan, const Quor::EthAddr& address ) {
   ++statistics_.bridgeEvents;
   const auto at = hosts_.find( HostId( vlanOr( vlan ), address ) );
   if( at != hosts_.end() && at->second.bridge == bridge ) erase( at->second, statistics_.removed );
}

void FdbLearner::bridgeDumpBegins( BridgeId bridge ) {
   ++statistics_.bridgeDumps;
   ++dumps_[ bridge ];
}

void FdbLearner::bridgeDumpEnds( BridgeId bridge ) {
   for( Record* record : recordsOf( bridge ) )
      if( record->dump != dumps_[ bridge ] ) erase( *record, statistics_.removed );
}

void FdbLearner::bridgeGone( BridgeId bridge ) {
   for( Record* record : recordsOf( bridge ) ) {
      record->bridge = 0;
      linkNewest( *record );
   }
}

std::vector< FdbLearner::Record* > FdbLearner::recordsOf( BridgeId bridge ) {
   std::vector< Record* > out;
   for( auto& [ id, record ] : hosts_ )
      if( record.bridge == bridge ) out.push_back( &record );
   return out;
}

const Host* FdbLearner::host( HostId id ) const {
   const auto at = hosts_.find( id );
   return at == hosts_.end() ? nullptr : &at->second.host;
}

Statistics& FdbLearner::statistics() {
   statistics_.hosts = hosts_.size();
   return statistics_;
}

/// A new record, on no list; null when there is no room for it.
FdbLearner::Record* FdbLearner::added( HostId id, Quor::IntfId port, HostKind kind ) {
   if( hosts_.size() >= settings_.capacity ) {
      ++statistics_.refused;
      if( !std::exchange( fullReported_, true ) )
         report_( "the table is full at " + std::to_string( settings_.capacity ) + " hosts, further hosts are not learned: " +
                  "start with a larger --capacity" );
      return nullptr;
   }
   Record& record = hosts_.try_emplace( id ).first->second;
   record.id = id;
   record.host.port = port;
   record.host.kind = kind;
   ++statistics_.learned;
   sink_.learned( id, record.host );
   return &record;
}

void FdbLearner::moved( Record& record, Quor::IntfId port, double time ) {
   record.host.port = port;
   ++record.host.moves;
   record.host.lastMoveTime = time;
   ++statistics_.moved;
   sink_.learned( record.id, record.host );
}

void FdbLearner::erase( Record& record, std::uint64_t& counter ) {
   if( record.bridge == 0 ) unlink( record );
   const HostId id = record.id;
   hosts_.erase( id );
   ++counter;
   // With a tenth of the capacity free again, the next time that it fills up is news.
   if( fullReported_ && hosts_.size() < settings_.capacity - settings_.capacity / 10 ) fullReported_ = false;
   sink_.gone( id );
}

void FdbLearner::linkNewest( Record& record ) {
   record.lastSeen = now_;
   record.older = newest_;
   record.newer = nullptr;
   ( newest_ ? newest_->newer : oldest_ ) = &record;
   newest_ = &record;
}

void FdbLearner::unlink( Record& record ) {
   ( record.older ? record.older->newer : oldest_ ) = record.newer;
   ( record.newer ? record.newer->older : newest_ ) = record.older;
}

}
