#include "Agent.h"

#include "BridgeSource.h"
#include "InterfaceSource.h"
#include <algorithm>

// Each source is watched by its descriptor and by a timer for its due time, and both are looked at again after each service,
// since a source may have opened or closed its descriptor. The aging timer is only ever moved forward: hosts that are seen again
// move the next aging back, and the timer that finds nothing to do is set anew.

namespace Fdbd {

Agent::Agent( Kel::Activity& activity, const Options& options, HostSink& sink, Reporter report, Reporter statistics )
    : activity_( activity ), options_( options ), sink_( sink ), report_( std::move( report ) ),
      statisticsLine_( std::move( statistics ) ),
      learner_( options.learning, sink, report_ ) {
   learner_.timeIs( clock_.now( monotonicNow() ) );
   addSources();
}

/// Devices come before bridges, so that a bridge finds the ports that they were given.
void Agent::addSources() {
   auto captures = std::make_unique< CaptureSource >( options_.pace, clock_, learner_, report_ );
   for( const SourceOption& s : options_.sources ) {
      if( s.kind == SourceOption::Kind::capture ) captures->add( s.name, s.port );
      if( s.kind != SourceOption::Kind::interface ) continue;
      slots_.emplace_back().source = std::make_unique< InterfaceSource >( s.name, s.port, ports_, learner_, report_ );
   }
   BridgeId bridges = 0;
   for( const SourceOption& s : options_.sources )
      if( s.kind == SourceOption::Kind::bridge )
         slots_.emplace_back().source = std::make_unique< BridgeSource >( s.name, ++bridges, ports_, learner_, report_ );
   captures_ = captures.get();
   slots_.emplace_back().source = std::move( captures );
}

bool Agent::usable() const {
   return std::any_of( slots_.begin(), slots_.end(), []( const Slot& s ) { return s.source->usable(); } );
}

int Agent::run() {
   for( Slot& slot : slots_ ) arm( slot );
   armAging();
   if( options_.statisticsInterval )
      statisticsTimer_ =
         activity_.every( std::chrono::nanoseconds( options_.statisticsInterval ), [ this ] { printStatistics(); } );
   if( !options_.exitAtEnd || !captures_->ended() ) activity_.run();
   if( options_.statistics ) printStatistics();
   return options_.exitAtEnd && ( captures_->damaged() || learner_.statistics().refused ) ? 1 : 0;
}

void Agent::service( Slot& slot ) {
   const Nanos now = monotonicNow();
   sink_.batchBegins();
   learner_.timeIs( clock_.now( now ) );
   slot.source->service( now );
   sink_.batchEnds();
   arm( slot );
   armAging();
   if( options_.exitAtEnd && captures_->ended() ) activity_.stop();
}

void Agent::arm( Slot& slot ) {
   if( const int fd = slot.source->descriptor(); fd != slot.watched ) {
      slot.watch.close();
      slot.watched = fd;
      if( fd >= 0 )
         slot.watch = activity_.watch( fd, Kel::FdEvents::reading(), [ this, &slot ]( Kel::FdEvents ) { service( slot ); } );
   }
   const Nanos due = slot.source->due();
   if( due == slot.timerAt ) return;
   slot.timerAt = due;
   slot.timer = timerAt( due, [ this, &slot ] {
      slot.timerAt = never;
      service( slot );
   } );
}

void Agent::armAging() {
   const Nanos at = clock_.monotonicAt( learner_.nextAging() );
   if( at >= agingAt_ ) return;
   agingAt_ = at;
   agingTimer_ = timerAt( at, [ this ] { age(); } );
}

void Agent::age() {
   agingAt_ = never;
   sink_.batchBegins();
   learner_.timeIs( clock_.now( monotonicNow() ) );
   sink_.batchEnds();
   armAging();
}

Kel::Timer Agent::timerAt( Nanos at, std::function< void() > callback ) {
   if( at == never ) return {};
   return activity_.after( std::chrono::nanoseconds( std::max< Nanos >( at - monotonicNow(), 0 ) ), std::move( callback ) );
}

Statistics Agent::statistics() {
   Statistics out = learner_.statistics();
   for( Slot& slot : slots_ ) slot.source->addTo( out );
   return out;
}

void Agent::printStatistics() {
   const Statistics now = statistics();
   statisticsLine_( options_.json ? now.json() : now.text() );
}

}
