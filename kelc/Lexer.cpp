// One pass over the bytes. Every loop consumes at least one byte, so the pass ends on any input. Comments and white space are
// dropped, except that `///` lines are kept as the documentation of the token that follows them.
#include "Lexer.h"

#include <cerrno>
#include <cstdlib>
#include <utility>

namespace Kelc {

namespace {

bool isWordStart( char c ) {
   return ( c >= 'a' && c <= 'z' ) || ( c >= 'A' && c <= 'Z' ) || c == '_';
}

bool isDigit( char c ) {
   return c >= '0' && c <= '9';
}

bool isWordPart( char c ) {
   return isWordStart( c ) || isDigit( c );
}

int hexDigit( char c ) {
   if( isDigit( c ) ) return c - '0';
   if( c >= 'a' && c <= 'f' ) return c - 'a' + 10;
   if( c >= 'A' && c <= 'F' ) return c - 'A' + 10;
   return -1;
}

class Lexer {
 public:
   Lexer( const Source& source, Diagnostics& diagnostics )
       : source_( source ), text_( source.text() ), diagnostics_( diagnostics ) {}

   std::vector< Token > run() {
      for( ;; ) {
         skipBlanks();
         Token token;
         const std::size_t begin = at_;
         if( at_ < text_.size() && !scan( token ) ) continue;
         token.span = span( begin );
         token.spelling = text_.substr( begin, at_ - begin );
         token.doc = std::exchange( doc_, {} );
         tokens_.push_back( std::move( token ) );
         if( tokens_.back().kind == TokenKind::end ) return std::move( tokens_ );
      }
   }

 private:
   char peek( std::size_t n = 0 ) const { return at_ + n < text_.size() ? text_[ at_ + n ] : '\0'; }
   Span span( std::size_t begin ) const {
      return { &source_, static_cast< std::uint32_t >( begin ), static_cast< std::uint32_t >( at_ ) };
   }

   bool scan( Token& token ) {
      const char c = peek();
      if( isWordStart( c ) ) return word( token );
      if( isDigit( c ) ) return number( token );
      if( c == '"' ) return quotedText( token );
      return mark( token );
   }

   bool word( Token& token ) {
      while( isWordPart( peek() ) ) ++at_;
      token.kind = TokenKind::word;
      return true;
   }

   void skipBlanks();
   void lineComment();
   void blockComment();
   bool number( Token& token );
   bool quotedText( Token& token );
   bool escape( std::string& out );
   bool mark( Token& token );

   const Source& source_;
   std::string_view text_;
   Diagnostics& diagnostics_;
   std::size_t at_ = 0;
   std::string doc_;
   std::vector< Token > tokens_;
};

void Lexer::skipBlanks() {
   for( ;; ) {
      const char c = peek();
      if( at_ < text_.size() && ( c == ' ' || c == '\t' || c == '\n' || c == '\r' ) ) ++at_;
      else if( c == '/' && peek( 1 ) == '/' ) lineComment();
      else if( c == '/' && peek( 1 ) == '*' ) blockComment();
      else return;
   }
}

// `///` documents what follows it; `////` and more is a ruler, not documentation.
void Lexer::lineComment() {
   const auto end = std::min( text_.find( '\n', at_ ), text_.size() );
   auto comment = text_.substr( at_, end - at_ );
   at_ = end;
   if( !comment.starts_with( "///" ) || comment.starts_with( "////" ) ) return;
   comment.remove_prefix( 3 );
   if( comment.starts_with( ' ' ) ) comment.remove_prefix( 1 );
   while( !comment.empty() && ( comment.back() == ' ' || comment.back() == '\r' || comment.back() == '\t' ) )
      comment.remove_suffix( 1 );
   if( !doc_.empty() ) doc_ += '\n';
   for( const char c : comment ) doc_ += static_cast< unsigned char >( c ) < 0x20 ? ' ' : c;
}

void Lexer::blockComment() {
   const std::size_t begin = at_;
   const auto end = text_.find( "*/", at_ + 2 );
   at_ = end == std::string_view::npos ? text_.size() : end + 2;
   if( end != std::string_view::npos ) return;
   Span opening = span( begin );
   opening.end = opening.begin + 2;
   diagnostics_.error( opening, "this comment never ends: expected */" );
}

// Decimal and 0x integers; a real number has a digit on either side of its point, so that 1..5 stays a range.
bool Lexer::number( Token& token ) {
   const std::size_t begin = at_;
   token.kind = TokenKind::integer;
   while( isWordPart( peek() ) ) ++at_;
   const auto first = text_.substr( begin, at_ - begin );
   if( peek() == '.' && isDigit( peek( 1 ) ) && !first.starts_with( "0x" ) ) {
      token.kind = TokenKind::real;
      for( ++at_; isWordPart( peek() ) || ( ( peek() == '-' || peek() == '+' ) && ( text_[ at_ - 1 ] | 0x20 ) == 'e' ); ) ++at_;
   }
   const std::string digits( text_.substr( begin, at_ - begin ) );
   char* end = nullptr;
   errno = 0;
   if( token.kind == TokenKind::real ) token.real = std::strtod( digits.c_str(), &end );
   else token.number = std::strtoull( digits.c_str(), &end, digits.starts_with( "0x" ) ? 16 : 10 );
   if( end != digits.c_str() + digits.size() || ( digits.size() == 2 && digits == "0x" ) ) {
      diagnostics_.error( span( begin ),
                          quoted( digits ) +
                             " is no number: expected digits, 0x and hexadecimal digits, or digits with a point" );
   } else if( errno == ERANGE ) {
      diagnostics_.error( span( begin ), quoted( digits ) + " does not fit in 64 bits" );
   }
   return true;
}

bool Lexer::escape( std::string& out ) {
   const char c = peek( 1 );
   const std::size_t begin = at_;
   at_ += 2;
   switch( c ) {
   case 'n': out += '\n'; return true;
   case 't': out += '\t'; return true;
   case '"':
   case '\\': out += c; return true;
   case 'x':
      if( hexDigit( peek() ) >= 0 && hexDigit( peek( 1 ) ) >= 0 ) {
         out += static_cast< char >( hexDigit( peek() ) * 16 + hexDigit( peek( 1 ) ) );
         at_ += 2;
         return true;
      }
      break;
   default: break;
   }
   at_ = std::min( at_, text_.size() );
   diagnostics_.error( span( begin ), "unknown escape in a text: expected \\\\, \\\", \\n, \\t or \\xNN" );
   return true;
}

bool Lexer::quotedText( Token& token ) {
   const std::size_t begin = at_++;
   token.kind = TokenKind::text;
   for( ;; ) {
      const char c = peek();
      if( at_ >= text_.size() || c == '\n' ) {
         diagnostics_.error( span( begin ), "this text does not end on its line: expected \"" );
         return true;
      }
      if( c == '"' ) return ++at_, true;
      if( c == '\\' && at_ + 1 < text_.size() && peek( 1 ) != '\n' ) escape( token.text );
      else token.text += c, ++at_;
   }
}

bool Lexer::mark( Token& token ) {
   token.kind = TokenKind::mark;
   for( const std::string_view two : { "::", "..", "->" } ) {
      if( text_.substr( at_ ).starts_with( two ) ) return at_ += 2, true;
   }
   if( std::string_view( ";:{}(),.=-" ).find( peek() ) != std::string_view::npos && peek() ) return ++at_, true;
   const std::size_t begin = at_;
   auto isStray = [ this ] {
      const char c = peek();
      return at_ < text_.size() && !isWordPart( c ) &&
             std::string_view( ";:{}(),.=-\"/ \t\n\r" ).find( c ) == std::string_view::npos;
   };
   do ++at_;
   while( isStray() );
   diagnostics_.error( span( begin ), quoted( text_.substr( begin, at_ - begin ) ) + " is not part of the definition language" );
   return false;
}

}

std::vector< Token > lex( const Source& source, Diagnostics& diagnostics ) {
   return Lexer( source, diagnostics ).run();
}

}
