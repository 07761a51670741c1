#include <kel/Path.h>

namespace Kel {

Ptr< Entity > entityAtPath( const Ptr< Entity >& from, std::string_view path ) {
   Ptr< Entity > at = from;
   while( at && !path.empty() ) {
      const std::size_t slash = path.find( '/' );
      const std::string_view name = path.substr( 0, slash );
      path = slash == std::string_view::npos ? std::string_view() : path.substr( slash + 1 );
      if( !name.empty() ) at = at->child( Name( name ) );
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
