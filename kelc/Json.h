#pragma once

#include <string>
#include <string_view>

namespace Kelc {

/// Writes indented JSON, member by member. Bytes that are no UTF-8 come out as U+FFFD, so that the output is always valid.
class JsonWriter {
 public:
   void beginObject( std::string_view key = {} ) { begin( key, '{' ); }
   void endObject() { end( '}' ); }
   void beginArray( std::string_view key = {} ) { begin( key, '[' ); }
   void endArray() { end( ']' ); }
   void text( std::string_view key, std::string_view value );
   void number( std::string_view key, unsigned long long value );
   void boolean( std::string_view key, bool value );
   /// Writes the member only when there is something to say.
   void textIf( std::string_view key, std::string_view value ) {
      if( !value.empty() ) text( key, value );
   }
   void trueIf( std::string_view key, bool value ) {
      if( value ) boolean( key, true );
   }
   std::string str() && { return std::move( out_ ) + "\n"; }

 private:
   void begin( std::string_view key, char bracket );
   void end( char bracket );
   void member( std::string_view key );
   void string( std::string_view value );

   std::string out_;
   std::size_t depth_ = 0;
   bool empty_ = true;
};

}
