#include "Cpp.h"
#include "Emit.h"

namespace Kelc {

std::string emitRegistry( const std::string& library, const std::vector< const Module* >& modules ) {
   Writer w;
   w.line( "// Written by kelc: the load order of lib" + library + "'s modules and the names of its types." );
   w.line( "#include <kel/Registry.h>" );
   w.blank();
   for( const Module* m : modules ) {
      w.line( "extern ::Kel::Module kelModule" + m->name.text + "_;" );
      w.line( "[[gnu::visibility(\"default\")]] void kelInit" + m->name.text + "();" );
   }
   w.blank();
   w.line( "namespace {" );
   w.blank();
   w.line( "/// The qualified names of the library's types, for readers that do not run it: per module the last registered "
           "first, each group at a" );
   w.line( "/// 32-byte boundary." );
   w.line( "[[gnu::used, gnu::retain, gnu::section( \".kel.type\" ), gnu::aligned( 32 )]] const struct {" );
   for( const Module* m : modules ) {
      std::string names;
      for( auto decl = m->decls.rbegin(); decl != m->decls.rend(); ++decl ) {
         if( !( *decl )->isExtern() ) names += ( names.empty() ? "" : "\\0\"\n      \"" ) + ( *decl )->qualifiedName();
      }
      if( names.empty() ) continue;
      w.line( "   alignas( 32 ) char " + m->name.text + "[ sizeof\n      \"" + names + "\" ] =\n      \"" + names + "\";" );
   }
   w.line( "} kelTypes;" );
   w.blank();
   w.line( "[[gnu::constructor( 200 )]] void initialise" + library + "() {" );
   for( const Module* m : modules )
      w.line( "   ::Kel::initialiseModule( kelModule" + m->name.text + "_, kelInit" + m->name.text + " );" );
   w.line( "}" );
   w.blank();
   w.line( "}" );
   return w.str();
}

}
