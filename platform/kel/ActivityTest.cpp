#include <kel/Activity.h>
#include <kel/ThrownTest.h>
#include <kel/UniqueFd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/epoll.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Kel::Activity;
using Kel::Dispatched;
using Kel::FdEvents;

struct Pipe {
   Pipe() {
      int ends[ 2 ];
      EXPECT_EQ( 0, ::pipe2( ends, O_NONBLOCK | O_CLOEXEC ) );
      in.reset( ends[ 0 ] );
      out.reset( ends[ 1 ] );
   }
   void put() { EXPECT_EQ( 1, ::write( out.get(), "x", 1 ) ); }
   void take() {
      char c;
      EXPECT_EQ( 1, ::read( in.get(), &c, 1 ) );
   }
   Kel::UniqueFd in, out;
};

class Loop : public ::testing::Test {
 protected:
   /// Whether another loop would be told to dispatch, within `ms`.
   bool pollable( int ms = 0 ) {
      pollfd p{ activity.fd(), POLLIN, 0 };
      return ::poll( &p, 1, ms ) == 1;
   }
   Activity::Callback say( char c ) {
      return [ this, c ] { said += c; };
   }
   /// Dispatches until idle, and ends with the invariant: what is idle does not call for another dispatch.
   void idle() {
      EXPECT_EQ( Dispatched::idle, activity.dispatch( 10s ) );
      EXPECT_FALSE( pollable() );
   }

   Activity activity;
   std::string said;
};

TEST_F( Loop, timersInOrderThroughAnotherLoop ) {
   auto c = activity.after( 6ms, say( 'c' ) );
   auto a = activity.after( 2ms, say( 'a' ) );
   auto b = activity.after( 4ms, say( 'b' ) );
   auto x = activity.after( 3ms, say( 'x' ) );
   auto never = activity.after( std::chrono::nanoseconds::max(), say( 'n' ) );
   auto early = activity.after( -1s, say( '0' ) );
   x.cancel();
   for( int i = 0; i < 100 && said.size() < 4; ++i ) {
      ASSERT_TRUE( pollable( 5000 ) );
      activity.dispatch( 10s );
   }
   EXPECT_EQ( "0abc", said );
   EXPECT_FALSE( c.active() );
   EXPECT_TRUE( never.active() );
   EXPECT_THROW( (void)activity.every( 0ns, say( 'x' ) ), Kel::RangeException );
   idle();
}

TEST_F( Loop, postedWorkWaitsForTheNextRound ) {
   activity.post( [ & ] {
      said += 'a';
      activity.post( say( 'c' ) );
   } );
   activity.post( say( 'b' ) );
   EXPECT_TRUE( pollable() );
   EXPECT_EQ( Dispatched::budgetSpent, activity.dispatch( 0s ) );
   EXPECT_EQ( "a", said );
   EXPECT_TRUE( pollable() );
   idle();
   EXPECT_EQ( "abc", said );
}

TEST_F( Loop, readinessAndInterest ) {
   Pipe pipe;
   std::vector< FdEvents > seen;
   Activity::Watch watch, writer;
   watch = activity.watch( pipe.in.get(), FdEvents::reading(), [ & ]( FdEvents ready ) {
      seen.push_back( ready );
      if( ready.error ) watch.close();
      else pipe.take();
   } );
   idle();
   pipe.put();
   pipe.put();
   idle();
   EXPECT_EQ( ( std::vector{ FdEvents::reading(), FdEvents::reading() } ), seen );
   watch.interestIs( {} );
   pipe.put();
   idle();
   watch.interestIs( FdEvents::reading() );
   EXPECT_TRUE( pollable() );
   idle();
   EXPECT_EQ( 3u, seen.size() );
   pipe.out.reset();
   idle();
   EXPECT_EQ( ( FdEvents{ .readable = true, .writable = false, .error = true } ), seen.back() );
   Pipe full;
   int writable = 0;
   writer = activity.watch( full.out.get(), FdEvents::writing(), [ & ]( FdEvents ready ) {
      EXPECT_EQ( FdEvents::writing(), ready );
      if( ++writable == 3 ) writer.interestIs( {} );
   } );
   idle();
   EXPECT_EQ( 3, writable );
}

TEST_F( Loop, watchesGoAndComeInCallbacks ) {
   std::array< Pipe, 3 > pipes;
   std::array< Activity::Watch, 3 > watches;
   Activity::Watch added;
   for( std::size_t i = 0; i < 3; ++i ) {
      pipes[ i ].put();
      watches[ i ] =
         activity.watch( pipes[ i ].in.get(), FdEvents::reading(), [ &, i, capture = std::string( 100, 'x' ) ]( FdEvents ) {
            said += static_cast< char >( '0' + i );
            for( auto& w : watches ) w.close(); // its own too: the capture lives on until the call ends
            added = activity.watch( pipes[ 2 ].in.get(), FdEvents::reading(), [ & ]( FdEvents ) {
               said += 'n';
               pipes[ 2 ].take();
            } );
            EXPECT_EQ( 100u, capture.size() );
         } );
   }
   idle();
   EXPECT_EQ( "0n", said );
}

TEST_F( Loop, aDescriptorClosedUnderItsWatch ) {
   auto pipe = std::make_unique< Pipe >();
   auto stale = activity.watch( pipe->in.get(), FdEvents::reading(), [ & ]( FdEvents ) {
      said += 's';
      pipe.reset();
   } );
   pipe->put();
   idle();
   Pipe again; // has the same numbers
   auto fresh = activity.watch( again.in.get(), FdEvents::reading(), [ & ]( FdEvents ) {
      said += 'f';
      again.take();
   } );
   stale.close(); // must not take the new watch's registration away
   again.put();
   idle();
   EXPECT_EQ( "sf", said );
}

TEST_F( Loop, refusesWhatCannotBeWatched ) {
   Pipe pipe;
   auto watch = activity.watch( pipe.in.get(), FdEvents::reading(), []( FdEvents ) {} );
   const auto text = [ & ]( int fd ) {
      return thrown< Kel::Exception >( [ & ] { (void)activity.watch( fd, FdEvents::reading(), []( FdEvents ) {} ); } );
   };
   const std::string beginning = "Kel::Activity: descriptor " + std::to_string( pipe.in.get() ) + " can't be watched: ";
   EXPECT_EQ( beginning + "File exists", text( pipe.in.get() ) );
   EXPECT_EQ( "Kel::Activity: descriptor -1 can't be watched: Bad file descriptor", text( -1 ) );
   watch.close();
   EXPECT_EQ( "nothing", text( pipe.in.get() ) );
}

TEST_F( Loop, budgetIsHonouredAndNobodyStarves ) {
   constexpr std::size_t n = 5;
   std::array< Pipe, n > pipes;
   std::array< Activity::Watch, n > watches;
   std::array< int, n + 2 > served{};
   for( std::size_t i = 0; i < n; ++i ) {
      pipes[ i ].put(); // never taken: always ready
      watches[ i ] = activity.watch( pipes[ i ].in.get(), FdEvents::reading(), [ &, i ]( FdEvents ) { ++served[ i ]; } );
   }
   auto timer = activity.every( 1ns, [ & ] { ++served[ n ]; } );
   std::function< void() > again = [ & ] {
      ++served[ n + 1 ];
      activity.post( again );
   };
   activity.post( again );
   for( int i = 0; i < 700; ++i ) ASSERT_EQ( Dispatched::budgetSpent, activity.dispatch( 0s ) ); // one callback each
   for( std::size_t i = 0; i < served.size(); ++i ) EXPECT_EQ( 100, served[ i ] ) << i;
   const auto before = std::chrono::steady_clock::now();
   EXPECT_EQ( Dispatched::budgetSpent, activity.dispatch( 5ms ) );
   EXPECT_GE( std::chrono::steady_clock::now() - before, 5ms );
   EXPECT_TRUE( pollable() );
}

TEST_F( Loop, anotherThreadWakes ) {
   std::thread::id ran;
   std::thread other( [ & ] {
      for( int i = 0; i < 1000; ++i ) activity.postFromAnyThread( [ & ] { said += 'x'; } );
      activity.postFromAnyThread( [ & ] {
         ran = std::this_thread::get_id();
         activity.stop();
      } );
   } );
   EXPECT_TRUE( activity.runFor( 20s ) );
   other.join();
   EXPECT_EQ( std::this_thread::get_id(), ran );
   EXPECT_EQ( std::string( 1000, 'x' ), said );
   idle();
   activity.wake();
   EXPECT_TRUE( pollable() );
   idle();
}

TEST_F( Loop, stopEndsAfterTheRunningCallback ) {
   activity.post( [ & ] {
      said += 'a';
      activity.stop();
   } );
   activity.post( say( 'b' ) );
   activity.run();
   EXPECT_EQ( "a", said );
   activity.stop(); // ahead of its dispatch
   EXPECT_TRUE( pollable() );
   EXPECT_EQ( Dispatched::stopped, activity.dispatch( 10s ) );
   EXPECT_EQ( "a", said );
   idle();
   EXPECT_EQ( "ab", said );
}

TEST_F( Loop, exceptionsLeaveItWhole ) {
   Pipe pipe;
   pipe.put();
   auto watch = activity.watch( pipe.in.get(), FdEvents::reading(), [ & ]( FdEvents ) {
      pipe.take();
      throw 'w';
   } );
   auto timer = activity.after( 0s, [] { throw 't'; } );
   activity.post( [] { throw 'p'; } );
   activity.post( say( 'a' ) );
   for( int i = 0; i < 3; ++i ) {
      try {
         activity.run();
      } catch( char c ) {
         said += c;
      }
   }
   EXPECT_EQ( "tpaw", said );
   pipe.put(); // the watch stayed
   EXPECT_THROW( activity.dispatch( 10s ), char );
   idle();
}

TEST_F( Loop, notFromItsOwnCallbacks ) {
   activity.post( [ & ] { activity.dispatch( 0s ); } );
   activity.post( [ & ] { activity.runFor( 0s ); } );
   EXPECT_EQ( "Kel::Activity::dispatch called from one of the activity's own callbacks",
              thrown< Kel::InternalException >( [ & ] { activity.dispatch( 10s ); } ) );
   EXPECT_THROW( activity.dispatch( 10s ), Kel::InternalException );
   idle();
}

TEST( ActivityLife, handlesOutliveIt ) {
   Pipe pipe;
   std::optional< Activity > activity( std::in_place );
   auto watch = activity->watch( pipe.in.get(), FdEvents::reading(), []( FdEvents ) {} );
   auto timer = activity->after( 1h, [] {} );
   // A timer whose capture holds handles of the same activity.
   auto holder = activity->after( 1h, [ w = std::make_shared< Activity::Watch >( std::move( watch ) ),
                                        t = std::make_shared< Kel::Timer >( std::move( timer ) ) ] {} );
   activity.reset();
   EXPECT_FALSE( holder.active() );
}

TEST( ActivityLife, destroyedByItsCallback ) {
   std::optional< Activity > activity( std::in_place );
   int after = 0;
   activity->post( [ & ] { activity.reset(); } );
   activity->post( [ & ] { ++after; } );
   activity->run();
   EXPECT_EQ( 0, after );
}

TEST_F( Loop, signalsAndTheirMask ) {
   sigset_t before, during, after;
   ::pthread_sigmask( SIG_BLOCK, nullptr, &before );
   std::optional< Kel::SignalWatch > watch;
   std::vector< int > seen;
   watch.emplace( activity, std::initializer_list< int >{ SIGTERM, SIGUSR1 }, [ & ]( int number ) {
      seen.push_back( number );
      if( seen.size() == 2 ) watch.reset(); // from its own callback
   } );
   ::pthread_sigmask( SIG_BLOCK, nullptr, &during );
   EXPECT_EQ( 1, ::sigismember( &during, SIGTERM ) );
   ::pthread_kill( ::pthread_self(), SIGUSR1 );
   EXPECT_TRUE( pollable() );
   idle();
   ::pthread_kill( ::pthread_self(), SIGTERM );
   idle();
   EXPECT_EQ( ( std::vector{ SIGUSR1, SIGTERM } ), seen );
   ::pthread_sigmask( SIG_BLOCK, nullptr, &after );
   for( int s : { SIGTERM, SIGUSR1, SIGINT } ) EXPECT_EQ( ::sigismember( &before, s ), ::sigismember( &after, s ) );
}

TEST_F( Loop, stopFromASignalHandler ) {
   static Activity* target;
   target = &activity;
   const auto old = std::signal( SIGUSR2, []( int ) { target->stop(); } );
   auto timer = activity.after( 1ms, [] { ::raise( SIGUSR2 ); } );
   EXPECT_TRUE( activity.runFor( 20s ) );
   std::signal( SIGUSR2, old );
}

}
