#include "Statistics.h"

#include <iterator>

namespace Fdbd {

namespace {

struct Row {
   const char* name;
   const char* label;
   std::uint64_t Statistics::*counter;
};

constexpr Row rows[] = {
   { "hosts", "hosts", &Statistics::hosts },
   { "learned", "learned", &Statistics::learned },
   { "moved", "moved", &Statistics::moved },
   { "aged", "aged", &Statistics::aged },
   { "removed", "removed", &Statistics::removed },
   { "refused", "refused", &Statistics::refused },
   { "frames", "frames", &Statistics::frames },
   { "truncated", "truncated", &Statistics::truncated },
   { "notStation", "not a station", &Statistics::notStation },
   { "reservedVlan", "reserved VLAN", &Statistics::reservedVlan },
   { "dropped", "dropped", &Statistics::dropped },
   { "bridgeEvents", "bridge events", &Statistics::bridgeEvents },
   { "bridgeDumps", "bridge dumps", &Statistics::bridgeDumps },
   { "bridgeOverruns", "bridge overruns", &Statistics::bridgeOverruns },
};

}

std::string Statistics::text() const {
   std::string out;
   for( const Row& row : rows ) {
      if( !out.empty() ) out += ", ";
      out += row.label + std::string( " " ) + std::to_string( this->*row.counter );
   }
   return out;
}

std::string Statistics::json() const {
   std::string out = "{\"event\":\"statistics\"";
   for( const Row& row : rows ) out += ",\"" + std::string( row.name ) + "\":" + std::to_string( this->*row.counter );
   return out + "}";
}

}
