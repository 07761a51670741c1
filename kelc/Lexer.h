#pragma once

#include "Diagnostics.h"

#include <vector>

namespace Kelc {

enum class TokenKind { end, word, integer, real, text, mark };

/// One token. A word is an identifier or a word of the language; which one, only its place tells.
struct Token {
   TokenKind kind = TokenKind::end;
   Span span;
   std::string_view spelling;
   std::uint64_t number = 0;  ///< of an integer
   double real = 0;           ///< of a real number
   std::string text;          ///< of a text: its bytes without quotes and escapes
   std::string doc;           ///< the `///` lines directly before the token, joined by line ends

   bool is( std::string_view s ) const { return ( kind == TokenKind::word || kind == TokenKind::mark ) && spelling == s; }
};

/// Splits a source into tokens; the last one has the kind `end`. Takes any bytes: what is no token is reported and skipped.
std::vector< Token > lex( const Source& source, Diagnostics& diagnostics );

}
