#include <kel/Exception.h>
#include <kel/HashMap.h>
#include <kel/String8.h>

#include <gtest/gtest.h>
#include <map>

using namespace Kel;

namespace {

static_assert( sizeof( HashMap< String8, String8 > ) == sizeof( void* ) );

/// A key whose hash has few values, with no comparison but `<`.
template< U32 Hashes >
struct Colliding {
   U32 number;
   U32 hash() const { return number % Hashes * 0x01010101; }
   friend bool operator<( const Colliding& a, const Colliding& b ) {
      ++comparisons;
      return a.number < b.number;
   }
   static inline U64 comparisons = 0;
};

template< class K >
void expectTotalOrder( const HashMap< K, int >& map ) {
   std::size_t seen = 0;
   std::pair< U32, K > last;
   for( auto i = map.iterator(); i; ++i ) {
      const std::pair< U32, K > at( bitReverse( hashOf( i.key() ) ), i.key() );
      EXPECT_TRUE( seen == 0 || last < at );
      ++seen;
      last = at;
   }
   EXPECT_EQ( seen, map.size() );
}

TEST( HashMap, goesInTheOrderOfReversedHashesThroughAllSizes ) {
   HashMap< Colliding< 37 >, int > map;
   for( U32 n = 0; n < 3000; ++n ) {
      map.insert( { n * 7919 % 3001 }, 0 );
      if( n % 271 == 0 ) expectTotalOrder( map );
   }
   for( U32 n = 3000; n-- > 0; ) {
      EXPECT_TRUE( map.erase( { n * 7919 % 3001 } ) );
      if( n % 271 == 0 ) expectTotalOrder( map );
   }
   EXPECT_TRUE( map.empty() );
}

TEST( HashMap, orderDoesNotDependOnHistory ) {
   HashMap< U32, int > grown, shrunk;
   for( U32 k = 0; k < 4000; ++k ) shrunk.insert( 3999 - k, 0 );
   for( U32 k = 0; k < 100; ++k ) grown.insert( k, 0 );
   for( U32 k = 100; k < 4000; ++k ) shrunk.erase( k );
   auto b = shrunk.iterator();
   for( auto a = grown.iterator(); a; ++a, ++b ) ASSERT_EQ( a.key(), b.key() );
   EXPECT_FALSE( b );
}

TEST( HashMap, growsAndShrinksUnderAWalk ) {
   HashMap< U32, int > map;
   for( U32 k = 0; k < 64; ++k ) map.insert( k, 0 );
   std::map< U32, int > seen;
   U32 next = 1000;
   for( auto i = map.iterator(); i; ++i ) {
      ++seen[ i.key() ];
      if( seen.size() == 10 ) while( next < 21000 ) map.insert( next++, 0 );
      if( seen.size() == 1000 ) while( next > 1000 ) map.erase( --next );
   }
   for( U32 k = 0; k < 64; ++k ) EXPECT_EQ( seen[ k ], 1 ) << k;
   for( const auto& [ key, times ] : seen ) EXPECT_EQ( times, 1 ) << key;
}

TEST( HashMap, stringKeys ) {
   HashMap< String8, int > map;
   for( int k = 0; k < 500; ++k ) EXPECT_TRUE( map.insert( std::to_string( k ), k ).second );
   EXPECT_FALSE( map.insert( "7", 1 ).second );
   EXPECT_EQ( *map.find( "7" ), 7 );
   EXPECT_EQ( *map.assign( "7", 70 ), 70 );
   EXPECT_EQ( map.find( String8() ), nullptr );
   map.insert( std::string_view( "7\0", 2 ), 71 );
   EXPECT_EQ( *map.find( "7" ), 70 );
   expectTotalOrder( map );
   // The key that is given may be the one in the map.
   for( auto i = map.iterator(); i; ++i ) EXPECT_TRUE( map.erase( i.key() ) );
   EXPECT_TRUE( map.empty() );
}

TEST( HashMap, keyThatCannotBeCopiedLeavesTheMapAsItWas ) {
   struct Fragile {
      U32 number = 0;
      Fragile( U32 n ) : number( n ) {}
      Fragile( const Fragile& other ) : number( other.number ) {
         if( number == 13 ) throw RangeException( "no copy" );
      }
      U32 hash() const { return hashOf( number ); }
      auto operator<=>( const Fragile& ) const = default;
   };
   HashMap< Fragile, String8 > map;
   for( U32 k = 0; k < 13; ++k ) map.insert( k, "x" );
   EXPECT_THROW( map.insert( 13, "y" ), RangeException );
   EXPECT_EQ( map.size(), 13u );
   EXPECT_FALSE( map.contains( 13 ) );
   EXPECT_TRUE( map.insert( 14, "z" ).second );
}

TEST( HashMap, keysOfOneHashCostALogarithm ) {
   HashMap< Colliding< 1 >, int > map;
   const U32 keys = 20000;
   for( U32 k = 0; k < keys; ++k ) map.insert( { k }, 0 );
   for( U32 k = 0; k < keys; ++k ) ASSERT_TRUE( map.find( { k } ) );
   for( U32 k = 0; k < keys; ++k ) ASSERT_TRUE( map.erase( { k } ) );
   EXPECT_LT( Colliding< 1 >::comparisons, U64( 3 ) * keys * 60 );   // two for each of 2 * log2( keys ) levels
}

}
