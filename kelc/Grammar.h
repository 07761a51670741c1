#pragma once

#include "Parser.h"

#include <functional>

namespace Kelc {

/// Thrown behind a reported syntax error; the loop over the enclosing block's statements catches it.
struct Skip {};

/// The grammar, one function per construct.
class Parser {
 public:
   static constexpr int maxDepth = 32;

   Parser( const Source& source, Diagnostics& diagnostics )
      : diagnostics_( diagnostics ), tokens_( lex( source, diagnostics ) ), module_( std::make_unique< Module >() ) {
      module_->source = &source;
   }
   std::unique_ptr< Module > run();

 private:
   // Tokens
   const Token& peek( std::size_t n = 0 ) const { return tokens_[ std::min( at_ + n, tokens_.size() - 1 ) ]; }
   bool sees( std::string_view s, std::size_t n = 0 ) const { return peek( n ).is( s ); }
   /// A word of the language, unless it is the name of an attribute: then a colon follows.
   bool seesWord( std::string_view s ) const { return sees( s ) && !sees( ":", 1 ); }
   const Token& take() { return tokens_[ at_ < tokens_.size() - 1 ? at_++ : at_ ]; }
   bool accept( std::string_view s ) { return sees( s ) && ( take(), true ); }
   bool acceptWord( std::string_view s ) { return seesWord( s ) && ( take(), true ); }
   [[noreturn]] void fail( const std::string& expected );
   void expect( std::string_view mark, const char* where );
   Ident name( const char* what );
   std::string text( const char* what );
   std::uint32_t smallNumber( const char* what );
   Span since( std::size_t first ) const {
      return { peek().span.source, tokens_[ first ].span.begin, tokens_[ at_ ? at_ - 1 : 0 ].span.end };
   }

   // Blocks and recovery
   void skipStatement();
   void statements( bool inBlock, const std::function< void() >& statement );
   void block( const std::function< void() >& statement );

   // Parts of declarations
   std::string qualified( const char* what );
   TypeRef type( const char* what );
   Literal literal();
   Literal listLiteral();
   Range range();
   Shape shape();
   Shape mapShape( bool ordered );
   Parameter parameter();
   std::vector< Ident > idents( const char* what );

   // Declarations
   void topLevel();
   void moduleName();
   void import();
   void trace();
   std::unique_ptr< Decl > declaration( Kind kind );
   std::unique_ptr< Decl > value();
   void valueTraits( Decl& decl );
   std::unique_ptr< Decl > enumeration();
   std::unique_ptr< Decl > entity( Kind kind );
   std::unique_ptr< Decl > externType();
   void externTraits( Decl& decl );
   void entityName( Decl& decl );

   // Members
   void member( Decl& decl );
   std::unique_ptr< Attr > attribute( Decl* owner );
   void attributeTail( Attr& attr );
   void constant( Attr& attr );
   void derived( Attr& attr );
   void watch( Attr& attr );
   void watchShape( Attr& attr );
   bool seesOp() const;
   Op op();
   Handler handler();

   Diagnostics& diagnostics_;
   std::vector< Token > tokens_;
   std::size_t at_ = 0;
   int depth_ = 0;
   std::unique_ptr< Module > module_;
   std::string nameSpace_;
   bool sawDeclaration_ = false;
};

}
