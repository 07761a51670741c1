#include <Lab/Sensor.h>

#include <iostream>

namespace {

class Printer : public Lab::Sensor::NotifieeConst {
 public:
   using NotifieeConst::NotifieeConst;
   using NotifieeConst::onHost;
   void onReading() override { std::cout << "reading " << notifier()->reading() << "\n"; }
   void onHost( const Quor::EthAddr& address ) override { std::cout << "host " << notifier()->host( address ) << "\n"; }
};

}

int main() {
   const auto sensor = Lab::sensorFactory( "sensor" );
   const Kel::Ptr< Printer > printer( new Printer( sensor ) );
   sensor->readingIs( 2.5 );
   sensor->hostIs( { Quor::EthAddr( "02:00:00:00:00:01" ), Quor::IntfId( "Ethernet1" ), 0, 0,
                     Bridging::EntryType::learnedDynamicMac } );
}
