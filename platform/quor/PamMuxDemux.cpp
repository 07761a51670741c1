#include <quor/PamMuxDemux.h>

#include <kel/Entity.h>
#include <kel/GenericIf.h>
#include <vector>

// Whoever is called from here, above or below, may let go of the machine or take endpoints out, so nothing of it is used behind
// such a call.

namespace Quor {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
constinit const Kel::Attr PamMuxDemux::attrs_[] = {
   Kel::ptrAttr< Pam >( "onePam", Kel::AttrKind::ref, offsetof( PamMuxDemux, onePam_ ), 0 ),
};
#pragma GCC diagnostic pop
constinit Kel::Type PamMuxDemux::_Type{ Kel::objectInfo< PamMuxDemux, Kel::Machine >( "Quor::PamMuxDemux", attrs_ ) };

/// One key's endpoint. Its owner lets it know when it goes.
class PamMuxDemux::Endpoint : public Pam {
 public:
   Endpoint( PamMuxDemux* owner, U32 key ) : owner_( owner ), key_( key ) {}
   void tx( const Kel::Ptr< Packet >& pkt ) override {
      if( owner_ ) owner_->handleTx( pkt, key_ );
   }
   void ownerGone() { owner_ = nullptr; }
   const PamMuxDemux* owner() const { return owner_; }
   using Pam::deliver;
   using Pam::deliverGone;

 private:
   PamMuxDemux* owner_;
   U32 key_;
};

PamMuxDemux::PamMuxDemux( const Kel::Ptr< Pam >& onePam ) : onePam_( onePam ) {
   if( onePam_ ) onePam_->notifieeIs( &lower_ );
}

PamMuxDemux::~PamMuxDemux() {
   for( auto i = endpoints_.iterator(); i; ++i ) i.value()->ownerGone();
}

/// Whether what is sent to `pam` comes to this machine.
bool PamMuxDemux::isBelow( const Pam* pam ) const {
   const PamMuxDemux* owner = nullptr;
   for( ; owner != this && pam; pam = owner ? owner->onePam_.ptr() : nullptr ) {
      const auto* const endpoint = dynamic_cast< const Endpoint* >( pam );
      owner = endpoint ? endpoint->owner() : nullptr;
   }
   return owner == this;
}

void PamMuxDemux::onePamIs( const Kel::Ptr< Pam >& onePam ) {
   if( onePam == onePam_ ) return;
   if( onePam && onePam->notifiee() ) Pam::alreadyAttached();
   if( isBelow( onePam.ptr() ) ) throw Kel::InternalException( "packet multiplexer can't stand on its own endpoint" );
   if( onePam_ ) onePam_->notifieeIs( nullptr );
   onePam_ = onePam;
   if( onePam_ ) onePam_->notifieeIs( &lower_ );
}

Kel::Ptr< Pam > PamMuxDemux::pam( U32 key ) const {
   const auto* found = endpoints_.find( key );
   return found ? Kel::Ptr< Pam >( *found ) : nullptr;
}

Kel::Ptr< Pam > PamMuxDemux::newPam( U32 key ) {
   if( const auto* found = endpoints_.find( key ) ) return *found;
   const Kel::Ptr< Endpoint > made( new Endpoint( this, key ) );
   endpoints_.insert( key, made );
   return made;
}

void PamMuxDemux::pamDel( U32 key ) {
   Kel::Ptr< Endpoint > removed;
   if( !endpoints_.erase( key, &removed ) ) return;
   removed->ownerGone();
   removed->notifieeIs( nullptr );
}

void PamMuxDemux::handleRx( const Kel::Ptr< Packet >& pkt ) {
   if( !initialized_ || !( mode_ & PamMode::rx ) ) return;
   const auto* found = endpoints_.find( decapsulate( pkt ) );
   if( !found || !( *found )->notifiee() ) {
      ++unclaimed_;
      return;
   }
   const Kel::Ptr< Endpoint > endpoint = *found;
   endpoint->deliver( pkt );
}

void PamMuxDemux::handleTx( const Kel::Ptr< Packet >& pkt, U32 from ) {
   if( !pkt || !initialized_ || !( mode_ & PamMode::tx ) || !onePam_ ) return;
   doEncapsulate( pkt, from );
   const Kel::Ptr< Pam > below = onePam_;
   below->tx( pkt );
}

void PamMuxDemux::handleGone( const Kel::String8& why ) {
   std::vector< Kel::Ptr< Endpoint > > all;
   for( auto i = endpoints_.iterator(); i; ++i ) all.push_back( i.value() );
   for( const auto& endpoint : all ) endpoint->deliverGone( why );
}

}
