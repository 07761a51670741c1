#include "PrintSink.h"

#include <charconv>
#include <stdexcept>

namespace Fdbd {

namespace {

void end( std::ostream& out ) {
   out << std::endl;
   if( !out ) throw std::runtime_error( "standard output can't be written; keep its reader running" );
}

std::ostream& begin( std::ostream& out, const char* event, HostId id ) {
   return out << "{\"event\":\"" << event << "\",\"vlan\":" << id.fid() << ",\"address\":\"" << id.address().stringValue().view()
      << '"';
}

}

void PrintSink::learned( HostId id, const Host& host ) {
   char time[ 32 ];
   const char* const timeEnd = std::to_chars( time, time + sizeof time, host.lastMoveTime ).ptr;
   begin( out_, "learned", id ) << ",\"port\":\"" << host.port.stringValue().view() << "\",\"moves\":" << host.moves
                                << ",\"lastMoveTime\":" << std::string_view( time, timeEnd ) << ",\"kind\":\""
                                << ( host.kind == HostKind::learned ? "learned" : "configured" ) << "\"}";
   end( out_ );
}

void PrintSink::gone( HostId id ) {
   begin( out_, "gone", id ) << '}';
   end( out_ );
}

}
