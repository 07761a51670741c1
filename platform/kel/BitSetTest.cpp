#include <kel/BitSet.h>

#include <gtest/gtest.h>
#include <set>

using namespace Kel;

namespace {

template< class Set >
std::set< int > bitsOf( const Set& s ) {
   std::set< int > found;
   for( int i = s.firstFrom( 0 ); i < Set::bits; i = s.firstFrom( i + 1 ) ) found.insert( i );
   return found;
}

TEST( BitSet, walksItsBits ) {
   BitSet< 70 > s;
   EXPECT_TRUE( s.none() );
   const std::set< int > some = { 0, 31, 32, 63, 64, 69 };
   for( const int i : some ) s.bitIs( i, true );
   EXPECT_EQ( bitsOf( s ), some );
   EXPECT_EQ( s.count(), 6 );
   s.bitIs( 32, false );
   EXPECT_FALSE( s[ 32 ] );
   EXPECT_EQ( s.firstFrom( 32 ), 63 );
   s.clear();
   EXPECT_EQ( s, BitSet< 70 >() );
}

TEST( BitSet, combinesAndHashesAsManyBytesAsItHas ) {
   BitSet< 9 > a, b;
   a.bitIs( 8, true );
   b.bitIs( 8, true );
   b.bitIs( 5, true );
   EXPECT_EQ( bitsOf( a | b ), ( std::set< int >{ 5, 8 } ) );
   EXPECT_EQ( bitsOf( a & b ), ( std::set< int >{ 8 } ) );
   EXPECT_EQ( bitsOf( a ^ b ), ( std::set< int >{ 5 } ) );
   EXPECT_EQ( a.hash(), murmur3( "\0\1", 2 ) );
}

TEST( BitSetDeathTest, outOfRange ) {
   BitSet< 40 > s;
   const char* text = "Kel/BitSet: .*: assertion \"pos>=0 && pos<bits\" failed";
   EXPECT_DEATH( s.bit( 40 ), text );
   EXPECT_DEATH( s[ -1 ], text );
   EXPECT_DEATH( s.bitIs( 1 << 30, true ), text );
   EXPECT_DEATH( s.firstFrom( 41 ), text );
}

}
