#include <Vanta/VlanMuxDemux.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <quor/EthHdr.h>
#include <quor/TestNet.h>
#include <quor/TestPam.h>

namespace Vanta {

namespace {

using namespace Quor::TestPams;
using Kel::U16;
using Kel::U8;
using Quor::Packet;
using testing::ElementsAre;

constexpr U16 native = 7;

Ptr< VlanMuxDemux > newMux( bool leaveVlanHdr, const Ptr< Quor::Pam >& onePam = nullptr ) {
   return vlanMuxDemuxFactory( onePam, "", native, leaveVlanHdr );
}

/// What must become of a frame. Read as a whole: `frame` comes out, under `key`, and somebody is told or not.
struct Outcome {
   Bytes frame;
   U32 key = 0;
   bool told = false;
   friend bool operator==( const Outcome&, const Outcome& ) = default;
   friend void PrintTo( const Outcome& o, std::ostream* out ) {
      *out << o.frame.size() << " bytes " << testing::PrintToString( o.frame ) << " key " << o.key << ( o.told ? " told" : "" );
   }
};

bool isTagged( const Bytes& f ) { return f.size() >= 14 && f[ 12 ] == 0x81 && f[ 13 ] == 0; }
bool isCut( const Bytes& f ) { return f.size() < 14 || ( isTagged( f ) && f.size() < 18 ); }

Outcome decapsulated( Bytes f, bool leave ) {
   if( isCut( f ) || !isTagged( f ) ) return { f, native, isCut( f ) };
   const U32 key = ( f[ 14 ] * 256u + f[ 15 ] ) % 4096;
   if( !leave ) f.erase( f.begin() + 12, f.begin() + 16 );
   return { f, key, false };
}

Outcome encapsulated( Bytes f, U32 from, bool leave ) {
   if( leave || isCut( f ) ) return { f, 0, !leave };
   const U8 tag[] = { 0x81, 0, U8( from / 256 % 16 ), U8( from ) };
   f.insert( f.begin() + 12, std::begin( tag ), std::end( tag ) );
   return { f, 0, false };
}

struct VlanMuxDemuxTest : testing::Test {
   VlanMuxDemuxTest() { Kel::traceToStandardErrorIs( false ); }
   ~VlanMuxDemuxTest() override { Kel::traceToStandardErrorIs( true ); }

   bool takeTold() { return std::exchange( told, 0 ) != 0; }
   Outcome decapsulate( const Ptr< VlanMuxDemux >& mux, const Ptr< Packet >& pkt ) {
      const U32 key = mux->decapsulate( pkt );
      return { content( *pkt ), key, takeTold() };
   }
   Outcome encapsulate( const Ptr< VlanMuxDemux >& mux, const Ptr< Packet >& pkt, U32 from ) {
      mux->doEncapsulate( pkt, from );
      return { content( *pkt ), 0, takeTold() };
   }

   int told = 0;
   Kel::TraceDestination trace = Kel::traceToCallback( [ this ]( const Kel::TraceLine& line ) {
      told += line.facility == "VlanMuxDemux" && line.level == 0;
   } );
};

// Every length, head room, type and sharing; a buffer ends where its frame does, so that a sanitizer sees each byte beyond it.
TEST_F( VlanMuxDemuxTest, AnyFrameComesOutAsTheReferenceSays ) {
   const Ptr< VlanMuxDemux > muxes[] = { newMux( false ), newMux( true ) };
   for( const U32 type : { 0x8100u, 0x88a8u, 0x9100u, 0u, 0xffffu } ) {
      for( U32 length = 0; length <= 64; ++length ) {
         Bytes frame( length );
         for( U32 i = 0; i < length; ++i ) frame[ i ] = U8( i * 37 + 0xe5 );
         if( length > 12 ) frame[ 12 ] = U8( type >> 8 );
         if( length > 13 ) frame[ 13 ] = U8( type );
         for( U32 headRoom = 0; headRoom <= 8; ++headRoom ) {
            for( const bool leave : { false, true } ) {
               for( const bool shared : { false, true } ) {
                  SCOPED_TRACE( testing::Message() << "type " << type << " head room " << headRoom << " leave " << leave << " shared " << shared );
                  const auto& mux = muxes[ leave ];
                  const Ptr< Packet > down( new Packet( frame, headRoom ) ), up( new Packet( frame, headRoom ) );
                  std::vector< Packet > others;
                  if( shared ) others = { *down, *up };
                  const U8* start = down->data();
                  ASSERT_EQ( encapsulate( mux, down, 0xabcd ), encapsulated( frame, 0xabcd, leave ) );
                  if( !shared && headRoom >= 4 ) { ASSERT_EQ( down->data(), start - ( down->bytes() - length ) ); }
                  ASSERT_EQ( decapsulate( mux, up ), decapsulated( frame, leave ) );
                  for( const Packet& other : others ) ASSERT_EQ( content( other ), frame );
               }
            }
         }
      }
   }
}

TEST_F( VlanMuxDemuxTest, KeyAndTagControlHaveTwelveBitsOfVlan ) {
   const auto mux = newMux( false );
   const Bytes frame( 20, 0x55 );
   for( U32 n = 0; n < 65536; ++n ) {
      const auto pkt = packet( frame );
      ASSERT_EQ( encapsulate( mux, pkt, n ), encapsulated( frame, n, false ) );
      // As tag control of a received frame, with priority and drop-eligible in it.
      Quor::Dot1qHdr( pkt->writableData() ).tagIs( 0x8100, U16( n ) );
      ASSERT_EQ( decapsulate( mux, pkt ), ( Outcome{ frame, n & 0xfff, false } ) );
   }
   EXPECT_EQ( encapsulate( mux, packet( frame ), 0xffff1001 ), encapsulated( frame, 1, false ) );
}

TEST_F( VlanMuxDemuxTest, EndpointsOfItsVlansTalkThroughOneWire ) {
   const Ptr< WirePam > wire( new WirePam );
   const auto mux = newMux( false, wire );
   EXPECT_EQ( mux->mode(), 3u );
   EXPECT_TRUE( mux->initialized() );
   EXPECT_EQ( mux->ethPam(), nullptr );
   Listener ten, untagged;
   mux->newPam( 10 )->notifieeIs( &ten );
   mux->newPam( native )->notifieeIs( &untagged );
   wire->receive( Quor::TestNet::frame( { { 0x8100, 0xf00a } }, 1 ) );
   wire->receive( Quor::TestNet::frame( { { 0x88a8, 10 } }, 2 ) );
   wire->receive( Bytes( 3 ) );
   EXPECT_THAT( ten.frames, ElementsAre( Quor::TestNet::frame( {}, 1 ) ) );
   EXPECT_THAT( untagged.frames, ElementsAre( Quor::TestNet::frame( { { 0x88a8, 10 } }, 2 ), Bytes( 3 ) ) );
   mux->pam( 10 )->tx( packet( Quor::TestNet::frame( {}, 3 ) ) );
   EXPECT_THAT( wire->sent, ElementsAre( Quor::TestNet::frame( { { 0x8100, 10 } }, 3 ) ) );
}

TEST_F( VlanMuxDemuxTest, DescribesItsAttributesInOrder ) {
   const Ptr< WirePam > wire( new WirePam );
   const auto mux = newMux( true, wire );
   std::vector< std::string > names;
   for( U16 i = 0; i < VlanMuxDemux::_Type.attrCount(); ++i ) {
      const Kel::Attr& row = VlanMuxDemux::_Type.attr( i );
      if( row.kind != Kel::AttrKind::operation ) names.emplace_back( row.name );
   }
   EXPECT_THAT( names, ElementsAre( "onePam", "deviceName", "nativeVlanId", "leaveVlanHdr", "ethPam" ) );
   Ptr< Kel::GenericIf > adapter = mux->fwkType().genericIf( mux.ptr(), false ), got;
   adapter->attributeOp( { .attribute = VlanMuxDemux::Attr_::nativeVlanId }, nullptr, got );
   EXPECT_EQ( got->strRep(), "7" );
   adapter->attributeOp( { .attribute = VlanMuxDemux::Attr_::onePam }, nullptr, got );
   ASSERT_TRUE( got );
   EXPECT_EQ( got->object(), wire.ptr() );
   EXPECT_EQ( got->type().qualifiedName(), "Quor::Pam" );
   adapter->attributeOp( { .attribute = VlanMuxDemux::Attr_::ethPam }, nullptr, got );
   EXPECT_FALSE( got );
}

TEST_F( VlanMuxDemuxTest, DeviceThatCantBeOpenedLeavesNothingBehind ) {
   const Ptr< WirePam > wire( new WirePam );
   try {
      vlanMuxDemuxFactory( wire, "nosuch0", native, false );
      ADD_FAILURE() << "opened";
   } catch( const Kel::Exception& e ) {
      EXPECT_THAT( e.what(), testing::StartsWith( "Ethernet device 'nosuch0' can't be opened: " ) );
   }
   EXPECT_EQ( wire->notifiee(), nullptr );
}

using VlanMuxDemuxDeathTest = VlanMuxDemuxTest;

TEST_F( VlanMuxDemuxDeathTest, PacketWithoutDataIsRefused ) {
   const Ptr< Packet > none( new Packet );
   const char* text = "assertion \"sharedBuffer_ != 0\" failed";
   EXPECT_DEATH( newMux( false )->decapsulate( none ), text );
   EXPECT_DEATH( newMux( true )->decapsulate( none ), text );
   EXPECT_DEATH( newMux( false )->doEncapsulate( none, 1 ), text );
   newMux( true )->doEncapsulate( none, 1 );   // is not looked at
}

// --- against the kernel

using Quor::TestNet::frame;

struct VlanMuxDemuxLiveTest : Quor::TestNet::Net {
   /// A multiplexer on the near end, with a listener on each of these VLANs.
   void open( bool leaveVlanHdr, std::initializer_list< U32 > vlans ) {
      mux = vlanMuxDemuxFactory( nullptr, "near", native, leaveVlanHdr );
      for( const U32 vlan : vlans ) mux->newPam( vlan )->notifieeIs( &listeners[ vlan ] );
      watch = activity.watch( mux->ethPam()->fd(), Kel::FdEvents::reading(), [ this ]( Kel::FdEvents ) { mux->ethPam()->dispatch(); } );
   }
   bool untilFrames( std::size_t count ) {
      return until( [ & ] {
         std::size_t all = 0;
         for( const auto& [ vlan, listener ] : listeners ) all += listener.frames.size();
         return all + mux->unclaimed() >= count;
      } );
   }

   std::map< U32, Listener > listeners;
   Ptr< VlanMuxDemux > mux;
   Kel::Activity::Watch watch;
};

TEST_F( VlanMuxDemuxLiveTest, EachVlanOfTheDeviceHasItsEndpoint ) {
   open( false, { 10, 4094, native } );
   EXPECT_EQ( mux->onePam(), mux->ethPam() );
   EXPECT_TRUE( mux->ethPam()->multicastAddr( Quor::EthAddr( "01:80:c2:00:00:02" ) ) );
   EXPECT_EQ( mux->ethPam()->mode(), 3u );
   for( const int tci : { 10, 0xf00a, 4094, 11, 7 } ) far->send( frame( { { 0x8100, tci } }, U8( tci ) ) );
   far->send( frame( {}, 1 ) );
   far->send( frame( { { 0x88a8, 10 } }, 2 ) );
   far->send( frame( { { 0x8100, 10 }, { 0x8100, 11 } }, 3 ) );
   ASSERT_TRUE( untilFrames( 8 ) );
   EXPECT_THAT( listeners[ 10 ].frames, ElementsAre( frame( {}, 10 ), frame( {}, 10 ), frame( { { 0x8100, 11 } }, 3 ) ) );
   EXPECT_THAT( listeners[ 4094 ].frames, ElementsAre( frame( {}, U8( 4094 ) ) ) );
   EXPECT_THAT( listeners[ native ].frames, ElementsAre( frame( {}, 7 ), frame( {}, 1 ), frame( { { 0x88a8, 10 } }, 2 ) ) );
   EXPECT_EQ( mux->unclaimed(), 1u );

   for( const auto& [ vlan, listener ] : listeners ) {
      mux->pam( vlan )->tx( packet( frame( {}, 9 ) ) );
      EXPECT_EQ( far->receive(), frame( { { 0x8100, int( vlan ) } }, 9 ) );
   }
}

TEST_F( VlanMuxDemuxLiveTest, TagsAreLeftWhenItIsToldSo ) {
   open( true, { 10 } );
   const Bytes tagged = frame( { { 0x8100, 0xe00a } }, 1 );
   far->send( tagged );
   ASSERT_TRUE( untilFrames( 1 ) );
   EXPECT_THAT( listeners[ 10 ].frames, ElementsAre( tagged ) );
   mux->pam( 10 )->tx( packet( tagged ) );
   EXPECT_EQ( far->receive(), tagged );
}

TEST_F( VlanMuxDemuxLiveTest, DeviceThatVanishesIsToldToEachVlanAndOpensAgain ) {
   open( false, { 10, 20 } );
   pull();
   ASSERT_TRUE( until( [ this ] { return !listeners[ 20 ].gone.empty() && !listeners[ 10 ].gone.empty(); } ) );
   activity.runFor( std::chrono::milliseconds( 20 ) );
   for( const auto& [ vlan, listener ] : listeners ) EXPECT_THAT( listener.gone, ElementsAre( "Ethernet device 'near' has gone" ) );
   plug();
   mux->ethPam()->enabledIs( true );
   far->send( frame( { { 0x8100, 20 } }, 4 ) );
   ASSERT_TRUE( untilFrames( 1 ) );
   EXPECT_THAT( listeners[ 20 ].frames, ElementsAre( frame( {}, 4 ) ) );
}

TEST_F( VlanMuxDemuxLiveTest, ItsEndClosesTheDevice ) {
   open( false, { 10 } );
   const Ptr< Quor::EthDevPam > device = mux->ethPam();
   const Ptr< Quor::Pam > ten = mux->pam( 10 );
   mux->doPrepareToDie();
   EXPECT_FALSE( device->enabled() );
   EXPECT_EQ( mux->ethPam(), nullptr );
   mux->doPrepareToDie();
   open( false, { 20 } );
   const Ptr< Quor::EthDevPam > second = mux->ethPam();
   watch.close();
   mux = nullptr;
   EXPECT_FALSE( second->enabled() );
   ten->tx( packet( frame( {}, 1 ) ) );
}

}

}
