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
      *out << testing::PrintToString( std::tie( o.frame, o.key, o.told ) );
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

   Outcome decapsulate( const Ptr< VlanMuxDemux >& mux, const Ptr< Packet >& pkt ) {
      const U32 key = mux->decapsulate( pkt );
      return { content( *pkt ), key, std::exchange( told, 0 ) != 0 };
   }
   Outcome encapsulate( const Ptr< VlanMuxDemux >& mux, const Ptr< Packet >& pkt, U32 from ) {
      mux->doEncapsulate( pkt, from );
      return { content( *pkt ), 0, std::exchange( told, 0 ) != 0 };
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
                  SCOPED_TRACE( testing::PrintToString( std::tie( type, headRoom, leave, shared ) ) );
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
   for( U32 n = 0; n < 65536; ++n ) {
      const Bytes frame( 14 + n % 51, 0x55 );
      for( const U32 headRoom : { 0, 8 } ) {
         for( const bool shared : { false, true } ) {
            const Ptr< Packet > pkt( new Packet( frame, headRoom ) );
            const Packet other = shared ? *pkt : Packet();
            ASSERT_EQ( encapsulate( mux, pkt, n ), encapsulated( frame, n, false ) );
            // As tag control of a received frame, with priority and drop-eligible in it.
            Quor::Dot1qHdr( pkt->writableData() ).tagIs( 0x8100, U16( n ) );
            ASSERT_EQ( decapsulate( mux, pkt ), ( Outcome{ frame, n & 0xfff, false } ) );
            if( shared ) { ASSERT_EQ( content( other ), frame ); }
         }
      }
   }
   const Bytes frame( 20, 0x55 );
   EXPECT_EQ( encapsulate( mux, packet( frame ), 0xffff1001 ), encapsulated( frame, 1, false ) );
}

TEST_F( VlanMuxDemuxTest, TracesEachFramesVlan ) {
   std::vector< std::string > lines;
   const auto destination = Kel::traceToCallback( [ & ]( const Kel::TraceLine& line ) {
      lines.push_back( std::to_string( line.level ) + " " + std::string( line.source ) + " " + std::string( line.function ) +
                       std::string( line.text ) );
   } );
   Kel::traceSettingIs( "VlanMuxDemux/*" );
   const auto mux = newMux( false ), leaving = newMux( true );
   const auto pkt = packet( Bytes( 20, 0x55 ) ), cut = packet( Bytes( 13 ) );
   mux->doEncapsulate( pkt, 4097 ), mux->decapsulate( pkt ), leaving->doEncapsulate( pkt, 9 ), leaving->decapsulate( pkt );
   mux->doEncapsulate( cut, 1 ), mux->decapsulate( cut );
   Kel::traceSettingReset();
   const std::string in = " VlanMuxDemux virtual U32 Vanta::VlanMuxDemux::decapsulate() ",
                     out = " VlanMuxDemux virtual void Vanta::VlanMuxDemux::doEncapsulate() ",
                     tooShort = "frame too short for its header, bytes 13";
   EXPECT_THAT( lines, ElementsAre( "8" + out + "from 4097", "8" + in + "VLAN 1", "8" + out + "from 9", "8" + out + "from 1",
                                    "0" + out + tooShort, "0" + in + tooShort ) );
}

TEST_F( VlanMuxDemuxTest, DescribesItsAttributesInOrder ) {
   const Ptr< WirePam > wire( new WirePam );
   const auto mux = newMux( true, wire );
   EXPECT_TRUE( mux->mode() == 3 && mux->initialized() && !mux->ethPam() );
   std::vector< std::string > names;
   for( U16 i = Kel::Machine::Attr_::count_; i < VlanMuxDemux::_Type.attrCount(); ++i ) {
      const Kel::Attr& row = VlanMuxDemux::_Type.attr( i );
      if( row.kind != Kel::AttrKind::operation ) names.emplace_back( row.name );
   }
   EXPECT_THAT( names, ElementsAre( "onePam", "deviceName", "nativeVlanId", "leaveVlanHdr", "ethPam" ) );
   Ptr< Kel::GenericIf > adapter = mux->fwkType().genericIf( mux.ptr(), false ), got;
   adapter->attributeOp( { .attribute = VlanMuxDemux::Attr_::nativeVlanId }, nullptr, got );
   EXPECT_EQ( got->strRep(), "7" );
   // By their setters alone, which may do more than store.
   const auto seven = got;
   for( const U16 attr : { U16( VlanMuxDemux::Attr_::nativeVlanId ), U16( VlanMuxDemux::Attr_::onePam ) } )
      EXPECT_THROW( adapter->attributeOp( { .attribute = attr, .kind = Kel::AttributeOp::Kind::set }, seven.ptr(), got ),
                    Kel::ConstException );
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

// Against the kernel: a multiplexer on the near end of a cable, a plain packet socket at the far end.

using Quor::TestNet::frame;
using VlanMuxDemuxLiveTest = Quor::TestNet::Net;

TEST_F( VlanMuxDemuxLiveTest, EachVlanOfTheDeviceHasItsEndpoint ) {
   std::map< U32, Listener > listeners;
   Ptr< VlanMuxDemux > mux = vlanMuxDemuxFactory( nullptr, "near", native, false );
   for( const U32 vlan : { U32( native ), 10u, 4094u } ) mux->newPam( vlan )->notifieeIs( &listeners[ vlan ] );
   const Ptr< Quor::EthDevPam > device = mux->ethPam();
   EXPECT_TRUE( mux->onePam() == device && device->mode() == 3 );
   EXPECT_TRUE( device->multicastAddr( Quor::EthAddr( "01:80:c2:00:00:02" ) ) );

   for( const int tci : { 10, 0xf00a, 4094, 11 } ) far->send( frame( { { 0x8100, tci } }, U8( tci ) ) );
   far->send( frame( {}, 1 ) );
   far->send( frame( { { 0x88a8, 10 } }, 2 ) );
   far->send( frame( { { 0x8100, 10 }, { 0x8100, 11 } }, 3 ) );
   {
      const auto watch = activity.watch( device->fd(), Kel::FdEvents::reading(), [ & ]( Kel::FdEvents ) { device->dispatch(); } );
      ASSERT_TRUE( until( [ & ] { return listeners[ 10 ].frames.size() == 3; } ) );
   }
   EXPECT_THAT( listeners[ 10 ].frames, ElementsAre( frame( {}, 10 ), frame( {}, 10 ), frame( { { 0x8100, 11 } }, 3 ) ) );
   EXPECT_THAT( listeners[ 4094 ].frames, ElementsAre( frame( {}, U8( 4094 ) ) ) );
   EXPECT_THAT( listeners[ native ].frames, ElementsAre( frame( {}, 1 ), frame( { { 0x88a8, 10 } }, 2 ) ) );
   EXPECT_EQ( mux->unclaimed(), 1u );
   for( const auto& [ vlan, listener ] : listeners ) {
      mux->pam( vlan )->tx( packet( frame( {}, 9 ) ) );
      EXPECT_EQ( far->receive(), frame( { { 0x8100, int( vlan ) } }, 9 ) );
   }

   const Ptr< VlanMuxDemux > second = vlanMuxDemuxFactory( nullptr, "near", native, false );
   const Ptr< Quor::EthDevPam > another = second->ethPam();
   second->doPrepareToDie();
   mux = nullptr;
   EXPECT_FALSE( device->enabled() || another->enabled() || second->ethPam() );
}

}

}
