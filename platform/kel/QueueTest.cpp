#include <kel/Queue.h>
#include <kel/String8.h>
#include <kel/ThrownTest.h>

#include <gtest/gtest.h>
#include <vector>

using namespace Kel;

namespace {

static_assert( sizeof( Queue< String8 > ) == sizeof( void* ) );

template< class Q >
std::vector< U32 > indices( const Q& q ) {
   std::vector< U32 > found;
   for( auto i = q.iterator(); i; ++i ) found.push_back( i.key() );
   return found;
}
using Indices = std::vector< U32 >;

TEST( Queue, firstInFirstOutUnderNumbersThatGoOn ) {
   Queue< String8 > q;
   EXPECT_EQ( q.deq(), String8() );
   for( const char* text : { "a", "b", "c" } ) q.enq( text );
   EXPECT_EQ( q.deq(), "a" );
   EXPECT_TRUE( q.erase( 1 ) );
   EXPECT_FALSE( q.erase( 1 ) );
   EXPECT_EQ( q.deq(), "c" );
   EXPECT_EQ( q.enq( "d" ), 3u );
   q.clear();
   EXPECT_EQ( q.enq( "e" ), 4u );
}

TEST( Queue, positionsWrap ) {
   Queue< U32, U8 > q;
   for( U32 n = 0; n < 1000; ++n ) {
      EXPECT_EQ( q.enq( n ), n % 256 );
      if( n < 3 ) continue;
      EXPECT_EQ( *q.find( U8( n - 2 ) ), n - 2 );
      EXPECT_EQ( q.find( U8( n + 1 ) ), nullptr );
      EXPECT_EQ( q.deq(), n - 3 );
   }
   EXPECT_EQ( indices( q ), ( Indices{ 229, 230, 231 } ) );
   while( q.tail() != 1 ) q.enq( 0 );
   EXPECT_EQ( indices( q ).back(), 0u );
   EXPECT_EQ( indices( q ).front(), 229u );
}

TEST( Queue, fullWhenAllPositionsAreTaken ) {
   Queue< U32, U8 > q;
   for( U32 n = 0; n < 261; ++n ) {
      q.enq( n );
      if( n < 5 ) q.deq();
   }
   EXPECT_EQ( q.size(), 256u );
   EXPECT_EQ( thrown( [ & ] { q.enq( 1 ); } ),
              "queue full: all 256 positions from the head, 5, on are taken; remove the head first" );
   EXPECT_EQ( q.size(), 256u );
   q.erase( 100 );
   EXPECT_THROW( q.enq( 1 ), RangeException ) << "the tail still meets the head";
   EXPECT_EQ( q.deq(), 5u );
   EXPECT_EQ( q.enq( 1 ), 5u );
}

TEST( Queue, writesAnyPosition ) {
   Queue< U32, U8 > q;
   for( U32 n = 0; n < 4; ++n ) q.enq( n );
   EXPECT_EQ( *q.set( 2, 22 ), 22u );
   q.erase( 1 );
   EXPECT_TRUE( q.insert( 1, 11 ).second ) << "a gap in the window";
   EXPECT_EQ( indices( q ), ( Indices{ 0, 1, 2, 3 } ) );
   q.deq();
   q.deq();
   q.set( 6, 66 );
   EXPECT_EQ( q.tail(), 7u ) << "nearer to the tail";
   EXPECT_EQ( q.find( 5 ), nullptr );
   q.set( 0, 100 );
   q.set( 250, 50 );
   EXPECT_EQ( indices( q ), ( Indices{ 250, 0, 2, 3, 6 } ) ) << "nearer to the head";
   EXPECT_EQ( q.enq( 7 ), 7u );
   EXPECT_EQ( q.deq(), 50u );
}

TEST( Queue, followsAnotherThatStandsElsewhere ) {
   Queue< U32, U8 > source, replica;
   for( U32 n = 0; n < 300; ++n ) {
      source.enq( n );
      if( n >= 20 ) source.deq();
   }
   const Indices all = indices( source );
   for( std::size_t n = 0; n < all.size(); ++n ) {
      const U8 index = U8( all[ ( n + 7 ) % all.size() ] );
      replica.set( index, *source.find( index ) );
   }
   EXPECT_EQ( indices( replica ), all );
   EXPECT_EQ( replica.head(), source.head() );
   EXPECT_EQ( replica.tail(), source.tail() );
}

TEST( Queue, farPositionsTakeNoRoom ) {
   Queue< U32 > q;
   q.set( 0, 0 );
   for( const U32 far : { 0x80000000u, 0xffffffffu, 0x80000001u, 0xc0000001u } ) q.set( far, far );
   EXPECT_EQ( q.size(), 5u );
   EXPECT_EQ( q.head(), 0xc0000001u );
   EXPECT_EQ( q.tail(), 0x80000002u );
   q.set( 0x80000002u, 1 );
   EXPECT_EQ( indices( q ), ( Indices{ 0xc0000001u, 0xffffffffu, 0, 0x80000000u, 0x80000001u, 0x80000002u } ) );
   q.set( 0xc0000000u, 1 );
   q.set( q.tail(), 1 );
   EXPECT_EQ( q.head(), 0xc0000000u );
   for( U32 at = q.tail(); at != q.head(); at = q.tail() ) {
      const U32 room = q.head() - at;
      q.set( at + ( room - 1 ) / 2, 2 );
   }
   EXPECT_THROW( q.enq( 1 ), RangeException );
   EXPECT_LT( q.size(), 50u );
}

}
