#include <kel/Path.h>

namespace Kel {

namespace {

// A name may hold slashes itself ("Ethernet3/2"), so where a short name is not there, longer ones are tried; not all of a path that
// somebody has made long.
constexpr int mostSlashes = 16;

Ptr< Entity > step( const Ptr< Entity >& from, std::string_view& path ) {
   std::size_t slash = path.find( '/' );
   for( int slashes = 0; slashes <= mostSlashes; ++slashes, slash = path.find( '/', slash + 1 ) ) {
      const std::string_view name = path.substr( 0, slash );
      if( const Ptr< Entity > found = from->child( Name( name ) ) ) {
         path = slash == std::string_view::npos ? std::string_view() : path.substr( slash + 1 );
         return found;
      }
      if( slash == std::string_view::npos ) break;
   }
   return nullptr;
}

}

Ptr< Entity > entityAtPath( const Ptr< Entity >& from, std::string_view path ) {
   Ptr< Entity > at = from;
   while( at && !path.empty() ) {
      if( path.front() == '/' ) path.remove_prefix( 1 );
      else at = step( at, path );
   }
   return at;
}

Ptr< Entity > entityAtFullName( const Entity& inTree, std::string_view fullName ) {
   const Entity* root = &inTree;
   while( root->parent() ) root = root->parent();
   const std::string_view rootName = root->name().view();
   if( fullName == rootName ) return const_cast< Entity* >( root );
   if( !fullName.starts_with( rootName ) || fullName[ rootName.size() ] != '/' ) return nullptr;
   return entityAtPath( Ptr< Entity >( const_cast< Entity* >( root ) ), fullName.substr( rootName.size() + 1 ) );
}

}
