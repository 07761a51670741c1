#include "FacetsTest.h"

#include <kel/AttrLog.h>
#include <kel/Dir.h>
#include <random>

// The attribute log: byte layouts, differences that bring a copy in step whatever was skipped, and bytes that are not to be
// trusted.

namespace {

using namespace Facets;
using Kel::Ptr;

std::string hex( std::span< const Kel::U8 > bytes ) {
   std::string out;
   for( const Kel::U8 b : bytes ) {
      char two[ 4 ];
      std::snprintf( two, sizeof two, "%02x", b );
      out += two;
   }
   return out;
}

TEST( AttrLogTest, TypedStreamsHaveOneLayout ) {
   Kel::LogOut out;
   const auto take = [ & ] {
      const std::string text = hex( out.bytes() );
      out.clear();
      return text;
   };
   const std::pair< Kel::U64, const char* > prefixed[] = {
      { 0, "00" }, { 127, "7f" }, { 128, "8080" }, { 0x3fff, "bfff" }, { 0x4000, "c04000" }, { 0x1fffff, "dfffff" },
      { 0xffffffff, "f0ffffffff" },
      { ( 1ull << 49 ) - 1, "fdffffffffffff" }, { ( 1ull << 56 ) - 1, "feffffffffffffff" },
      { 1ull << 56, "ff0100000000000000" }, { ~0ull, "ffffffffffffffffff" },
   };
   for( const auto& [ v, text ] : prefixed ) {
      out.u64( v );
      Kel::LogIn in( out.bytes() );
      EXPECT_EQ( in.u64(), v );
      EXPECT_EQ( take(), text );
   }
   out << Pair( 100, 5 );
   EXPECT_EQ( take(), "00640005" );
   out.f64( 1.5 );
   out.boolean( true );
   out.string( "ab" );
   out.s32( -1 );
   EXPECT_EQ( take(), "3ff8000000000000" "01" "026162" "01" );
   for( const std::vector< Kel::U8 >& bad : { std::vector< Kel::U8 >{ 0x80, 0x7f }, { 0xf8, 1, 0, 0, 0, 0 }, { 0xc0 }, {} } ) {
      Kel::LogIn in( bad );
      EXPECT_NE( thrown( [ & ] { in.u32(); } ), "nothing" ) << hex( bad );
   }
   const Kel::U8 outside[] = { 0x0f, 0xff };
   Kel::LogIn in( outside );
   EXPECT_EQ( thrown( [ & ] { Vid v( in ); } ), "Vid::value < 1 or > 4094 not allowed" );
}

TEST( AttrLogTest, DifferenceOfACollectionHasTheDocumentedBytes ) {
   const auto keyed = keyedFactory( 7 );
   keyed->hostIs( Host( 2, 5, 0 ) );
   keyed->attrLogIs( true );
   Kel::LogOut out;
   ASSERT_TRUE( keyed->attrLog()->take( out ) );
   EXPECT_FALSE( keyed->attrLog()->take( out ) );
   out.clear();
   keyed->hostIs( Host( 1, 9, 1.5 ) );
   keyed->hostIs( Host( 1, 10, 1.5 ) );
   keyed->hostDel( 2 );
   ASSERT_TRUE( keyed->attrLog()->take( out ) );
   EXPECT_EQ( hex( out.bytes() ), "0306" "0004" "000001" "00010a3ff8000000000000" "010002" "02" "ffff" );
}

/// Everything that an entity holds, as one text.
std::string dump( const Tree& tree ) {
   Kel::TextOut out;
   const auto put = [ & ]( const auto& v ) {
      Kel::print( Kel::typeOf< std::remove_cvref_t< decltype( v ) > >(), &v, out );
      out.append( ' ' );
   };
   put( tree.number() );
   put( tree.text() );
   put( tree.everything() );
   put( tree.favourite() ? tree.favourite()->name().stringValue() : Kel::String8() );
   put( tree.spare() ? tree.spare()->name().stringValue() : Kel::String8() );
   for( auto i = tree.pairsIterConst(); i; ++i ) put( i.key() ), put( i.value() );
   for( auto i = tree.wordsIterConst(); i; ++i ) put( i.key() );
   for( auto i = tree.rankedIterConst(); i; ++i ) put( i.key() ), put( i.value() );
   for( auto i = tree.leafIterConst(); i; ++i ) put( i.key() ), put( i.value()->nonce() );
   for( auto i = tree.peerIterConst(); i; ++i )
      put( i.key() ), put( i.value()->buddy() ? i.value()->buddy()->name().stringValue() : Kel::String8() );
   for( auto i = tree.linkedIterConst(); i; ++i ) put( i.key() ), put( i.value()->name().stringValue() );
   return out.str();
}

void changeSomething( Tree& tree, std::mt19937& random ) {
   const auto vid = Vid( static_cast< Kel::U16 >( 1 + random() % 20 ) );
   const Kel::Name name( "leaf" + std::to_string( random() % 5 ) );
   switch( random() % 13 ) {
   case 0: return tree.numberIs( static_cast< Kel::U32 >( random() ) );
   case 1: return tree.textIs( Kel::String8( std::to_string( random() % 9 ) ) );
   case 2: return void( tree.pairsIs( vid, Pair( vid, VidOrNone( static_cast< Kel::U16 >( random() % 9 ) ) ) ) );
   case 3: return void( tree.pairsDel( vid ) );
   case 4: return void( tree.wordsIs( name.stringValue(), true ) );
   case 5: return void( tree.wordsDel( name.stringValue() ) );
   case 6: return void( tree.rankedIs( static_cast< Kel::U32 >( random() % 9 ), Colour::blue ) );
   case 7: return void( tree.rankedDel( static_cast< Kel::U32 >( random() % 9 ) ) );
   case 8: return void( tree.leaf( name ) ? nullptr : tree.leafIs( name, static_cast< Kel::U32 >( random() % 2 ), 0 ) );
   case 9: return tree.favouriteIs( tree.leaf( name ) );
   case 10: return void( tree.leaf( name ) ? tree.linkedIs( vid, tree.leaf( name ) ) : nullptr );
   case 11: return void( random() % 2 ? tree.spareIs( name ) : tree.spareDel() );
   default: return tree.everythingIs( Everything() );
   }
}

// A copy gets differences at random times; one in three sends is lost, so that the next one since the last applied revision must
// hold it all.
TEST( AttrLogTest, DifferencesBringACopyInStep ) {
   for( unsigned seed = 0; seed < 40; ++seed ) {
      std::mt19937 random( seed );
      const auto tree = treeFactory( "tree" ), copy = treeFactory( "tree" );
      tree->attrLogIs( true );
      Kel::AttrLogProxy proxy( *copy );
      for( int step = 0; step < 300; ++step ) {
         changeSomething( *tree, random );
         if( random() % 8 ) continue;
         Kel::LogOut out;
         tree->attrLog()->difference( proxy.revision(), out );
         if( random() % 3 == 0 ) continue;
         Kel::LogIn in( out.bytes() );
         proxy.update( in );
         ASSERT_TRUE( in.atEnd() );
         ASSERT_EQ( dump( *copy ), dump( *tree ) ) << "seed " << seed << " step " << step;
      }
   }
}

TEST( AttrLogTest, ForgottenRemovalsSendTheCollectionAsAWhole ) {
   const auto tree = treeFactory( "tree" ), copy = treeFactory( "tree" );
   tree->attrLogIs( true );
   tree->wordsIs( "stays", true );
   Kel::AttrLogProxy proxy( *copy );
   const auto send = [ & ] {
      Kel::LogOut out;
      tree->attrLog()->difference( proxy.revision(), out );
      Kel::LogIn in( out.bytes() );
      proxy.update( in );
      return out.size();
   };
   const auto churn = [ & ]( std::size_t n ) {
      for( std::size_t i = 0; i < n; ++i ) tree->wordsIs( std::to_string( i ).c_str(), true );
      send();
      for( std::size_t i = 0; i < n; ++i ) tree->wordsDel( std::to_string( i ).c_str() );
   };
   churn( 100 );
   EXPECT_GT( send(), 200u );   // the keys that are gone
   churn( Kel::AttrLog::maxTombstones * 3 );
   EXPECT_LT( send(), 60u );    // the one that stays
   EXPECT_EQ( dump( *copy ), dump( *tree ) );
}

// A writer that has been restarted, with less than before and one child made anew.
TEST( AttrLogTest, WholeDifferenceReplacesWhatIsStaleAndLeavesTheRest ) {
   const auto tree = treeFactory( "tree" ), copy = treeFactory( "tree" );
   for( const auto& t : { tree, copy } ) {
      t->leafIs( "same", 1, 2 );
      t->leafIs( "other", t == tree ? 3 : 4, 5 );
      t->peerIs( "pair", t->leaf( "same" ) );
   }
   copy->leafIs( "stale", 1, 2 );
   copy->pairsIs( 9, Pair() );   // the sender has never had any
   copy->wordsIs( "stale", true );
   tree->wordsIs( "fresh", true );
   const auto same = copy->leaf( "same" );
   tree->attrLogIs( true );
   Kel::LogOut out;
   tree->attrLog()->difference( 0, out );
   Kel::LogIn in( out.bytes() );
   Kel::AttrLogProxy( *copy ).update( in );
   EXPECT_EQ( dump( *copy ), dump( *tree ) );
   EXPECT_EQ( copy->leaf( "same" ), same );
   EXPECT_FALSE( same->isZombie() );
   EXPECT_EQ( copy->peer( "pair" )->buddy(), same );
}

TEST( AttrLogTest, DirectoryLogsReferences ) {
   const auto root = Kel::dirFactory( "root" ), other = Kel::dirFactory( "root" );
   for( const auto& dir : { root, other } ) {
      for( const char* name : { "Ethernet3", "Ethernet3/2" } ) dir->entryIs( treeFactory( name ) );
   }
   const auto link = Kel::dirFactory( "link" );
   root->entryIs( link );
   root->entry< Kel::Dir >( "link" )->entryIs( "to", root->entry( "Ethernet3/2" ) );
   link->attrLogIs( true );
   other->entryIs( Kel::dirFactory( "link" ) );
   Kel::LogOut out;
   link->attrLog()->take( out );
   Kel::LogIn in( out.bytes() );
   const auto copy = other->entry< Kel::Dir >( "link" );
   Kel::AttrLogProxy( *copy ).update( in );
   EXPECT_EQ( copy->entry( "to" ), other->entry( "Ethernet3/2" ) );
}

TEST( AttrLogTest, ReadOnlyProxyAndForeignBytesAreRefused ) {
   const auto tree = treeFactory( "tree" ), copy = treeFactory( "tree" );
   tree->pairsIs( 3, Pair( 3, 4 ) );
   tree->leafIs( "oak", 1, 2 );
   tree->keyedIs( 4 );
   tree->peerIs( "pair", tree->leaf( "oak" ) );
   tree->peerIs( "alone", nullptr );
   tree->linkedIs( 5, tree->leaf( "oak" ) );
   tree->recentEnq( 8 );
   tree->spareIs( "spare" );
   tree->attrLogIs( true );
   Kel::LogOut out;
   tree->attrLog()->difference( 0, out );
   Kel::LogIn readOnly( out.bytes() );
   EXPECT_EQ( thrown< Kel::FrameworkException >( [ & ] { Kel::AttrLogProxy( *copy, true ).update( readOnly ); } ),
              "write-update from readonly proxy: number" );
   const std::vector< Kel::U8 > good( out.bytes().begin(), out.bytes().end() );
   std::mt19937 random( 3 );
   for( int i = 0; i < 20000; ++i ) {
      auto bytes = good;
      if( i < static_cast< int >( good.size() ) ) bytes.resize( static_cast< std::size_t >( i ) );
      else for( auto n = 1 + random() % 3; n; --n ) bytes[ random() % bytes.size() ] = static_cast< Kel::U8 >( random() );
      Kel::LogIn in( bytes );
      try {
         Kel::AttrLogProxy( *treeFactory( "tree" ) ).update( in );
      } catch( const Kel::Exception& ) {
      }
   }
}

}
