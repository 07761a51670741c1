#include "Markdown.h"

#include <algorithm>

namespace Kelc {

std::string prose( std::string_view text, const char* gap ) {
   std::string out;
   for( std::size_t i = 0; i < text.size(); ++i ) {
      const char c = text[ i ];
      if( c == '\n' ) {
         const std::size_t lines = std::min( text.find_first_not_of( '\n', i ), text.size() ) - i;
         out += lines == 1 ? " " : i + lines == text.size() ? "" : gap;
         i += lines - 1;
      } else if( c == '|' || c == '<' || c == '*' || c == '\\' ) out += '\\', out += c;
      else out += c;
   }
   return out;
}

std::string code( std::string_view text ) {
   std::string out = "`";
   for( const char c : text ) out += c == '|' ? '/' : c == '`' ? '\'' : c;
   return text.empty() ? "" : out + "`";
}

std::string_view firstSentence( std::string_view text ) {
   text = text.substr( 0, text.find( "\n\n" ) );
   const auto end = std::min( text.find( ". " ), text.find( ".\n" ) );
   return end == text.npos ? text : text.substr( 0, end + 1 );
}

}
