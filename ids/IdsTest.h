#pragma once

#include <initializer_list>
#include <kel/LogStream.h>
#include <kel/ThrownTest.h>

/// The bytes of a value in the attribute log.
template< class T >
std::string logged( const T& value ) {
   Kel::LogOut out;
   out << value;
   return { reinterpret_cast< const char* >( out.bytes().data() ), out.size() };
}

/// Bytes as they stand in a stream.
inline std::string bytes( std::initializer_list< int > of ) {
   std::string out;
   for( int b : of ) out += static_cast< char >( b );
   return out;
}
