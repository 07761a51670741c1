#pragma once

#include <kel/Machine.h>
#include <quor/Packet.h>

namespace [[gnu::visibility("default")]] Quor {

class Pam;

/// Which way packets pass.
struct PamMode {
   static constexpr Kel::U32 none = 0;
   static constexpr Kel::U32 rx = 1;
   static constexpr Kel::U32 tx = 2;
   static constexpr Kel::U32 both = 3;
};

/// Is told what a packet endpoint receives. It is attached to one endpoint at a time with `Pam::notifieeIs`; whichever of the two
/// goes first, the other is left unattached.
class PamNotifiee {
 public:
   PamNotifiee() = default;
   PamNotifiee( const PamNotifiee& ) = delete;
   PamNotifiee& operator=( const PamNotifiee& ) = delete;
   virtual ~PamNotifiee();

   /// A packet has come, and is the notifiee's from now on. It may do anything in here, even let the endpoint go.
   virtual void onRx( const Kel::Ptr< Packet >& pkt ) = 0;
   /// What the packets come from has gone, for instance its device, and `why` says so in one line for people. Called once each
   /// time. Of several endpoints over one device, one that was told before may have opened it again.
   virtual void onGone( const Kel::String8& why ) { static_cast< void >( why ); }

 private:
   friend class Pam;
   Pam* pam_ = nullptr;
};

/// A packet endpoint: packets that are sent into it go out, packets that come in go to its notifiee.
class Pam : public Kel::Machine {
 public:
   using GenericIf_ = Kel::GenericIfOf< Pam >;
   static Kel::Type _Type;
   static Kel::Type& _fwkType() { return _Type; }
   Kel::Type& fwkType() const override { return _Type; }
   ~Pam() override;

   /// Sends. The packet is the endpoint's from now on: it may be given a tag in place, and a sender that goes on with it keeps a
   /// copy.
   virtual void tx( const Kel::Ptr< Packet >& pkt ) = 0;

   PamNotifiee* notifiee() const { return notifiee_; }
   /// Attaches; null detaches. Throws `Kel::InternalException` when another one is attached, or it is attached elsewhere.
   void notifieeIs( PamNotifiee* notifiee );
   [[noreturn]] static void alreadyAttached();

 protected:
   Pam() = default;
   /// Hands a packet to the notifiee; false when there is none. The endpoint may have gone when it returns, unless the caller
   /// holds it.
   bool deliver( const Kel::Ptr< Packet >& pkt ) {
      if( !notifiee_ ) return false;
      notifiee_->onRx( pkt );
      return true;
   }
   void deliverGone( const Kel::String8& why ) {
      if( notifiee_ ) notifiee_->onGone( why );
   }

 private:
   friend class PamNotifiee;
   PamNotifiee* notifiee_ = nullptr;
};

}
