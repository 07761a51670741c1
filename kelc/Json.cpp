#include "Json.h"

#include <cstdio>

namespace Kelc {

namespace {

// The length of the well-formed UTF-8 sequence at the beginning of `s`, or 0. Table 3-7 of the Unicode standard.
std::size_t sequenceLength( std::string_view s ) {
   auto byte = [ & ]( std::size_t i ) { return i < s.size() ? static_cast< unsigned char >( s[ i ] ) : 0u; };
   auto isTail = [ & ]( std::size_t i ) { return ( byte( i ) & 0xc0 ) == 0x80; };
   const unsigned first = byte( 0 ), second = byte( 1 );
   if( first < 0x80 ) return 1;
   if( first >= 0xc2 && first <= 0xdf ) return isTail( 1 ) ? 2 : 0;
   if( first >= 0xe0 && first <= 0xef ) {
      const bool good = isTail( 1 ) && isTail( 2 ) && ( first != 0xe0 || second >= 0xa0 ) && ( first != 0xed || second < 0xa0 );
      return good ? 3 : 0;
   }
   if( first < 0xf0 || first > 0xf4 || !isTail( 1 ) || !isTail( 2 ) || !isTail( 3 ) ) return 0;
   return ( first != 0xf0 || second >= 0x90 ) && ( first != 0xf4 || second < 0x90 ) ? 4 : 0;
}

}

void JsonWriter::member( std::string_view key ) {
   if( !out_.empty() ) out_ += empty_ ? "\n" : ",\n";
   out_.append( depth_ * 2, ' ' );
   if( !key.empty() ) string( key ), out_ += ": ";
   empty_ = false;
}

void JsonWriter::begin( std::string_view key, char bracket ) {
   member( key );
   out_ += bracket;
   ++depth_;
   empty_ = true;
}

void JsonWriter::end( char bracket ) {
   --depth_;
   if( !empty_ ) out_ += '\n', out_.append( depth_ * 2, ' ' );
   out_ += bracket;
   empty_ = false;
}

void JsonWriter::text( std::string_view key, std::string_view value ) {
   member( key );
   string( value );
}

void JsonWriter::number( std::string_view key, unsigned long long value ) {
   member( key );
   out_ += std::to_string( value );
}

void JsonWriter::boolean( std::string_view key, bool value ) {
   member( key );
   out_ += value ? "true" : "false";
}

void JsonWriter::string( std::string_view value ) {
   out_ += '"';
   while( !value.empty() ) {
      const std::size_t length = sequenceLength( value );
      const char c = value[ 0 ];
      if( length == 0 ) out_ += "\xef\xbf\xbd";
      else if( c == '"' || c == '\\' ) out_ += '\\', out_ += c;
      else if( c == '\n' ) out_ += "\\n";
      else if( length == 1 && static_cast< unsigned char >( c ) < 0x20 ) {
         char escape[ 8 ];
         std::snprintf( escape, sizeof escape, "\\u%04x", static_cast< unsigned >( c ) );
         out_ += escape;
      } else out_ += value.substr( 0, length );
      value.remove_prefix( length ? length : 1 );
   }
   out_ += '"';
}

}
