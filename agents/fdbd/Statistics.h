#pragma once

#include <cstdint>
#include <string>

namespace Fdbd {

/// What the agent has done since it started.
struct Statistics {
   std::uint64_t frames = 0;          ///< frames read from captures and devices
   std::uint64_t truncated = 0;       ///< of these: header or tag cut short
   std::uint64_t notStation = 0;      ///< of these: a group or zero source address
   std::uint64_t reservedVlan = 0;    ///< of these: the reserved VLAN identifier 4095
   std::uint64_t dropped = 0;         ///< frames that the kernel dropped because the agent was behind
   std::uint64_t bridgeEvents = 0;    ///< additions and removals that bridges reported
   std::uint64_t bridgeDumps = 0;     ///< whole dumps of a bridge's forwarding database
   std::uint64_t bridgeOverruns = 0;  ///< of these dumps: because events had been lost
   std::uint64_t learned = 0;         ///< hosts that were new
   std::uint64_t moved = 0;           ///< changes of port
   std::uint64_t aged = 0;            ///< hosts that aged out
   std::uint64_t removed = 0;         ///< hosts that a bridge removed
   std::uint64_t refused = 0;         ///< hosts not learned because the table was at its capacity
   std::uint64_t hosts = 0;           ///< hosts known now

   /// One line for people, or one JSON object.
   std::string text() const;
   std::string json() const;
};

}
