#include <kel/Timer.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <vector>

namespace {

using Kel::S64;
using Kel::TimerQueue;
using Kel::U64;

class Timers : public ::testing::Test {
 protected:
   U64 add( S64 deadline, char name, S64 period = 0 ) {
      return queue.add( deadline, period, [ this, name ] { ran += name; } );
   }
   std::string runUntil( S64 now ) {
      ran.clear();
      while( queue.runOne( now ) ) {}
      return ran;
   }

   TimerQueue queue;
   std::string ran;
};

TEST_F( Timers, missedTicksAreLeftOut ) {
   add( 10, 'p', 10 );
   EXPECT_EQ( "p", runUntil( 10 ) );
   EXPECT_EQ( "p", runUntil( 57 ) );
   EXPECT_EQ( 60, queue.earliest() );
   add( 1, 'q', TimerQueue::never - 1 );
   EXPECT_EQ( "q", runUntil( 2 ) );
   EXPECT_EQ( "p", runUntil( 60 ) );
}

TEST_F( Timers, oldIdsFindNothing ) {
   const U64 first = add( 10, 'a' );
   queue.cancel( first );
   const U64 second = add( 10, 'b' ); // in the same entry
   queue.cancel( first );
   queue.cancel( 0 );
   queue.cancel( ~U64( 0 ) );
   EXPECT_FALSE( queue.active( first ) );
   EXPECT_TRUE( queue.active( second ) );
   EXPECT_EQ( "b", runUntil( 10 ) );
   EXPECT_FALSE( queue.active( second ) );
}

TEST_F( Timers, periodicCancelsItselfAndItsNeighbour ) {
   U64 self = 0, neighbour = 0;
   int runs = 0;
   self = queue.add( 10, 10, [ & ] {
      ++runs;
      queue.cancel( self );
      queue.cancel( neighbour );
      for( int i = 0; i < 100; ++i ) add( 100, 'n' ); // moves all entries, and takes the freed ones
   } );
   neighbour = add( 10, 'x' );
   EXPECT_EQ( "", runUntil( 50 ) );
   EXPECT_EQ( 1, runs );
   EXPECT_EQ( std::string( 100, 'n' ), runUntil( 100 ) );
}

TEST_F( Timers, exceptionLeavesThemDealtWith ) {
   int runs = 0;
   queue.add( 10, 0, [ & ] { throw ++runs; } );
   const U64 periodic = queue.add( 10, 5, [ & ] { throw ++runs; } );
   EXPECT_THROW( queue.runOne( 10 ), int );
   EXPECT_THROW( queue.runOne( 10 ), int );
   EXPECT_FALSE( queue.runOne( 10 ) );
   EXPECT_TRUE( queue.active( periodic ) );
   EXPECT_THROW( queue.runOne( 15 ), int );
   EXPECT_EQ( 3, runs );
}

TEST_F( Timers, captureThatCancelsAnotherOnItsEnd ) {
   auto shared = std::make_shared< TimerQueue >();
   auto inner = std::make_shared< Kel::Timer >( shared, shared->add( 10, 0, [] {} ) );
   Kel::Timer outer( shared, shared->add( 10, 0, [ inner ] {} ) );
   inner.reset();
   outer.cancel();
   EXPECT_EQ( 0u, shared->size() );
   Kel::Timer late( shared, shared->add( 10, 0, [] {} ) );
   shared.reset();
   EXPECT_FALSE( late.active() ); // and its end does no harm
}

TEST_F( Timers, agreesWithAModel ) {
   std::mt19937 random( 7 );
   std::multimap< S64, U64 > model;
   std::map< U64, S64 > deadlineOf;
   std::vector< U64 > due;
   S64 now = 0;
   for( int step = 0; step < 20000; ++step ) {
      const auto choice = random() % 10;
      if( choice < 5 ) {
         const S64 deadline = now + S64( random() % 50 );
         auto id = std::make_shared< U64 >();
         *id = queue.add( deadline, 0, [ id, &due ] { due.push_back( *id ); } );
         model.emplace( deadline, *id );
         deadlineOf[ *id ] = deadline;
      } else if( choice < 8 && !deadlineOf.empty() ) {
         const auto victim = std::next( deadlineOf.begin(), static_cast< std::ptrdiff_t >( random() % deadlineOf.size() ) );
         queue.cancel( victim->first );
         std::erase_if( model, [ & ]( const auto& m ) { return m.second == victim->first; } );
         deadlineOf.erase( victim );
      } else {
         now += S64( random() % 20 );
         due.clear();
         while( queue.runOne( now ) ) {}
         std::vector< U64 > want;
         for( auto m = model.begin(); m != model.end() && m->first <= now; m = model.erase( m ) ) {
            want.push_back( m->second );
            deadlineOf.erase( m->second );
         }
         ASSERT_EQ( want, due ) << "at step " << step;
      }
      ASSERT_EQ( model.size(), queue.size() );
      ASSERT_EQ( model.empty() ? TimerQueue::never : model.begin()->first, queue.earliest() );
   }
}

}
