#include <Bench/Cell.h>
#include <benchmark/benchmark.h>
#include <boost/signals2.hpp>
#include <boost/signals2/dummy_mutex.hpp>
#include <memory>
#include <sigc++/sigc++.h>
#include <vector>

// A number with observers that count its changes, as a good user of each library writes it. All is done in one thread.

namespace {

using Kel::U32;

class VantaObserver : public Bench::Cell::NotifieeConst {
 public:
   explicit VantaObserver( const Kel::Ptr< Bench::Cell >& cell ) : NotifieeConst( cell ) {}
   void onValue() override { ++count; }
   U32 count = 0;
};

class VantaCell {
 public:
   void observerIs() { observers_.push_back( new VantaObserver( cell_ ) ); }
   void valueIs( U32 v ) { cell_->valueIs( v ); }
   U32 count() const { return observers_.back()->count; }

 private:
   Kel::Ptr< Bench::Cell > cell_{ Bench::cellFactory( "cell" ) };
   std::vector< Kel::Ptr< VantaObserver > > observers_;
};

template< class Signal >
class SignalCell {
 public:
   void valueIs( U32 v ) {
      if( v == value_ ) return;
      value_ = v;
      changed_();
   }

 protected:
   U32 value_ = 0;
   Signal changed_;
};

class SigcCell : public SignalCell< sigc::signal< void > > {
 public:
   void observerIs() {
      observers_.push_back( std::make_unique< Observer >() );
      changed_.connect( sigc::mem_fun( *observers_.back(), &Observer::onValue ) );
   }
   U32 count() const { return observers_.back()->count; }

 private:
   struct Observer : sigc::trackable {
      void onValue() { ++count; }
      U32 count = 0;
   };
   std::vector< std::unique_ptr< Observer > > observers_;
};

// Without its mutex, which one thread does not need.
using Signal2 = boost::signals2::signal_type< void(), boost::signals2::keywords::mutex_type< boost::signals2::dummy_mutex > >::type;

class Signal2Cell : public SignalCell< Signal2 > {
 public:
   void observerIs() {
      observers_.push_back( std::make_unique< Observer >() );
      changed_.connect( [ o = observers_.back().get() ] { o->onValue(); } );
   }
   U32 count() const { return observers_.back()->count; }

 private:
   struct Observer {
      void onValue() { ++count; }
      U32 count = 0;
   };
   std::vector< std::unique_ptr< Observer > > observers_;
};

template< class Cell >
void changing( benchmark::State& state ) {
   Cell cell;
   for( int64_t i = 0; i < state.range( 0 ); ++i ) cell.observerIs();
   U32 v = 0;
   for( auto _ : state ) cell.valueIs( ++v );
   if( cell.count() != v ) state.SkipWithError( "an observer has missed a change" );
}

template< class Cell >
void unchanged( benchmark::State& state ) {
   Cell cell;
   cell.observerIs();
   U32 v = 7;
   cell.valueIs( v );
   for( auto _ : state ) {
      benchmark::DoNotOptimize( v );
      cell.valueIs( v );
      benchmark::ClobberMemory();
   }
   if( cell.count() != 1 ) state.SkipWithError( "an observer has heard of no change" );
}

BENCHMARK( unchanged< VantaCell > )->Name( "set-unchanged/vanta" );
BENCHMARK( unchanged< SigcCell > )->Name( "set-unchanged/sigc++" );
BENCHMARK( unchanged< Signal2Cell > )->Name( "set-unchanged/signals2" );
BENCHMARK( changing< VantaCell > )->Name( "set-observed/vanta" )->Arg( 1 )->Arg( 10 );
BENCHMARK( changing< SigcCell > )->Name( "set-observed/sigc++" )->Arg( 1 )->Arg( 10 );
BENCHMARK( changing< Signal2Cell > )->Name( "set-observed/signals2" )->Arg( 1 )->Arg( 10 );

}
