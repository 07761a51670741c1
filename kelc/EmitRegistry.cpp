#include "Cpp.h"
#include "Emit.h"

namespace Kelc {

std::string emitRegistry( const std::string& library, const std::vector< const Module* >& modules ) {
   Writer w;
   w.line( "// Written by kelc: the load order of lib" + library + "'s modules and the names of its types." );
   w.line( "#include <kel/Registry.h>" );
   w.blank();
   for( const Module* m : modules ) {
      w.pair( "extern ::Kel::Module kelModule" + m->name.text + "_;", "[[gnu::visibility(\"default\")]] void kelInit" + m->name.text + "();" );
   }
   w.blank();
   w.line( "namespace {" );
   w.blank();
   w.line( "/// The qualified names of the library's types, for readers that do not run it: per module the last registered "
           "first, each group at a" );
   w.line( "/// 32-byte boundary." );
   w.line( "[[gnu::used, gnu::retain, gnu::section( \".kel.type\" ), gnu::aligned( 32 )]] const struct {" );
   for( const Module* m : modules ) {
      std::vector< std::string > names;
      std::size_t bytes = 0;
      for( auto decl = m->decls.rbegin(); decl != m->decls.rend(); ++decl ) {
         if( ( *decl )->isExtern() ) continue;
         names.push_back( "\"" + ( *decl )->qualifiedName() + "\\0\"" );
         bytes += ( *decl )->qualifiedName().size() + 1;
      }
      if( names.empty() ) continue;
      names.back().replace( names.back().size() - 3, 3, "\";" ); // the last one's zero is the literal's own
      w.line( "   alignas( 32 ) char " + m->name.text + "[ " + std::to_string( bytes ) + " ] =" );
      w.in(), w.in();
      w.filled( names, "" );
      w.out(), w.out();
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
