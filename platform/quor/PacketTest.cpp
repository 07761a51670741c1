#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <quor/EthTag.h>
#include <vector>

namespace Quor {

namespace {

using Kel::Ptr;
using Kel::U32;
using Kel::U8;
using Bytes = std::vector< U8 >;

Bytes counting( std::size_t bytes ) {
   Bytes out( bytes );
   std::iota( out.begin(), out.end(), U8( 1 ) );
   return out;
}

Bytes content( const Packet& pkt ) { return { pkt.view().begin(), pkt.view().end() }; }

// A few packets over shared buffers, changed at random, each beside a plain vector that says what it must hold. Copy before write
// means that no change of one shows in another.
TEST( Packet, HoldsWhatAPlainVectorWouldWhoeverSharesItsBuffer ) {
   std::uint32_t seed = 1;
   const auto upTo = [ & ]( U32 n ) { return ( seed = seed * 1664525 + 1013904223 ) / 65536 % n; };
   std::vector< Packet > packets( 4, Packet( counting( 20 ), 8, 8 ) );
   std::vector< Bytes > models( 4, counting( 20 ) );
   for( int step = 0; step < 20000; ++step ) {
      const U32 at = upTo( 4 ), from = upTo( 4 );
      Packet& pkt = packets[ at ];
      Bytes& model = models[ at ];
      switch( const U32 n = upTo( 12 ); upTo( 6 ) ) {
      case 0: packets[ at ] = packets[ from ], models[ at ] = models[ from ]; break;
      case 1: {
         U8* start = pkt.headGrow( n );
         for( U32 i = 0; i < n; ++i ) start[ i ] = U8( step + i );
         model.insert( model.begin(), start, start + n );
         break;
      }
      case 2:
         if( n <= pkt.bytes() ) pkt.headTrim( n ), model.erase( model.begin(), model.begin() + n );
         break;
      case 3:
         if( n <= pkt.bytes() ) pkt.tailTrim( n ), model.resize( model.size() - n );
         break;
      case 4:
         if( n > pkt.tailRoom() || pkt.bytes() > 2000 ) break;
         pkt.tailGrow( n );
         model.resize( model.size() + n );
         std::fill_n( pkt.writableData() + pkt.bytes() - n, n, U8( step ) );
         std::fill_n( model.end() - n, n, U8( step ) );
         break;
      default:
         if( pkt.bytes() ) pkt.writableData()[ n % pkt.bytes() ] = model[ n % pkt.bytes() ] = U8( step );
      }
      for( U32 i = 0; i < 4; ++i ) ASSERT_EQ( content( packets[ i ] ), models[ i ] ) << "step " << step << ", packet " << i;
   }
}

TEST( Packet, CopyHasTheRoomOfItsOriginal ) {
   const Packet pkt( counting( 10 ), 8, 6 );
   Packet shared( pkt ), own( pkt ), grown( pkt );
   own.writableData(), grown.headGrow( 4 );
   EXPECT_TRUE( shared.data() == pkt.data() && own.data() != pkt.data() );
   EXPECT_TRUE( shared.headRoom() == 8 && shared.tailRoom() == 6 );
   EXPECT_TRUE( own.headRoom() >= 8 && own.tailRoom() == 6 && grown.tailRoom() == 6 );
}

TEST( Packet, RefusesBuffersBeyondItsLimit ) {
   EXPECT_THROW( Packet( Packet::maxBytes, 1 ), Kel::RangeException );
   EXPECT_THROW( Packet( 0xffffffff, 0xffffffff, 0xffffffff ), Kel::RangeException );
   Packet pkt( 4 );
   EXPECT_THROW( pkt.headGrow( 0xffffffff ), Kel::RangeException );
   EXPECT_EQ( pkt.bytes(), 4u );
}

TEST( PacketDeathTest, SaysWhatIsWrong ) {
   const auto asserts = []( const std::string& text ) { return testing::HasSubstr( "assertion \"" + text + "\" failed" ); };
   const auto noData = asserts( "sharedBuffer_ != 0" ), behindData = asserts( "bytes <= dataBytes_" ),
              start = asserts( "ptrWithinRegion( data_, buffer_, size_ )" ),
              end = asserts( "ptrWithinRegion( data_ + dataBytes_, buffer_, size_ )" );
   Packet none;
   EXPECT_DEATH( none.data(), noData );
   EXPECT_DEATH( none.writableData(), noData );
   EXPECT_DEATH( none.headGrow( 0 ), noData );
   EXPECT_DEATH( none.headTrim( 0 ), noData );
   EXPECT_DEATH( none.tailGrow( 0 ), noData );
   EXPECT_DEATH( none.tailTrim( 0 ), noData );
   for( const U32 beyond : { 1u, 4u, 0x80000000u, 0xffffffffu - 30 } ) {
      Packet pkt( counting( 10 ), 8, 6 );
      EXPECT_DEATH( pkt.headTrim( 16 + beyond ), start );
      EXPECT_DEATH( pkt.tailTrim( 18 + beyond ), end );
      EXPECT_DEATH( pkt.tailGrow( 6 + beyond ), end );
   }
   // In the buffer still, but behind the data.
   Packet pkt( counting( 10 ), 8, 6 );
   EXPECT_DEATH( pkt.headTrim( 11 ), behindData );
   EXPECT_DEATH( pkt.tailTrim( 11 ), behindData );
}

TEST( EthHdr, ReadsAndWritesNetworkByteOrder ) {
   Bytes frame( 18 );
   EthHdr( frame.data() ).destinationIs( EthAddr( 1, 2, 3, 4, 5, 6 ) );
   EthHdr( frame.data() ).sourceIs( EthAddr( 7, 8, 9, 10, 11, 12 ) );
   EthHdr( frame.data() ).etherTypeIs( 0x0800 );
   Dot1qHdr( frame.data() ).tagIs( 0x8100, 0xb123 );
   netU16Is( &frame[ 16 ], 0x86dd );
   EXPECT_EQ( frame, ( Bytes{ 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0x81, 0x00, 0xb1, 0x23, 0x86, 0xdd } ) );
   const ConstDot1qHdr tag( frame.data() );
   EXPECT_TRUE( tag.tpid() == 0x8100 && tag.etherType() == 0x86dd );
   EXPECT_TRUE( tag.priority() == 5 && tag.dropEligible() && tag.vlanId() == 0x123 );
   EXPECT_EQ( ConstEthHdr( frame.data() ).destination(), EthAddr( 1, 2, 3, 4, 5, 6 ) );
   EXPECT_EQ( ConstEthHdr( frame.data() ).source(), EthAddr( 7, 8, 9, 10, 11, 12 ) );
}

}

}
