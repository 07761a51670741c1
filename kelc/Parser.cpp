// One function per construct. A syntax error is reported where it happens and thrown as `Skip`; the loop over the statements of
// the enclosing block catches it, passes over the rest of the statement and goes on. Words of the language are words only where
// they can stand: `key : HostKey;` declares an attribute named key. Blocks and lists nest at most `maxDepth` deep, so that no
// input exhausts the stack.
#include "Grammar.h"

#include <algorithm>

namespace Kelc {

void Parser::fail( const std::string& expected ) {
   const Token& t = peek();
   const std::string found = t.kind == TokenKind::end ? "the end of the file" : quoted( t.spelling );
   diagnostics_.error( t.span, "expected " + expected + ", found " + found );
   throw Skip{};
}

void Parser::expect( std::string_view mark, const char* where ) {
   if( !accept( mark ) ) fail( quoted( mark ) + " " + where );
}

Ident Parser::name( const char* what ) {
   if( peek().kind != TokenKind::word ) fail( what );
   const Token& t = take();
   return { std::string( t.spelling ), t.span };
}

std::string Parser::text( const char* what ) {
   if( peek().kind != TokenKind::text ) fail( what );
   return take().text;
}

std::uint32_t Parser::smallNumber( const char* what ) {
   if( peek().kind != TokenKind::integer || peek().number > 0xffffffffu ) fail( what );
   return static_cast< std::uint32_t >( take().number );
}

// Passes over the rest of a statement: to behind its `;` or its block, but not over the end of the enclosing block.
void Parser::skipStatement() {
   for( int depth = 0;; ) {
      if( peek().kind == TokenKind::end || ( depth == 0 && sees( "}" ) ) ) return;
      const Token& t = take();
      if( t.is( "{" ) ) ++depth;
      else if( t.is( "}" ) && --depth == 0 ) return void( accept( ";" ) );
      else if( t.is( ";" ) && depth == 0 ) return;
   }
}

void Parser::statements( bool inBlock, const std::function< void() >& statement ) {
   while( peek().kind != TokenKind::end && !( inBlock && sees( "}" ) ) ) {
      const std::size_t before = at_;
      const int depth = depth_;
      try {
         statement();
      } catch( const Skip& ) {
         depth_ = depth;
         skipStatement();
      }
      if( at_ == before ) take();
   }
}

void Parser::block( const std::function< void() >& statement ) {
   const Span opening = peek().span;
   if( depth_ == maxDepth ) {
      diagnostics_.error( opening, "blocks nest more than " + std::to_string( maxDepth ) + " deep" );
      throw Skip{};
   }
   expect( "{", "before the members" );
   ++depth_;
   statements( true, statement );
   --depth_;
   if( accept( "}" ) ) return;
   diagnostics_.error( peek().span, "expected '}', found the end of the file" ).note( opening, "the block begins here" );
   throw Skip{};
}

std::unique_ptr< Module > Parser::run() {
   try {
      moduleName();
   } catch( const Skip& ) {
      skipStatement();
   }
   statements( false, [ this ] { topLevel(); } );
   return std::move( module_ );
}

void Parser::moduleName() {
   module_->doc = peek().doc;
   if( !accept( "module" ) ) fail( "'module' and the module's name at the beginning of the file" );
   module_->name = name( "the module's name" );
   expect( ";", "after the module's name" );
}

void Parser::import() {
   Import out;
   out.span = peek().span;
   out.path = text( "the path of a definition file between quotes" );
   expect( ";", "after the imported path" );
   if( sawDeclaration_ ) diagnostics_.error( out.span, "imports stand before the first namespace and declaration" );
   module_->imports.push_back( std::move( out ) );
}

void Parser::trace() {
   const Span span = peek().span;
   const std::string name = text( "the trace handle's name between quotes" );
   if( !module_->trace.empty() )
      diagnostics_.error( span, "the module has two trace handles" ).note( module_->traceSpan, "the other one is named here" );
   if( name.empty() ) diagnostics_.error( span, "a trace handle has a name" );
   module_->trace = name;
   module_->traceSpan = span;
   expect( ";", "after the trace handle's name" );
}

void Parser::topLevel() {
   if( accept( "import" ) ) return import();
   if( accept( "trace" ) ) return trace();
   sawDeclaration_ = true;
   if( accept( "namespace" ) ) {
      auto nameSpace = qualified( "the namespace's name" );
      if( nameSpace.starts_with( "::" ) ) nameSpace.erase( 0, 2 );
      expect( ";", "after the namespace's name" );
      nameSpace_ = nameSpace;
      return;
   }
   std::unique_ptr< Decl > decl;
   if( sees( "value" ) ) decl = value();
   else if( sees( "enum" ) ) decl = enumeration();
   else if( sees( "entity" ) ) decl = entity( Kind::entity );
   else if( sees( "machine" ) ) decl = entity( Kind::machine );
   else if( sees( "extern" ) ) decl = externType();
   else fail( "a declaration: value, enum, entity, machine, extern, namespace, trace or import" +
              suggestion( peek().spelling, { "value", "enum", "entity", "machine", "extern", "namespace", "trace", "import" } ) );
   module_->decls.push_back( std::move( decl ) );
}

// Begins a declaration: takes its first word and the documentation before it.
std::unique_ptr< Decl > Parser::declaration( Kind kind ) {
   auto decl = std::make_unique< Decl >();
   decl->kind = kind;
   decl->nameSpace = nameSpace_;
   decl->doc = peek().doc;
   decl->module = module_.get();
   take();
   return decl;
}

void Parser::valueTraits( Decl& decl ) {
   for( ;; ) {
      if( accept( "ordered" ) ) {
         decl.ordered = true;
      } else if( accept( "order" ) ) {
         expect( "by", "after order" );
         expect( "hand", "after order by" );
         decl.ordered = decl.orderByHand = true;
      } else if( accept( "hash" ) ) {
         expect( "by", "after hash" );
         expect( "hand", "after hash by" );
         decl.hash = HashRule::byHand;
      } else if( accept( "no" ) ) {
         expect( "hash", "after no" );
         decl.hash = HashRule::none;
      } else if( accept( "testable" ) ) {
         decl.testable = true;
      } else {
         return;
      }
   }
}

std::unique_ptr< Decl > Parser::value() {
   auto decl = declaration( Kind::composite );
   decl->name = name( "the value type's name" );
   decl->span = decl->name.span;
   valueTraits( *decl );
   if( accept( "wraps" ) ) {
      decl->kind = Kind::wrapper;
      decl->basis = type( "the wrapped type" );
      valueTraits( *decl );
   } else if( accept( ":" ) ) {
      decl->kind = Kind::scalar;
      decl->basis = type( "the type of the value's number or string" );
      decl->range = range();
      if( accept( "=" ) ) decl->init = literal();
      valueTraits( *decl );
   }
   if( sees( "{" ) ) block( [ & ] { member( *decl ); } );
   else if( decl->kind == Kind::composite )
      fail( "':', wraps, or the attributes in braces; before them ordered, order by hand, hash by hand, no hash, testable" );
   else expect( ";", "or '{' after the value type" );
   return decl;
}

std::unique_ptr< Decl > Parser::enumeration() {
   auto decl = declaration( Kind::enumeration );
   decl->name = name( "the enumeration's name" );
   decl->span = decl->name.span;
   decl->ordered = true;
   std::uint64_t next = 0;
   block( [ & ] {
      Enumerator e;
      e.doc = peek().doc;
      e.name = name( "the name of an enumerator" );
      if( accept( "=" ) ) next = smallNumber( "a number from 0 to 4294967295" );
      if( next > 0xffffffffu ) diagnostics_.error( e.name.span, "the number of " + e.name.text + " does not fit in 32 bits" );
      e.value = static_cast< std::uint32_t >( next++ );
      expect( ";", "after the enumerator" );
      decl->enumerators.push_back( std::move( e ) );
   } );
   return decl;
}

void Parser::entityName( Decl& decl ) {
   if( !accept( "(" ) ) return;
   if( decl.isMachine() ) {
      while( !sees( ")" ) ) {
         decl.params.push_back( name( "the name of an attribute" ) );
         if( !accept( "," ) ) break;
      }
   } else {
      expect( "name", "between the parentheses; keys and parameters stand in the body" );
      decl.named = true;
      if( accept( ":" ) ) decl.nameType = type( "the type of the name" );
   }
   expect( ")", "after the constructor's parameters" );
}

std::unique_ptr< Decl > Parser::entity( Kind kind ) {
   auto decl = declaration( kind );
   decl->name = name( kind == Kind::machine ? "the machine's name" : "the entity's name" );
   decl->span = decl->name.span;
   entityName( *decl );
   if( accept( ":" ) ) {
      decl->base = type( "the base type" );
      decl->hasBaseArgs = sees( "(" );
      if( decl->hasBaseArgs ) decl->baseArgs = idents( "the name of an attribute" );
   }
   decl->unlogged = accept( "unlogged" );
   if( sees( "{" ) ) block( [ & ] { member( *decl ); } );
   else expect( ";", "or '{' after the type" );
   return decl;
}

void Parser::externTraits( Decl& decl ) {
   for( ;; ) {
      if( accept( "ordered" ) ) {
         decl.ordered = true;
      } else if( accept( "no" ) ) {
         expect( "hash", "after no" );
         decl.hash = HashRule::none;
      } else if( accept( "integer" ) ) {
         decl.literals = LiteralForm::integer;
         decl.range.min = literal();
         expect( "..", "between the bounds" );
         decl.range.max = literal();
      } else if( accept( "boolean" ) ) {
         decl.literals = LiteralForm::boolean;
      } else if( accept( "real" ) ) {
         decl.literals = LiteralForm::real;
      } else if( accept( "text" ) ) {
         decl.literals = LiteralForm::text;
      } else if( accept( "size" ) ) {
         decl.size = smallNumber( "a number of bytes" );
         expect( "align", "after the size" );
         decl.align = smallNumber( "a number of bytes" );
      } else {
         return;
      }
   }
}

std::unique_ptr< Decl > Parser::externType() {
   auto decl = declaration( Kind::externValue );
   if( accept( "entity" ) ) decl->kind = Kind::externEntity;
   else if( accept( "machine" ) ) decl->kind = Kind::externMachine;
   else if( !accept( "value" ) ) fail( "value, entity or machine after extern" );
   const std::size_t first = at_;
   auto whole = qualified( "the type's name" );
   decl->name.span = decl->span = since( first );
   const auto rooted = whole.starts_with( "::" );
   if( rooted ) whole.erase( 0, 2 );
   const auto colon = whole.rfind( "::" );
   decl->name.text = colon == std::string::npos ? whole : whole.substr( colon + 2 );
   const auto scope = colon == std::string::npos ? std::string() : whole.substr( 0, colon );
   if( rooted || !scope.empty() ) decl->nameSpace = scope;
   if( decl->kind != Kind::externValue ) {
      entityName( *decl );
      if( accept( ":" ) ) decl->base = type( "the base type" );
   }
   expect( "from", "and the header that defines the type" );
   decl->header = text( "the header between quotes" );
   if( decl->kind == Kind::externValue ) externTraits( *decl );
   if( decl->kind != Kind::externValue && sees( "{" ) ) block( [ & ] { member( *decl ); } );
   else expect( ";", "after the extern type" );
   return decl;
}

std::unique_ptr< Module > parse( const Source& source, Diagnostics& diagnostics ) {
   return Parser( source, diagnostics ).run();
}

}
