#pragma once

#include "Host.h"
#include <ostream>

namespace Fdbd {

/// Writes each change of the forwarding database as one JSON object a line. Throws `std::runtime_error` when nobody takes them.
class PrintSink final : public HostSink {
 public:
   explicit PrintSink( std::ostream& out ) : out_( out ) {}
   void learned( HostId id, const Host& host ) override;
   void gone( HostId id ) override;

 private:
   std::ostream& out_;
};

}
