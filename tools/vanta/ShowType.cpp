#include "ShowType.h"

#include "Output.h"

#include <algorithm>

namespace Tool {

namespace {

using Value = rapidjson::Value;
using Cells = std::vector< std::string >;

/// Reads the members of one type.
struct Reader {
   const Schema::Type& type;

   std::string text( const Value& object, const char* member ) const { return std::string( textOf( type, object, member ) ); }
   const Value* objects( const Value& object, const char* member ) const {
      return listOf( type, object, member, rapidjson::kObjectType );
   }
   Cells texts( const Value& object, const char* member ) const {
      Cells out;
      if( const Value* all = listOf( type, object, member, rapidjson::kStringType ) ) {
         for( const Value& v : all->GetArray() ) out.emplace_back( v.GetString(), v.GetStringLength() );
      }
      return out;
   }
   bool flag( const char* member ) const {
      const auto found = type.value->FindMember( member );
      return found != type.value->MemberEnd() && found->value.IsTrue();
   }
};

/// A comment with its note: "Learn source addresses. (constructor parameter)".
std::string meaning( const Reader& in, const Value& object ) {
   const std::string text = in.text( object, "documentation" ), note = in.text( object, "note" );
   return note.empty() ? text : text + ( text.empty() ? "(" : " (" ) + note + ")";
}

void section( const char* heading ) { print( "\n" + bold( heading ) + "\n" ); }

/// Paragraphs, `indent` columns from the left and the lines behind the first two more.
void paragraphs( std::string_view text, std::size_t indent = 0 ) {
   const std::size_t width = outputWidth() - std::min( outputWidth() - 1, indent * 2 );
   std::string before( indent, ' ' );
   for( const std::string& line : wrapped( text, width ) ) {
      print( ( line.empty() ? line : before + line ) + "\n" );
      before.resize( indent * 2, ' ' );
   }
}

void list( const char* heading, const Cells& items ) {
   if( items.empty() ) return;
   section( heading );
   for( const std::string& item : items ) paragraphs( item, 2 );
}

std::string kindOf( const Reader& in ) {
   const Value& object = *in.type.value;
   std::string out = in.text( object, "kind" );
   auto add = [ & ]( const char* before, const std::string& text ) {
      if( !text.empty() ) out += before + text;
   };
   add( " of ", in.text( object, "basis" ) );
   add( " ", in.text( object, "range" ) );
   add( ", by default ", in.text( object, "default" ) );
   add( " derived from ", in.text( object, "base" ) );
   if( in.flag( "ordered" ) ) out += ", ordered";
   return out + "; module " + in.type.module;
}

void attributes( const Reader& in ) {
   if( const Value* all = in.objects( *in.type.value, "attributes" ) ) {
      WrappedTable table( { "ATTRIBUTE", "TYPE", "DEFAULT", "MEANING" } );
      for( const Value& v : all->GetArray() )
         table.row( { in.text( v, "name" ), in.text( v, "type" ), in.text( v, "default" ), meaning( in, v ) } );
      print( "\n" );
      table.print();
   }
   if( const Value* all = in.objects( *in.type.value, "inherited" ) ) {
      for( const Value& v : all->GetArray() ) {
         std::string names;
         for( const std::string& name : in.texts( v, "attributes" ) ) names += ( names.empty() ? " " : ", " ) + name;
         print( "\n" );
         paragraphs( "From " + in.text( v, "from" ) + ":" + names );
      }
   }
}

void enumerators( const Reader& in ) {
   const Value* all = in.objects( *in.type.value, "enumerators" );
   if( !all ) return;
   WrappedTable table( { "VALUE", "NAME", "MEANING" } );
   for( const Value& v : all->GetArray() ) {
      const auto number = v.FindMember( "value" );
      const bool known = number != v.MemberEnd() && number->value.IsUint64();
      const std::string value = known ? std::to_string( number->value.GetUint64() ) : "?";
      table.row( { value, in.text( v, "name" ), in.text( v, "documentation" ) } );
   }
   print( "\n" );
   table.print();
}

/// Objects of two texts, as "FIRST: SECOND".
Cells pairs( const Reader& in, const char* member, const char* first, const char* second ) {
   Cells out;
   if( const Value* all = in.objects( *in.type.value, member ) ) {
      for( const Value& v : all->GetArray() ) {
         const std::string behind = in.text( v, second );
         out.push_back( in.text( v, first ) + ( behind.empty() ? "" : ": " + behind ) );
      }
   }
   return out;
}

Cells nestedNames( const Reader& in ) {
   Cells out;
   if( const Value* all = in.objects( *in.type.value, "nested" ) ) {
      for( const Value& v : all->GetArray() ) out.push_back( in.text( v, "name" ) );
   }
   return out;
}

}

void showType( const Schema::Type& type ) {
   const Reader in{ type };
   print( bold( printable( type.name ) ) + "\n" );
   paragraphs( kindOf( in ) );
   if( const std::string text = in.text( *type.value, "documentation" ); !text.empty() ) print( "\n" ), paragraphs( text );
   list( "Created by", in.texts( *type.value, "creation" ) );
   attributes( in );
   enumerators( in );
   list( "Operations", pairs( in, "operations", "signature", "documentation" ) );
   list( "Reactions", pairs( in, "reactions", "on", "runs" ) );
   list( "Notifications", in.texts( *type.value, "notifications" ) );
   list( "Messages", pairs( in, "messages", "text", "when" ) );
   list( "Types inside", nestedNames( in ) );
   flushOutput();
}

void showTypeAsJson( const Schema::Type& type ) {
   rapidjson::StringBuffer text;
   rapidjson::Writer< rapidjson::StringBuffer > writer( text );
   rapidjson::Document out( rapidjson::kObjectType );
   auto& allocator = out.GetAllocator();
   out.AddMember( "module", Value( type.module.c_str(), rapidjson::SizeType( type.module.size() ), allocator ), allocator );
   for( const auto& member : type.value->GetObject() )
      out.AddMember( Value( member.name, allocator ), Value( member.value, allocator ), allocator );
   out.Accept( writer );
   print( std::string_view( text.GetString(), text.GetSize() ) );
   print( "\n" );
   flushOutput();
}

}
