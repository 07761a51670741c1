#include <cstdio>
#include <dlfcn.h>
#include <kel/Registry.h>

// vanta_loader LIBRARY: loads a library of types that it is not linked with, lets it go and loads it again; exit status 0 when
// all went well and the types that the first load registered can still be used.
int main( int, char** argv ) {
   const Kel::TypeRegistry& registry = Kel::TypeRegistry::instance();
   const std::size_t before = registry.types().size();
   std::size_t registered = 0;
   for( int round = 0; round < 2; ++round ) {
      void* library = dlopen( argv[ 1 ], RTLD_NOW | RTLD_LOCAL );
      if( !library ) {
         std::fprintf( stderr, "vanta_loader: %s\n", dlerror() );
         return 1;
      }
      const std::size_t now = registry.types().size();
      if( round == 0 ) registered = now;
      if( now <= before || now != registered ) return 2;
      const auto status = registry.newEntity( "Bridging::Status", Kel::Name( "loaded" ) );
      if( dlclose( library ) != 0 || status->fwkType().qualifiedName() != "Bridging::Status" ) return 3;
      for( const Kel::Type* type : registry.types() ) {
         if( registry.type( type->qualifiedName() ) != type ) return 4;
      }
   }
   return 0;
}
