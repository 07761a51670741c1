#include "Describe.h"
#include "Emit.h"
#include "Model.h"
#include "Names.h"

#include <algorithm>

namespace Kelc {

namespace {

// A comment's text, without what Markdown would read as its own. Each paragraph stands on one line; between two of them is `gap`:
// a table's cell or a list's item has its own.
std::string prose( std::string_view text, const char* gap = "\n\n" ) {
   std::string out;
   for( std::size_t i = 0; i < text.size(); ++i ) {
      const char c = text[ i ];
      if( c == '\n' ) {
         const std::size_t lines = std::min( text.find_first_not_of( '\n', i ), text.size() ) - i;
         out += lines == 1 ? " " : i + lines == text.size() ? "" : gap;
         i += lines - 1;
      } else if( c == '|' || c == '<' || c == '*' || c == '\\' ) out += '\\', out += c;
      else out += c;
   }
   return out;
}

constexpr char cellGap[] = "<br><br>";
constexpr char itemGap[] = "\n\n  ";

std::string code( std::string_view text ) {
   std::string out = "`";
   for( const char c : text ) out += c == '|' ? '/' : c == '`' ? '\'' : c;
   return text.empty() ? "" : out + "`";
}

std::string meaning( const Attr& attr ) {
   std::string notes;
   auto note = [ & ]( const char* text ) { notes += ( notes.empty() ? "" : ", " ) + std::string( text ); };
   if( attr.role == Role::constant ) note( "constant" );
   if( attr.role == Role::key ) note( "the key, immutable" );
   if( attr.role == Role::param ) note( attr.paramVar ? "constructor parameter" : "constructor parameter, immutable" );
   if( attr.role == Role::derivedView || attr.role == Role::derivedByHand ) note( "computed on each read" );
   if( attr.silent ) note( "changes are not announced" );
   if( attr.unlogged ) note( "not in the attribute log" );
   if( attr.storeThenCheck ) note( "stored even when refused" );
   const std::string text = prose( attr.doc, cellGap );
   return notes.empty() ? text : text.empty() ? "(" + notes + ")" : text + " (" + notes + ")";
}

std::string header( const Decl& decl, int depth ) {
   std::string out =
      std::string( static_cast< std::size_t >( depth ), '#' ) + " " + decl.qualifiedName() + "\n\n*" + describe( decl.kind );
   if( !decl.basis.empty() ) out += " of " + describe( decl.basis ) + ( decl.range.empty() ? "" : " " + describe( decl.range ) );
   if( !decl.base.empty() ) out += " derived from " + describe( decl.base );
   if( decl.isValue() && decl.kind != Kind::enumeration ) out += isOrdered( decl ) ? ", ordered" : "";
   if( decl.isValue() && !isHashed( decl ) ) out += ", without a hash";
   out += "*\n\n";
   return decl.doc.empty() ? out : out + prose( decl.doc ) + "\n\n";
}

std::string attributes( const Decl& decl ) {
   if( decl.attrs.empty() ) return "";
   std::string out = "| Attribute | Type | Default | Meaning |\n|---|---|---|---|\n";
   for( const auto& attr : decl.attrs ) {
      out += "| " + code( attr->name.text ) + " | " + code( typeText( *attr ) ) + " | " + code( describe( attr->init ) ) +
             " | " + meaning( *attr ) + " |\n";
   }
   return out + "\n";
}

std::string enumerators( const Decl& decl ) {
   if( decl.enumerators.empty() ) return "";
   std::string out = "| Value | Name | Meaning |\n|---|---|---|\n";
   for( const Enumerator& e : decl.enumerators ) {
      out += "| " + std::to_string( e.value ) + " | " + code( e.name.text ) + " | " + prose( e.doc, cellGap ) + " |\n";
   }
   return out + "\n";
}

std::string operations( const std::vector< Op >& ops, const std::string& owner ) {
   std::string out;
   for( const Op& op : ops )
      out += "- " + code( owner + describe( op ) ) + ( op.doc.empty() ? "" : ": " + prose( op.doc, itemGap ) ) + "\n";
   return out;
}

std::string type( const Decl& decl, int depth ) {
   std::string out = header( decl, depth ) + attributes( decl ) + enumerators( decl );
   std::string ops = operations( decl.ops, "" );
   for( const auto& attr : decl.attrs ) {
      if( attr->watch ) ops += operations( attr->watch->ops, reactorName( *attr ) + "::" );
   }
   if( !ops.empty() ) out += "Operations:\n\n" + ops + "\n";
   for( const auto& nested : decl.nested ) out += type( *nested, depth + 1 );
   return out;
}

}

std::string emitMarkdown( const Module& module ) {
   std::string out = "# Module " + module.name.text + "\n\n";
   if( !module.doc.empty() ) out += prose( module.doc ) + "\n\n";
   if( !module.trace.empty() ) out += "Trace handle: " + code( module.trace ) + "\n\n";
   for( const auto& decl : module.decls ) out += type( *decl, 2 );
   while( out.ends_with( "\n\n" ) ) out.pop_back();
   return out;
}

}
