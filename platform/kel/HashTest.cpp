#include <kel/Hash.h>
#include <kel/Name.h>

#include <gtest/gtest.h>
#include <vector>

using namespace Kel;

namespace {

// The check of SMHasher, the test suite that MurmurHash3 was published with: hashes of the keys 0, 0 1, 0 1 2, ... hashed
// once more.
TEST( Hash, verificationValueOfMurmurHash3 ) {
   std::vector< unsigned char > key;
   std::vector< U32 > hashes;
   for( U32 i = 0; i < 256; ++i ) {
      hashes.push_back( murmur3( key.data(), key.size(), 256 - i ) );
      key.push_back( static_cast< unsigned char >( i ) );
   }
   EXPECT_EQ( murmur3( hashes.data(), 4 * hashes.size() ), 0xb0f57ee3u );
}

TEST( Hash, fixedWidthsAgreeWithTheGenericHash ) {
   const U64 words[] = { 0, 1, 0x80, 0xffff, 0x8000000000000000, 0x0123456789abcdef, ~U64( 0 ) };
   for( const U64 w : words ) {
      const auto of = [ &w ]( std::size_t bytes ) { return murmur3( &w, bytes ); };
      EXPECT_EQ( hashOf( U8( w ) ), of( 1 ) );
      EXPECT_EQ( hashOf( S16( w ) ), of( 2 ) );
      EXPECT_EQ( hashOf( U32( w ) ), of( 4 ) );
      EXPECT_EQ( hashOf( S64( w ) ), of( 8 ) );
      EXPECT_EQ( murmur3Of6( U32( w ), U16( w >> 32 ) ), of( 6 ) );
      EXPECT_EQ( hashAll( U32( w ), U32( w >> 32 ) ),
                 murmur3( std::array{ hashOf( U32( w ) ), hashOf( U32( w >> 32 ) ) }.data(), 8 ) );
   }
}

TEST( Hash, plainAttributes ) {
   enum class Colour : U32 { red = 7 };
   EXPECT_EQ( hashOf( Colour::red ), hashOf( U32( 7 ) ) );
   EXPECT_EQ( hashOf( -0.0 ), hashOf( 0.0 ) );
   const double d = 2.5;
   EXPECT_EQ( hashOf( d ), murmur3( &d, 8 ) );
   EXPECT_EQ( hashOf( Name( "Ethernet3" ) ), murmur3( "Ethernet3", 9 ) );
}

TEST( Hash, booleanStandsInACompositeAsItsByte ) {
   const U32 parts[] = { hashOf( U16( 10 ) ), hashOf( U16( 20 ) ) };
   char stream[ 9 ];
   std::memcpy( stream, parts, 8 );
   stream[ 8 ] = 1;
   EXPECT_EQ( hashAll( U16( 10 ), U16( 20 ), true ), murmur3( stream, 9 ) );
   EXPECT_NE( hashAll( U16( 10 ), U16( 20 ), true ), hashAll( U16( 10 ), U16( 20 ), false ) );
}

TEST( Hash, bitReverse ) {
   for( U32 i = 0; i < 32; ++i ) EXPECT_EQ( bitReverse( 1u << i ), 0x80000000u >> i );
}

}
