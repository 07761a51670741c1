#include <Vanta/FdbStatusSm.h>

#include <cstdlib>
#include <iostream>

// One host through the whole house: an entity, the table in shared memory, another entity, and its reactor.

namespace {

class Printer : public Bridging::FdbStatus::NotifieeConst {
 public:
   using NotifieeConst::NotifieeConst;
   using NotifieeConst::onLearnedHost;
   void onLearnedHost( const Quor::EthAddr& address ) override { std::cout << notifier()->learnedHost( address ) << "\n"; }
};

Kel::Ptr< Plexo::Bridging::Status > table( Plexo::TableMode mode ) {
   const auto status = Plexo::Bridging::statusFactory( "table" );
   status->plexoFdbStatusControl().setUp( { .name = "stranger", .mode = mode } );
   return status;
}

}

int main() {
   if( !std::getenv( "PLEXO_DIR" ) ) return 1;
   const auto learned = Bridging::statusFactory( "learned" ), seen = Bridging::statusFactory( "seen" );
   const auto written = table( Plexo::TableMode::writer ), read = table( Plexo::TableMode::reader );
   const auto writer = Bridging::writerFdbStatusSmFactory( learned, written );
   const auto reader = Bridging::readerFdbStatusSmFactory( seen, read );

   const auto host = [ & ]( const char* address ) {
      learned->fdbStatusIs( 10 )->learnedHostIs(
         { Quor::EthAddr( address ), Quor::IntfId( "Ethernet3/2.100" ), 1, 2.5, Bridging::EntryType::learnedDynamicMac } );
      while( read->plexoFdbStatusControl().dispatch() ) {}
   };
   host( "02:00:00:00:00:01" );
   const Kel::Ptr< Printer > printer( new Printer( seen->fdbStatus( 10 ) ) );
   host( "02:00:00:00:00:02" );
   return seen->fdbStatus( 10 )->learnedHostCount() == 2 ? 0 : 1;
}
