#pragma once

#include "CaptureSource.h"
#include "FdbLearner.h"
#include <stdexcept>
#include <string>
#include <vector>

namespace Fdbd {

/// A command line that can't be used. One line: what, where, what to do.
class UsageError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

/// Something on the command line that hosts are to be learned from.
struct SourceOption {
   enum class Kind { capture, interface, bridge };
   Kind kind;
   /// The file, the device or the bridge.
   std::string name;
   /// Empty for a device without =PORT and for a bridge.
   Quor::IntfId port;
};

/// What the command line asks for.
struct Options {
   enum class Action { run, help, version };

   Action action = Action::run;
   std::vector< SourceOption > sources;
   std::string table = "fdb";
   /// The table of the counters per VLAN; with `snapshotSuffix` behind it, that of their snapshots.
   std::string vlanCounters;
   FdbLearner::Settings learning;
   Pace pace = Pace::real;
   bool statistics = false;
   /// Time between two lines of statistics; 0: only at the end.
   Nanos statisticsInterval = 0;
   std::string trace;
   bool json = false;
   bool print = false;
   bool exitAtEnd = false;

   /// Whether there are frames to count, and a table to publish them in: a bridge shows its hosts only.
   bool countsVlans() const;
};

/// What the name of the snapshots' table has behind that of the counters' table.
inline constexpr char snapshotSuffix[] = "-snapshot";

/// Throws `UsageError`.
Options parseOptions( int argc, char* const* argv );

/// The text of `--help`.
extern const char helpText[];

}
