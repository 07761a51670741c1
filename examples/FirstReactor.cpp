// Prints the hosts of the MAC address table as they come, move and go: those that are there already first.
#include <Vanta/FdbStatusSm.h>
#include <iostream>
#include <kel/Activity.h>
#include <map>

struct Hosts : Bridging::FdbStatus::NotifieeConst { // follows the hosts of one filtering database
   using NotifieeConst::NotifieeConst;
   void onLearnedHost( const Quor::EthAddr& address ) override {
      const Bridging::LearnedHost host = notifier()->learnedHost( address );
      const std::string news = !host ? " is gone" : " is on " + host.intf().stringValue().str();
      std::cout << notifier()->fid() << " " << address << news << std::endl;
   }
};

struct Databases : Bridging::Status::NotifieeConst { // follows the filtering databases
   using NotifieeConst::NotifieeConst;
   void onFdbStatus( Bridging::Fid fid ) override {
      const auto fdb = notifier()->fdbStatus( fid );
      hosts[ fid ] = fdb ? Kel::makePtr< Hosts >( fdb ) : nullptr;
   }
   std::map< Bridging::Fid, Kel::Ptr< Hosts > > hosts;
};

int main() {
   const auto table = Plexo::Bridging::statusFactory( "table" );
   table->plexoFdbStatusControl().setUp( { .name = "fdb" } ); // as a reader; its writer may come later
   const auto status = Bridging::statusFactory( "status" );
   const auto databases = Kel::makePtr< Databases >( status );
   const auto reader = Bridging::readerFdbStatusSmFactory( status, table ); // makes the entities and keeps them as the table is
   Kel::Activity activity;
   table->plexoFdbStatusControl().attach( activity );
   activity.run();
}
