#include "IntfDetails.h"

#include <map>
#include <mutex>

// Modules register while libraries are loaded, agents may ask from any of their threads: a lock guards the one map. Nobody asks often.

namespace Interface {

namespace {

struct Providers {
   const EthIntfDetailsProvider ethernet;
   std::mutex mutex;
   std::map< const Kel::Type*, const IntfDetailsProvider* > byType{ { &EthIntfStatus::_Type, &ethernet } };
};

Providers& providers() {
   static Providers& all = *new Providers;   // outlives every library that has registered with it
   return all;
}

const EthIntfStatus* asEthernet( const IntfStatus& status ) {
   return status.fwkType().derivesFrom( EthIntfStatus::_Type ) ? static_cast< const EthIntfStatus* >( &status ) : nullptr;
}

}

IntfDetailsProvider::~IntfDetailsProvider() = default;

IanaType EthIntfDetailsProvider::ianaType( const IntfStatus& ) const { return IanaType::ethernetCsmacd; }

Kel::U64 EthIntfDetailsProvider::speed( const IntfStatus& status ) const {
   const EthIntfStatus* ethernet = asEthernet( status );
   return ethernet ? ethernet->speed() : 0;
}

bool EthIntfDetailsProvider::connectorPresent( const IntfStatus& ) const { return true; }

Kel::S32 EthIntfDetailsProvider::ifIndex( const IntfStatus& status ) const { return asEthernet( status ) ? status.ifIndex() : -1; }

const IntfDetailsProvider* intfDetailsProviderIs( const Kel::Type& statusType, const IntfDetailsProvider* provider ) {
   Providers& all = providers();
   const std::lock_guard lock( all.mutex );
   const auto at = all.byType.find( &statusType );
   const IntfDetailsProvider* previous = at == all.byType.end() ? nullptr : at->second;
   if( provider ) all.byType[ &statusType ] = provider;
   else all.byType.erase( &statusType );
   return previous;
}

const IntfDetailsProvider* intfDetailsProvider( const IntfStatus& status ) {
   Providers& all = providers();
   const std::lock_guard lock( all.mutex );
   for( const Kel::Type* type = &status.fwkType(); type; type = type->base() ) {
      if( const auto at = all.byType.find( type ); at != all.byType.end() ) return at->second;
   }
   return nullptr;
}

}
