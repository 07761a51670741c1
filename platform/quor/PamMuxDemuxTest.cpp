#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <quor/PamMuxDemux.h>
#include <quor/TestPam.h>

// Who is told of what, and what callers may do from within: let go of everything that is in use around them.

namespace Quor {

namespace {

using namespace TestPams;
using testing::ElementsAre;

/// The key is the first byte.
class ByteMux : public PamMuxDemux {
 public:
   explicit ByteMux( const Ptr< Pam >& lower ) : PamMuxDemux( lower ) {
      modeIs( PamMode::both );
      initializedIs( true );
   }
   U32 decapsulate( const Ptr< Packet >& pkt ) override {
      const U32 key = *pkt->data();
      pkt->headTrim( 1 );
      return key;
   }
   void doEncapsulate( const Ptr< Packet >& pkt, U32 from ) override { *pkt->headGrow( 1 ) = static_cast< Kel::U8 >( from ); }
};

struct PamMuxDemuxTest : testing::Test {
   Ptr< WirePam > wire{ new WirePam };
   Ptr< PamMuxDemux > mux{ new ByteMux( wire ) };
   Listener seven, eight;
   Ptr< Pam > pamSeven = mux->newPam( 7 ), pamEight = mux->newPam( 8 );
   void SetUp() override {
      pamSeven->notifieeIs( &seven );
      pamEight->notifieeIs( &eight );
   }
};

TEST_F( PamMuxDemuxTest, EachKeyHasItsEndpoint ) {
   wire->receive( { 7, 1 } );
   wire->receive( { 8, 2 } );
   wire->receive( { 9, 3 } );
   EXPECT_THAT( seven.frames, ElementsAre( Bytes{ 1 } ) );
   EXPECT_THAT( eight.frames, ElementsAre( Bytes{ 2 } ) );
   EXPECT_EQ( mux->unclaimed(), 1u );
   pamEight->tx( packet( { 5 } ) );
   EXPECT_THAT( wire->sent, ElementsAre( Bytes{ 8, 5 } ) );
   EXPECT_EQ( mux->newPam( 7 ), pamSeven );
   EXPECT_EQ( mux->pam( 9 ), nullptr );

   mux->pamDel( 7 );
   mux->pamDel( 7 );
   wire->receive( { 7, 4 } );
   pamSeven->tx( packet( { 6 } ) );
   pamEight->tx( nullptr );
   pamEight->notifieeIs( &eight );   // as it is
   pamEight->notifieeIs( nullptr );
   wire->receive( { 8, 5 } );
   EXPECT_EQ( mux->unclaimed(), 3u );
   EXPECT_EQ( seven.frames.size() + eight.frames.size() + wire->sent.size(), 3u );
   mux->newPam( 7 )->notifieeIs( &seven );   // free again
}

TEST_F( PamMuxDemuxTest, ModeAndInitialisationLetPacketsPass ) {
   for( U32 n = 0; n < 8; ++n ) {
      mux->initializedIs( n >= 4 );
      mux->modeIs( n & PamMode::both );
      wire->receive( { 7, 1 } );
      pamSeven->tx( packet( { 2 } ) );
      EXPECT_EQ( std::exchange( seven.frames, {} ).size(), n == 5 || n == 7 ? 1u : 0u ) << n;
      EXPECT_EQ( std::exchange( wire->sent, {} ).size(), n >= 6 ? 1u : 0u ) << n;
   }
}

TEST_F( PamMuxDemuxTest, TakesAnotherLowerEndpoint ) {
   const Ptr< WirePam > other( new WirePam );
   mux->onePamIs( other );
   EXPECT_EQ( wire->notifiee(), nullptr );
   other->receive( { 7, 1 } );
   pamSeven->tx( packet( { 2 } ) );
   EXPECT_EQ( seven.frames.size() + other->sent.size(), 2u );

   Listener stranger;
   wire->notifieeIs( &stranger );
   EXPECT_THROW( mux->onePamIs( wire ), Kel::InternalException );
   EXPECT_EQ( mux->onePam(), other );
   EXPECT_THROW( ByteMux{ wire }, Kel::InternalException );
   mux->onePamIs( nullptr );
   pamSeven->tx( packet( { 2 } ) );
   EXPECT_EQ( other->sent.size(), 1u );
}

TEST_F( PamMuxDemuxTest, DoesNotStandOnItself ) {
   const Ptr< PamMuxDemux > upper( new ByteMux( mux->newPam( 9 ) ) );
   EXPECT_THROW( mux->onePamIs( mux->newPam( 1 ) ), Kel::InternalException );
   EXPECT_THROW( mux->onePamIs( upper->newPam( 1 ) ), Kel::InternalException );
   EXPECT_EQ( mux->onePam(), wire );
   upper->newPam( 1 )->tx( packet( { 5 } ) );
   EXPECT_THAT( wire->sent, ElementsAre( Bytes{ 9, 1, 5 } ) );
   upper->onePamIs( nullptr );
   mux->onePamIs( upper->newPam( 1 ) );   // the other way round
   mux->pam( 9 )->tx( packet( { 6 } ) );
   EXPECT_EQ( wire->sent.size(), 1u );
}

TEST_F( PamMuxDemuxTest, CallbackMayLetEverythingGo ) {
   seven.action = [ this ] {
      mux->pamDel( 7 );
      pamSeven = nullptr;
      mux = nullptr;
      wire = nullptr;
   };
   const Ptr< WirePam > held = wire;
   held->receive( { 7, 1 } );
   EXPECT_EQ( seven.frames.size(), 1u );
   EXPECT_EQ( held->notifiee(), nullptr );
   pamEight->tx( packet( { 2 } ) );
   EXPECT_TRUE( held->sent.empty() );
}

TEST_F( PamMuxDemuxTest, LowerEndpointMayLetEverythingGo ) {
   wire->action = [ this ] { mux = nullptr, wire = nullptr; };
   Bytes sent;
   const Ptr< Packet > pkt = packet( { 2 } );
   pamEight->tx( pkt );
   EXPECT_TRUE( !mux && !wire && content( *pkt ) == ( Bytes{ 8, 2 } ) );
}

TEST_F( PamMuxDemuxTest, EndOfTheDeviceIsToldToEachOnceWhateverTheyDo ) {
   const auto endpoint = mux->newPam( 9 );
   Listener nine;
   endpoint->notifieeIs( &nine );
   for( Listener* l : { &seven, &eight, &nine } ) l->action = [ this ] { mux = nullptr; };
   wire->vanish( "gone" );
   for( const Listener* l : { &seven, &eight, &nine } ) EXPECT_THAT( l->gone, ElementsAre( "gone" ) );
}

TEST_F( PamMuxDemuxTest, EndpointThatIsTakenOutIsToldNoMore ) {
   seven.action = [ this ] { mux->pamDel( 8 ); };
   eight.action = [ this ] { mux->pamDel( 7 ); };
   wire->vanish( "gone" );
   EXPECT_EQ( seven.gone.size() + eight.gone.size(), 1u );
}

}

}
