#include "Emit.h"
#include "EmitParts.h"
#include "Order.h"

#include <algorithm>
#include <utility>
#include <set>

namespace Kelc {

namespace {

// An attribute may stand on one level only: `namespace [[...]] A::B` is none.
void openPublic( Writer& w, const std::string& nameSpace ) {
   const auto colon = nameSpace.find( "::" );
   const std::string visible = "namespace [[gnu::visibility(\"default\")]] ";
   if( colon == std::string::npos ) w.line( visible + nameSpace + " {" );
   else w.line( visible + nameSpace.substr( 0, colon ) + " { namespace " + nameSpace.substr( colon + 2 ) + " {" );
}

std::string closing( const std::string& nameSpace ) {
   return nameSpace.find( "::" ) == std::string::npos ? "}" : "} }";
}

void forward( Writer& w, const std::vector< const Decl* >& order ) {
   std::vector< std::string > spaces;
   for( const Decl* decl : order ) {
      if( std::find( spaces.begin(), spaces.end(), decl->nameSpace ) == spaces.end() ) spaces.push_back( decl->nameSpace );
   }
   for( const auto& space : spaces ) {
      w.blank();
      if( !space.empty() ) openPublic( w, space );
      w.line( "using ::Kel::operator<<, ::Kel::stringValue, ::Kel::valueToStrep;" );
      std::vector< std::string > names;
      for( const Decl* decl : order ) {
         if( decl->nameSpace != space ) continue;
         names.push_back( decl->kind == Kind::enumeration ? "enum class " + decl->name.text + " : ::Kel::U32;" :
                                                            "class " + decl->name.text + ";" );
      }
      w.filled( names, "" );
      if( !space.empty() ) w.line( closing( space ) );
   }
}

void define( Writer& w, const Decl& decl ) {
   switch( decl.kind ) {
   case Kind::enumeration: return enumClass( w, decl );
   case Kind::entity: return entityClass( w, decl );
   case Kind::machine: return machineClass( w, decl );
   default: return valueClass( w, decl );
   }
}

void includes( Writer& w, const Module& module ) {
   std::set< std::string > all{ "kel/Registry.h", "kel/Value.h" };
   for( const auto& header : includesOf( module ) ) all.insert( header );
   for( const auto& decl : module.decls ) {
      if( decl->kind == Kind::entity ) all.insert( "kel/Entity.h" );
      if( decl->kind == Kind::machine ) all.insert( "kel/Machine.h" );
   }
   if( !module.trace.empty() ) all.insert( "kel/Trace.h" );
   for( const auto& header : all ) w.line( "#include <" + header + ">" );
}

}

std::string emitHeader( const Module& module ) {
   Writer w;
   const auto order = definitionOrder( module );
   const std::string name = module.name.text;
   w.line( "// Written by kelc from the definitions of module " + name + "." );
   w.line( "#pragma once" );
   w.blank();
   includes( w, module );
   w.blank();
   w.line( "/// Describes the module's types to the global introspection reactor, once, while that exists and is enabled." );
   w.line( "[[gnu::visibility(\"default\")]] void kelInit" + name + "();" );
   if( !module.trace.empty() ) {
      w.blank();
      w.line( "namespace kelModule" + name + " {" );
      w.line( "/// The module's trace handle, \"" + module.trace + "\", made on first call." );
      w.line( "[[gnu::visibility(\"default\")]] ::Kel::TraceHandle& _defaultTraceHandle();" );
      w.line( "}" );
   }
   forward( w, order );
   std::string current;
   bool isOpen = false;
   auto close = [ & ] {
      if( std::exchange( isOpen, false ) && !current.empty() ) w.line( closing( current ) );
   };
   for( const Decl* decl : order ) {
      if( !isOpen || decl->nameSpace != current ) {
         close();
         isOpen = true;
         current = decl->nameSpace;
         w.blank();
         if( !current.empty() ) openPublic( w, current );
      }
      w.blank();
      define( w, *decl );
   }
   close();
   return w.str();
}

}
