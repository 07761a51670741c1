#include <gmock/gmock.h>
#include <quor/EthDevPam.h>
#include <quor/TestNet.h>
#include <quor/TestPam.h>

namespace Quor {

namespace {

using namespace TestPams;
using TestNet::frame;
using TestNet::run;
using testing::ElementsAre;

std::string openError( const Kel::String8& device ) {
   try {
      Ptr< EthDevPam >( new EthDevPam( device ) )->enabledIs( true );
   } catch( const Kel::Exception& e ) {
      return e.what();
   }
   return "opened";
}

TEST( EthDevPam, SaysWhichDeviceCantBeOpenedAndWhy ) {
   if( openError( "nosuch" ).ends_with( "Operation not permitted" ) ) GTEST_SKIP() << "needs root, to open a packet socket";
   for( const char* name : { "nosuch", "", "a-name-of-sixteen" } )
      EXPECT_EQ( openError( name ), "Ethernet device '" + std::string( name ) + "' can't be opened: No such device" );
   EXPECT_EQ( openError( std::string( "lo\0x", 4 ) ), "Ethernet device 'lo\\x00x' can't be opened: No such device" );
}

struct EthDevPamTest : TestNet::Net {
   void SetUp() override {
      Net::SetUp();
      if( IsSkipped() || HasFatalFailure() ) return;
      pam->notifieeIs( &listener );
      pam->modeIs( PamMode::both );
      watch = activity.watch( pam->fd(), Kel::FdEvents::reading(), [ this ]( Kel::FdEvents ) { pam->dispatch(); } );
      pam->enabledIs( true );
   }
   /// What has come arrives in order, so a frame with this mark behind it shows that nothing else has come.
   std::vector< Bytes > received() {
      const Bytes last = frame( {}, 0xee );
      far->send( last );
      EXPECT_TRUE( until( [ & ] { return !listener.frames.empty() && listener.frames.back() == last; } ) );
      auto out = std::exchange( listener.frames, {} );
      if( !out.empty() ) out.pop_back();
      return out;
   }
   static bool isMember( const char* group ) { return run( std::string( "ip maddr show dev near | grep -q " ) + group ); }
   static bool isPromiscuous() { return run( "ip -d link show near | grep -q 'promiscuity [1-9]'" ); }

   Listener listener;
   Ptr< EthDevPam > pam{ new EthDevPam( "near" ) };
   Kel::Activity::Watch watch;
};

TEST_F( EthDevPamTest, FramesPassBothWaysWithTheirTags ) {
   const std::vector< Bytes > all = { frame( {}, 1 ),
                                      frame( { { 0x8100, 10 } }, 2 ),
                                      frame( { { 0x8100, 0xffff } }, 3 ),
                                      frame( { { 0x88a8, 20 } }, 4 ),
                                      frame( { { 0x88a8, 20 }, { 0x8100, 30 } }, 5 ),
                                      frame( { { 0x8100, 0 } }, 6 ),
                                      frame( { { 0x9100, 40 } }, 7 ) };
   for( const Bytes& one : all ) far->send( one );
   EXPECT_EQ( received(), all );
   for( const Bytes& one : all ) pam->tx( packet( one ) );
   for( const Bytes& one : all ) EXPECT_EQ( far->receive(), one );
   EXPECT_EQ( pam->counters().txFrames, all.size() );
   // Of what it sent it has received nothing, nor of what others send out of its device.
   TestNet::FarEnd( "near" ).send( frame( {}, 8 ) );
   EXPECT_TRUE( received().empty() );
}

/// Some thousand frames in bursts, which go round the ring, and each more than a call of the system takes; in order.
TEST_F( EthDevPamTest, ManyFramesPassBothWaysInOrder ) {
   const auto numbered = []( unsigned n ) {
      Bytes out = frame( {}, 1 );
      return netU16Is( &out[ 20 ], static_cast< Kel::U16 >( n ) ), out;
   };
   unsigned sent = 0, received = 0;
   for( int round = 0; round < 10; ++round ) {
      for( ; sent % 300 || sent == received; ++sent ) far->send( numbered( sent ) );
      ASSERT_TRUE( until( [ & ] { return listener.frames.size() == 300; } ) );
      for( const Bytes& one : std::exchange( listener.frames, {} ) ) ASSERT_EQ( one, numbered( received++ ) );
   }
   EthDevPam::TxBatch batch( pam );
   for( unsigned n = 0; n < 200; ++n ) pam->tx( packet( numbered( n ) ) );
   pam->enabledIs( false );   // what is still to be sent goes first
   for( unsigned n = 0; n < 200; ++n ) ASSERT_EQ( far->receive(), numbered( n ) );
}

TEST_F( EthDevPamTest, PassesWhatItsModeSays ) {
   for( const U32 mode : { PamMode::none, PamMode::tx, PamMode::rx } ) {
      pam->modeIs( mode );
      pam->tx( packet( frame( {}, 1 ) ) );
      far->send( frame( {}, Kel::U8( mode ) ) );
      if( mode == PamMode::rx ) EXPECT_TRUE( until( [ this ] { return !listener.frames.empty(); } ) );
      else activity.runFor( std::chrono::milliseconds( 20 ) );
   }
   EXPECT_THAT( listener.frames, ElementsAre( frame( {}, PamMode::rx ) ) );
   EXPECT_EQ( pam->counters().txFrames, 1u );
}

TEST_F( EthDevPamTest, FramesLongerThanTheRingsSlotsArriveWhole ) {
   ASSERT_TRUE( run( "ip link set near mtu 9000 && ip link set far mtu 9000" ) );
   std::vector< Bytes > all = { frame( { { 0x8100, 10 } }, 2, 8900 ) };
   for( const std::size_t bytes : { 1500, 1600, 2000 } ) all.push_back( frame( {}, 1, bytes ) );
   for( const Bytes& one : all ) far->send( one );
   EXPECT_EQ( received(), all );
   for( int i = 0; i < 100; ++i ) far->send( all[ 0 ] );
   EXPECT_EQ( received().size(), 100u );
   EXPECT_EQ( pam->counters().rxCut, 0u );
   // More of them than the system keeps; and the ring has room for its beginning still.
   for( int i = 0; i < 1000; ++i ) far->send( all[ 0 ] );
   const std::size_t whole = received().size();
   EXPECT_TRUE( whole > 100 && pam->counters().rxCut > 0 && whole + pam->counters().rxCut == 1000 ) << whole;
}

TEST_F( EthDevPamTest, CountsWhatIsLostAndWhatIsRefused ) {
   for( int i = 0; i < 2000; ++i ) far->send( frame( {}, 1 ) );
   ASSERT_TRUE( until( [ this ] { return pam->counters().rxFrames + pam->counters().rxDropped >= 2000; } ) );
   EXPECT_GT( pam->counters().rxDropped, 0u );
   EXPECT_GT( pam->counters().rxFrames, 500u );
   const auto dropped = pam->counters().rxDropped;
   for( int i = 0; i < 2000; ++i ) far->send( frame( {}, 1 ) );
   for( const bool on : { false, true } ) pam->enabledIs( on );
   EXPECT_GT( pam->counters().rxDropped, dropped ) << "of the ring that is closed";

   {
      const EthDevPam::TxBatch batch( pam );
      pam->tx( packet( frame( {}, 1 ) ) );
      pam->tx( packet( Bytes( 5 ) ) );
      pam->tx( packet( frame( {}, 2, 60000 ) ) );
      pam->tx( packet( frame( {}, 3 ) ) );
      EXPECT_EQ( pam->counters().txFrames, 0u );
   }
   EXPECT_EQ( pam->counters().txFrames, 2u );
   EXPECT_EQ( pam->counters().txRefused, 2u );
   EXPECT_EQ( far->receive(), frame( {}, 1 ) );
   EXPECT_EQ( far->receive(), frame( {}, 3 ) );
   pam->enabledIs( false );
   {
      const EthDevPam::TxBatch batch( pam );
      for( int i = 0; i < 3; ++i ) pam->tx( packet( frame( {}, 1 ) ) );
   }
   EXPECT_EQ( pam->counters().txDropped, 3u );
}

TEST_F( EthDevPamTest, FramesWaitForASlowDeviceAndOneThatItRefusesIsLostAlone ) {
   if( !run( "tc qdisc add dev near root tbf rate 8mbit burst 2000 limit 10000000" ) ) GTEST_SKIP() << "needs 'tc' and its tbf";
   ASSERT_TRUE( run( "ip link set near mtu 3000 && ip link set far mtu 3000" ) );
   {
      const EthDevPam::TxBatch batch( pam );
      for( const std::size_t bytes : { 46, 2500, 46 } ) pam->tx( packet( frame( {}, 9, bytes ) ) );   // more than a burst
   }
   EXPECT_TRUE( pam->counters().txFrames == 2 && pam->counters().txDropped == 1 );
   for( int i = 0; i < 2; ++i ) EXPECT_EQ( far->receive(), frame( {}, 9 ) );
   for( int i = 0; i < 1000; ++i ) pam->tx( packet( frame( {}, 1 ) ) );
   EXPECT_EQ( pam->counters().txFrames, 1002u );
   for( int i = 0; i < 10; ++i ) EXPECT_EQ( far->receive(), frame( {}, 1 ) );
}

TEST_F( EthDevPamTest, JoinsGroupsBeforeAndWhileItIsOpen ) {
   const char *first = "01:80:c2:00:00:02", *second = "01:80:c2:00:00:0e";
   EXPECT_THROW( pam->multicastAddrIs( EthAddr( "02:00:00:00:00:09" ), true ), Kel::RangeException );
   pam->multicastAddrIs( EthAddr( first ), true );
   pam->promiscuousIs( true );
   EXPECT_TRUE( isMember( first ) && isPromiscuous() );
   pam->enabledIs( false );
   EXPECT_FALSE( isMember( first ) || isPromiscuous() );
   pam->multicastAddrIs( EthAddr( second ), true );
   pam->enabledIs( true );
   EXPECT_TRUE( isMember( first ) && isMember( second ) && isPromiscuous() );
   pam->multicastAddrIs( EthAddr( second ), false );
   pam->promiscuousIs( false );
   EXPECT_FALSE( isMember( second ) || isPromiscuous() );
}

TEST_F( EthDevPamTest, TellsOnceOfADeviceThatVanishesAndOpensItAgain ) {
   const EthAddr first( "01:80:c2:00:00:02" ), second( "01:80:c2:00:00:0e" );
   pam->multicastAddrIs( first, true );
   for( int round = 1; round <= 2; ++round ) {
      far->send( frame( {}, 1 ) );
      pull();
      // Between the end of the device and the word of it, settings are kept for its return.
      pam->promiscuousIs( true );
      pam->multicastAddrIs( first, false );
      pam->multicastAddrIs( second, true );
      ASSERT_TRUE( until( [ this ] { return !listener.gone.empty(); } ) );
      // What came before is delivered first.
      EXPECT_EQ( std::exchange( listener.frames, {} ).size(), 1u );
      activity.runFor( std::chrono::milliseconds( 50 ) );
      EXPECT_THAT( std::exchange( listener.gone, {} ), ElementsAre( "Ethernet device 'near' has gone" ) );
      EXPECT_FALSE( pam->enabled() );
      EXPECT_THROW( pam->enabledIs( true ), Kel::Exception );
      plug();
      pam->enabledIs( true );
      EXPECT_TRUE( isPromiscuous() && isMember( "01:80:c2:00:00:0e" ) && !isMember( "01:80:c2:00:00:02" ) );
      pam->promiscuousIs( false );
      pam->multicastAddrIs( first, true );
      pam->multicastAddrIs( second, false );
      pam->tx( packet( frame( {}, 7 ) ) );
      EXPECT_EQ( far->receive(), frame( {}, 7 ) );
   }
}

/// False leaves nothing behind, so that whoever watches for edges does not miss the end.
TEST_F( EthDevPamTest, OneCallDeliversWhatCameAndTellsOfTheEnd ) {
   far->send( frame( {}, 1 ) );
   pull();
   EXPECT_FALSE( pam->dispatch() );
   EXPECT_TRUE( listener.frames.size() == 1 && listener.gone.size() == 1 );
}

TEST_F( EthDevPamTest, GoesOnWhenADeviceIsTakenDownAndUpOrLeavesABridge ) {
   ASSERT_TRUE( run( "ip link set near down" ) );
   activity.runFor( std::chrono::milliseconds( 20 ) );
   pollfd idle{ pam->fd(), POLLIN, 0 };
   EXPECT_EQ( poll( &idle, 1, 0 ), 0 );
   pam->tx( packet( frame( {}, 1 ) ) );
   EXPECT_EQ( pam->counters().txDropped, 1u );
   ASSERT_TRUE( run( "ip link set near up" ) );
   awaitLink();
   ASSERT_TRUE( run( "ip link add br0 type bridge && ip link set near master br0 && ip link set near nomaster" ) );
   ASSERT_TRUE( run( "ip link del br0" ) );   // another's end
   far->send( frame( {}, 2 ) );
   EXPECT_THAT( received(), ElementsAre( frame( {}, 2 ) ) );
   ASSERT_TRUE( run( "ip link set near down && ip link set near up" ) );
   pam->tx( packet( frame( {}, 3 ) ) );
   EXPECT_EQ( far->receive(), frame( {}, 3 ) );
   EXPECT_TRUE( listener.gone.empty() );
}

TEST_F( EthDevPamTest, CallbackMayCloseOpenAndLetGo ) {
   listener.action = [ this ] {
      pam->enabledIs( false );
      pam->enabledIs( true );
      pam->tx( packet( frame( {}, 9 ) ) );
   };
   for( int i = 0; i < 3; ++i ) far->send( frame( {}, 1 ) );
   pam->dispatch();
   EXPECT_EQ( listener.frames.size(), 1u ) << "of the ring that is closed";
   EXPECT_EQ( far->receive(), frame( {}, 9 ) );

   listener.action = [ this ] {
      watch.close();
      pam = nullptr;
   };
   far->send( frame( {}, 2 ) );
   ASSERT_TRUE( until( [ this ] { return !pam; } ) );
}

TEST_F( EthDevPamTest, BudgetEndsAWalkThatGoesOnLaterAndSendsWhatItWasAnswered ) {
   for( Kel::U8 i = 0; i < 10; ++i ) far->send( frame( {}, i ) );
   listener.action = [ this ] {
      pam->tx( packet( listener.frames.back() ) );
      EXPECT_EQ( pam->counters().txFrames % 4, 0u );
   };
   ASSERT_TRUE( pam->dispatch( 4 ) );
   EXPECT_EQ( listener.frames.size(), 4u );
   EXPECT_EQ( pam->counters().txFrames, 4u );
   for( Kel::U8 i = 0; i < 4; ++i ) EXPECT_EQ( far->receive(), frame( {}, i ) );
   EXPECT_FALSE( pam->dispatch() );
   for( Kel::U8 i = 0; i < 10; ++i ) EXPECT_EQ( listener.frames.at( i ), frame( {}, i ) );
}

}

}
