#include "FacetsTest.h"

#include <kel/AttrLog.h>

// Everything that the typed interface does, done through the reflection adapter alone.

namespace {

using namespace Facets;
using Kel::AttributeOp;
using Kel::Ptr;
using If = Ptr< Kel::GenericIf >;
using Kind = AttributeOp::Kind;

/// A value for use as an argument.
template< class T >
struct Arg : Kel::GenericIfOf< T > {
   explicit Arg( const T& v ) : Kel::GenericIfOf< T >( v ) {}
};

struct GenericIfTest : testing::Test {
   If perform( const If& on, const char* attribute, Kind kind, const Kel::GenericIf* argument = nullptr,
               const Kel::GenericIf* key = nullptr, std::span< const Kel::GenericIf* const > arguments = {} ) {
      const Kel::S32 id = on->attributeId( attribute );
      EXPECT_GE( id, 0 ) << attribute;
      If result;
      on->attributeOp( { static_cast< Kel::U16 >( id ), kind, key, arguments }, argument, result );
      return result;
   }
   std::string text( const If& on, const char* attribute, const Kel::GenericIf* key = nullptr ) {
      const If result = perform( on, attribute, Kind::get, nullptr, key );
      return result ? result->stringValue().str() : "none";
   }
   Ptr< Tree > tree = treeFactory( "tree" );
   If adapter = tree->fwkType().genericIf( tree.ptr(), false );
   If constAdapter = tree->fwkType().genericIf( tree.ptr(), true );
};

TEST_F( GenericIfTest, ValuesAreBuiltReadAndSetByName ) {
   Kel::Type& type = Pair::_Type;
   const If value = type.genericIf( Kel::String8( "Value('Facets::Pair', ** {'outer': 3})" ), false );
   EXPECT_EQ( text( value, "outer" ), "3" );
   perform( value, "inner", Kind::set, Ptr( new Arg( VidOrNone( 9 ) ) ).ptr() );
   EXPECT_EQ( value->stringValue(), "Value('Facets::Pair', ** {'outer': 3, 'inner': 9})" );
   const If copy = type.genericIf( value.ptr(), true );
   EXPECT_EQ( copy->as< Pair >(), Pair( 3, 9 ) );
   // What one operation gives may go right into the next.
   If own9 = perform( copy, "inner", Kind::get );
   type.genericIf( Kel::String8( "Value('Facets::Pair', ** {})" ), false )
      ->attributeOp( { static_cast< Kel::U16 >( type.attributeId( "inner" ) ), Kind::set }, own9.ptr(), own9 );
   EXPECT_FALSE( own9 );
   const Arg outer( Vid( 7 ) );
   EXPECT_EQ( thrown< Kel::ConstException >( [ & ] { perform( copy, "outer", Kind::set, &outer ); } ),
              "attempting to modify a const instance" );
   EXPECT_EQ( thrown( [ & ] { perform( value, "inner", Kind::set, &outer ); } ),
              "Facets::Vid given where Facets::VidOrNone is wanted" );
   const Arg inner( VidOrNone( 1 ) );
   const Kel::GenericIf* list[] = { &outer, &inner };
   value->genericIfListConstructor( list );
   EXPECT_EQ( value->as< Pair >(), Pair( 7, 1 ) );
   EXPECT_NE( thrown( [ & ] { value->genericIfListConstructor( std::span( list, 1 ) ); } ), "nothing" );
   Pair raw( 1, 2 );
   Pair::GenericIf_ own( &raw, false );
   own.valIs( Pair( 5, 6 ) );
   EXPECT_EQ( raw, Pair( 5, 6 ) );
   const auto clone = own.clone();
   own.valIs( Pair() );
   EXPECT_EQ( clone->as< Pair >(), Pair( 5, 6 ) );
   EXPECT_EQ( value->attributeId( "nothing" ), -1 );
   EXPECT_EQ( value->voidPtrIs( Vid::_Type ), nullptr );
   // A scalar is checked on its way in.
   const If scalar = Vid::_Type.genericIf( Kel::String8( "5" ), false );
   EXPECT_EQ( thrown( [ & ] { perform( scalar, "value", Kind::set, Ptr( new Arg( Kel::U16( 0 ) ) ).ptr() ); } ),
              "Vid::value < 1 or > 4094 not allowed" );
   EXPECT_EQ( scalar->as< Vid >(), Vid( 5 ) );
   EXPECT_EQ( text( scalar, "max" ), "4094" );
}

TEST_F( GenericIfTest, EntityAttributesChangeThroughTheirMutators ) {
   struct Watch : Tree::NotifieeConst {
      using NotifieeConst::NotifieeConst;
      using NotifieeConst::onPairs;
      void onNumber() override { ++numbers; }
      void onPairs( Vid key ) override { pair = key; }
      int numbers = 0;
      Vid pair;
   };
   const auto watch = Kel::makePtr< Watch >( tree );
   perform( adapter, "number", Kind::set, Ptr( new Arg( Kel::U32( 8 ) ) ).ptr() );
   perform( adapter, "number", Kind::set, Ptr( new Arg( Kel::U32( 8 ) ) ).ptr() );
   EXPECT_EQ( watch->numbers, 1 );
   perform( adapter, "real", Kind::set, Ptr( new Arg( 1.5 ) ).ptr() );   // a time is a double
   EXPECT_EQ( tree->real(), 1.5 );
   const Arg value( Kel::U32( 9 ) );
   EXPECT_EQ( thrown< Kel::ConstException >( [ & ] { perform( constAdapter, "number", Kind::set, &value ); } ),
              "attempting to modify a const instance" );
   const Arg large( Kel::U16( 101 ) );
   EXPECT_EQ( thrown( [ & ] { perform( adapter, "limit", Kind::set, &large ); } ), "Tree::limit > Tree::limitMax not allowed" );
   EXPECT_EQ( text( adapter, "limit" ), "101" );
   EXPECT_EQ( text( adapter, "limitMax" ), "100" );
   EXPECT_EQ( text( adapter, "greeting" ), "'hello'" );
   EXPECT_EQ( text( adapter, "doubled" ), "16" );
   EXPECT_EQ( text( adapter, "outer" ), "1" );
   EXPECT_EQ( text( adapter, "kelHasAttrLogInterface" ), "False" );
   const Arg key( Vid( 3 ) );
   perform( adapter, "pairs", Kind::set, Ptr( new Arg( Pair( 1, 2 ) ) ).ptr(), &key );
   EXPECT_EQ( watch->pair, Vid( 3 ) );
   EXPECT_EQ( text( adapter, "pairs", &key ), "Value('Facets::Pair', ** {'outer': 1, 'inner': 2})" );
   EXPECT_EQ( perform( adapter, "pairs", Kind::next )->as< Vid >(), Vid( 3 ) );
   EXPECT_FALSE( perform( adapter, "pairs", Kind::next, nullptr, &key ) );
   perform( adapter, "pairs", Kind::del, nullptr, &key );
   EXPECT_EQ( perform( adapter, "pairs", Kind::count )->as< Kel::U32 >(), 0u );
   EXPECT_EQ( text( adapter, "pairs", &key ), "none" );
   perform( adapter, "recent", Kind::enq, &value );
   perform( adapter, "recent", Kind::enq, Ptr( new Arg( Kel::U32( 10 ) ) ).ptr() );
   EXPECT_EQ( perform( adapter, "recent", Kind::deq )->as< Kel::U32 >(), 9u );
   perform( adapter, "recent", Kind::delAll );
   EXPECT_EQ( perform( adapter, "recent", Kind::count )->as< Kel::U32 >(), 0u );
}

TEST_F( GenericIfTest, ChildrenAndReferencesAreMadeAndFound ) {
   const Arg name( Kel::Name( "oak" ) );
   const Arg one( Kel::U32( 1 ) );
   const Kel::GenericIf* parameters[] = { &name, &one, &one };
   const If oak = perform( adapter, "leaf", Kind::create, nullptr, nullptr, parameters );
   EXPECT_EQ( oak->strRep(), "tree/oak" );
   EXPECT_EQ( tree->leaf( "oak" )->nonce(), 1u );
   const Arg two( Kel::U32( 2 ) );
   parameters[ 1 ] = &two;
   EXPECT_NE(
      thrown< Kel::NameInUseException >( [ & ] { perform( adapter, "leaf", Kind::create, nullptr, nullptr, parameters ); } ),
      "nothing" );
   const Kel::GenericIf* buddies[] = { &name, oak.ptr() };
   perform( adapter, "peer", Kind::create, nullptr, nullptr, buddies );
   EXPECT_EQ( tree->peer( "oak" )->buddy(), tree->leaf( "oak" ) );
   buddies[ 1 ] = nullptr;
   EXPECT_NE( thrown< Kel::NameInUseException >( [ & ] { perform( adapter, "peer", Kind::create, nullptr, nullptr, buddies ); } ),
              "nothing" );
   buddies[ 0 ] = nullptr;
   EXPECT_NE( thrown( [ & ] { perform( adapter, "peer", Kind::create, nullptr, nullptr, buddies ); } ), "nothing" );
   const Arg vid( Vid( 12 ) );
   const Kel::GenericIf* key[] = { &vid };
   EXPECT_EQ( perform( adapter, "keyed", Kind::create, nullptr, nullptr, key )->strRep(), "tree/12" );
   perform( adapter, "favourite", Kind::set, oak.ptr() );
   EXPECT_EQ( tree->favourite(), tree->leaf( "oak" ) );
   perform( adapter, "favourite", Kind::set );
   EXPECT_FALSE( tree->favourite() );
   EXPECT_EQ( thrown( [ & ] { perform( adapter, "required", Kind::set ); } ),
              "null _required parameter to mutator for Facets::Tree::required not allowed" );
   EXPECT_EQ( thrown( [ & ] { perform( adapter, "favourite", Kind::set, adapter.ptr() ); } ),
              "Facets::Tree given where Facets::Leaf is wanted" );
   // An element that carries its key needs no other.
   const If keyed = perform( adapter, "keyed", Kind::get, nullptr, &vid );
   perform( keyed, "host", Kind::set, Ptr( new Arg( Host( 4, 5, 6 ) ) ).ptr() );
   EXPECT_EQ( tree->keyed( 12 )->host( 4 ).port(), 5u );
   const Kel::GenericIf* spare[] = { &name };
   perform( adapter, "spare", Kind::create, nullptr, nullptr, spare );
   EXPECT_EQ( text( adapter, "spare" ), "tree/oak" );
   perform( adapter, "spare", Kind::del );
   EXPECT_EQ( text( adapter, "spare" ), "none" );
   const Kel::GenericIf* to[] = { &two };
   perform( adapter, "reset", Kind::invoke, nullptr, nullptr, to );
   EXPECT_EQ( tree->number(), 2u );
   EXPECT_NE( thrown( [ & ] { perform( adapter, "reset", Kind::invoke ); } ), "nothing" );
   adapter->kelDoZombieReactors( true );
   EXPECT_TRUE( tree->isZombie() );
}

}
