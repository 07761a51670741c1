#include "Frame.h"

#include "TestSupport.h"
#include <memory>

namespace Fdbd {

using namespace Test;

namespace {

struct Case {
   const char* name;
   std::initializer_list< std::pair< int, int > > tags;
   Vlan vid;
   std::size_t headerSize;
};

const Case cases[] = {
   { "untagged", {}, 0, 14 },
   { "tagged", { { 0x8100, 100 } }, 100, 18 },
   { "priority and drop-eligible bits are no part of the VLAN", { { 0x8100, 0xf00a } }, 10, 18 },
   { "priority-tagged", { { 0x8100, 0xe000 } }, 0, 18 },
   { "reserved VLAN", { { 0x8100, 0x0fff } }, 4095, 18 },
   { "service tag outside is no tag", { { 0x88a8, 7 }, { 0x8100, 8 } }, 0, 14 },
   { "the outer of two customer tags counts", { { 0x8100, 7 }, { 0x8100, 8 } }, 7, 18 },
};

}

TEST( Frame, EveryLengthOfEveryKind ) {
   for( const Case& c : cases ) {
      SCOPED_TRACE( c.name );
      const Bytes whole = frameFrom( mac( 5 ), c.tags );
      for( std::size_t size = 0; size <= whole.size(); ++size ) {
         // A copy of exactly that size, so that the sanitizer sees any byte that is read beyond it.
         const std::unique_ptr< std::uint8_t[] > cut( new std::uint8_t[ size ] );
         std::copy_n( whole.begin(), size, cut.get() );
         const auto frame = decodeFrame( { cut.get(), size } );
         ASSERT_EQ( frame.has_value(), size >= c.headerSize ) << size;
         if( !frame ) continue;
         EXPECT_EQ( frame->source, mac( 5 ) );
         EXPECT_EQ( frame->destination, Quor::EthAddr::broadcast() );
         EXPECT_EQ( frame->vid, c.vid );
      }
   }
}

TEST( Frame, TagThatTheKernelTookOut ) {
   const Bytes bare = frameFrom( mac( 5 ) );
   EXPECT_EQ( decodeFrame( bare, 0x8100, 0xe064 )->vid, 100 );
   EXPECT_EQ( decodeFrame( bare, 0x88a8, 100 )->vid, 0 );
   // Behind a service tag, a customer tag is inside, whoever took the outer one out.
   EXPECT_EQ( decodeFrame( frameFrom( mac( 5 ), { { 0x8100, 8 } } ), 0x88a8, 7 )->vid, 0 );
   EXPECT_FALSE( decodeFrame( std::span( bare ).first( 13 ), 0x8100, 1 ) );
}

}
