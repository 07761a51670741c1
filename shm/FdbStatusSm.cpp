#include <Vanta/FdbStatusSm.h>

#include <kel/Rilo.h>
#include <plexo/Exceptions.h>

// The two forms of a learned host: an entity's value under (filtering database, address), and a record of the shared table under
// the same key. A host that equals the default, in either form, is no host. A corrupt table never stops a machine that reads it:
// the table's hook is told, and the look-up counts as one that found nothing, the walk as one that has ended. Writes are not
// guarded.
//
// Each change of a table or of an entity calls reactors, which may take away what is worked on here: a filtering database, a
// machine. So a function holds what it goes on with, and a walk over hosts ends when its reactor is no longer attached to them.

namespace Bridging {

namespace {

using Plexo::Bridging::PlexoFdbStatus;

constexpr char source[] = "FdbStatusSm";

Kel::TraceStream entry( const char* function ) { return kelModuleFdbStatusSm::_defaultTraceHandle().at( 5, source, function ); }

/// Calls `visit( key )` for every record of the table; a corruption ends the walk.
template< class Visit >
void eachRecord( const Kel::Ptr< const Plexo::Bridging::Status >& table, Visit visit ) {
   if( !table ) return;
   try {
      for( auto i = table->plexoFdbStatusIterConst(); i; ++i ) visit( HostKey( i.key() ) );
   } catch( const Plexo::CorruptionException& e ) {
      table->plexoFdbStatusControl().corruptionDetected( e.what() );
   }
}

/// The record under a key; the default one where a corruption hides it.
PlexoFdbStatus recordOf( const Plexo::Bridging::Status& table, const HostKey& key ) {
   try {
      return table.plexoFdbStatus( key );
   } catch( const Plexo::CorruptionException& e ) {
      table.plexoFdbStatusControl().corruptionDetected( e.what() );
      return PlexoFdbStatus();
   }
}

}

void WriterFdbStatusSm::handleInitialized() {
   if( auto t = entry( "virtual void Bridging::WriterFdbStatusSm::handleInitialized()" ) ) t << "";
   Kel::Rilo::message( source, "WriterFdbStatusSm::handleInitialized()" );
   // Before the first write, so that what an earlier run left disappears while what is still true is overwritten in place.
   const auto table = plexoStatus();
   eachRecord( table, [ this, &table ]( const HostKey& key ) {
      const auto hosts = status();
      const auto fdb = hosts ? hosts->fdbStatus( key.fid() ) : nullptr;
      if( !fdb || !fdb->learnedHost( key.addr() ) ) table->plexoFdbStatusDel( key );
   } );
   initializedIs( true );
   for( auto i = fdbStatusIterConst(); i; ++i ) {
      const auto reactor = i.value();
      reactor->handleLearnedHosts();
   }
}

void WriterFdbStatusSm::KelFdbStatus::handleLearnedHosts() {
   static constexpr char function[] = "void Bridging::WriterFdbStatusSm::KelFdbStatus::handleLearnedHosts()";
   if( !writerFdbStatusSm()->initialized() ) {
      if( auto t = entry( function ) ) t << " Plexo collection not initialized yet";
      return;
   }
   if( auto t = entry( function ) ) t << "";
   Kel::Rilo::message( source, "WriterFdbStatusSm::handleLearnedHosts()" );
   const auto fdb = fdbStatus();
   if( !fdb ) return;
   for( auto i = fdb->learnedHostIterConst(); i && fdbStatus() == fdb; ++i ) handleLearnedHost( i.key() );
}

void WriterFdbStatusSm::KelFdbStatus::handleLearnedHost( const Quor::EthAddr& addr ) {
   const auto table = writerFdbStatusSm()->plexoStatus();
   if( !table ) return;
   const auto fdb = fdbStatus();
   const HostKey key( fdb ? fdb->fid() : Fid(), addr );
   const LearnedHost host = fdb ? fdb->learnedHost( addr ) : LearnedHost();
   if( host == LearnedHost() ) table->plexoFdbStatusDel( key );
   else table->plexoFdbStatusIs( PlexoFdbStatus( key, host.intf(), host.moves(), host.lastMoveTime(), host.entryType() ) );
}

void WriterFdbStatusSm::KelFdbStatus::cleanLearnedHosts() {
   const auto fdb = fdbStatus();
   const auto table = writerFdbStatusSm()->plexoStatus();
   if( !fdb || !table ) return;
   for( auto i = fdb->learnedHostIterConst(); i; ++i ) table->plexoFdbStatusDel( HostKey( fdb->fid(), i.key() ) );
}

void ReaderFdbStatusSm::handlePlexoFdbStatuses() {
   eachRecord( plexoStatus(), [ this ]( const HostKey& key ) { handlePlexoFdbStatus( key ); } );
}

void ReaderFdbStatusSm::handlePlexoFdbStatus( const HostKey& key ) {
   const auto table = plexoStatus();
   const auto hosts = status();
   if( !table || !hosts ) return;
   const Fid fid = key.fid();
   const PlexoFdbStatus record = recordOf( *table, key );
   if( record != PlexoFdbStatus() ) {
      hosts->fdbStatusIs( fid )->learnedHostIs(
         LearnedHost( key.addr(), record.intf(), record.moves(), record.lastMoveTime(), record.entryType() ) );
      return;
   }
   const auto fdb = hosts->fdbStatus( fid );
   if( !fdb ) return;
   if( !!fdb->learnedHost( key.addr() ) ) fdb->learnedHostDel( key.addr() );
   if( fdb->learnedHostCount() == 0 && hosts->fdbStatus( fid ) == fdb ) hosts->fdbStatusDel( fid );
}

}
