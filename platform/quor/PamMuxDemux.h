#pragma once

#include <kel/HashMap.h>
#include <quor/Pam.h>

namespace [[gnu::visibility("default")]] Quor {

/// Lets several endpoints share a lower one. Each has a key: what comes from below goes to the endpoint whose key `decapsulate`
/// reads out of it, what an endpoint sends passes `doEncapsulate` with that key on its way down. Derived classes say how a key
/// stands in a packet.
///
/// Packets pass once it is initialised, as far as its mode lets them. The lower endpoint's notifiee is this machine; when it
/// goes, so does the attachment, and the endpoints that others still hold send nowhere.
class PamMuxDemux : public Kel::Machine {
 public:
   using U32 = Kel::U32;
   struct Attr_ : Kel::Machine::Attr_ {
      enum : Kel::U16 { onePam = Kel::Machine::Attr_::count_, count_ };
   };
   using GenericIf_ = Kel::GenericIfOf< PamMuxDemux >;
   static Kel::Type _Type;
   static Kel::Type& _fwkType() { return _Type; }
   Kel::Type& fwkType() const override { return _Type; }

   /// Null for none yet. Throws `Kel::InternalException` for a lower endpoint that has a notifiee already.
   explicit PamMuxDemux( const Kel::Ptr< Pam >& onePam );
   ~PamMuxDemux() override;

   /// The lower endpoint. Null sends nowhere. Throws `Kel::InternalException` for one that has a notifiee already, and for one
   /// that stands on this machine itself: a packet would go round without end.
   Kel::Ptr< Pam > onePam() const { return onePam_; }
   virtual void onePamIs( const Kel::Ptr< Pam >& onePam );
   /// Which way packets pass, of `PamMode`; none at start.
   U32 mode() const { return mode_; }
   virtual void modeIs( U32 mode ) { mode_ = mode; }
   /// False at start.
   bool initialized() const { return initialized_; }
   virtual void initializedIs( bool initialized ) { initialized_ = initialized; }

   /// The endpoint with this key, or null.
   Kel::Ptr< Pam > pam( U32 key ) const;
   /// The endpoint with this key, made when there is none.
   Kel::Ptr< Pam > newPam( U32 key );
   /// Takes the endpoint out and detaches its notifiee; it sends nowhere from then on.
   void pamDel( U32 key );
   /// How many packets came from below for a key that has no endpoint, or one that nobody listens to.
   Kel::U64 unclaimed() const { return unclaimed_; }

   /// The key in a received packet, which it may change on the way: it is what the endpoint gets.
   virtual U32 decapsulate( const Kel::Ptr< Packet >& pkt ) = 0;
   /// Puts the sending endpoint's key into a packet.
   virtual void doEncapsulate( const Kel::Ptr< Packet >& pkt, U32 from ) = 0;

 private:
   class Endpoint;
   bool isBelow( const Pam* pam ) const;
   struct Lower : PamNotifiee {
      explicit Lower( PamMuxDemux* owner ) : owner_( owner ) {}
      void onRx( const Kel::Ptr< Packet >& pkt ) override { owner_->handleRx( pkt ); }
      void onGone( const Kel::String8& why ) override { owner_->handleGone( why ); }
      PamMuxDemux* owner_;
   };

   void handleRx( const Kel::Ptr< Packet >& pkt );
   void handleGone( const Kel::String8& why );
   void handleTx( const Kel::Ptr< Packet >& pkt, U32 from );

   static const Kel::Attr attrs_[];
   Kel::Ptr< Pam > onePam_;
   Lower lower_{ this };
   Kel::HashMap< U32, Kel::Ptr< Endpoint > > endpoints_;
   Kel::U64 unclaimed_ = 0;
   U32 mode_ = PamMode::none;
   bool initialized_ = false;
};

}
