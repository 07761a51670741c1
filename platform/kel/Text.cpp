#include <kel/Text.h>

#include <algorithm>
#include <cmath>
#include <kel/Plan.h>

// One printer over the rows; TextParser.cpp has the parser. It recurses only from a value type into the types of its attributes,
// which are fixed when the type is compiled. A composite is printed along its plan: texts that never change and plain attributes
// in turn.

namespace Kel {

void TextOut::grow( std::size_t size ) {
   const auto used = static_cast< std::size_t >( at_ - begin_.get() );
   const std::size_t capacity = std::max( std::size_t( 256 ), std::max( used + size, used * 2 ) );
   std::unique_ptr< char[] > bigger( new char[ capacity ] );
   if( used ) std::memcpy( bigger.get(), begin_.get(), used );
   begin_ = std::move( bigger );
   at_ = begin_.get() + used;
   end_ = begin_.get() + capacity;
}

const char* enumeratorName( const Type& type, U32 value ) {
   const auto all = type.info().enumerators;
   if( value < all.size() && all[ value ].value == value ) return all[ value ].name;
   const auto at = std::lower_bound( all.begin(), all.end(), value, []( const Enumerator& e, U32 v ) { return e.value < v; } );
   return at != all.end() && at->value == value ? at->name : nullptr;
}

namespace {

void printEnumerator( const Type& type, U32 value, TextOut& out ) {
   if( const char* name = enumeratorName( type, value ) ) return out.append( name );
   out.append( type.shortName() );
   out.append( '(' );
   out.number( static_cast< S32 >( value ) );
   out.append( ')' );
}

// Every byte outside printable ASCII is escaped, so that any string is one line of plain text.
void printString( std::string_view text, TextOut& out ) {
   static const char hex[] = "0123456789abcdef";
   out.append( '\'' );
   for( const char c : text ) {
      const auto b = static_cast< unsigned char >( c );
      if( c == '\\' || c == '\'' ) {
         out.append( '\\' );
         out.append( c );
      } else if( c == '\n' || c == '\r' || c == '\t' ) {
         out.append( '\\' );
         out.append( c == '\n' ? 'n' : c == '\r' ? 'r' : 't' );
      } else if( b < 0x20 || b >= 0x7f ) {
         const char escape[] = { '\\', 'x', hex[ b >> 4 ], hex[ b & 15 ] };
         out.append( std::string_view( escape, 4 ) );
      } else {
         out.append( c );
      }
   }
   out.append( '\'' );
}

void printDouble( double v, TextOut& out ) {
   if( std::isnan( v ) ) return out.append( "float('nan')" );
   if( std::isinf( v ) ) return out.append( v < 0 ? "float('-inf')" : "float('inf')" );
   out.number( v );
}

void printAs( TypeCode code, const Type& type, const void* at, TextOut& out );

// Numbers of up to four digits are put together without a branch.
char* printNumber( char* to, U32 v ) {
   if( v > 9999 ) return std::to_chars( to, to + 10, v ).ptr;
   const U32 all = v / 1000 | v / 100 % 10 << 8 | v / 10 % 10 << 16 | v % 10 << 24;
   const U32 digits = 1 + ( v > 9 ) + ( v > 99 ) + ( v > 999 );
   const U32 text = ( all | 0x30303030 ) >> 8 * ( 4 - digits );
   std::memcpy( to, &text, sizeof text );
   return to + digits;
}

// In whole blocks: there is room behind `to`, and a plan's texts can be read on.
char* copyText( char* to, std::string_view text ) {
   for( std::size_t i = 0; i < text.size(); i += Plan::block ) std::memcpy( to + i, text.data() + i, Plan::block );
   return to + text.size();
}

void printComposite( const Type& type, const void* value, TextOut& out ) {
   const Plan& plan = type.plan();
   char* to = out.reserve( plan.room );
   for( const Plan::Step& step : plan.steps ) {
      to = copyText( to, step.before );
      const void* at = static_cast< const char* >( value ) + step.offset;
      switch( step.code ) {
      case TypeCode::u8: to = printNumber( to, load< U8 >( at ) ); break;
      case TypeCode::u16: to = printNumber( to, load< U16 >( at ) ); break;
      case TypeCode::u32: to = printNumber( to, load< U32 >( at ) ); break;
      default:
         out.wrote( to );
         printAs( step.code, *step.printed, at, out );
         to = out.reserve( plan.room );
      }
   }
   out.wrote( copyText( to, plan.end ) );
}

void printAs( TypeCode code, const Type& type, const void* at, TextOut& out ) {
   switch( code ) {
   case TypeCode::boolean: return out.append( load< bool >( at ) ? "True" : "False" );
   case TypeCode::u8: return out.number( unsigned( load< U8 >( at ) ) );
   case TypeCode::u16: return out.number( load< U16 >( at ) );
   case TypeCode::u32: return out.number( load< U32 >( at ) );
   case TypeCode::u64: return out.number( load< U64 >( at ) );
   case TypeCode::s8: return out.number( int( load< S8 >( at ) ) );
   case TypeCode::s16: return out.number( load< S16 >( at ) );
   case TypeCode::s32: return out.number( load< S32 >( at ) );
   case TypeCode::s64: return out.number( load< S64 >( at ) );
   case TypeCode::f64: return printDouble( load< double >( at ), out );
   case TypeCode::string8: return printString( *static_cast< const String8* >( at ), out );
   case TypeCode::name: return printString( static_cast< const Name* >( at )->view(), out );
   case TypeCode::enumeration:
      out.append( '\'' );
      printEnumerator( type, load< U32 >( at ), out );
      return out.append( '\'' );
   case TypeCode::scalar: {
      const Attr& row = type.ownAttrs().front();
      return printAs( row.code, *row.type, static_cast< const char* >( at ) + row.offset, out );
   }
   case TypeCode::composite: return printComposite( type, at, out );
   case TypeCode::external: {
      const ExternalOps& ops = *type.info().external;
      char* text = out.reserve( ops.maxText + 2 );
      *text++ = '\'';
      text = ops.print( at, text );
      *text++ = '\'';
      return out.wrote( text );
   }
   case TypeCode::entity:
   case TypeCode::machine: break;
   }
   throw InternalException( std::string( type.qualifiedName() ) + " is no value and has no text form" );
}

}

void print( const Type& type, const void* value, TextOut& out ) { printAs( type.code(), type, value, out ); }

void printBare( const Type& type, const void* value, TextOut& out ) {
   if( type.code() == TypeCode::enumeration ) printEnumerator( type, load< U32 >( value ), out );
   else print( type, value, out );
}

std::string textOf( const Type& type, const void* value ) {
   TextOut out;
   print( type, value, out );
   return out.str();
}

}
