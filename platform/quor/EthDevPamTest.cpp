#include <gmock/gmock.h>
#include <quor/EthDevPam.h>
#include <quor/TestNet.h>
#include <quor/TestPam.h>
#include <sstream>

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
   bool untilFrames( std::size_t count ) {
      return until( [ & ] { return listener.frames.size() >= count; } );
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
   std::string memberships() {
      std::ostringstream out;
      out << std::ifstream( "/proc/thread-self/net/dev_mcast" ).rdbuf();
      return out.str();
   }

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
   // Of what it sent it has received nothing.
   EXPECT_TRUE( received().empty() );
}

TEST_F( EthDevPamTest, ModeLetsFramesPass ) {
   pam->modeIs( PamMode::tx );
   far->send( frame( {}, 1 ) );
   EXPECT_TRUE( until( [ this ] { return !pam->dispatch(); } ) );
   pam->modeIs( PamMode::rx );
   pam->tx( packet( frame( {}, 2 ) ) );
   pam->modeIs( PamMode::both );
   pam->tx( packet( frame( {}, 3 ) ) );
   EXPECT_EQ( far->receive(), frame( {}, 3 ) );
   EXPECT_TRUE( received().empty() );
}

TEST_F( EthDevPamTest, FramesLongerThanTheRingsSlotsArriveWhole ) {
   ASSERT_TRUE( run( "ip link set near mtu 9000 && ip link set far mtu 9000" ) );
   const std::vector< Bytes > all = { frame( {}, 1, 1500 ), frame( { { 0x8100, 10 } }, 2, 8900 ), frame( {}, 3, 1600 ), frame( {}, 4, 2000 ) };
   for( const Bytes& one : all ) far->send( one );
   EXPECT_EQ( received(), all );
   EXPECT_EQ( pam->counters().rxCut, 0u );
}

TEST_F( EthDevPamTest, CountsWhatIsLostAndWhatIsRefused ) {
   for( int i = 0; i < 2000; ++i ) far->send( frame( {}, 1 ) );
   ASSERT_TRUE( until( [ this ] { return pam->counters().rxFrames + pam->counters().rxDropped >= 2000; } ) );
   EXPECT_GT( pam->counters().rxDropped, 0u );
   EXPECT_GT( pam->counters().rxFrames, 500u );

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
   pam->tx( packet( frame( {}, 1 ) ) );
   EXPECT_EQ( pam->counters().txDropped, 1u );
}

TEST_F( EthDevPamTest, JoinsGroupsBeforeAndWhileItIsOpen ) {
   const EthAddr first( "01:80:c2:00:00:02" ), second( "01:80:c2:00:00:0e" );
   pam->enabledIs( false );
   pam->multicastAddrIs( first, true );
   EXPECT_EQ( memberships().find( "0180c2000002" ), std::string::npos );
   pam->enabledIs( true );
   pam->multicastAddrIs( second, true );
   EXPECT_NE( memberships().find( "0180c2000002" ), std::string::npos );
   EXPECT_NE( memberships().find( "0180c200000e" ), std::string::npos );
   pam->multicastAddrIs( second, false );
   EXPECT_EQ( memberships().find( "0180c200000e" ), std::string::npos );
   EXPECT_FALSE( pam->multicastAddr( second ) );

   const auto isPromiscuous = [] { return run( "ip -d link show near | grep -q 'promiscuity [1-9]'" ); };
   EXPECT_FALSE( isPromiscuous() );
   pam->promiscuousIs( true );
   EXPECT_TRUE( isPromiscuous() );
   pam->enabledIs( false );
   EXPECT_FALSE( isPromiscuous() );
   pam->enabledIs( true );
   EXPECT_TRUE( isPromiscuous() );
   pam->promiscuousIs( false );
   EXPECT_FALSE( isPromiscuous() );
}

TEST_F( EthDevPamTest, TellsOnceOfADeviceThatVanishesAndOpensItAgain ) {
   for( int round = 1; round <= 2; ++round ) {
      far->send( frame( {}, 1 ) );
      pull();
      ASSERT_TRUE( until( [ this ] { return !listener.gone.empty(); } ) );
      // What came before is delivered first.
      EXPECT_EQ( std::exchange( listener.frames, {} ).size(), 1u );
      activity.runFor( std::chrono::milliseconds( 50 ) );
      EXPECT_THAT( std::exchange( listener.gone, {} ), ElementsAre( "Ethernet device 'near' has gone" ) );
      EXPECT_FALSE( pam->enabled() );
      EXPECT_THROW( pam->enabledIs( true ), Kel::Exception );
      plug();
      pam->enabledIs( true );
      pam->tx( packet( frame( {}, 7 ) ) );
      EXPECT_EQ( far->receive(), frame( {}, 7 ) );
   }
}

TEST_F( EthDevPamTest, GoesOnWhenADeviceIsTakenDownAndUpOrLeavesABridge ) {
   ASSERT_TRUE( run( "ip link set near down" ) );
   activity.runFor( std::chrono::milliseconds( 20 ) );
   pam->tx( packet( frame( {}, 1 ) ) );
   EXPECT_EQ( pam->counters().txDropped, 1u );
   ASSERT_TRUE( run( "ip link set near up" ) );
   ASSERT_TRUE( run( "ip link add br0 type bridge && ip link set near master br0 && ip link set near nomaster" ) );
   far->send( frame( {}, 2 ) );
   EXPECT_THAT( received(), ElementsAre( frame( {}, 2 ) ) );
   pam->tx( packet( frame( {}, 3 ) ) );
   EXPECT_EQ( far->receive(), frame( {}, 3 ) );
   EXPECT_TRUE( listener.gone.empty() );
}

// Down and up without a look at the socket in between: its old error is no reason not to send.
TEST_F( EthDevPamTest, SendsAfterAnErrorThatIsOver ) {
   ASSERT_TRUE( run( "ip link set near down && ip link set near up" ) );
   pam->tx( packet( frame( {}, 3 ) ) );
   EXPECT_EQ( far->receive(), frame( {}, 3 ) );
}

TEST_F( EthDevPamTest, CallbackMayCloseOpenAndLetGo ) {
   listener.action = [ this ] { pam->enabledIs( false ); };
   for( int i = 0; i < 3; ++i ) far->send( frame( {}, 1 ) );
   ASSERT_TRUE( untilFrames( 1 ) );
   activity.runFor( std::chrono::milliseconds( 20 ) );
   EXPECT_EQ( listener.frames.size(), 1u );

   listener.action = [ this ] {
      pam->enabledIs( false );
      pam->enabledIs( true );
      pam->tx( packet( frame( {}, 9 ) ) );
   };
   pam->enabledIs( true );
   for( int i = 0; i < 3; ++i ) far->send( frame( {}, 2 ) );
   ASSERT_TRUE( untilFrames( 2 ) );
   EXPECT_EQ( far->receive(), frame( {}, 9 ) );

   listener.action = [ this ] {
      watch.close();
      pam = nullptr;
   };
   far->send( frame( {}, 3 ) );
   ASSERT_TRUE( until( [ this ] { return !pam; } ) );
}

TEST_F( EthDevPamTest, BudgetEndsAWalkThatGoesOnLater ) {
   for( Kel::U8 i = 0; i < 10; ++i ) far->send( frame( {}, i ) );
   ASSERT_TRUE( pam->dispatch( 4 ) );
   EXPECT_EQ( listener.frames.size(), 4u );
   ASSERT_TRUE( untilFrames( 10 ) );
   for( Kel::U8 i = 0; i < 10; ++i ) EXPECT_EQ( listener.frames[ i ], frame( {}, i ) );
}

}

}
