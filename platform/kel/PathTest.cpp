#include "FacetsTest.h"

#include <functional>
#include <kel/Dir.h>
#include <kel/Path.h>

// Paths and full names: what dots mean, names that hold slashes themselves, and trees made to search them for ever.

namespace {

using namespace Facets;
using Kel::Entity;
using Kel::Ptr;

std::string repeated( int times, const std::string& text ) {
   std::string out;
   while( times-- > 0 ) out += text;
   return out;
}

/// Where a path leads, or "".
std::string leadsTo( const Ptr< Entity >& from, const std::string& path ) {
   const auto found = Kel::entityAtPath( from, path );
   return found ? found->fullName().str() : "";
}

TEST( PathTest, LeadsThroughTheTree ) {
   const auto tree = treeFactory( "tree" );
   const Ptr< Entity > keyed = tree->keyedIs( 12 );
   for( const char* name : { "Ethernet3", "Ethernet3/2", "Ethernet4/2", "", ".", ".." } ) {
      const auto leaf = tree->leafIs( name, 1, 2 );
      EXPECT_EQ( Kel::entityAtFullName( *keyed, leaf->fullName() ), leaf );
   }
   const struct {
      Ptr< Entity > from;
      const char *path, *fullName;
   } paths[] = {
      { tree, "Ethernet3", "tree/Ethernet3" },
      { tree, "Ethernet3/2", "tree/Ethernet3/2" },
      { tree, "Ethernet3/2/", "tree/Ethernet3/2" },
      { tree, "Ethernet3/../Ethernet3/2/..", "tree" },
      { tree, "Ethernet3/3", "" },
      { tree, "Ethernet4", "" },
      { keyed, "", "tree/12" },
      { keyed, "/12//./", "tree/12" },
      { keyed, "/", "tree" },
      { keyed, "..12", "" },
      { keyed, ".././Ethernet4/2/..//12", "tree/12" },
      { keyed, "../../12", "" },
      { nullptr, "/..", "" },
      { nullptr, "", "" },
   };
   for( const auto& [ from, path, fullName ] : paths ) EXPECT_EQ( leadsTo( from, path ), fullName ) << path;
   for( const char* absent : { "", "tre", "tree.12", "tree/12/..", "tree/12/", "tree/13", "tree//", "tree/Ethernet3/3" } ) {
      EXPECT_FALSE( Kel::entityAtFullName( *keyed, absent ) ) << absent;
   }
   EXPECT_EQ( thrown< Kel::FrameworkException >( [ & ] { Kel::entityAtPath< Leaf >( tree, "12" ); } ),
              "Entity is the wrong type" );
}

Ptr< Kel::Dir > dirIn( const Ptr< Kel::Dir >& dir, const std::string& name ) {
   dir->entryIs( Kel::dirFactory( Kel::Name( name ) ) );
   return dir->entry< Kel::Dir >( Kel::Name( name ) );
}

TEST( PathTest, GoesBackWhereAShorterNameLeadsNowhere ) {
   const auto root = Kel::dirFactory( "r" );
   const auto x = dirIn( root, "x" ), xy = dirIn( root, "x/y" );
   const auto y = dirIn( x, "y" ), yz = dirIn( x, "y/z" ), z = dirIn( xy, "z" );
   const std::string sixteen = repeated( 16, "n/" ) + "n";
   const auto slashes = dirIn( root, sixteen );
   const struct {
      Ptr< Kel::Dir > found;
      std::string name;
   } rows[] = {
      { y, "x/y" },                     // the name of `xy` too
      { yz, "x/y/z" },                  // and this one of `z`
      { dirIn( z, "w" ), "x/y/z/w" },   // back from `y`, from `yz` and from `x`
      { dirIn( root, "n" ), "n" },
      { dirIn( root, "n/n" ), "n/n" },
      { dirIn( root, "n/n/n/n" ), "n/n/n/n" },
      { slashes, sixteen },
      { dirIn( slashes, sixteen ), sixteen + "/" + sixteen },
      { nullptr, "n/n/n" },
   };
   dirIn( root, sixteen + "/n" );   // one slash more than names that are found may hold
   for( const auto& [ found, name ] : rows ) {
      EXPECT_EQ( Kel::entityAtFullName( *z, "r/" + name ), found ) << name;
      EXPECT_EQ( Kel::entityAtPath( z, "/" + name ), found ) << name;
      EXPECT_EQ( Kel::entityAtPath( root, name ), found ) << name;
   }
   EXPECT_FALSE( Kel::entityAtPath( root, sixteen + "/n" ) );
   EXPECT_EQ( Kel::entityAtPath( root, "x/y/z/w/../.." ), xy );
}

/// Has the children that a function says, and counts what is looked up.
struct Maze : Entity {
   explicit Maze( std::function< Entity*( Maze&, std::string_view ) > c ) : Entity( "maze" ), children( std::move( c ) ) {}
   Ptr< Entity > child( const Kel::Name& name ) const override {
      ++lookUps;
      bytes += name.bytes() + 1;
      return children( const_cast< Maze& >( *this ), name.view() );
   }
   const std::function< Entity*( Maze&, std::string_view ) > children;
   mutable std::size_t lookUps = 0, bytes = 0;
};

/// An end that is not there behind ways that are exponentially many. Both are given up, whatever there is between the names.
TEST( PathTest, HostileTreesEndTheSearch ) {
   for( const int dots : { 0, 5000 } ) {
      const std::string path = repeated( 21, "a/" ) + repeated( dots, "./" ) + "x";
      const auto maze = Kel::makePtr< Maze >( []( Maze& self, std::string_view name ) {
         return name.find_first_not_of( "a/" ) == name.npos ? &self : nullptr;
      } );
      EXPECT_FALSE( Kel::entityAtPath( maze, path ) );
      EXPECT_LE( maze->bytes, 256 * ( path.size() + 1 ) );
      EXPECT_GT( maze->lookUps, 500u );
      EXPECT_LT( maze->lookUps, 10000u );
   }
}

// The first name leads into a dead end as long as the path, at each place of which all the longer names are tried.
TEST( PathTest, GoesBackFromTheEndOfALongPath ) {
   const int length = 100000;
   const auto only = []( Maze& self, std::string_view name ) { return name == "a" ? &self : nullptr; };
   const auto dead = Kel::makePtr< Maze >( only );
   const auto last = Kel::makePtr< Maze >( only );
   const auto way = Kel::makePtr< Maze >( [ & ]( Maze& self, std::string_view name ) -> Entity* {
      return name == "x" ? last.ptr() : only( self, name );
   } );
   const auto root = Kel::makePtr< Maze >( [ & ]( Maze&, std::string_view name ) -> Entity* {
      return name == "a" ? dead.ptr() : name == "a/a" ? way.ptr() : nullptr;
   } );
   const std::string path = repeated( length, "a/" ) + "x";
   EXPECT_EQ( Kel::entityAtFullName( *root, "maze/" + path ), last );
   EXPECT_EQ( dead->lookUps, 17u * length - 16 * 17 / 2 );
   EXPECT_EQ( way->lookUps, length - 2 + 1u );
}

}
