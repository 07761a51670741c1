#include <kel/Exception.h>
#include <quor/TextForm.h>

namespace Quor::Detail {

void refuseText( std::string_view what, std::string_view text, std::string_view expected ) {
   constexpr std::size_t most = 64;
   std::string message( what );
   message += " '";
   for( char c : text.substr( 0, most ) ) {
      const auto byte = static_cast< unsigned char >( c );
      if( byte >= 0x20 && byte < 0x7f ) {
         message += c;
      } else {
         message += "\\x";
         message += hexDigits[ byte >> 4 ];
         message += hexDigits[ byte & 15 ];
      }
   }
   message += text.size() > most ? "...' is not valid: expected " : "' is not valid: expected ";
   message += expected;
   throw Kel::RangeException( message );
}

}
