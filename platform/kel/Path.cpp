#include <kel/Path.h>

#include <algorithm>

namespace Kel {

namespace {

// A name may hold slashes itself ("Ethernet3/2"), so where a short name is not there, longer ones are tried; not all of a path that
// somebody has made long.
constexpr int mostSlashes = 16;

/// Follows the first name of the path, and takes it from there.
Ptr< Entity > step( const Ptr< Entity >& from, std::string_view& path ) {
   std::size_t slash = path.find( '/' );
   for( int slashes = 0; slashes <= mostSlashes; ++slashes, slash = path.find( '/', slash + 1 ) ) {
      const std::string_view name = path.substr( 0, slash );
      if( const Ptr< Entity > found = from->child( Name( name ) ) ) {
         path.remove_prefix( name.size() );
         return found;
      }
      if( slash == std::string_view::npos ) break;
   }
   return nullptr;
}

/// Takes `name` from the beginning of the path where it is the first name there.
bool take( std::string_view& path, std::string_view name ) {
   if( path.substr( 0, path.find( '/' ) ) != name ) return false;
   path.remove_prefix( std::min( name.size() + 1, path.size() ) );
   return true;
}

Ptr< Entity > rootOf( const Entity& inTree ) {
   const Entity* root = &inTree;
   while( root->parent() ) root = root->parent();
   return const_cast< Entity* >( root );
}

}

Ptr< Entity > entityAtPath( const Ptr< Entity >& from, std::string_view path ) {
   Ptr< Entity > at = from && path.starts_with( '/' ) ? rootOf( *from ) : from;
   while( at && !path.empty() ) {
      if( take( path, "" ) || take( path, "." ) ) continue;
      at = take( path, ".." ) ? Ptr< Entity >( at->parent() ) : step( at, path );
   }
   return at;
}

Ptr< Entity > entityAtFullName( const Entity& inTree, std::string_view fullName ) {
   Ptr< Entity > at = rootOf( inTree );
   const std::string_view rootName = at->name().view();
   if( !fullName.starts_with( rootName ) ) return nullptr;
   fullName.remove_prefix( rootName.size() );
   if( !fullName.empty() && fullName.front() != '/' ) return nullptr;
   while( at && !fullName.empty() ) {
      fullName.remove_prefix( 1 );
      at = step( at, fullName );
   }
   return at;
}

}
