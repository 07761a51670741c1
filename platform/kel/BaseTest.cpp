#include <kel/Name.h>
#include <kel/Ptr.h>

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

// Strings, names, counted references.
using namespace Kel;

namespace {

void inThreads( const auto& work ) {
   std::vector< std::thread > threads;
   for( int i = 0; i < 4; ++i ) threads.emplace_back( work );
   for( auto& t : threads ) t.join();
}

struct ThreadSafe {
   ThreadSafe() { threadSafePtrsIs( true ); }
   ~ThreadSafe() { threadSafePtrsIs( false ); }
};

struct Counted : PtrInterface {
   explicit Counted( int& gone ) : gone_( gone ) {}
   ~Counted() override { ++gone_; }
   int& gone_;
};
struct Derived : Counted {
   using Counted::Counted;
};

TEST( String8, holdsAnyByte ) {
   const String8 withNul( std::string_view( "a\0b\xff", 4 ) );
   EXPECT_EQ( withNul.bytes(), 4u );
   EXPECT_EQ( withNul.view(), std::string_view( "a\0b\xff", 4 ) );
   EXPECT_EQ( withNul.charPtr()[ 4 ], 0 );
   EXPECT_NE( withNul, String8( "a" ) );
   EXPECT_LT( String8( "a" ), withNul );
   EXPECT_LT( String8( "z" ), String8( "\x80" ) ) << "characters compare unsigned";
   EXPECT_EQ( withNul + "c", String8( std::string_view( "a\0b\xff" "c", 5 ) ) );
}

TEST( String8, copiesShare ) {
   String8 a( "shared" );
   String8 b = a;
   EXPECT_EQ( a.data(), b.data() );
   const String8 moved = std::move( a );
   EXPECT_EQ( moved.data(), b.data() );
   b = *&b;
   EXPECT_EQ( b, "shared" );
   b = String8( "other" );
   EXPECT_EQ( moved, "shared" );
}

TEST( String8, copiesInThreads ) {
   const ThreadSafe on;
   const String8 text( "shared by all threads" );
   inThreads( [ &text ] {
      for( int i = 0; i < 20000; ++i ) {
         const String8 copy = text;
         if( copy.bytes() != 21 ) std::abort();
      }
   } );
   EXPECT_EQ( text, "shared by all threads" );
}

TEST( RefCount, flagsDoNotDisturbTheCount ) {
   RefCount count;
   for( unsigned n = 0; n < 6; ++n ) count.flagIs( n, true );
   count.increment();
   count.increment();
   EXPECT_EQ( count.count(), 2u );
   count.flagIs( 3, false );
   EXPECT_FALSE( count.decrement() );
   EXPECT_TRUE( count.decrement() ) << "zero with flags set";
   for( unsigned n = 0; n < 6; ++n ) EXPECT_EQ( count.flag( n ), n != 3 );
   EXPECT_EQ( RefCount( count ).flag( 0 ), false ) << "a copied object is a new one";
}

TEST( RefCount, isExactInThreadsWhileTheSwitchIsOn ) {
   const ThreadSafe on;
   RefCount count;
   count.increment();
   inThreads( [ &count ] {
      for( int i = 0; i < 50000; ++i ) {
         count.increment();
         count.flagIs( 1, i % 2 );
         if( count.decrement() ) std::abort();
      }
   } );
   EXPECT_EQ( count.count(), 1u );
   EXPECT_TRUE( count.decrement() );
}

TEST( Ptr, lastReferenceDeletes ) {
   int gone = 0;
   auto p = makePtr< Derived >( gone );
   Ptr< const Counted > base = p;
   EXPECT_EQ( p->referenceCount(), 2u );
   p = nullptr;
   EXPECT_EQ( gone, 0 );
   EXPECT_TRUE( dynamicCast< const Derived >( base ) );
   base = *&base;
   EXPECT_EQ( base->referenceCount(), 1u );
   base = nullptr;
   EXPECT_EQ( gone, 1 );
}

TEST( Ptr, assignmentOfAReferenceThatTheOldObjectHeld ) {
   struct Link : PtrInterface {
      Ptr< Link > next;
   };
   auto head = makePtr< Link >();
   head->next = makePtr< Link >();
   const Link* second = head->next.ptr();
   head = head->next;
   EXPECT_EQ( head, second );
   EXPECT_EQ( head->referenceCount(), 1u );
}

}
