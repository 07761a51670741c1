#include "Describe.h"

#include <charconv>

namespace Kelc {

namespace {

std::string quotedText( std::string_view text ) {
   std::string out = "\"";
   for( const char c : text ) {
      static const char hex[] = "0123456789abcdef";
      const auto b = static_cast< unsigned char >( c );
      if( c == '"' || c == '\\' ) out += '\\', out += c;
      else if( b < 0x20 || b >= 0x7f ) out += { '\\', 'x', hex[ b >> 4 ], hex[ b & 15 ] };
      else out += c;
   }
   return out + '"';
}

std::string realText( double v ) {
   char text[ 40 ];
   std::string out( text, std::to_chars( text, text + sizeof text, v ).ptr );
   return out.find_first_of( ".en" ) == std::string::npos ? out + ".0" : out;
}

}

std::string describe( const TypeRef& type ) {
   return type.decl ? type.decl->qualifiedName() : type.text;
}

std::string describe( const Literal& l ) {
   switch( l.kind ) {
   case Literal::Kind::none: return "";
   case Literal::Kind::integer: return ( l.negative ? "-" : "" ) + std::to_string( l.number );
   case Literal::Kind::real: return realText( l.real );
   case Literal::Kind::text: return quotedText( l.text );
   case Literal::Kind::list: {
      std::string out;
      for( const Literal& item : l.items ) out += ( out.empty() ? "{ " : ", " ) + describe( item );
      return out.empty() ? "{}" : out + " }";
   }
   default: return l.text;
   }
}

std::string describe( const Range& range ) {
   if( range.empty() ) return "";
   if( range.isMax ) return "max " + describe( range.max );
   return "in " + describe( range.min ) + ".." + describe( range.max );
}

std::string describe( const Shape& s ) {
   const std::string held = std::string( s.holding == Holding::child ? "child " : s.holding == Holding::ref ? "ref " : "" ) +
                            ( s.nonnull ? "nonnull " : "" ) + ( s.isConst ? "const " : "" ) + describe( s.element );
   const std::string ordered = s.ordered ? "ordered " : "";
   switch( s.collection ) {
   case Collection::none: return held;
   case Collection::optional: return "optional " + held;
   case Collection::set: return ordered + "set " + describe( s.key );
   case Collection::queue: return "queue " + ( s.key.empty() ? "" : describe( s.key ) + " " ) + "of " + held;
   case Collection::table: return "table of " + held + " by " + s.by.text;
   case Collection::map: break;
   }
   return s.by.empty() ? ordered + "map " + describe( s.key ) + " -> " + held : ordered + "map of " + held + " by " + s.by.text;
}

std::string describe( const Op& op ) {
   std::string out = op.name.text + '(';
   const char* separator = " ";
   for( const Parameter& p : op.parameters ) {
      out += separator + std::string( p.isOut ? "out " : "" ) + p.name.text + " : " + ( p.isRef ? "ref " : "" ) +
             ( p.isConst ? "const " : "" ) + describe( p.type );
      separator = ", ";
   }
   out += op.parameters.empty() ? ")" : " )";
   if( op.result.type.empty() ) return out;
   return out + " : " + ( op.result.isRef ? "ref " : "" ) + ( op.result.isConst ? "const " : "" ) + describe( op.result.type );
}

const char* describe( Kind kind ) {
   switch( kind ) {
   case Kind::scalar: return "scalar";
   case Kind::composite: return "value";
   case Kind::wrapper: return "wrapper";
   case Kind::enumeration: return "enumeration";
   case Kind::entity: return "entity";
   case Kind::machine: return "machine";
   case Kind::externValue: return "extern value";
   case Kind::externEntity: return "extern entity";
   case Kind::externMachine: return "extern machine";
   }
   return "";
}

const char* describe( Role role ) {
   switch( role ) {
   case Role::plain: return "";
   case Role::key: return "key";
   case Role::param: return "param";
   case Role::constant: return "const";
   case Role::derivedView:
   case Role::derivedByHand: return "derived";
   case Role::narrow: return "narrow";
   case Role::watch: return "watch";
   case Role::owner: return "owner";
   }
   return "";
}

std::string typeText( const Attr& attr ) {
   return attr.role == Role::derivedView && attr.shape.element.empty() ? attr.viewOf.text + "." + attr.viewMember.text :
                                                                         describe( attr.shape );
}

}
