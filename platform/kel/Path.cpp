#include <kel/Path.h>

#include <algorithm>
#include <vector>

namespace Kel {

namespace {

// A name may hold slashes itself ("Ethernet3/2"), so there are several ways to divide a path into names. They are tried as in a
// maze, by one list of the places on the way: each entity there has its next longer name tried once the shorter ones have led
// nowhere. The first way that is tried takes the shortest name everywhere.

// How many slashes a name may hold: not all of a path that somebody has made long.
constexpr int mostSlashes = 16;
// There can be exponentially many ways. What a search takes up of the path, over and over, is at most this times its length: one
// entity for each place of the path, without success, comes to 1 + 2 + ... + 17 times.
constexpr U64 mostTimes = 256;

class Search {
 public:
   /// `hasDots`: whether "..", "." and empty names have their meanings.
   Search( std::string_view path, bool hasDots ) : path_( path ), hasDots_( hasDots ), left_( mostTimes * ( path.size() + 1 ) ) {}

   /// Follows the names from `begin` on. There is none behind the end of the path, and an empty one at it.
   Ptr< Entity > from( Ptr< Entity > at, std::size_t begin ) {
      for( ;; ) {
         if( hasDots_ ) skipDots( at, begin );
         if( at && begin > path_.size() ) return at;
         if( at ) places_.push_back( { at, begin, begin } );
         if( !step( at, begin ) ) return nullptr;
      }
   }

 private:
   struct Place {
      Ptr< Entity > at;
      /// Where its names begin, and where to look for the end of the next one.
      std::size_t begin, next;
      int names = 0;
   };

   /// Tries the names that are left, those of the last place first. False when there are no more.
   bool step( Ptr< Entity >& at, std::size_t& begin ) {
      while( !places_.empty() ) {
         Place& place = places_.back();
         const std::string_view name = nameAt( place.begin, place.next );
         if( !take( name ) ) return false;
         at = place.at->child( Name( name ) );
         begin = place.next = place.begin + name.size() + 1;
         if( ++place.names > mostSlashes || place.next > path_.size() ) places_.pop_back();
         if( at ) return true;
      }
      return false;
   }
   void skipDots( Ptr< Entity >& at, std::size_t& begin ) {
      while( at && begin <= path_.size() ) {
         const std::string_view name = nameAt( begin, begin );
         if( name == ".." ) at = at->parent();
         else if( !name.empty() && name != "." ) return;
         begin += name.size() + 1;
         if( !take( name ) ) at = nullptr;
      }
   }
   /// The name that ends at the first slash behind `from`.
   std::string_view nameAt( std::size_t begin, std::size_t from ) const {
      return path_.substr( begin, std::min( path_.find( '/', from ), path_.size() ) - begin );
   }
   bool take( std::string_view name ) {
      const bool isLeft = name.size() < left_;
      left_ = isLeft ? left_ - name.size() - 1 : 0;
      return isLeft;
   }

   const std::string_view path_;
   const bool hasDots_;
   U64 left_;
   std::vector< Place > places_;
};

Ptr< Entity > rootOf( const Entity& inTree ) {
   const Entity* root = &inTree;
   while( root->parent() ) root = root->parent();
   return const_cast< Entity* >( root );
}

}

Ptr< Entity > entityAtPath( const Ptr< Entity >& from, std::string_view path ) {
   return Search( path, true ).from( from && path.starts_with( '/' ) ? rootOf( *from ) : from, 0 );
}

Ptr< Entity > entityAtFullName( const Entity& inTree, std::string_view fullName ) {
   const Ptr< Entity > root = rootOf( inTree );
   const std::string_view rootName = root->name().view();
   if( !fullName.starts_with( rootName ) ) return nullptr;
   if( fullName.size() > rootName.size() && fullName[ rootName.size() ] != '/' ) return nullptr;
   return Search( fullName, false ).from( root, rootName.size() + 1 );
}

}
