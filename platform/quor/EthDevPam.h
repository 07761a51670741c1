#pragma once

#include <kel/UniqueFd.h>
#include <memory>
#include <quor/EthAddr.h>
#include <quor/Pam.h>
#include <set>
#include <vector>

namespace [[gnu::visibility("default")]] Quor {

class PacketRing;

/// The frames of one Ethernet device of the system, over a packet socket (packet(7)); needs the right to open one (CAP_NET_RAW).
/// Frames carry their VLAN tag, also where the system strips it, and have `Packet::defaultHeadRoom`. Those that the system itself
/// sends out of the device are not received.
///
/// `fd()` is readable whenever `dispatch` has something to do:
///
///     pam->notifieeIs( &handler );
///     pam->modeIs( Quor::PamMode::both );
///     pam->enabledIs( true );
///     auto watch = activity.watch( pam->fd(), Kel::FdEvents::reading(), [ pam ]( Kel::FdEvents ) { pam->dispatch(); } );
///
/// A device that vanishes while it is in use, or moves to another network namespace, is told to the notifiee once, with `onGone`;
/// the endpoint is then as before `enabledIs( true )`, which opens the device of that name again when there is one. One that is
/// only taken down and up goes on by itself.
class EthDevPam : public Pam {
 public:
   using U32 = Kel::U32;
   using U64 = Kel::U64;
   using GenericIf_ = Kel::GenericIfOf< EthDevPam >;
   static Kel::Type _Type;
   static Kel::Type& _fwkType() { return _Type; }
   Kel::Type& fwkType() const override { return _Type; }

   /// What has passed, and what has not, over all openings of the device.
   struct Counters {
      U64 rxFrames = 0;    ///< delivered
      U64 rxDropped = 0;   ///< lost by the system because they came faster than they were taken
      U64 rxCut = 0;       ///< left out because the system has handed over only their beginning
      U64 txFrames = 0;    ///< taken by the system
      U64 txDropped = 0;   ///< dropped by the system (a queue was full, a filter took them), or no device was up to send them on
      U64 txRefused = 0;   ///< refused by the system, as one that is shorter than its header or too long for the device
   };

   /// Opens nothing yet. Throws `Kel::Exception` when the system has no descriptor left.
   explicit EthDevPam( const Kel::String8& deviceName );
   ~EthDevPam() override;

   const Kel::String8& deviceName() const { return deviceName_; }
   /// Which way frames pass, of `PamMode`; none at start.
   U32 mode() const { return mode_; }
   void modeIs( U32 mode ) { mode_ = mode; }
   /// Whether frames to any address are received, not only those to the device's own, to its groups and to all. Kept for each
   /// opening of the device. Throws `Kel::Exception` with the device and the system's reason when that refuses, and is then as
   /// before; a device that has just gone is no such case.
   bool promiscuous() const { return promiscuous_; }
   void promiscuousIs( bool on );
   /// Whether frames to this group address are received; likewise. Throws `Kel::RangeException` for one that is no group's.
   bool multicastAddr( const EthAddr& group ) const { return multicastAddrs_.contains( group ); }
   void multicastAddrIs( const EthAddr& group, bool on );
   /// Opens the device or closes it. Throws `Kel::Exception` "Ethernet device 'et9' can't be opened: No such device", or whatever
   /// the system's reason is, and is then closed. One that has gone counts as open until `dispatch` has told of it.
   bool enabled() const { return ring_ != nullptr; }
   void enabledIs( bool on );
   /// The device's own address, as it was when the device was opened; zero while it is closed.
   EthAddr address() const;

   /// The same one as long as the endpoint lives.
   int fd() const { return events_.get(); }
   /// Delivers up to `budget` frames, and tells of a device that has gone. True when there may be more.
   bool dispatch( U32 budget = 256 );

   /// Sends one frame at once, except from a callback of `dispatch` and while a `TxBatch` lives: then it goes with the others, in
   /// order.
   void tx( const Kel::Ptr< Packet >& pkt ) override;
   void flush();

   /// Keeps what is sent together while it lives, for one call of the system in place of many.
   class TxBatch {
    public:
      explicit TxBatch( const Kel::Ptr< EthDevPam >& pam ) : pam_( pam ) { ++pam_->batches_; }
      TxBatch( const TxBatch& ) = delete;
      TxBatch& operator=( const TxBatch& ) = delete;
      ~TxBatch() {
         if( --pam_->batches_ == 0 ) pam_->flush();
      }

    private:
      const Kel::Ptr< EthDevPam > pam_;
   };

   Counters counters() const;

 private:
   void open();
   void membershipIs( PacketRing& ring, Kel::U16 type, const EthAddr& group, bool on ) const;
   void close();
   bool deviceHasGone();
   void handleGone();

   Kel::String8 deviceName_;
   std::set< EthAddr > multicastAddrs_;
   std::vector< Kel::Ptr< Packet > > txQueue_;
   /// The device while it is open; a callback may close it, and even open it again.
   std::shared_ptr< PacketRing > ring_;
   Kel::UniqueFd events_;
   Kel::UniqueFd links_;
   mutable Counters counters_;
   int index_ = 0;
   U32 mode_ = PamMode::none;
   U32 batches_ = 0;
   bool promiscuous_ = false;
};

}
