#pragma once

#include <initializer_list>
#include <kel/Exception.h>
#include <kel/LogStream.h>
#include <string>

/// The text of the range exception that `action` throws; "nothing" when it throws none.
template< class Action >
std::string refusal( const Action& action ) {
   try {
      action();
   } catch( const Kel::RangeException& e ) {
      return e.what();
   }
   return "nothing";
}

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
