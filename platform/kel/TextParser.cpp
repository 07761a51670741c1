#include <kel/Text.h>

#include <algorithm>
#include <cmath>
#include <kel/Plan.h>
#include <kel/Trace.h>

// One parser over the rows. It recurses only from a value type into the types of its attributes, which are fixed when the type is
// compiled, so no text makes it go deep. It reads forward, never back over more than the name it has just read: its time is
// linear in the text.
//
// What stands in a text is mostly what was printed by the other half, so a composite is read along the plan that it is printed
// along; at the first character that differs the parser goes back and begins anew by the grammar.

namespace Kel {

namespace {

/// A fault of the text's own form, which is told as it is wherever it stands; one of a value is told with its attribute's name.
class SyntaxFault : public RangeException {
 public:
   using RangeException::RangeException;
};

/// What others wrote, fit to stand in a message.
std::string printable( std::string_view text ) {
   std::string out;
   appendPrintable( out, text );
   return out;
}

/// Text that is being parsed: where it began, for the columns in messages, and what is left of it.
class Parser {
 public:
   Parser( const Type& outermost, const char* from, const char* to )
       : outermost_( outermost ), begin_( from ), at_( from ), to_( to ) {}

   const char* at() const { return at_; }
   void value( TypeCode code, const Type& type, void* into );

 private:
   void skipSpace() {
      while( at_ != to_ && ( *at_ == ' ' || ( *at_ >= '\t' && *at_ <= '\r' ) ) ) ++at_;
   }
   [[noreturn]] void premature( const Type& type ) const {
      throw SyntaxFault( "premature end of value type " + std::string( type.shortName() ) );
   }
   [[noreturn]] void expected( const Type& type, std::string_view what ) const {
      throw SyntaxFault( "expected " + std::string( what ) + " at column " + std::to_string( at_ - begin_ ) + " deserializing " +
                            std::string( type.qualifiedName() ) );
   }
   /// The next token must begin with `token`.
   void token( const Type& type, std::string_view token );
   bool quoted( const Type& type, std::string_view& text );
   std::string unescaped( const Type& type, std::string_view text ) const;
   bool sameText( std::string_view text );
   bool canonical( const Type& type, void* into );
   void composite( const Type& type, void* into );
   void attribute( const Type& type, void* into );
   bool plainNumber( U64& v );
   U64 digits( const Type& type, bool& negative, bool& tooWide );
   U64 unsignedNumber( const Type& type, U64 max, const Bounds* bounds );
   S64 signedNumber( const Type& type, S64 min, S64 max, const Bounds* bounds );
   double real( const Type& type );
   bool boolean( const Type& type );
   U32 enumeration( const Type& type );
   void number( TypeCode code, const Type& type, void* into, const Bounds* bounds );

   const Type& outermost_;
   const char* begin_;
   const char* at_;
   const char* to_;
};

void Parser::token( const Type& type, std::string_view token ) {
   skipSpace();
   const auto left = static_cast< std::size_t >( to_ - at_ );
   const std::string_view next( at_, std::min( left, token.size() ) );
   if( next == token ) {
      at_ += token.size();
      return;
   }
   if( token.starts_with( next ) ) premature( type );
   expected( type, '"' + std::string( token ) + '"' );
}

// The text between quotes, escapes not yet undone. False when it holds an escape.
bool Parser::quoted( const Type& type, std::string_view& text ) {
   skipSpace();
   if( at_ == to_ ) premature( type );
   if( *at_ != '\'' ) expected( type, "a text between single quotes" );
   const char* const begin = at_ + 1;
   bool plain = true;
   const char* i = begin;
   while( i != to_ && *i != '\'' ) {
      if( *i == '\\' ) {
         plain = false;
         if( ++i == to_ ) break;
      }
      ++i;
   }
   if( i == to_ ) premature( type );
   text = { begin, static_cast< std::size_t >( i - begin ) };
   at_ = i + 1;
   return plain;
}

int hexDigit( char c ) {
   if( c >= '0' && c <= '9' ) return c - '0';
   if( c >= 'a' && c <= 'f' ) return c - 'a' + 10;
   if( c >= 'A' && c <= 'F' ) return c - 'A' + 10;
   return -1;
}

std::string Parser::unescaped( const Type& type, std::string_view text ) const {
   std::string out;
   out.reserve( text.size() );
   for( std::size_t i = 0; i < text.size(); ++i ) {
      if( text[ i ] != '\\' ) {
         out += text[ i ];
         continue;
      }
      const char c = text[ ++i ];
      if( c == 'x' && i + 2 < text.size() && hexDigit( text[ i + 1 ] ) >= 0 && hexDigit( text[ i + 2 ] ) >= 0 ) {
         out += static_cast< char >( hexDigit( text[ i + 1 ] ) * 16 + hexDigit( text[ i + 2 ] ) );
         i += 2;
         continue;
      }
      static constexpr std::string_view escapes = "\\'\"nrtabfv0", bytes( "\\'\"\n\r\t\a\b\f\v\0", 11 );
      const std::size_t known = escapes.find( c );
      if( known == std::string_view::npos ) {
         throw RangeException( "unknown escape \\" + printable( { &c, 1 } ) + " deserializing " +
                               std::string( type.qualifiedName() ) );
      }
      out += bytes[ known ];
   }
   return out;
}

U64 Parser::digits( const Type& type, bool& negative, bool& tooWide ) {
   skipSpace();
   if( at_ == to_ ) premature( outermost_ );
   negative = *at_ == '-';
   const char* i = at_ + negative;
   if( i == to_ ) premature( outermost_ );
   if( *i < '0' || *i > '9' ) expected( type, "a number" );
   const auto digit = [ & ] { return static_cast< unsigned >( *i - '0' ); };
   U64 v = 0;
   tooWide = false;
   for( ; i != to_ && digit() <= 9; ++i ) {
      tooWide = __builtin_mul_overflow( v, U64( 10 ), &v ) | __builtin_add_overflow( v, U64( digit() ), &v ) | tooWide;
   }
   at_ = i;
   return v;
}

[[noreturn]] void outside( const Type& type, const Bounds* bounds, const std::string& text ) {
   throw RangeException( bounds && bounds->text ? bounds->text
                                                : std::string( type.shortName() ) + "::value " + text + " not allowed" );
}

U64 Parser::unsignedNumber( const Type& type, U64 max, const Bounds* bounds ) {
   bool negative, tooWide;
   const U64 v = digits( type, negative, tooWide );
   if( negative && ( v || tooWide ) ) outside( type, bounds, "< 0" );
   if( tooWide || v > max ) outside( type, bounds, "> " + std::to_string( max ) );
   if( bounds && bounds->text && ( v > bounds->max || ( bounds->min > 0 && v < static_cast< U64 >( bounds->min ) ) ) )
      refuse( type );
   return v;
}

S64 Parser::signedNumber( const Type& type, S64 min, S64 max, const Bounds* bounds ) {
   bool negative, tooWide;
   const U64 v = digits( type, negative, tooWide );
   if( negative ? tooWide || v > U64( 0 ) - static_cast< U64 >( min ) : tooWide || v > static_cast< U64 >( max ) ) {
      outside( type, bounds, negative ? "< " + std::to_string( min ) : "> " + std::to_string( max ) );
   }
   const S64 n = static_cast< S64 >( negative ? U64( 0 ) - v : v );
   if( bounds && bounds->text && ( n < bounds->min || n > static_cast< S64 >( bounds->max ) ) ) refuse( type );
   return n;
}

double Parser::real( const Type& type ) {
   skipSpace();
   if( at_ == to_ ) premature( outermost_ );
   for( const auto& [ text, v ] : { std::pair( "float('nan')", std::nan( "" ) ), std::pair( "float('inf')", HUGE_VAL ),
                                    std::pair( "float('-inf')", -HUGE_VAL ) } ) {
      const std::string_view t( text );
      const std::string_view next( at_, std::min( t.size(), static_cast< std::size_t >( to_ - at_ ) ) );
      if( next == t ) {
         at_ += t.size();
         return v;
      }
   }
   const char* const first = at_ + ( *at_ == '-' );
   if( first == to_ ) premature( outermost_ );
   if( *first != '.' && ( *first < '0' || *first > '9' ) ) expected( type, "a number" );
   double v = 0;
   const auto [ end, error ] = std::from_chars( at_, to_, v );
   if( error == std::errc::result_out_of_range )
      throw RangeException( "number out of range deserializing " + std::string( type.qualifiedName() ) );
   if( error != std::errc() ) expected( type, "a number" );
   at_ = end;
   return v;
}

bool Parser::boolean( const Type& type ) {
   skipSpace();
   if( at_ == to_ ) premature( outermost_ );
   const bool v = *at_ == 'T';
   if( !v && *at_ != 'F' ) expected( type, "True or False" );
   token( outermost_, v ? "True" : "False" );
   return v;
}

U32 Parser::enumeration( const Type& type ) {
   const char* const start = at_;
   std::string_view text;
   quoted( outermost_, text );
   for( const Enumerator& e : type.info().enumerators ) {
      if( text == e.name ) return e.value;
   }
   const std::string_view shortName = type.shortName();
   if( text.size() > shortName.size() + 2 && text.starts_with( shortName ) && text[ shortName.size() ] == '(' &&
       text.back() == ')' ) {
      const std::string_view inner = text.substr( shortName.size() + 1, text.size() - shortName.size() - 2 );
      S32 number = 0;
      const auto [ end, error ] = std::from_chars( inner.data(), inner.data() + inner.size(), number );
      if( error == std::errc() && end == inner.data() + inner.size() ) return static_cast< U32 >( number );
   }
   at_ = start;
   throw RangeException( std::string( type.shortName() ) + " has no such value: " + printable( text ) );
}

void Parser::number( TypeCode code, const Type& type, void* into, const Bounds* bounds ) {
   const auto store = [ into ]( auto v ) { std::memcpy( into, &v, sizeof v ); };
   switch( code ) {
   case TypeCode::u8: return store( static_cast< U8 >( unsignedNumber( type, 0xff, bounds ) ) );
   case TypeCode::u16: return store( static_cast< U16 >( unsignedNumber( type, 0xffff, bounds ) ) );
   case TypeCode::u32: return store( static_cast< U32 >( unsignedNumber( type, 0xffffffff, bounds ) ) );
   case TypeCode::u64: return store( unsignedNumber( type, ~U64( 0 ), bounds ) );
   case TypeCode::s8: return store( static_cast< S8 >( signedNumber( type, INT8_MIN, INT8_MAX, bounds ) ) );
   case TypeCode::s16: return store( static_cast< S16 >( signedNumber( type, INT16_MIN, INT16_MAX, bounds ) ) );
   case TypeCode::s32: return store( static_cast< S32 >( signedNumber( type, INT32_MIN, INT32_MAX, bounds ) ) );
   default: return store( signedNumber( type, INT64_MIN, INT64_MAX, bounds ) );
   }
}

void Parser::value( TypeCode code, const Type& type, void* into ) {
   std::string_view text;
   switch( code ) {
   case TypeCode::boolean: *static_cast< bool* >( into ) = boolean( type ); return;
   case TypeCode::f64: {
      const double v = real( type );
      std::memcpy( into, &v, sizeof v );
      return;
   }
   case TypeCode::string8:
   case TypeCode::name: {
      const bool plain = quoted( outermost_, text );
      const String8 v = plain ? String8( text ) : String8( unescaped( type, text ) );
      if( code == TypeCode::name ) *static_cast< Name* >( into ) = v;
      else *static_cast< String8* >( into ) = v;
      return;
   }
   case TypeCode::enumeration: {
      const U32 v = enumeration( type );
      std::memcpy( into, &v, sizeof v );
      return;
   }
   case TypeCode::scalar: {
      const Attr& row = type.ownAttrs().front();
      void* member = static_cast< char* >( into ) + row.offset;
      if( row.code <= TypeCode::s64 && row.code != TypeCode::boolean )
         return number( row.code, type, member, &type.info().bounds );
      if( row.code != TypeCode::string8 ) return value( row.code, *row.type, member );
      String8 v;
      value( row.code, *row.type, &v );
      if( type.info().bounds.text && v.bytes() > type.info().bounds.max ) refuse( type );
      *static_cast< String8* >( member ) = v;
      return;
   }
   case TypeCode::composite: return composite( type, into );
   case TypeCode::external: {
      const char* const start = at_;
      quoted( outermost_, text );
      const char* i = text.data();
      if( type.info().external->parse( into, i, text.data() + text.size() ) && i == text.data() + text.size() ) return;
      at_ = start;
      throw RangeException( '\'' + printable( text ) + "' is no " + std::string( type.qualifiedName() ) );
   }
   case TypeCode::entity:
   case TypeCode::machine: throw InternalException( std::string( type.qualifiedName() ) + " is no value and has no text form" );
   default: return number( code, type, into, nullptr );
   }
}

void Parser::attribute( const Type& type, void* into ) {
   std::string_view name;
   quoted( type, name );
   const S32 index = type.attributeId( name );
   if( index < 0 || type.ownAttrs()[ index ].kind != AttrKind::scalar ) {
      throw SyntaxFault( std::string( type.shortName() ) + " has no such attribute: " + printable( name ) );
   }
   const Attr& row = type.ownAttrs()[ index ];
   token( type, ":" );
   try {
      Parser inner( row.type->code() == TypeCode::composite ? *row.type : type, begin_, to_ );
      inner.at_ = at_;
      inner.value( row.code, *row.type, static_cast< char* >( into ) + row.offset );
      at_ = inner.at_;
   } catch( const SyntaxFault& ) {
      throw;
   } catch( const RangeException& e ) {
      throw RangeException( std::string( type.shortName() ) + "::" + row.name + ": " + e.what() );
   }
}

// Goes behind `text` if it stands here. A few words are compared faster than by a call.
bool Parser::sameText( std::string_view text ) {
   if( static_cast< std::size_t >( to_ - at_ ) < text.size() ) return false;
   constexpr std::size_t word = sizeof( U64 );
   const auto differ = [ & ]( std::size_t i ) { return load< U64 >( at_ + i ) ^ load< U64 >( text.data() + i ); };
   U64 differences = 0;
   if( text.size() >= word ) {
      for( std::size_t i = 0; i + word < text.size(); i += word ) differences |= differ( i );
      differences |= differ( text.size() - word );
   } else {
      for( std::size_t i = 0; i < text.size(); ++i ) differences |= static_cast< U64 >( at_[ i ] ^ text[ i ] );
   }
   if( differences ) return false;
   at_ += text.size();
   return true;
}

// Digits that surely fit: no more than 19 of them.
inline bool Parser::plainNumber( U64& v ) {
   const char* const start = at_;
   const char* const end = start + std::min< std::ptrdiff_t >( to_ - start, 19 );
   const char* i = start;
   v = 0;
   for( ; i != end; ++i ) {
      const auto digit = static_cast< unsigned >( *i - '0' );
      if( digit > 9 ) break;
      v = v * 10 + digit;
   }
   at_ = i;
   return i != start;
}

void storeUnsigned( TypeCode code, U64 v, void* into ) {
   const auto store = [ into ]( auto number ) { std::memcpy( into, &number, sizeof number ); };
   switch( code ) {
   case TypeCode::u8: return store( static_cast< U8 >( v ) );
   case TypeCode::u16: return store( static_cast< U16 >( v ) );
   case TypeCode::u32: return store( static_cast< U32 >( v ) );
   default: return store( v );
   }
}

// Reads what `print` writes. False for everything else, faults among it; the grammar tells them, and reads again what was right.
bool Parser::canonical( const Type& type, void* into ) {
   const Plan& plan = type.plan();
   const char* const start = at_;
   try {
      for( const Plan::Step& step : plan.steps ) {
         if( !sameText( step.before ) ) return at_ = start, false;
         void* at = static_cast< char* >( into ) + step.offset;
         if( U64 v; step.code <= TypeCode::u64 && step.code != TypeCode::boolean ) {
            if( !plainNumber( v ) || v - step.low > step.span ) return at_ = start, false;
            storeUnsigned( step.code, v, at );
         } else {
            // The one attribute of a scalar type is all there is of it.
            value( step.type->code(), *step.type, at );
         }
      }
      if( sameText( plan.end ) ) return true;
   } catch( const RangeException& ) {
   }
   at_ = start;
   return false;
}

void Parser::composite( const Type& type, void* into ) {
   if( canonical( type, into ) ) return;
   token( type, "Value" );
   token( type, "(" );
   std::string_view name;
   const char* const start = at_;
   quoted( type, name );
   if( name != type.qualifiedName() ) {
      at_ = start;
      skipSpace();
      expected( type, '\'' + std::string( type.qualifiedName() ) + '\'' );
   }
   token( type, "," );
   token( type, "**" );
   token( type, "{" );
   for( bool first = true;; first = false ) {
      skipSpace();
      if( at_ == to_ ) premature( type );
      if( *at_ == '}' ) break;
      if( !first ) token( type, "," );
      attribute( type, into );
   }
   ++at_;
   token( type, ")" );
}

}

void parse( const Type& type, void* value, TextIter& from, TextIter to ) {
   Parser parser( type, from.ptr(), to.ptr() );
   parser.value( type.code(), type, value );
   from = TextIter( parser.at() );
}

void parseWhole( const Type& type, void* value, std::string_view text ) {
   TextIter from( text.data() );
   const TextIter to( text.data() + text.size() );
   parse( type, value, from, to );
   if( from == to ) return;
   throw RangeException( "junk at column " + std::to_string( from.ptr() - text.data() ) + " deserializing " +
                         std::string( type.qualifiedName() ) );
}

U32 enumerator( const Type& type, U32 number ) {
   if( !enumeratorName( type, number ) ) throw RangeException( std::string( type.shortName() ) );
   return number;
}

U32 enumerator( const Type& type, std::string_view name ) {
   for( const Enumerator& e : type.info().enumerators ) {
      if( name == e.name ) return e.value;
   }
   throw RangeException( std::string( type.shortName() ) + " has no such value: " + printable( name ) );
}

void refuse( const Type& type ) { throw RangeException( type.info().bounds.text ); }

}
