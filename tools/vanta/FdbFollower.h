#pragma once

#include <Vanta/Bridging.h>
#include <map>
#include <unordered_map>

namespace Tool {

/// Is told how the hosts of a `Bridging::Status` change.
class HostListener {
 public:
   /// A host is new, or changed; `before` is the port on which it was, or null when it is new.
   virtual void hostIs( Bridging::Fid fid, const Bridging::LearnedHost& host, const Quor::IntfId* before ) = 0;
   virtual void hostGone( Bridging::Fid fid, const Quor::EthAddr& address, const Quor::IntfId& before ) = 0;

 protected:
   ~HostListener() = default;
};

/// Reacts to a `Bridging::Status`: one reactor for the filtering databases, one for the hosts of each. Hosts that are there
/// already are told first.
class FdbFollower : public Bridging::Status::NotifieeConst {
 public:
   FdbFollower( const Kel::Ptr< Bridging::Status >& status, HostListener& listener );
   /// How many hosts there are now.
   std::size_t hosts() const;

   using NotifieeConst::onFdbStatus;
   void onFdbStatus() override;
   void onFdbStatus( Bridging::Fid fid ) override;

 private:
   class OneFdb;

   HostListener& listener_;
   std::map< Bridging::Fid, Kel::Ptr< OneFdb > > fdbs_;
};

}
