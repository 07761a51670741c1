#pragma once

#include "Ports.h"
#include "Source.h"
#include <kel/UniqueFd.h>
#include <memory>

namespace Fdbd {

/// Frames that arrive on a network device, through a packet socket. A device that vanishes is reported once, its hosts stay, and
/// it is looked for every second until it is back; so is one that is not there at the start.
class InterfaceSource final : public Source {
 public:
   /// An empty `port`: the port that `ports` has for the device.
   InterfaceSource( std::string device, Quor::IntfId port, Ports& ports, EventSink& sink, Reporter report );
   ~InterfaceSource() override;

   int descriptor() const override { return socket_.get(); }
   Nanos due() const override { return socket_ && !isDown_ ? never : checkAt_; }
   void service( Nanos now ) override;
   bool usable() const override { return usable_; }
   void addTo( Statistics& statistics ) override;

 private:
   struct Batch;
   std::string open();
   void retry( Nanos now );
   void checkDown( Nanos now );
   void vanished( const std::string& how, Nanos now );
   void deliver( int count, double time );
   void countDropped();
   void readFailed( int error, Nanos now );

   const std::string device_;
   const Quor::IntfId givenPort_;
   Ports& ports_;
   EventSink& sink_;
   const Reporter report_;
   std::unique_ptr< Batch > batch_;
   Kel::UniqueFd socket_;
   int ifindex_ = 0;
   Quor::IntfId port_;
   bool usable_ = false;
   bool isDown_ = false;
   bool downReported_ = false;
   /// When to look again for a device that is down or not there.
   Nanos checkAt_ = 0;
   std::uint64_t dropped_ = 0;
   /// Why the last attempt failed, so that each reason is reported once.
   std::string fault_;
};

}
