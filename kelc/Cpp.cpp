#include "Cpp.h"

#include "Describe.h"
#include "Model.h"

#include <utility>

namespace Kelc {

namespace {
constexpr std::size_t lineWidth = 130;
}

void Writer::pair( const std::string& a, const std::string& b ) {
   const bool fits = depth_ * 3 + a.size() + 3 + b.size() <= lineWidth;
   line( fits ? a + "   " + b : a );
   if( !fits ) line( b );
}

void Writer::filled( const std::vector< std::string >& parts, const char* separator ) {
   std::string current;
   for( std::size_t i = 0; i < parts.size(); ++i ) {
      const std::string part = parts[ i ] + ( i + 1 < parts.size() ? separator : "" );
      if( !current.empty() && depth_ * 3 + current.size() + 1 + part.size() > lineWidth ) line( std::exchange( current, "" ) );
      current += ( current.empty() ? "" : " " ) + part;
   }
   if( !current.empty() ) line( current );
}

void Writer::doc( const std::string& text ) {
   for( std::size_t at = 0; !text.empty() && at <= text.size(); ) {
      const auto end = std::min( text.find( '\n', at ), text.size() );
      std::string one = text.substr( at, end - at );
      while( one.ends_with( '\\' ) ) one.pop_back();   // would continue the comment
      line( one.empty() ? "///" : "/// " + one );
      at = end + 1;
   }
}

std::string joined( const std::vector< std::string >& parts, const char* separator ) {
   std::string out;
   for( const auto& part : parts ) out += ( &part == &parts.front() ? "" : separator ) + part;
   return out;
}

std::string inParens( const std::vector< std::string >& parts ) {
   return parts.empty() ? "()" : "( " + joined( parts ) + " )";
}

std::string cppType( const Decl& decl ) {
   const auto name = decl.qualifiedName();
   return name == "bool" ? name : "::" + name;
}

std::string localName( const Decl& decl ) {
   return decl.outer ? localName( *decl.outer ) + "::" + decl.name.text : decl.name.text;
}

bool isPlainNumber( const Decl& decl ) {
   if( decl.kind == Kind::enumeration ) return true;
   return decl.kind == Kind::externValue && ( decl.literals == LiteralForm::boolean || decl.literals == LiteralForm::integer ||
                                              decl.literals == LiteralForm::real );
}

bool isWide( const Decl& decl ) {
   return isPlainNumber( decl ) && decl.kind == Kind::externValue && decl.size == 8u;
}

std::string fieldType( const Decl& decl ) {
   if( !isWide( decl ) ) return cppType( decl );
   return decl.literals == LiteralForm::real ? "::Kel::F64a4" : decl.range.min.negative ? "::Kel::S64a4" : "::Kel::U64a4";
}

bool isPassedByValue( const Decl& decl ) {
   return isPlainNumber( decl ) || ( decl.kind == Kind::scalar && isPlainNumber( *decl.basis.decl ) );
}

std::string paramType( const Decl& decl ) {
   return isPassedByValue( decl ) ? cppType( decl ) : "const " + cppType( decl ) + "&";
}

std::string returnType( const Decl& decl ) {
   const auto layout = layoutOf( decl );
   return isPlainNumber( decl ) || ( layout && layout->size <= 8 ) ? cppType( decl ) : "const " + cppType( decl ) + "&";
}

std::string ptrType( const Decl& decl, bool isConst ) {
   return std::string( "::Kel::Ptr< " ) + ( isConst ? "const " : "" ) + cppType( decl ) + " >";
}

std::string typeObject( const Decl& decl ) {
   return cppType( decl ) + ( decl.kind == Kind::enumeration ? "_Type" : "::_Type" );
}

std::string heldType( const Attr& attr ) {
   const Shape& s = attr.shape;
   return s.holding == Holding::value ? cppType( *s.element.decl ) : ptrType( *s.element.decl, s.isConst );
}

std::string heldParam( const Attr& attr ) {
   return attr.shape.holding == Holding::value ? paramType( *attr.shape.element.decl ) : "const " + heldType( attr ) + "&";
}

std::string heldReturn( const Attr& attr ) {
   return attr.shape.holding == Holding::value ? returnType( *attr.shape.element.decl ) : heldType( attr );
}

// Bytes outside printable ASCII stand as three octal digits, which no following character can continue.
std::string cppText( std::string_view text ) {
   std::string out = "\"";
   for( const char c : text ) {
      const auto b = static_cast< unsigned char >( c );
      if( c == '"' || c == '\\' ) out += '\\', out += c;
      else if( b >= 0x20 && b < 0x7f && c != '?' ) out += c;   // no trigraphs
      else
         out += { '\\', static_cast< char >( '0' + ( b >> 6 ) ), static_cast< char >( '0' + ( b >> 3 & 7 ) ),
                  static_cast< char >( '0' + ( b & 7 ) ) };
   }
   return out + '"';
}

std::string cppNumber( const Literal& l ) {
   if( !l.negative || !l.number )
      return std::to_string( l.number ) + ( l.number > 0x7fffffffffffffffu ? "ull" : l.number > 0x7fffffffu ? "ll" : "" );
   if( l.number == 0x8000000000000000u ) return "( -9223372036854775807ll - 1 )";
   return "-" + std::to_string( l.number ) + ( l.number > 0x7fffffffu ? "ll" : "" );
}

namespace {

std::string listExpression( const Decl& type, const Literal& l ) {
   const auto fields = fieldsOf( type );
   std::vector< std::string > parts;
   for( std::size_t i = 0; i < fields.size(); ++i ) {
      const Decl& field = *fields[ i ]->shape.element.decl;
      const bool isGiven = i < l.items.size();
      parts.push_back( isGiven                   ? expression( field, l.items[ i ] ) :
                       fields[ i ]->init.empty() ? zero( field ) :
                                                   expression( field, fields[ i ]->init ) );
   }
   return cppType( type ) + inParens( parts );
}

std::string textExpression( const Decl& type, const Literal& l ) {
   const bool hasNul = l.text.find( '\0' ) != std::string::npos;
   const std::string bytes =
      hasNul ? "::std::string_view( " + cppText( l.text ) + ", " + std::to_string( l.text.size() ) + " )" : cppText( l.text );
   return type.kind == Kind::externValue ? cppType( type ) + "( " + bytes + " )" :
                                           cppType( type ) + "( ::Kel::String8( " + bytes + " ) )";
}

}

std::string expression( const Decl& type, const Literal& l ) {
   if( l.constant ) return l.constant->name.text + "()";
   switch( l.kind ) {
   case Literal::Kind::name: return cppType( type ) + "::" + l.enumerator->name.text;
   case Literal::Kind::boolean: return l.number ? "true" : "false";
   case Literal::Kind::real:
   case Literal::Kind::integer: {
      const std::string number = l.kind == Literal::Kind::real ? describe( l ) : cppNumber( l );
      return type.kind == Kind::externValue ? number : cppType( type ) + "( " + number + " )";
   }
   case Literal::Kind::text: return textExpression( type, l );
   case Literal::Kind::list: return listExpression( type, l );
   case Literal::Kind::none: break;
   }
   return zero( type );
}

std::string zero( const Decl& type ) {
   if( type.kind == Kind::enumeration ) {
      for( const Enumerator& e : type.enumerators ) {
         if( e.value == 0 ) return cppType( type ) + "{}";
      }
      return cppType( type ) + "::" + type.enumerators.front().name.text;
   }
   if( isPlainNumber( type ) ) return type.literals == LiteralForm::boolean ? "false" : "0";
   return cppType( type ) + "()";
}

std::string memberInit( const Decl& type, const Literal& init ) {
   if( !init.empty() ) return init.kind == Literal::Kind::none ? "" : " = " + expression( type, init );
   return isPlainNumber( type ) ? " = " + zero( type ) : "";
}

namespace {

std::string parameterType( const Parameter& p ) {
   const Decl& type = *p.type.decl;
   if( p.isOut ) return type.isValue() ? cppType( type ) + "&" : cppType( type ) + "** const&";
   return p.isRef ? "const " + ptrType( type, p.isConst ) + "&" : paramType( type );
}

}

std::string opParameterTypes( const Op& op ) {
   std::vector< std::string > types;
   for( const Parameter& p : op.parameters ) types.push_back( parameterType( p ) );
   return joined( types );
}

std::string opDeclaration( const Op& op ) {
   std::vector< std::string > parameters;
   for( const Parameter& p : op.parameters ) parameters.push_back( parameterType( p ) + " " + p.name.text );
   const Decl* result = op.result.type.decl;
   const std::string type = !result ? "void" : op.result.isRef ? ptrType( *result, op.result.isConst ) : cppType( *result );
   return type + " " + op.name.text + inParens( parameters ) + ( op.isConst ? " const" : "" );
}

}
