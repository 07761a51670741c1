#include <kel/HashMap.h>
#include <kel/Queue.h>
#include <kel/RbTreeMap.h>

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

// What the hashed map, the ordered map and the queue share: contents, walks under change, elements that use their container
// while they go.
using namespace Kel;

namespace {

/// Runs an action when it is destroyed with it.
struct Bomb {
   std::shared_ptr< std::function< void() > > action;
   std::string behind;   // an assignment goes on here when the old action has run
   explicit Bomb( std::function< void() > f = nullptr )
      : action( f ? std::shared_ptr< std::function< void() > >( new std::function< void() >( std::move( f ) ), []( auto* a ) {
           ( *a )();
           delete a;
        } )
                  : nullptr ) {}
};

struct HashKind {
   template< class V >
   using Of = HashMap< U32, V >;
};
struct TreeKind {
   template< class V >
   using Of = RbTreeMap< U32, V >;
};
struct QueueKind {
   template< class V >
   using Of = Queue< V, U32 >;
};

template< class Kind >
class MapIteratorTest : public testing::Test {
 protected:
   using Map = typename Kind::template Of< U32 >;
   using BombMap = typename Kind::template Of< Bomb >;

   /// Compares the map with its model.
   void sweep() {
      ASSERT_EQ( map_.size(), model_.size() );
      std::map< U32, U32 > seen;
      U32 last = 0;
      const Map& constMap = map_;
      for( auto i = constMap.iterator(); i; ++i ) {
         ASSERT_TRUE( seen.empty() || constMap.iteratorAfter( last ).key() == i.key() );
         last = i.key();
         ASSERT_TRUE( seen.emplace( i.key(), i.value() ).second ) << "twice: " << i.key();
         ASSERT_EQ( constMap.find( i.key() ), i.ptr() );
      }
      ASSERT_EQ( seen, model_ );
   }
   void change() {
      const U32 key = static_cast< U32 >( random_() ) % keys_;
      const U32 value = static_cast< U32 >( random_() );
      switch( random_() % 5 ) {
       case 0:
       case 1: {
         const auto [ slot, isNew ] = map_.insert( key, value );
         const auto [ at, modelIsNew ] = model_.emplace( key, value );
         ASSERT_EQ( isNew, modelIsNew );
         ASSERT_EQ( *slot, at->second );
         break;
       }
       case 2:
         ASSERT_EQ( map_.contains( key ), model_.contains( key ) );
         if( U32* slot = map_.find( key ) ) *slot = model_[ key ] = value;
         break;
       default: {
         U32 removed = 0;
         const U32 expected = model_.contains( key ) ? model_[ key ] : 0;
         ASSERT_EQ( map_.erase( key, &removed ), model_.erase( key ) == 1 );
         ASSERT_EQ( removed, expected );
         erased_.insert( key );
       }
      }
   }
   void walkUnderChange() {
      erased_.clear();
      const auto atStart = model_;
      std::set< U32 > seen;
      for( auto i = map_.iterator(); i; ++i ) {
         ASSERT_TRUE( seen.insert( i.key() ).second ) << "met twice: " << i.key();
         for( auto n = random_() % 6; n > 0; --n ) change();
         if( random_() % 8 == 0 ) {
            const bool there = model_.erase( i.key() ) == 1;
            erased_.insert( i.key() );
            ASSERT_EQ( map_.erase( i ), there );
         }
         ASSERT_TRUE( i );
         ASSERT_EQ( i.ptr(), map_.find( i.key() ) );
         ASSERT_EQ( i.ptr() != nullptr, model_.contains( i.key() ) );
      }
      for( const auto& [ key, value ] : atStart ) {
         ASSERT_TRUE( erased_.contains( key ) || seen.contains( key ) ) << "not met: " << key;
      }
   }

   Map map_;
   std::map< U32, U32 > model_;
   std::set< U32 > erased_;
   std::mt19937 random_{ 20 };
   U32 keys_ = 1;
};

using Kinds = testing::Types< HashKind, TreeKind, QueueKind >;
TYPED_TEST_SUITE( MapIteratorTest, Kinds );

TYPED_TEST( MapIteratorTest, agreesWithAModelThroughWalksUnderChange ) {
   for( const U32 keys : { 1u, 3u, 40u, 700u } ) {
      this->keys_ = keys;
      for( int round = 0; round < 30; ++round ) {
         for( U32 n = 0; n < keys; ++n ) this->change();
         this->walkUnderChange();
         this->sweep();
         if( this->HasFatalFailure() ) return;
      }
   }
}

TYPED_TEST( MapIteratorTest, standsOnAPositionThatWasRemoved ) {
   auto& map = this->map_;
   for( U32 k = 0; k < 20; ++k ) map.insert( k, k );
   auto i = map.iterator();
   ++i;
   const U32 key = i.key();
   const typename TestFixture::Map::ConstIterator other = i;
   map.erase( i );
   EXPECT_TRUE( i );
   EXPECT_EQ( i.key(), key );
   EXPECT_EQ( i.ptr(), nullptr );
   EXPECT_EQ( other.ptr(), nullptr );
   EXPECT_EQ( map.iteratorAfter( key ).key(), ( ++map.iterator() ).key() ) << "the key need not be there";
   EXPECT_FALSE( map.erase( i ) ) << "already gone";
   map.insert( key, 77 );
   EXPECT_EQ( i.value(), 77u );
   map.clear();
   EXPECT_EQ( i.ptr(), nullptr );
   EXPECT_FALSE( ++i );
   EXPECT_FALSE( ++i ) << "stays at the end";
   map.insert( 5, 5 );
   EXPECT_FALSE( i );
   i.reset();
   EXPECT_EQ( i.key(), 5u );
}

TYPED_TEST( MapIteratorTest, contentThatMovesAwayOrIsReplaced ) {
   auto& map = this->map_;
   map.insert( 1, 10 );
   map.insert( 2, 20 );
   auto i = map.iterator();
   const auto other = i;
   const U32 key = i.key();
   typename TestFixture::Map moved( std::move( map ) );
   EXPECT_EQ( other.ptr(), nullptr );
   EXPECT_EQ( moved.size(), 2u );
   map = moved;
   EXPECT_EQ( i.ptr(), map.find( key ) );
   EXPECT_NE( i.ptr(), moved.find( key ) );
   ++i;
   map = typename TestFixture::Map();
   EXPECT_EQ( i.ptr(), nullptr );
   EXPECT_FALSE( ++i );
   EXPECT_EQ( *moved.find( 2 ), 20u );
}

TYPED_TEST( MapIteratorTest, elementsUseTheContainerWhileTheyGo ) {
   typename TestFixture::BombMap map;
   int ran = 0;
   const auto arm = [ & ]( std::function< void() > f ) {
      map.clear();
      for( U32 k = 0; k < 100; ++k ) map.insert( k, Bomb() );
      *map.find( 50 ) = Bomb( [ &ran, f ] {
         ++ran;
         f();
      } );
   };
   arm( [ & ] { map.clear(); } );
   EXPECT_TRUE( map.erase( 50 ) );
   EXPECT_EQ( map.size(), 0u );

   arm( [ & ] {
      EXPECT_EQ( map.size(), 99u );
      EXPECT_TRUE( map.insert( 50, Bomb() ).second );
   } );
   EXPECT_TRUE( map.erase( 50 ) );
   EXPECT_EQ( map.size(), 100u );

   arm( [ & ] {
      EXPECT_TRUE( map.empty() );
      map.insert( 7, Bomb() );
   } );
   map.clear();
   EXPECT_EQ( map.size(), 1u );

   Bomb kept;
   arm( [] {} );
   EXPECT_TRUE( map.erase( 50, &kept ) );
   EXPECT_EQ( ran, 3 ) << "moved out, not destroyed";
   kept = Bomb();
   EXPECT_EQ( ran, 4 );
}

TYPED_TEST( MapIteratorTest, replacedElementUsesTheContainer ) {
   typename TestFixture::BombMap map;
   const auto put = [ &map ]( Bomb b ) {
      if constexpr( requires { map.set( 1, b ); } ) map.set( 1, std::move( b ) );
      else map.assign( 1, std::move( b ) );
   };
   put( Bomb( [ & ] { EXPECT_TRUE( map.erase( 1 ) ); } ) );
   put( Bomb() );
   EXPECT_TRUE( map.empty() );
}

TYPED_TEST( MapIteratorTest, elementsStayWhereTheyAre ) {
   auto& map = this->map_;
   std::map< U32, U32* > where;
   for( U32 k = 0; k < 5000; ++k ) where[ k ] = map.insert( k, k ).first;
   for( U32 k = 0; k < 5000; ++k ) {
      if( k % 100 ) map.erase( k );
   }
   for( U32 k = 0; k < 5000; k += 100 ) {
      EXPECT_EQ( map.find( k ), where[ k ] );
      EXPECT_EQ( *where[ k ], k );
   }
}

TEST( RbTreeMap, goesInAscendingOrder ) {
   RbTreeMap< S32, int > map;
   for( const S32 k : { 5, -7, 0, 2147483647, -2147483647 } ) map.insert( k, 0 );
   std::vector< S32 > order;
   for( auto i = map.iterator(); i; ++i ) order.push_back( i.key() );
   EXPECT_EQ( order, ( std::vector< S32 >{ -2147483647, -7, 0, 5, 2147483647 } ) );
}

}
