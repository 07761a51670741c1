#include "CaptureSource.h"

#include <algorithm>

// Every capture has its next frame ready; the earliest of them plays next. The first frame of all plays at once, and sets the
// shift between timestamps and our clock.

namespace Fdbd {

namespace {

/// Frames per call, so that other sources and signals are not kept waiting.
constexpr int batch = 1024;
/// A frame that is due later than this is announced: it looks like a fault to somebody who waits.
constexpr Nanos longWait = 60 * nanosPerSecond;

/// Whole seconds exactly, and of their parts as many as a double holds beside them.
double secondsOf( Nanos time ) {
   return static_cast< double >( time / nanosPerSecond ) + static_cast< double >( time % nanosPerSecond ) * 1e-9;
}

}

CaptureSource::CaptureSource( Pace pace, AgingClock& clock, EventSink& sink, Reporter report )
    : pace_( pace ), clock_( clock ), sink_( sink ), report_( std::move( report ) ) {}

void CaptureSource::add( const std::string& path, Quor::IntfId port ) {
   tracks_.push_back( { CaptureFile( path ), port, {} } );
   if( tracks_.back().file.opened() ) usable_ = true;
   if( !advance( tracks_.back() ) ) drop( tracks_.size() - 1 );
}

bool CaptureSource::advance( Track& track ) {
   const auto frame = track.file.next();
   if( frame ) track.frame = *frame;
   return frame.has_value();
}

void CaptureSource::drop( std::size_t track ) {
   const std::string& fault = tracks_[ track ].file.fault();
   if( !fault.empty() ) {
      ++damaged_;
      report_( fault );
   }
   tracks_.erase( tracks_.begin() + static_cast< std::ptrdiff_t >( track ) );
}

std::size_t CaptureSource::earliest() const {
   const auto at = std::min_element( tracks_.begin(), tracks_.end(),
                                     []( const Track& a, const Track& b ) { return a.frame.time < b.frame.time; } );
   return static_cast< std::size_t >( at - tracks_.begin() );
}

Nanos CaptureSource::due() const {
   if( tracks_.empty() ) return never;
   if( !started_ || pace_ == Pace::max ) return 0;
   return tracks_[ earliest() ].frame.time + shift_;
}

void CaptureSource::start( Nanos now ) {
   started_ = true;
   if( pace_ == Pace::max ) clock_.drive( now );
   shift_ = ( pace_ == Pace::max ? clock_.now( now ) : now ) - tracks_[ earliest() ].frame.time;
}

void CaptureSource::service( Nanos now ) {
   if( tracks_.empty() ) return;
   if( !started_ ) start( now );
   for( int i = 0; i < batch && !tracks_.empty(); ++i ) {
      const std::size_t track = earliest();
      if( pace_ == Pace::real && tracks_[ track ].frame.time + shift_ > now ) break;
      play( track );
   }
   if( tracks_.empty() ) clock_.release( now );
}

void CaptureSource::play( std::size_t index ) {
   Track& track = tracks_[ index ];
   const Nanos time = track.frame.time;
   if( pace_ == Pace::max ) {
      clock_.driveTo( time + shift_ );
      sink_.timeIs( clock_.now( 0 ) );
   }
   sink_.frame( track.port, track.frame.bytes, track.frame.length, secondsOf( time ) );
   if( !advance( track ) ) drop( index );
   else if( pace_ == Pace::real && track.frame.time - time > longWait )
      report_( "capture '" + track.file.path() + "': the next frame comes in " +
               std::to_string( ( track.frame.time - time ) / nanosPerSecond ) + " s; use --pace max not to wait" );
}

}
