#pragma once

#include "Cli.h"
#include "Output.h"

#include <Vanta/Bridging.h>
#include <optional>

namespace Tool {

/// Which hosts a person wants to see.
struct HostFilter {
   std::optional< Bridging::Fid > vlan;
   std::optional< Quor::IntfId > port;
   std::optional< Quor::EthAddr > address;

   bool any() const { return vlan || port || address; }
   bool matches( Bridging::Fid fid, const Bridging::LearnedHost& host ) const;
   /// Appends --vlan, --port and --address.
   void addOptionsTo( std::vector< Option >& options );
};

/// "learnedDynamicMac".
std::string entryTypeName( Bridging::EntryType type );

/// Puts a host's members into the object that `out` is in: vlan, address, port, moves, lastMoveTime, type.
void putHost( Json& out, Bridging::Fid fid, const Bridging::LearnedHost& host );

}
