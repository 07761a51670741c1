// The grammar of what stands inside a declaration: types, literals, attributes, operations, handlers.
#include "Grammar.h"

namespace Kelc {

std::string Parser::qualified( const char* what ) {
   std::string out = accept( "::" ) ? "::" : "";
   out += name( what ).text;
   for( int parts = 1; accept( "::" ); ++parts ) {
      if( parts == maxDepth ) fail( "no more than " + std::to_string( maxDepth ) + " parts in a name" );
      out += "::" + name( "a name after ::" ).text;
   }
   return out;
}

TypeRef Parser::type( const char* what ) {
   const std::size_t first = at_;
   TypeRef out{ qualified( what ), {} };
   out.span = since( first );
   return out;
}

Literal Parser::listLiteral() {
   if( depth_ == maxDepth ) fail( "no more than " + std::to_string( maxDepth ) + " nested lists" );
   Literal out;
   out.kind = Literal::Kind::list;
   expect( "{", "before a list of values" );
   ++depth_;
   while( !sees( "}" ) && peek().kind != TokenKind::end ) {
      out.items.push_back( literal() );
      if( !accept( "," ) ) break;
   }
   --depth_;
   expect( "}", "after a list of values" );
   return out;
}

Literal Parser::literal() {
   const std::size_t first = at_;
   Literal out;
   if( sees( "{" ) ) {
      out = listLiteral();
   } else {
      out.negative = accept( "-" );
      const Token& t = peek();
      const bool isNumber = t.kind == TokenKind::integer || t.kind == TokenKind::real;
      if( out.negative && !isNumber ) fail( "a number after '-'" );
      if( isNumber ) out.kind = t.kind == TokenKind::integer ? Literal::Kind::integer : Literal::Kind::real;
      else if( t.kind == TokenKind::text ) out.kind = Literal::Kind::text;
      else if( t.is( "true" ) || t.is( "false" ) ) out.kind = Literal::Kind::boolean;
      else if( t.kind == TokenKind::word ) out.kind = Literal::Kind::name;
      else fail( "a value: a number, a text, true, false, a name or a list in braces" );
      out.number = out.kind == Literal::Kind::boolean ? t.is( "true" ) : t.number;
      out.real = out.negative ? -t.real : t.real;
      out.text = out.kind == Literal::Kind::text ? t.text : std::string( t.spelling );
      take();
   }
   out.span = since( first );
   return out;
}

Range Parser::range() {
   Range out;
   if( accept( "max" ) ) {
      out.isMax = true;
      out.max = literal();
   } else if( accept( "in" ) ) {
      if( !sees( ".." ) ) out.min = literal();
      expect( "..", "between the bounds" );
      if( peek().kind == TokenKind::integer || sees( "-" ) ) out.max = literal();
      if( out.empty() ) fail( "a bound" );
   }
   return out;
}

Shape Parser::mapShape( bool ordered ) {
   Shape out;
   out.ordered = ordered;
   out.span = peek().span;
   if( acceptWord( "set" ) ) {
      out.collection = Collection::set;
      out.key = type( "the type of the set's keys" );
      return out;
   }
   if( !acceptWord( "map" ) ) fail( "map or set after ordered" );
   out.collection = Collection::map;
   const bool keyed = !acceptWord( "of" );
   if( keyed ) {
      out.key = type( "the type of the map's keys, or of" );
      expect( "->", "after the type of the map's keys" );
      if( acceptWord( "child" ) ) out.holding = Holding::child;
   }
   if( out.holding == Holding::value && acceptWord( "ref" ) ) out.holding = Holding::ref;
   if( out.holding == Holding::ref ) out.nonnull = acceptWord( "nonnull" );
   out.isConst = acceptWord( "const" );
   out.element = type( "the type of the map's elements" );
   if( !keyed ) {
      expect( "by", "and the attribute that keys the elements" );
      out.by = name( "the attribute that keys the elements" );
   }
   return out;
}

Shape Parser::shape() {
   Shape out;
   out.span = peek().span;
   if( sees( "ordered" ) || sees( "map" ) || sees( "set" ) ) return mapShape( acceptWord( "ordered" ) );
   if( acceptWord( "ref" ) ) {
      out.holding = Holding::ref;
      out.nonnull = acceptWord( "nonnull" );
      out.isConst = acceptWord( "const" );
   } else if( acceptWord( "optional" ) ) {
      expect( "child", "after optional" );
      out.collection = Collection::optional;
      out.holding = Holding::child;
   } else if( acceptWord( "queue" ) ) {
      out.collection = Collection::queue;
      if( !sees( "of" ) ) out.key = type( "of, or the type of the queue's index" );
      if( !accept( "of" ) ) {
         out.element = std::move( out.key );   // `queue U32` is a queue of U32
         out.key = {};
         return out;
      }
   } else if( acceptWord( "table" ) ) {
      out.collection = Collection::table;
      expect( "of", "before the type of the table's records" );
      out.element = type( "the type of the table's records" );
      expect( "by", "and the attribute that keys the records" );
      out.by = name( "the attribute that keys the records" );
      return out;
   }
   out.element = type( "a type, or one of ref, map, set, ordered, queue, table, optional" );
   if( out.collection == Collection::none && out.holding == Holding::value ) out.span = out.element.span;
   return out;
}

Parameter Parser::parameter() {
   Parameter out;
   out.isOut = sees( "out" ) && !sees( ":", 1 ) && ( take(), true );
   out.name = name( "the name of a parameter" );
   expect( ":", "before the type of the parameter" );
   out.isRef = acceptWord( "ref" );
   out.isConst = acceptWord( "const" );
   out.type = type( "the type of the parameter" );
   return out;
}

std::vector< Ident > Parser::idents( const char* what ) {
   std::vector< Ident > out;
   expect( "(", "before the list" );
   while( !sees( ")" ) ) {
      out.push_back( name( what ) );
      if( !accept( "," ) ) break;
   }
   expect( ")", "after the list" );
   return out;
}

bool Parser::seesOp() const {
   for( std::size_t i = 0; i < 4; ++i ) {
      if( sees( "op", i ) ) return !sees( ":", i + 1 );
      if( !sees( "virtual", i ) && !sees( "static", i ) && !sees( "const", i ) ) return false;
   }
   return false;
}

Op Parser::op() {
   Op out;
   out.doc = peek().doc;
   while( !accept( "op" ) ) {
      const Token& t = take();
      ( t.is( "virtual" ) ? out.isVirtual : t.is( "static" ) ? out.isStatic : out.isConst ) = true;
   }
   out.name = name( "the operation's name" );
   expect( "(", "after the operation's name" );
   while( !sees( ")" ) ) {
      out.parameters.push_back( parameter() );
      if( !accept( "," ) ) break;
   }
   expect( ")", "after the parameters" );
   if( accept( ":" ) ) {
      out.result.isRef = acceptWord( "ref" );
      out.result.isConst = acceptWord( "const" );
      out.result.type = type( "the type of the result" );
   }
   expect( ";", "after the operation; its body stands in a .cpp file" );
   return out;
}

Handler Parser::handler() {
   Handler out;
   expect( "on", "before an event" );
   out.event = name( "the name of a watched attribute, start or gone" );
   if( accept( "(" ) ) {
      out.argument = name( "a name for the key" );
      expect( ")", "after the key" );
   }
   expect( "->", "before the operation that handles the event" );
   out.op = name( "the name of an operation" );
   expect( ";", "after the handler" );
   return out;
}

void Parser::member( Decl& decl ) {
   const bool isNested = ( seesWord( "value" ) || seesWord( "enum" ) ) && peek( 1 ).kind == TokenKind::word;
   if( isNested ) {
      auto nested = sees( "value" ) ? value() : enumeration();
      nested->outer = &decl;
      decl.nested.push_back( std::move( nested ) );
   } else if( seesOp() ) {
      decl.ops.push_back( op() );
   } else if( seesWord( "on" ) ) {
      const Span span = peek().span;
      decl.handlers.push_back( handler() );
      if( !decl.isMachine() ) diagnostics_.error( span, "only a machine handles events" );
   } else {
      decl.attrs.push_back( attribute( &decl ) );
   }
}

std::unique_ptr< Attr > Parser::attribute( Decl* owner ) {
   auto attr = std::make_unique< Attr >();
   attr->doc = peek().doc;
   attr->owner = owner;
   for( bool more = true; more; ) {
      more = acceptWord( "silent" ) ? ( attr->silent = true ) : acceptWord( "unlogged" ) ? ( attr->unlogged = true )
             : acceptWord( "virtual" ) ? ( attr->isVirtual = true ) : false;
   }
   if( acceptWord( "const" ) ) return constant( *attr ), std::move( attr );
   if( acceptWord( "derived" ) ) return derived( *attr ), std::move( attr );
   if( acceptWord( "watch" ) ) return watch( *attr ), std::move( attr );
   if( acceptWord( "key" ) ) attr->role = Role::key;
   else if( acceptWord( "narrow" ) ) attr->role = Role::narrow;
   else if( acceptWord( "owner" ) ) attr->role = Role::owner;
   else if( acceptWord( "param" ) ) {
      attr->role = Role::param;
      attr->paramVar = acceptWord( "var" );
   }
   attr->name = name( "an attribute, an operation or a nested type" );
   expect( ":", "before the type of the attribute" );
   attr->shape = shape();
   attributeTail( *attr );
   return attr;
}

void Parser::attributeTail( Attr& attr ) {
   if( accept( "=" ) ) attr.init = literal();
   if( accept( "max" ) ) {
      attr.max = literal();
      if( accept( "store" ) ) {
         expect( "then", "after store" );
         expect( "check", "after store then" );
         attr.storeThenCheck = true;
      }
   }
   expect( ";", "after the attribute" );
}

void Parser::constant( Attr& attr ) {
   attr.role = Role::constant;
   attr.name = name( "the constant's name" );
   if( accept( ":" ) ) {
      attr.shape.element = type( "the constant's type" );
      attr.shape.span = attr.shape.element.span;
   }
   expect( "=", "and the constant's value" );
   attr.init = literal();
   expect( ";", "after the constant" );
}

void Parser::derived( Attr& attr ) {
   attr.name = name( "the derived attribute's name" );
   if( accept( "=" ) ) {
      attr.role = Role::derivedView;
      attr.viewOf = name( "the attribute that is viewed" );
      expect( ".", "after the viewed attribute" );
      attr.viewMember = name( "the viewed attribute's attribute" );
   } else {
      attr.role = Role::derivedByHand;
      expect( ":", "or '=' after the derived attribute's name" );
      attr.shape = shape();
   }
   expect( ";", "after the derived attribute" );
}

void Parser::watchShape( Attr& attr ) {
   Shape& s = attr.shape;
   s.span = peek().span;
   s.holding = Holding::ref;
   if( acceptWord( "map" ) ) {
      s.collection = Collection::map;
      s.key = type( "the type of the map's keys" );
      expect( "->", "after the type of the map's keys" );
   }
   s.isConst = acceptWord( "const" );
   s.element = type( "the type of the watched entity, const or map" );
}

void Parser::watch( Attr& attr ) {
   attr.role = Role::watch;
   attr.watch = std::make_unique< Watch >();
   Watch& w = *attr.watch;
   attr.name = name( "the watching attribute's name" );
   expect( ":", "before the type of the watched entity" );
   watchShape( attr );
   if( acceptWord( "from" ) ) {
      w.fromAttr = name( "an attribute of the machine" );
      if( accept( "." ) ) w.fromMember = name( "a collection of the watched entity" );
   }
   if( acceptWord( "as" ) ) w.reactor = name( "the reactor's class name" );
   if( accept( ";" ) ) return;
   if( !sees( "{" ) ) fail( "from, as, ';' or '{' after the watched type" );
   block( [ & ] {
      if( seesOp() ) w.ops.push_back( op() );
      else if( seesWord( "on" ) ) w.handlers.push_back( handler() );
      else w.attrs.push_back( attribute( attr.owner ) );
   } );
}

}
