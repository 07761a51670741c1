#include "FacetsTest.h"

#include <functional>

// Typed setters give each reactor its callback straight away: the cases in which that could go to the wrong reactor, or to none.

namespace {

using namespace Facets;

class TreeWatch : public Tree::NotifieeConst {
 public:
   explicit TreeWatch( const Kel::Ptr< const Tree >& tree, std::function< void() > then = [] {} ) : NotifieeConst( tree ), then_( std::move( then ) ) {}
   void onNumber() override {
      ++numbers;
      then_();
   }
   int numbers = 0;

 private:
   std::function< void() > then_;
};

class BushWatch : public Bush::NotifieeConst {
 public:
   explicit BushWatch( const Kel::Ptr< const Bush >& bush ) : NotifieeConst( bush ) {}
   void onNumber() override { ++numbers; }
   void onBerries() override { ++berries; }
   int numbers = 0;
   int berries = 0;
};

TEST( NotifieeTest, ReactorsToABaseTypeHearOnlyWhatItHas ) {
   const auto bush = bushFactory( "bush" );
   const auto whole = Kel::makePtr< BushWatch >( bush );
   const auto base = Kel::makePtr< TreeWatch >( bush );
   bush->berriesIs( 4 );
   EXPECT_EQ( whole->berries, 1 );
   EXPECT_EQ( base->numbers, 0 );
   bush->numberIs( 8 );
   EXPECT_EQ( whole->numbers, 1 );
   EXPECT_EQ( base->numbers, 1 );
}

TEST( NotifieeTest, AnEntityOfAnotherTypeIsRefused ) {
   const auto branch = branchFactory( "branch" ), other = branchFactory( "other" );
   const auto watch = Kel::makePtr< TreeWatch >( nullptr );
   EXPECT_EQ( thrown< Kel::FrameworkException >( [ & ] { watch->activate( branch.ptr() ); } ), "Entity is the wrong type" );
   EXPECT_EQ( branch->notifieeCount(), 0u );
   const auto tree = treeFactory( "tree" );
   watch->activate( tree.ptr() );
   tree->numberIs( 1 );
   EXPECT_EQ( watch->numbers, 1 );
}

TEST( NotifieeTest, SilencedReactorsStayAttachedAndDieAsOthersDo ) {
   const auto tree = treeFactory( "tree" );
   auto watch = Kel::makePtr< TreeWatch >( tree );
   watch->hasNotificationActiveIs( false );
   tree->numberIs( 1 );
   EXPECT_EQ( watch->numbers, 0 );
   EXPECT_EQ( watch->referenceCount(), 2u );
   watch->hasNotificationActiveIs( true );
   tree->numberIs( 2 );
   EXPECT_EQ( watch->numbers, 1 );
   watch->hasNotificationActiveIs( false );
   watch = nullptr;
   tree->numberIs( 3 );
   EXPECT_EQ( tree->notifieeCount(), 0u );
}

TEST( NotifieeTest, AFailureThatSomebodyWaitsForIsKeptAndNotTraced ) {
   std::vector< std::string > traced;
   const auto destination = Kel::traceToCallback( [ & ]( const Kel::TraceLine& line ) { traced.push_back( std::string( line.text ) ); } );
   Kel::traceToStandardErrorIs( false );
   const auto tree = treeFactory( "tree" );
   int n = 0;
   const auto failing = [ & ] { throw Kel::RangeException( std::to_string( ++n ) ); };
   const auto first = Kel::makePtr< TreeWatch >( tree, failing ), second = Kel::makePtr< TreeWatch >( tree, failing );
   {
      Kel::CallbackFailure outer;
      {
         Kel::CallbackFailure inner;
         tree->numberIs( 1 );
         EXPECT_EQ( thrown< Kel::RangeException >( [ & ] { inner.rethrow(); } ), "1" ) << "the first of two";
         inner.rethrow();
      }
      outer.rethrow();
      EXPECT_EQ( second->exceptionCount(), 1u );
      tree->numberIs( 2 );
      EXPECT_EQ( thrown< Kel::RangeException >( [ & ] { outer.rethrow(); } ), "3" );
   }
   EXPECT_TRUE( traced.empty() );
   tree->numberIs( 3 );
   EXPECT_EQ( traced.size(), 2u ) << "nobody waits any more";
   Kel::traceToStandardErrorIs( true );
}

TEST( NotifieeTest, AnEntityThatGoesInItsOwnWalkEndsIt ) {
   auto tree = treeFactory( "tree" );
   Tree* const entity = tree.ptr();
   const auto first = Kel::makePtr< TreeWatch >( tree, [ &tree ] { tree = nullptr; } );
   const auto second = Kel::makePtr< TreeWatch >( tree );
   entity->numberIs( 1 );
   EXPECT_EQ( first->numbers, 1 );
   EXPECT_EQ( second->numbers, 0 );
   EXPECT_FALSE( first->notifier() );
   EXPECT_FALSE( second->notifier() );
}

}
