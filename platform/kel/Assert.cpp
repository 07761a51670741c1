#include <kel/Assert.h>

#include <cstdio>
#include <cstdlib>

namespace Kel {

void assertFailed( const char* source, const char* function, const char* text ) noexcept {
   std::fprintf( stderr, "%s: %s: assertion \"%s\" failed\n", source, function, text );
   std::abort();
}

}
