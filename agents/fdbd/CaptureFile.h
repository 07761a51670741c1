#pragma once

#include "Host.h"
#include <optional>
#include <pcap/pcap.h>
#include <span>
#include <memory>

namespace Fdbd {

/// One frame of a capture. `bytes` is valid until the next frame is read.
struct CapturedFrame {
   /// Since 1970.
   Nanos time = 0;
   std::span< const std::uint8_t > bytes;
   /// Octets of the whole frame, of which `bytes` may be the start.
   std::size_t length = 0;
};

/// A recorded capture of Ethernet frames, pcap or pcapng, read from start to end. A file that is damaged gives every frame before
/// the damage, and then its end with a text that says what is wrong and where.
class CaptureFile {
 public:
   /// Opens it; `fault()` says why it can't be used, if so.
   explicit CaptureFile( std::string path );

   /// The next frame; nothing at the end or at a fault.
   std::optional< CapturedFrame > next();
   /// One line for people, empty when all is well.
   const std::string& fault() const { return fault_; }
   bool opened() const { return opened_; }
   const std::string& path() const { return path_; }
   std::uint64_t frames() const { return frames_; }

 private:
   struct Close {
      void operator()( pcap_t* p ) const { pcap_close( p ); }
   };
   void open();
   std::string position() const;

   std::string path_;
   std::unique_ptr< pcap_t, Close > pcap_;
   std::string fault_;
   bool opened_ = false;
   std::uint64_t frames_ = 0;
};

}
