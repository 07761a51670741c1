#include "FacetsTest.h"

#include <functional>
#include <kel/Dir.h>
#include <vector>

// Notification from mutators: silence on no change, order, re-entrancy of every kind, failing callbacks, and what collections
// say.

namespace Facets {

Kel::U32 Tree::doubled() const { return number() * 2; }
void Tree::reset( Kel::U32 to ) { numberIs( to ); }

}

namespace {

using namespace Facets;
using testing::ElementsAre;
using Kel::Ptr;

/// Writes down what it hears, and may do something about it.
struct Listener : Tree::NotifieeConst {
   Listener( const Ptr< const Tree >& tree, std::string n, std::vector< std::string >& l )
       : NotifieeConst( tree ), label( std::move( n ) ), log( l ) {}
   using NotifieeConst::onKeyed;
   using NotifieeConst::onPairs;
   using NotifieeConst::onRecent;
   void say( const std::string& what ) {
      log.push_back( label + " " + what );
      if( then ) std::exchange( then, nullptr )();
   }
   void onNumber() override { say( "number" ); }
   void onHushed() { say( "hushed" ); }
   void onPairs() override { say( "pairs" ); }
   void onPairs( Vid key ) override { say( "pairs " + std::to_string( key.value() ) ); }
   void onPairskelImmediate() override { say( "immediate" ); }
   void onKeyed( Vid key ) override { say( "keyed " + std::to_string( key.value() ) ); }
   void onRecent( Kel::U32 index ) override { say( "recent " + std::to_string( index ) ); }
   void onZombie() override { say( "zombie" ); }
   void onException( Kel::U32 code, const Kel::Change& change, std::exception_ptr e ) override {
      log.push_back( label + " exception " + std::to_string( code ) );
      if( throwsAgain ) throw std::runtime_error( "again" );
      NotifieeConst::onException( code, change, e );
   }
   std::string label;
   std::vector< std::string >& log;
   std::function< void() > then;
   bool throwsAgain = false;
};

struct EntityTest : testing::Test {
   Ptr< Listener > listen( const char* name ) { return Kel::makePtr< Listener >( tree, name, log ); }
   std::vector< std::string > take() { return std::exchange( log, {} ); }
   std::vector< std::string > log;
   Ptr< Tree > tree = treeFactory( "tree" );
};

TEST_F( EntityTest, SettersAreSilentOnNoChangeAndCountOnceOnChange ) {
   const auto a = listen( "a" );
   const Kel::U32 before = tree->changeCount();
   tree->numberIs( 7 );
   tree->pairsDel( 9 );
   EXPECT_EQ( tree->changeCount(), before );
   EXPECT_THAT( take(), ElementsAre() );
   tree->numberIs( 8 );
   EXPECT_EQ( tree->changeCount(), before + 1 );
   EXPECT_THAT( take(), ElementsAre( "a number" ) );
   tree->hushedIs( 1 );
   EXPECT_EQ( tree->changeCount(), before + 2 );
   EXPECT_THAT( take(), ElementsAre() );
   // A NaN equals nothing, itself included.
   tree->realIs( std::numeric_limits< double >::quiet_NaN() );
   tree->realIs( std::numeric_limits< double >::quiet_NaN() );
   EXPECT_EQ( tree->changeCount(), before + 4 );
}

TEST_F( EntityTest, CollectionsAnnounceKeysInAllForms ) {
   const auto a = listen( "a" );
   tree->pairsIs( 3, Pair( 1, 2 ) );
   tree->pairsIs( 3, Pair( 1, 2 ) );
   EXPECT_THAT( take(), ElementsAre( "a immediate", "a pairs 3" ) );
   tree->pairsNotify( 5 );
   tree->pairsNotifyCollection();
   EXPECT_THAT( take(), ElementsAre( "a immediate", "a pairs 5", "a immediate", "a pairs" ) );
   EXPECT_EQ( tree->pairsDel( 3 ), Pair( 1, 2 ) );
   EXPECT_EQ( tree->pairsDel( 3 ), Pair() );
   EXPECT_THAT( take(), ElementsAre( "a immediate", "a pairs 3" ) );
   for( Kel::U16 v = 1; v < 5; ++v ) tree->pairsIs( v, Pair( v, v ) );
   auto second = tree->pairsIter();
   const Vid key = ( ++second ).key();
   EXPECT_EQ( tree->pairsDel( second ).outer(), key );
   EXPECT_EQ( tree->pairs( key ), Pair() );
   take();
   tree->pairsDelAll();
   EXPECT_EQ( take().size(), 6u );
   EXPECT_EQ( tree->pairsDel( tree->pairsIter() ), Pair() );
}

// The last reference to the owner goes while a removal is being announced.
TEST_F( EntityTest, OwnerMayGoWhileItsCollectionIsEmptied ) {
   auto a = listen( "a" );
   for( Kel::U16 v = 1; v < 9; ++v ) tree->pairsIs( v, Pair() );
   take();
   Tree* raw = tree.ptr();
   a->then = [ & ] { tree = nullptr; };
   raw->pairsDelAll();
   EXPECT_EQ( log.size(), 8 * 2 + 1u );
   EXPECT_EQ( log.back(), "a zombie" );
}

TEST_F( EntityTest, QueuesAppendAtTheTailAndGiveTheHead ) {
   const auto a = listen( "a" );
   tree->recentEnq( 10 );
   EXPECT_EQ( tree->recentDeq(), 10u );
   EXPECT_EQ( tree->recentDeq(), 0u );
   EXPECT_THAT( take(), ElementsAre( "a recent 0", "a recent 0" ) );
}

// A walk sees the reactors that were there when it began, less those that go before their turn.
TEST_F( EntityTest, WalkIsASnapshotWithoutTheDead ) {
   auto a = listen( "a" ), b = listen( "b" ), c = listen( "c" ), d = listen( "d" );
   Ptr< Listener > late;
   a->then = [ & ] {
      b->deactivate();
      c = nullptr;
      late = listen( "late" );
   };
   tree->numberIs( 1 );
   EXPECT_THAT( take(), ElementsAre( "a number", "d number" ) );
   EXPECT_EQ( tree->notifieeCount(), 3u );
   tree->numberIs( 2 );
   EXPECT_THAT( take(), ElementsAre( "a number", "d number", "late number" ) );
}

TEST_F( EntityTest, ReactorMayDropItselfTheOthersAndTheEntityWhileItRuns ) {
   auto a = listen( "a" ), b = listen( "b" );
   a->then = [ & ] {
      a->deactivate();
      a = nullptr;   // the walk keeps it until its callback has returned
   };
   tree->numberIs( 1 );
   EXPECT_THAT( take(), ElementsAre( "a number", "b number" ) );
   auto c = listen( "c" );
   b->then = [ & ] { tree = nullptr; };
   tree.ptr()->numberIs( 2 );
   EXPECT_THAT( take(), ElementsAre( "b number", "b zombie", "c zombie" ) );
   EXPECT_FALSE( b->notifier() );
}

TEST_F( EntityTest, NestedChangeIsAnnouncedToAllBeforeTheOuterGoesOn ) {
   const auto a = listen( "a" ), b = listen( "b" );
   a->then = [ & ] { tree->pairsIs( 1, Pair() ); };
   tree->numberIs( 1 );
   EXPECT_THAT( take(), ElementsAre( "a number", "a immediate", "a pairs 1", "b immediate", "b pairs 1", "b number" ) );
}

TEST_F( EntityTest, ThrowingCallbackDoesNotStopTheWalkNorDoesItsHandler ) {
   const auto a = listen( "a" ), b = listen( "b" ), c = listen( "c" );
   a->then = [] { throw Kel::RangeException( "first" ); };
   b->then = [] { throw 7; };
   b->throwsAgain = true;
   tree->numberIs( 1 );
   EXPECT_THAT( take(), ElementsAre( "a number", "a exception 260", "b number", "b exception 260", "c number" ) );
   EXPECT_EQ( a->exceptionCount(), 1u );
   EXPECT_EQ( tree->number(), 1u );
}

TEST_F( EntityTest, ReactorActivatesOnceAndCanBeQuiet ) {
   auto a = listen( "a" );
   EXPECT_EQ( thrown< Kel::InternalException >( [ & ] { a->activate( tree.ptr() ); } ), "entity reactor is already active" );
   a->hasNotificationActiveIs( false );
   tree->numberIs( 1 );
   a->hasNotificationActiveIs( true );
   tree->numberIs( 2 );
   EXPECT_THAT( take(), ElementsAre( "a number" ) );
   // A quiet one dies as others do.
   a->hasNotificationActiveIs( false );
   a = nullptr;
   tree->numberIs( 3 );
   EXPECT_EQ( tree->notifieeCount(), 0u );
   const Ptr< Listener > none = Kel::makePtr< Listener >( nullptr, "none", log );
   EXPECT_FALSE( none->notifier() );
   const auto branch = branchFactory( "branch" );
   EXPECT_EQ( thrown< Kel::FrameworkException >( [ & ] { none->activate( branch.ptr() ); } ), "Entity is the wrong type" );
   EXPECT_EQ( branch->notifieeCount(), 0u );
   none->activate( tree.ptr() );
   tree->numberIs( 4 );
   EXPECT_THAT( take(), ElementsAre( "none number" ) );
}

TEST_F( EntityTest, ChildrenAreNamedByTheirKeyAndKeptByTheirParameters ) {
   const auto leaf = tree->leafIs( "oak", 1, 2 );
   leaf->modeIs( 5 );
   EXPECT_EQ( tree->newLeaf( "oak", 1, 9 ), leaf );
   EXPECT_EQ( leaf->mode(), 5u );
   EXPECT_EQ( thrown< Kel::NameInUseException >( [ & ] { tree->leafIs( "oak", 3, 2 ); } ),
              "Reinstantiating the entity with name oak where constructor parameter attribute _nonce has a different value of 3 "
              "than the current "
              "value of 1 not allowed" );
   EXPECT_EQ( leaf->fullName(), "tree/oak" );
   const auto keyed = tree->keyedIs( 12 );
   EXPECT_EQ( keyed->name(), "12" );
   EXPECT_EQ( keyed->parent(), tree.ptr() );
   const auto a = listen( "a" );
   EXPECT_EQ( tree->keyedDel( 12 ), keyed );
   EXPECT_TRUE( keyed->isZombie() );
   EXPECT_EQ( keyed->parent(), nullptr );
   EXPECT_THAT( take(), ElementsAre( "a keyed 12" ) );
   const auto spare = tree->spareIs( "spare" );
   EXPECT_EQ( tree->spareIs( "other" ), spare );
   EXPECT_EQ( tree->spareDel(), spare );
   EXPECT_FALSE( tree->spare() );
}

TEST_F( EntityTest, NullReferencesAreRefusedWhereTheyMustBe ) {
   const auto leaf = tree->leafIs( "oak", 1, 2 );
   tree->requiredIs( leaf );
   EXPECT_EQ( thrown( [ & ] { tree->requiredIs( nullptr ); } ),
              "null _required parameter to mutator for Facets::Tree::required not allowed" );
   EXPECT_EQ( thrown( [ & ] { tree->linkedIs( 4, nullptr ); } ),
              "null _linked parameter to mutator for Facets::Tree::linked not allowed" );
   EXPECT_EQ( tree->required(), leaf );
   tree->favouriteIs( leaf );
   tree->favouriteIs( nullptr );
   EXPECT_FALSE( tree->favourite() );
   EXPECT_EQ( thrown( [] { Kel::ValidPtr< Leaf > p( nullptr ); } ), "null ValidPtr" );
}

TEST_F( EntityTest, StoreThenCheckKeepsTheRefusedValueUnannounced ) {
   const Kel::U32 before = tree->changeCount();
   EXPECT_EQ( thrown( [ & ] { tree->limitIs( 101 ); } ), "Tree::limit > Tree::limitMax not allowed" );
   EXPECT_EQ( tree->limit(), 101 );
   EXPECT_EQ( tree->changeCount(), before );
   tree->limitIs( 100 );
   EXPECT_EQ( tree->changeCount(), before + 1 );
}

// Typed setters give each reactor its callback straight away; one of a base type has none for what the derived type adds.
TEST_F( EntityTest, ReactorsToABaseTypeHearOnlyWhatItHas ) {
   struct Watch : Bush::NotifieeConst {
      using NotifieeConst::NotifieeConst;
      void onNumber() override { ++numbers; }
      void onBerries() override { ++berries; }
      int numbers = 0, berries = 0;
   };
   const auto bush = bushFactory( "bush" );
   EXPECT_EQ( bush->number(), 7u );
   const auto whole = Kel::makePtr< Watch >( bush );
   const auto base = Kel::makePtr< Listener >( bush, "base", log );
   bush->berriesIs( 4 );
   EXPECT_EQ( whole->berries, 1 );
   EXPECT_THAT( take(), ElementsAre() );
   bush->numberIs( 8 );
   EXPECT_EQ( whole->numbers, 1 );
   EXPECT_THAT( take(), ElementsAre( "base number" ) );
}

TEST( DirTest, ReplacedEntryGoesThenComes ) {
   struct Watch : Kel::Dir::NotifieeConst {
      using NotifieeConst::NotifieeConst;
      using NotifieeConst::onEntry;
      void onEntry( const Kel::Name& n ) override { seen.push_back( n.str() + ( notifier()->entry( n ) ? " there" : " gone" ) ); }
      std::vector< std::string > seen;
   };
   const auto dir = Kel::dirFactory( "dir" );
   const auto watch = Kel::makePtr< Watch >( dir );
   dir->entryIs( branchFactory( "a" ) );
   dir->entryIs( "a", treeFactory( "a" ) );
   EXPECT_THAT( watch->seen, ElementsAre( "a there", "a gone", "a there" ) );
   EXPECT_EQ( thrown< Kel::FrameworkException >( [ & ] { dir->entry< Branch >( "a" ); } ), "Entity is the wrong type" );
   EXPECT_EQ( thrown( [ & ] { dir->entryIs( "b", nullptr ); } ),
              "null _entry parameter to mutator for Kel::Dir::entry not allowed" );
   EXPECT_EQ( dir->entry< Tree >( "a" )->fullName(), "dir/a" );
   const auto inner = Kel::dirFactory( "inner" );
   dir->entryIs( inner );
   EXPECT_EQ( thrown( [ & ] { inner->entryIs( dir ); } ), "directory dir/inner stands in dir and can't hold it" );
   // A directory is no owner: what others hold too outlives it.
   const auto tree = dir->entry< Tree >( "a" );
   inner->entryIs( tree );
   dir->entryDel( inner->name() );
   EXPECT_FALSE( tree->isZombie() );
   EXPECT_EQ( tree->parent(), dir.ptr() );
}

TEST_F( EntityTest, AFailureThatSomebodyWaitsForIsKeptAndNotTraced ) {
   std::vector< std::string > traced;
   const auto destination = Kel::traceToCallback( [ & ]( const Kel::TraceLine& line ) { traced.push_back( std::string( line.text ) ); } );
   Kel::traceToStandardErrorIs( false );
   struct Failing : Tree::NotifieeConst {
      Failing( const Ptr< const Tree >& tree, int& n ) : NotifieeConst( tree ), calls( n ) {}
      void onNumber() override { throw Kel::RangeException( std::to_string( ++calls ) ); }
      int& calls;
   };
   int n = 0;
   const auto first = Kel::makePtr< Failing >( tree, n ), second = Kel::makePtr< Failing >( tree, n );
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

}
