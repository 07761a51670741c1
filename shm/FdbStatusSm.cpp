#include <Vanta/FdbStatusSm.h>

#include <kel/Rilo.h>
#include <plexo/Exceptions.h>

// The two forms of a learned host: an entity's value under (filtering database, address), and a record of the shared table under the same key.
// A host that equals the default, in either form, is no host. A corrupt table never stops a machine that reads it: the table's hook is told, and
// the look-up counts as one that found nothing, the walk as one that has ended. Writes are not guarded.

namespace Bridging {

namespace {

using Plexo::Bridging::PlexoFdbStatus;

auto entry( const char* function ) { return kelModuleFdbStatusSm::_defaultTraceHandle().at( 5, "FdbStatusSm", function ); }

/// Calls `visit( key )` for every record of the table; a corruption ends the walk.
template< class Visit >
void eachRecord( const Plexo::Bridging::Status& table, Visit visit ) {
   try {
      for( auto i = table.plexoFdbStatusIterConst(); i; ++i ) visit( HostKey( i.key() ) );
   } catch( const Plexo::CorruptionException& e ) {
      table.plexoFdbStatusControl().corruptionDetected( e.what() );
   }
}

}

void WriterFdbStatusSm::handleInitialized() {
   if( auto t = entry( "virtual void Bridging::WriterFdbStatusSm::handleInitialized()" ) ) t << "";
   Kel::Rilo::message( "WriterFdbStatusSm::handleInitialized()" );
   // Before the first write, so that what an earlier run left disappears while what is still true is overwritten in place.
   if( plexoStatus() ) {
      eachRecord( *plexoStatus(), [ this ]( const HostKey& key ) {
         const auto fdb = status() ? status()->fdbStatus( key.fid() ) : nullptr;
         if( !fdb || !fdb->learnedHost( key.addr() ) ) plexoStatus()->plexoFdbStatusDel( key );
      } );
   }
   initializedIs( true );
   for( auto i = fdbStatusIterConst(); i; ++i ) i.value()->handleLearnedHosts();
}

void WriterFdbStatusSm::KelFdbStatus::handleLearnedHosts() {
   static constexpr char function[] = "void Bridging::WriterFdbStatusSm::KelFdbStatus::handleLearnedHosts()";
   if( !writerFdbStatusSm()->initialized() ) {
      if( auto t = entry( function ) ) t << " Plexo collection not initialized yet";
      return;
   }
   if( auto t = entry( function ) ) t << "";
   Kel::Rilo::message( "WriterFdbStatusSm::handleLearnedHosts()" );
   if( !fdbStatus() ) return;
   for( auto i = fdbStatus()->learnedHostIterConst(); i; ++i ) handleLearnedHost( i.key() );
}

void WriterFdbStatusSm::KelFdbStatus::handleLearnedHost( const Quor::EthAddr& addr ) {
   const auto& table = writerFdbStatusSm()->plexoStatus();
   if( !table ) return;
   const auto fdb = fdbStatus();
   const HostKey key( fdb ? fdb->fid() : Fid(), addr );
   const LearnedHost host = fdb ? fdb->learnedHost( addr ) : LearnedHost();
   if( host == LearnedHost() ) table->plexoFdbStatusDel( key );
   else table->plexoFdbStatusIs( PlexoFdbStatus( key, host.intf(), host.moves(), host.lastMoveTime(), host.entryType() ) );
}

void WriterFdbStatusSm::KelFdbStatus::cleanLearnedHosts() {
   const auto fdb = fdbStatus();
   const auto& table = writerFdbStatusSm()->plexoStatus();
   if( !fdb || !table ) return;
   for( auto i = fdb->learnedHostIterConst(); i; ++i ) table->plexoFdbStatusDel( HostKey( fdb->fid(), i.key() ) );
}

void ReaderFdbStatusSm::handlePlexoFdbStatuses() {
   if( !plexoStatus() ) return;
   eachRecord( *plexoStatus(), [ this ]( const HostKey& key ) { handlePlexoFdbStatus( key ); } );
}

void ReaderFdbStatusSm::handlePlexoFdbStatus( const HostKey& key ) {
   if( !status() || !plexoStatus() ) return;
   PlexoFdbStatus record;
   try {
      record = plexoStatus()->plexoFdbStatus( key );
   } catch( const Plexo::CorruptionException& e ) {
      plexoStatus()->plexoFdbStatusControl().corruptionDetected( e.what() );
   }
   if( record != PlexoFdbStatus() ) {
      status()->fdbStatusIs( key.fid() )->learnedHostIs(
         LearnedHost( key.addr(), record.intf(), record.moves(), record.lastMoveTime(), record.entryType() ) );
      return;
   }
   const auto fdb = status()->fdbStatus( key.fid() );
   if( !fdb ) return;
   if( !!fdb->learnedHost( key.addr() ) ) fdb->learnedHostDel( key.addr() );
   if( fdb->learnedHostCount() == 0 ) status()->fdbStatusDel( key.fid() );
}

}
