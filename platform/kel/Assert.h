#pragma once

namespace [[gnu::visibility("default")]] Kel {

/// Prints `SOURCE: FUNCTION: assertion "TEXT" failed` on standard error and aborts.
[[noreturn, gnu::cold]] void assertFailed( const char* source, const char* function, const char* text ) noexcept;

}

/// Stops the process when `expression` is false; the expression's own spelling is the text. `source` names the component,
/// for example "Kel/BitSet". Active in every build.
#define KEL_ASSERT( source, ... ) \
   ( ( __VA_ARGS__ ) ? static_cast< void >( 0 ) : ::Kel::assertFailed( source, __func__, #__VA_ARGS__ ) )
