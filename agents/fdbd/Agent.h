#pragma once

#include "AgingClock.h"
#include "Options.h"
#include "Ports.h"
#include <kel/Activity.h>
#include <memory>

namespace Fdbd {

/// Joins sources, the learner and time in one activity.
class Agent {
 public:
   /// Opens the sources; what bridges have already goes to `sink` at once. `report` takes lines for people, `statistics` the
   /// lines that --statistics asks for.
   Agent( Kel::Activity& activity, const Options& options, HostSink& sink, Reporter report, Reporter statistics );
   Agent( const Agent& ) = delete;
   Agent& operator=( const Agent& ) = delete;

   /// Whether there is anything to learn from now; if not, each source has been reported.
   bool usable() const;
   /// Learns until the activity is stopped, or the captures have ended where that was asked for. Returns the exit code.
   int run();
   Statistics statistics();

 private:
   /// A source and what wakes it.
   struct Slot {
      std::unique_ptr< Source > source;
      Kel::Activity::Watch watch;
      int watched = -1;
      Kel::Timer timer;
      Nanos timerAt = never;
   };

   void addSources();
   void service( Slot& slot );
   void arm( Slot& slot );
   void armAging();
   void age();
   void printStatistics();
   Kel::Timer timerAt( Nanos at, std::function< void() > callback );

   Kel::Activity& activity_;
   const Options& options_;
   HostSink& sink_;
   const Reporter report_;
   const Reporter statisticsLine_;
   AgingClock clock_;
   Ports ports_;
   FdbLearner learner_;
   CaptureSource* captures_ = nullptr;
   std::vector< Slot > slots_;
   Kel::Timer agingTimer_;
   Nanos agingAt_ = never;
   Kel::Timer statisticsTimer_;
};

}
