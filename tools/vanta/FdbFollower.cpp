#include "FdbFollower.h"

#include <vector>

namespace Tool {

namespace {

struct AddressHash {
   std::size_t operator()( const Quor::EthAddr& address ) const noexcept { return address.hash(); }
};

}

/// The hosts of one filtering database. It remembers the port of each, so that it can tell where a host has moved from.
class FdbFollower::OneFdb : public Bridging::FdbStatus::NotifieeConst {
 public:
   OneFdb( const Kel::Ptr< Bridging::FdbStatus >& fdb, HostListener& listener )
      : NotifieeConst( Kel::Ptr< const Bridging::FdbStatus >( fdb ) ), listener_( listener ), fid_( fdb->fid() ) {
      onLearnedHost();
   }

   std::size_t hosts() const { return ports_.size(); }

   /// The collection is to be read again as a whole.
   void onLearnedHost() override {
      for( auto host = notifier()->learnedHostIterConst(); host; ++host ) onLearnedHost( host.key() );
      std::vector< Quor::EthAddr > left;
      for( const auto& [ address, port ] : ports_ ) {
         if( !notifier()->learnedHost( address ) ) left.push_back( address );
      }
      for( const Quor::EthAddr& address : left ) onLearnedHost( address );
   }

   void onLearnedHost( const Quor::EthAddr& address ) override {
      const auto known = ports_.find( address );
      const auto fdb = notifier();
      const Bridging::LearnedHost host = fdb ? fdb->learnedHost( address ) : Bridging::LearnedHost();
      if( !host ) {
         if( known != ports_.end() ) gone( known );
         return;
      }
      const bool isNew = known == ports_.end();
      const Quor::IntfId before = isNew ? Quor::IntfId() : known->second;
      ports_[ address ] = host.intf();
      listener_.hostIs( fid_, host, isNew ? nullptr : &before );
   }

   /// The filtering database goes, with whatever it still holds.
   void goneAll() {
      while( !ports_.empty() ) gone( ports_.begin() );
   }

 private:
   using PortMap = std::unordered_map< Quor::EthAddr, Quor::IntfId, AddressHash >;

   void gone( PortMap::iterator at ) {
      const auto [ address, port ] = *at;
      ports_.erase( at );
      listener_.hostGone( fid_, address, port );
   }

   HostListener& listener_;
   const Bridging::Fid fid_;
   PortMap ports_;
};

FdbFollower::FdbFollower( const Kel::Ptr< Bridging::Status >& status, HostListener& listener )
   : NotifieeConst( Kel::Ptr< const Bridging::Status >( status ) ), listener_( listener ) {
   onFdbStatus();
}

std::size_t FdbFollower::hosts() const {
   std::size_t count = 0;
   for( const auto& [ fid, fdb ] : fdbs_ ) count += fdb->hosts();
   return count;
}

void FdbFollower::onFdbStatus() {
   for( auto fdb = notifier()->fdbStatusIterConst(); fdb; ++fdb ) onFdbStatus( fdb.key() );
}

void FdbFollower::onFdbStatus( Bridging::Fid fid ) {
   const auto fdb = notifier()->fdbStatus( fid );
   const auto known = fdbs_.find( fid );
   if( known != fdbs_.end() && ( !fdb || known->second->notifier() != fdb ) ) {
      const Kel::Ptr< OneFdb > gone = known->second;
      fdbs_.erase( known );
      gone->goneAll();
   }
   if( fdb && !fdbs_.contains( fid ) ) fdbs_.emplace( fid, Kel::Ptr< OneFdb >( new OneFdb( fdb, listener_ ) ) );
}

}
