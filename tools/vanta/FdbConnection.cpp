#include "FdbConnection.h"

#include "Cli.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <poll.h>
#include <unistd.h>

namespace Tool {

namespace {

constexpr auto slice = std::chrono::milliseconds( 20 );
/// poll(2) counts in an int of milliseconds; whoever waits longer comes back in between.
constexpr double mostSeconds = 3600;

bool holdsRecords( const Kel::Ptr< Plexo::Bridging::Status >& table ) {
   const Plexo::TableState state = table->plexoFdbStatusControl().state();
   return state == Plexo::TableState::live || state == Plexo::TableState::stale;
}

}

/// Notes the key-less announcement that closes the first reading of a table. It is attached behind the machine, which has by
/// then taken everything over, unless it met a corruption; a table that becomes sound again is announced anew.
class FdbConnection::SyncReactor : public Plexo::Bridging::Status::NotifieeConst {
 public:
   SyncReactor( const Kel::Ptr< Plexo::Bridging::Status >& table, bool& synced )
      : NotifieeConst( Kel::Ptr< const Plexo::Bridging::Status >( table ) ), table_( table ), synced_( synced ) {}
   using NotifieeConst::onPlexoFdbStatus;
   void onPlexoFdbStatus() override { synced_ = synced_ || holdsRecords( table_ ); }

 private:
   const Kel::Ptr< Plexo::Bridging::Status > table_;
   bool& synced_;
};

FdbConnection::FdbConnection( const std::string& table )
   : description_( "table '" + table + "' in " + Plexo::tableDirectory() ),
     signals_( activity_, { SIGINT, SIGTERM }, [ this ]( int ) { stopped_ = true; } ),
     table_( Plexo::Bridging::statusFactory( "table" ) ),
     hosts_( Bridging::statusFactory( "hosts" ) ) {
   try {
      table_->plexoFdbStatusControl().setUp( { .name = table, .mode = Plexo::TableMode::reader } );
   } catch( const Kel::RangeException& e ) {
      throw UsageError( std::string( "--table: " ) + e.what() );
   }
   reader_ = Bridging::readerFdbStatusSmFactory( hosts_, table_ );
   sync_ = Kel::Ptr< Plexo::Bridging::Status::NotifieeConst >( new SyncReactor( table_, synced_ ) );
   synced_ = holdsRecords( table_ ); // the machine has just walked through it
   table_->plexoFdbStatusControl().attach( activity_ );
}

void FdbConnection::stateHandlerIs( std::function< void() > handler ) {
   const auto told = [ handler = std::move( handler ) ]( Plexo::TableState, const std::string& ) { handler(); };
   table_->plexoFdbStatusControl().stateHandlerIs( told );
}

bool FdbConnection::wait( double seconds ) {
   // A pipe whose reader has gone reports an error without being asked for anything.
   pollfd ready[] = { { activity_.fd(), POLLIN, 0 }, { STDOUT_FILENO, 0, 0 } };
   const int milliseconds = seconds < 0 ? -1 : int( std::min( seconds, mostSeconds ) * 1000 ) + 1;
   poll( ready, 2, milliseconds );
   activity_.dispatch( slice );
   return !stopped_ && !( ready[ 1 ].revents & POLLERR );
}

}
