#pragma once

#include <cstddef>
#include <kel/String8.h>
#include <kel/UniqueFd.h>
#include <quor/EthAddr.h>
#include <quor/Packet.h>
#include <string>

namespace Quor {

/// Throws `Kel::Exception` "Ethernet device 'et9' " + `what` + ": " + the system's reason; `error` 0 stands for a device of
/// another kind.
[[noreturn]] void deviceFailed( const Kel::String8& device, const std::string& what, int error );

/// An open packet socket on one Ethernet device, with the ring in which the system puts what it receives.
class PacketRing {
 public:
   enum class Taken { nothing, frame, cut };

   /// Throws `Kel::Exception` with the device's name and the system's reason.
   explicit PacketRing( const Kel::String8& device );
   PacketRing( const PacketRing& ) = delete;
   PacketRing& operator=( const PacketRing& ) = delete;
   ~PacketRing();

   int fd() const { return fd_.get(); }
   /// Sends, and receives nothing.
   int sendFd() const { return sendFd_.get(); }
   /// The device's number, good until it goes.
   int index() const { return index_; }
   /// The device's own address when it was opened.
   const EthAddr& address() const { return address_; }

   /// Joins or leaves (packet(7), PACKET_MR_...). Returns the system's error number, 0 for none.
   int membershipIs( Kel::U16 type, const EthAddr& group, bool on );
   /// The next frame, with its tag in its place. `cut` when the system could hand over only the beginning of one.
   Taken next( Kel::Ptr< Packet >& frame );
   /// Takes note of the socket's error, which is raised until somebody does.
   void clearError();
   /// How many frames the system has lost since the last call.
   Kel::U32 dropped() const;

 private:
   using U8 = Kel::U8;
   using U32 = Kel::U32;
   void check( int result ) const;
   void option( int name, int value );
   void findDevice();
   void map( U32 mtu );
   void bind( const Kel::UniqueFd& fd, Kel::U16 protocol );
   Kel::Ptr< Packet > longFrame( U32 bytes );

   Kel::String8 device_;
   Kel::UniqueFd fd_;
   Kel::UniqueFd sendFd_;
   int index_ = 0;
   EthAddr address_;
   U32 slotBytes_ = 0;
   U32 slots_ = 0;
   U32 at_ = 0;
   std::size_t mapBytes_ = 0;
   U8* map_ = nullptr;
};

}
