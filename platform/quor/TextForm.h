#pragma once

#include <kel/String8.h>
#include <ostream>
#include <string>
#include <string_view>

// What the texts of addresses and identifiers have in common: a type `T` with `maxText`, `print` and `parse`. For the sources of
// this library only.
namespace Quor::Detail {

/// Throws `Kel::RangeException`: "WHAT 'TEXT' is not valid: expected EXPECTED". The text is cut when it is long, and what can't
/// be printed stands in it as \xNN.
[[noreturn, gnu::cold]] void refuseText( std::string_view what, std::string_view text, std::string_view expected );

template< class T >
Kel::String8 displayForm( const T& value ) {
   char buffer[ T::maxText ];
   return std::string_view( buffer, value.print( buffer ) - buffer );
}

template< class T >
std::ostream& writeQuoted( std::ostream& out, const T& value ) {
   char buffer[ T::maxText + 2 ];
   buffer[ 0 ] = '\'';
   char* end = value.print( buffer + 1 );
   *end++ = '\'';
   return out << std::string_view( buffer, end - buffer );
}

/// Reads a value that is the whole of `text`.
template< class T >
bool parseWhole( std::string_view text, T& out ) noexcept {
   const char* from = text.data();
   const char* to = from + text.size();
   T value;
   if( !T::parse( from, to, value ) || from != to ) return false;
   out = value;
   return true;
}

/// The value of a hexadecimal digit, or -1.
constexpr int hexValue( char c ) noexcept {
   if( c >= '0' && c <= '9' ) return c - '0';
   if( c >= 'a' && c <= 'f' ) return c - 'a' + 10;
   if( c >= 'A' && c <= 'F' ) return c - 'A' + 10;
   return -1;
}

inline constexpr char hexDigits[] = "0123456789abcdef";

}
