#include "Describe.h"
#include "Emit.h"
#include "Markdown.h"
#include "Model.h"
#include "Names.h"
#include "Reference.h"

namespace Kelc {

namespace {

std::string meaning( const Attr& attr ) {
   const std::string text = prose( attr.doc, cellGap ), notes = prose( noteText( attr ), cellGap );
   return notes.empty() ? text : text.empty() ? "(" + notes + ")" : text + " (" + notes + ")";
}

std::string header( const Decl& decl, int depth ) {
   std::string out =
      std::string( static_cast< std::size_t >( depth ), '#' ) + " " + decl.qualifiedName() + "\n\n*" + describe( decl.kind );
   if( !decl.basis.empty() ) out += " of " + describe( decl.basis ) + ( decl.range.empty() ? "" : " " + describe( decl.range ) );
   if( decl.kind == Kind::scalar && !decl.init.empty() ) out += ", by default " + describe( decl.init );
   if( !decl.base.empty() ) out += " derived from " + describe( decl.base );
   if( decl.isValue() && decl.kind != Kind::enumeration ) out += isOrdered( decl ) ? ", ordered" : "";
   if( decl.isValue() && !isHashed( decl ) ) out += ", without a hash";
   out += "*\n\n";
   return decl.doc.empty() ? out : out + prose( decl.doc ) + "\n\n";
}

std::string listed( const Strings& all ) {
   std::string out;
   for( const std::string& text : all ) out += ( out.empty() ? "" : ", " ) + code( text );
   return out;
}

std::string created( const Decl& decl ) {
   const Strings calls = creation( decl );
   if( calls.empty() ) return "";
   std::string out = "Created by:\n\n";
   for( const std::string& call : calls ) out += "- " + code( call ) + "\n";
   return out + "\n";
}

std::string attributes( const Decl& decl ) {
   std::string out;
   if( !decl.attrs.empty() ) {
      out += "| Attribute | Type | Default | Meaning |\n|---|---|---|---|\n";
      for( const auto& attr : decl.attrs ) {
         out += "| " + code( attr->name.text ) + " | " + code( typeText( *attr ) ) + " | " + code( defaultText( *attr ) );
         out += " | " + meaning( *attr ) + " |\n";
      }
      out += "\n";
   }
   for( const auto& [ from, names ] : inherited( decl ) )
      out += "From " + code( from->qualifiedName() ) + ": " + listed( names ) + "\n\n";
   return out;
}

std::string enumerators( const Decl& decl ) {
   if( decl.enumerators.empty() ) return "";
   std::string out = "| Value | Name | Meaning |\n|---|---|---|\n";
   for( const Enumerator& e : decl.enumerators ) {
      out += "| " + std::to_string( e.value ) + " | " + code( e.name.text ) + " | " + prose( e.doc, cellGap ) + " |\n";
   }
   return out + "\n";
}

std::string operations( const Decl& decl ) {
   std::string out;
   for( const auto& [ signature, op ] : operationsOf( decl ) ) {
      out += "- " + code( ( op->isStatic ? "static " : "" ) + signature );
      out += ( op->doc.empty() ? "" : ": " + prose( op->doc, itemGap ) ) + "\n";
   }
   return out.empty() ? "" : "Operations:\n\n" + out + "\n";
}

std::string reacts( const Decl& decl ) {
   std::string out;
   for( const auto& [ event, runs ] : reactions( decl ) ) out += "| " + code( event ) + " | " + code( runs ) + " |\n";
   return out.empty() ? "" : "Reactions:\n\n| On | Runs |\n|---|---|\n" + out + "\n";
}

std::string notified( const Decl& decl ) {
   const Strings all = notifications( decl );
   return all.empty() ? "" : "Notifications: " + listed( all ) + "\n\n";
}

std::string refusals( const Decl& decl ) {
   std::string out;
   for( const auto& [ text, when ] : messages( decl ) ) out += "- " + code( text ) + ": " + when + "\n";
   return out.empty() ? "" : "Messages:\n\n" + out + "\n";
}

std::string type( const Decl& decl, int depth ) {
   std::string out = header( decl, depth ) + created( decl ) + attributes( decl ) + enumerators( decl ) + operations( decl ) +
                     reacts( decl ) + notified( decl ) + refusals( decl );
   for( const auto& nested : decl.nested ) out += type( *nested, depth + 1 );
   return out;
}

std::string withoutLastLine( std::string page ) {
   while( page.ends_with( "\n\n" ) ) page.pop_back();
   return page;
}

// A row of the index. Headings have the anchors that are usual: in small letters, without what is no letter or digit.
std::string indexRow( const std::string& page, const Decl& decl ) {
   std::string anchor;
   for( const char c : decl.qualifiedName() ) {
      if( c != ':' ) anchor += c >= 'A' && c <= 'Z' ? static_cast< char >( c - 'A' + 'a' ) : c;
   }
   std::string out = "| [" + decl.qualifiedName() + "](" + page + "#" + anchor + ") | " + describe( decl.kind ) + " | " +
                     prose( firstSentence( decl.doc ), cellGap ) + " |\n";
   for( const auto& nested : decl.nested ) out += indexRow( page, *nested );
   return out;
}

}

std::string emitMarkdown( const Module& module ) {
   std::string out = "# Module " + module.name.text + "\n\n";
   if( !module.doc.empty() ) out += prose( module.doc ) + "\n\n";
   if( !module.trace.empty() ) out += "Trace handle: " + code( module.trace ) + "\n\n";
   for( const auto& decl : module.decls ) out += type( *decl, 2 );
   return withoutLastLine( std::move( out ) );
}

std::string emitIndex( const std::string& library, const std::vector< const Module* >& modules ) {
   std::string out = "# Types of lib" + library + "\n\n";
   for( const Module* module : modules ) {
      const std::string page = module->name.text + ".md";
      out += "## [" + module->name.text + "](" + page + ")\n\n";
      if( !module->doc.empty() ) out += prose( module->doc ) + "\n\n";
      std::string rows;
      for( const auto& decl : module->decls ) rows += indexRow( page, *decl );
      if( !rows.empty() ) out += "| Type | Kind | Meaning |\n|---|---|---|\n" + rows + "\n";
   }
   return withoutLastLine( std::move( out ) );
}

}
