#pragma once

#include "Source.h"

namespace Fdbd {

/// The clock that hosts age by. It goes with the monotonic clock, except while captures are read as fast as they can be: then a
/// capture's own timestamps drive it, and time flows as it did when the capture was recorded. When the last of them has ended it
/// goes on from there at the monotonic clock's pace. It never goes back.
class AgingClock {
 public:
   Nanos now( Nanos monotonic ) const { return driven_ ? drivenTo_ : monotonic + offset_; }
   /// Stops the clock, to be moved by `driveTo`.
   void drive( Nanos monotonic ) {
      drivenTo_ = now( monotonic );
      driven_ = true;
   }
   void driveTo( Nanos time ) {
      if( time > drivenTo_ ) drivenTo_ = time;
   }
   /// Lets the clock go on by itself.
   void release( Nanos monotonic ) {
      if( !driven_ ) return;
      offset_ = drivenTo_ - monotonic;
      driven_ = false;
   }
   bool driven() const { return driven_; }
   /// When, on the monotonic clock, this one reaches `time`; `never` while it is driven.
   Nanos monotonicAt( Nanos time ) const { return driven_ || time == never ? never : time - offset_; }

 private:
   bool driven_ = false;
   Nanos drivenTo_ = 0;
   Nanos offset_ = 0;
};

}
