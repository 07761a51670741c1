#pragma once

#include "AgingClock.h"
#include "CaptureFile.h"
#include "Source.h"
#include <vector>

namespace Fdbd {

/// How fast captures are played.
enum class Pace {
   real, ///< as they were recorded
   max,  ///< as fast as they can be read; hosts age by the captures' time
};

/// All the captures of a run, merged in the order of their timestamps; frames with the same timestamp come in the order in which
/// the captures were added.
class CaptureSource final : public Source {
 public:
   CaptureSource( Pace pace, AgingClock& clock, EventSink& sink, Reporter report );

   /// Adds a capture of what arrived on `port`. A file that can't be used is reported.
   void add( const std::string& path, Quor::IntfId port );

   Nanos due() const override;
   void service( Nanos now ) override;
   bool ended() const override { return tracks_.empty(); }
   bool usable() const override { return usable_; }
   /// Captures that could not be read to their end.
   std::uint32_t damaged() const { return damaged_; }

 private:
   /// A capture and its next frame.
   struct Track {
      CaptureFile file;
      Quor::IntfId port;
      CapturedFrame frame;
   };
   static bool advance( Track& track );
   void start( Nanos now );
   void play( std::size_t track );
   void drop( std::size_t track );
   std::size_t earliest() const;

   const Pace pace_;
   AgingClock& clock_;
   EventSink& sink_;
   const Reporter report_;
   std::vector< Track > tracks_;
   bool usable_ = false;
   std::uint32_t damaged_ = 0;
   bool started_ = false;
   /// What to add to a timestamp for the moment at which its frame plays: on the monotonic clock, or on the aging clock at `max`.
   Nanos shift_ = 0;
};

}
