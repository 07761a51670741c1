#include "CaptureSource.h"

#include "TestSupport.h"
#include <fstream>
#include <plexo/TestFiles.h>

namespace Fdbd {

using namespace Test;

namespace {

constexpr Nanos s = nanosPerSecond;

/// One block of pcapng (draft-ietf-opsawg-pcapng) with its length before and behind its body.
void putBlock( std::string& to, std::uint32_t type, std::string body ) {
   body.resize( ( body.size() + 3 ) & ~std::size_t( 3 ) );
   const auto size = static_cast< std::uint32_t >( body.size() + 12 );
   put32( to, type ), put32( to, size );
   to += body;
   put32( to, size );
}

/// Timestamps in microseconds, the default of the format.
std::string pcapngOf( const std::vector< Sent >& frames ) {
   std::string out, body;
   put32( body, 0x1a2b3c4d ), put16( body, 1 ), put16( body, 0 ), put32( body, ~0u ), put32( body, ~0u );
   putBlock( out, 0x0a0d0d0a, body );
   body.clear();
   put16( body, 1 ), put16( body, 0 ), put32( body, 65535 );
   putBlock( out, 1, body );
   for( const Sent& f : frames ) {
      const auto micros = static_cast< std::uint64_t >( f.time / 1000 );
      body.clear();
      put32( body, 0 ), put32( body, static_cast< std::uint32_t >( micros >> 32 ) ),
         put32( body, static_cast< std::uint32_t >( micros ) );
      put32( body, static_cast< std::uint32_t >( f.frame.size() ) ),
         put32( body, static_cast< std::uint32_t >( f.frame.size() ) );
      body.append( f.frame.begin(), f.frame.end() );
      putBlock( out, 6, body );
   }
   return out;
}

/// A learner that captures are played to, and a directory for them.
struct Player : Bench {
   explicit Player( Pace p = Pace::max, FdbLearner::Settings settings = {} ) : Bench( settings ), pace( p ) {}
   std::string file( const std::string& name, const std::string& content ) const {
      std::ofstream( directory.path + "/" + name, std::ios::binary ) << content;
      return directory.path + "/" + name;
   }
   void add( const std::string& content, int portNumber ) {
      source.add( file( std::to_string( portNumber ), content ), port( portNumber ) );
   }
   /// Plays what is due at `now`; at `max` that is everything.
   void play( Nanos now = 0 ) {
      learner.timeIs( clock.now( now ) );
      while( source.due() <= now ) source.service( now );
   }

   Pace pace;
   const Plexo::TestDirectory directory;
   AgingClock clock;
   CaptureSource source{ pace, clock, learner, reporter() };
};

const std::vector< Sent > oneHost = { { 1000 * s, frameFrom( mac( 1 ) ) } };

}

TEST( Capture, BothFormatsAreMergedByTime ) {
   Player player;
   player.add( pcapOf( { { 1000 * s, frameFrom( mac( 1 ) ) }, { 1003 * s + s / 2, frameFrom( mac( 2 ), { { 0x8100, 10 } } ) },
                         { 1006 * s, frameFrom( mac( 1 ) ) } } ), 1 );
   player.add( pcapngOf( { { 1002 * s, frameFrom( mac( 1 ) ) },
                           { 1004 * s + s / 4, frameFrom( mac( 2 ), { { 0x8100, 10 } } ) } } ), 2 );
   player.play();
   EXPECT_TRUE( player.source.ended() );
   EXPECT_EQ( player.sink.hosts[ HostId( 1, mac( 1 ) ) ], ( Host{ port( 1 ), 2, 1006, HostKind::learned } ) );
   EXPECT_EQ( player.sink.hosts[ HostId( 10, mac( 2 ) ) ], ( Host{ port( 2 ), 1, 1004.25, HostKind::learned } ) );
   EXPECT_EQ( player.source.damaged(), 0u );
   EXPECT_TRUE( player.reports.empty() );
}

TEST( Capture, AtPaceMaxHostsAgeByTheCapturesTime ) {
   Player player( Pace::max, { .agingTime = 300 * s } );
   player.add( pcapOf( { { 1000 * s, frameFrom( mac( 1 ) ) }, { 1100 * s, frameFrom( mac( 2 ) ) },
                         { 1300 * s, frameFrom( mac( 3 ) ) } } ), 1 );
   player.play( 77 * s );
   EXPECT_EQ( player.sink.lines(),
              ( std::vector< std::string >{ "1 02:00:00:00:00:02 Ethernet1", "1 02:00:00:00:00:03 Ethernet1" } ) );
   // The clock goes on from the last frame, at its own pace.
   EXPECT_EQ( player.clock.monotonicAt( player.learner.nextAging() ), ( 77 + 100 ) * s );
}

TEST( Capture, AtPaceRealFramesComeWhenTheyAreDue ) {
   Player player( Pace::real );
   player.add( pcapOf( { { 1000 * s, frameFrom( mac( 1 ) ) }, { 1002 * s, frameFrom( mac( 2 ) ) },
                         { 4000 * s, frameFrom( mac( 3 ) ) } } ), 1 );
   player.play( 50 * s );
   EXPECT_EQ( player.sink.hosts.size(), 1u );
   EXPECT_EQ( player.source.due(), 52 * s );
   player.play( 52 * s - 1 );
   EXPECT_EQ( player.sink.hosts.size(), 1u );
   player.play( 52 * s );
   EXPECT_EQ( player.sink.hosts.size(), 2u );
   EXPECT_TRUE( player.reported( "the next frame comes in 2998 s; use --pace max not to wait" ) );
}

TEST( Capture, CutAtEveryByteKeepsWhatCameBefore ) {
   const std::vector< Sent > frames = { { 1000 * s, frameFrom( mac( 1 ) ) }, { 1001 * s, frameFrom( mac( 2 ) ) } };
   struct {
      std::string content;
      std::size_t header, record;
   } const formats[] = { { pcapOf( frames ), 24, 76 }, { pcapngOf( frames ), 28 + 20, 92 } };
   for( const auto& f : formats )
      for( std::size_t size = 0; size <= f.content.size(); ++size ) {
         SCOPED_TRACE( "cut at " + std::to_string( size ) + " of " + std::to_string( f.content.size() ) );
         Player player;
         player.add( f.content.substr( 0, size ), 1 );
         player.play();
         const std::size_t whole = size < f.header ? 0 : ( size - f.header ) / f.record;
         EXPECT_EQ( player.sink.hosts.size(), whole );
         EXPECT_EQ( player.source.usable(), size >= f.header );
         const bool isDamaged = size < f.header || ( size - f.header ) % f.record != 0;
         EXPECT_EQ( player.source.damaged(), isDamaged ? 1u : 0u );
         ASSERT_EQ( player.reports.size(), isDamaged ? 1u : 0u );
         if( isDamaged && size > f.header ) {
            EXPECT_TRUE( player.reported( "damaged after frame " + std::to_string( whole ) ) ) << player.reports[ 0 ];
         }
      }
}

TEST( Capture, ChangedBytesNeverDoHarm ) {
   const std::string good[] = { pcapOf( oneHost ), pcapngOf( oneHost ) };
   for( const std::string& content : good )
      for( std::size_t at = 0; at < content.size(); ++at )
         for( const char byte : { '\x00', '\x7f', '\x80', '\xff' } ) {
            Player player;
            std::string bad = content;
            bad[ at ] = byte;
            player.add( bad, 1 );
            player.play();
            EXPECT_LE( player.sink.hosts.size(), 1u );
            EXPECT_LE( player.reports.size(), 1u );
         }
}

TEST( Capture, WhatCantBeUsedIsNamedWithItsReason ) {
   struct {
      const char* name;
      std::string content;
      std::string text;
   } const cases[] = {
      { "text", "this is no capture at all, it is prose", "not a pcap or pcapng file that can be read" },
      { "empty", "", "not a pcap or pcapng file that can be read" },
      { "cooked", pcapOf( oneHost, 113 ),
        "its link type is LINUX_SLL, only Ethernet (EN10MB) has MAC addresses to learn; record it on "
                                          "one Ethernet device, not on 'any'" },
      { "radio", pcapOf( oneHost, 105 ), "its link type is IEEE802_11" },
      { "unknown", pcapOf( oneHost, 60000 ), "its link type is number 60000" },
   };
   for( const auto& c : cases ) {
      Player player;
      player.source.add( player.file( c.name, c.content ), port( 1 ) );
      EXPECT_FALSE( player.source.usable() );
      EXPECT_TRUE( player.source.ended() );
      ASSERT_EQ( player.reports.size(), 1u );
      EXPECT_TRUE( player.reported( c.text ) && player.reported( "/" + std::string( c.name ) + "'" ) ) << player.reports[ 0 ];
   }
   Player player;
   player.source.add( player.directory.path + "/none", port( 1 ) );
   player.source.add( player.directory.path, port( 2 ) );
   EXPECT_TRUE( player.reported( "/none': can't be opened: No such file or directory; check its name and permissions" ) );
   EXPECT_TRUE( player.reported( "': can't be opened: Is a directory" ) );
   player.add( pcapOf( oneHost ), 3 ); // one of three can be used
   player.play();
   EXPECT_TRUE( player.source.usable() );
   EXPECT_EQ( player.sink.hosts.size(), 1u );
}

}
