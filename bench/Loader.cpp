#include "Child.h"

#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <kel/Registry.h>
#include <unistd.h>

// Loads one library, once, and reports how many nanoseconds that took. The platform's libraries are there from the start.
int main( int argc, char** argv ) {
   if( argc != 3 || ( std::strcmp( argv[ 2 ], "on" ) && std::strcmp( argv[ 2 ], "off" ) ) ) {
      std::fprintf( stderr, "usage: vanta-bench-load LIBRARY on|off    (introspection)\n" );
      return 2;
   }
   Kel::IntrospectionReactor::instanceIs( !std::strcmp( argv[ 2 ], "on" ) );
   const Kel::U64 begin = Bench::now();
   const void* library = dlopen( argv[ 1 ], RTLD_NOW | RTLD_GLOBAL );
   const Bench::Report report{ Bench::now() - begin, begin };
   if( !library ) {
      std::fprintf( stderr, "vanta-bench-load: %s\n", dlerror() );
      return 1;
   }
   return write( STDOUT_FILENO, &report, sizeof report ) == sizeof report ? 0 : 1;
}
