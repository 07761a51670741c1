#include "Publisher.h"

#include "VlanCounting.h"
#include <Vanta/Bridging.h>
#include <Vanta/FdbStatusSm.h>
#include <Vanta/PlexoBridging.h>
#include <algorithm>

// The entities are written here, the table by the machine that watches them. A write to the table that fails throws in that
// machine's reactor, where the framework catches it and goes on. The agent can't go on without telling its readers the truth, so
// it waits for such a failure with each change.

namespace Fdbd {

namespace {

/// Room that the table has at once; more is taken as hosts come.
constexpr std::size_t initialHosts = 4096;

Bridging::EntryType entryType( HostKind kind ) {
   return kind == HostKind::configured ? Bridging::EntryType::configuredStaticMac : Bridging::EntryType::learnedDynamicMac;
}

}

struct Publisher::State {
   explicit State( Kel::Ptr< Kel::Dir > under ) : root( std::move( under ) ) {
      tree->entryIs( status );
      tree->entryIs( tableStatus );
      root->entryIs( tree );
   }
   ~State() { root->entryDel( tree->name() ); }
   Plexo::Writer* table() const { return tableStatus->plexoFdbStatusControl().writer(); }

   const Kel::Ptr< Kel::Dir > root;
   const Kel::Ptr< Kel::Dir > tree = Kel::dirFactory( "bridging" );
   const Kel::Ptr< Bridging::Status > status = Bridging::statusFactory( "status" );
   const Kel::Ptr< Plexo::Bridging::Status > tableStatus = Plexo::Bridging::statusFactory( "plexoStatus" );
   Kel::Ptr< Bridging::WriterFdbStatusSm > machine;
   std::unique_ptr< VlanCounting > vlans;
};

Publisher::Publisher( const Kel::Ptr< Kel::Dir >& root ) : state_( std::make_unique< State >( root ) ) {}

Publisher::~Publisher() = default;

void Publisher::open( const std::string& table, std::size_t capacity ) {
   state_->tableStatus->plexoFdbStatusControl().setUp( { .name = table,
                                                         .mode = Plexo::TableMode::writer,
                                                         .initialRecords = Kel::U32( std::min( capacity, initialHosts ) ),
                                                         .maxRecords = static_cast< Kel::U32 >( capacity ) } );
   const Plexo::WriterBatch batch( *state_->table() );
   state_->machine = Bridging::writerFdbStatusSmFactory( state_->status, state_->tableStatus );
}

void Publisher::countVlans( Kel::Activity& activity, const std::string& table, const std::string& snapshots, Reporter report ) {
   state_->vlans = std::make_unique< VlanCounting >( activity, *state_->tree, table, snapshots, std::move( report ) );
}

void Publisher::arrived( Vlan vlan, const Quor::EthAddr& destination, std::size_t octets ) {
   if( state_->vlans ) state_->vlans->arrived( vlan, destination, octets );
}

void Publisher::learned( HostId id, const Host& host ) {
   Kel::CallbackFailure failure;
   state_->status->fdbStatusIs( id.fid() )->learnedHostIs(
      { id.address(), host.port, host.moves, host.lastMoveTime, entryType( host.kind ) } );
   failure.rethrow();
}

void Publisher::gone( HostId id ) {
   const Bridging::Fid fid( id.fid() );
   const auto fdb = state_->status->fdbStatus( fid );
   if( !fdb ) return;
   Kel::CallbackFailure failure;
   fdb->learnedHostDel( id.address() );
   if( fdb->learnedHostCount() == 0 ) state_->status->fdbStatusDel( fid );
   failure.rethrow();
}

void Publisher::batchBegins() {
   if( auto* table = state_->table() ) table->batchBegin();
}

void Publisher::batchEnds() {
   if( auto* table = state_->table() ) table->batchEnd();
   if( state_->vlans ) state_->vlans->publish( wallNow() );
}

}
