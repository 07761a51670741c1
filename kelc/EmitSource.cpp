#include "Emit.h"
#include "EmitParts.h"
#include "Order.h"

namespace Kelc {

namespace {

// Opens and closes namespaces as the types need them.
class Scope {
 public:
   explicit Scope( Writer& w ) : w_( w ) {}
   ~Scope() { close(); }

   void in( const std::string& nameSpace ) {
      if( open_ && nameSpace == current_ ) return;
      close();
      open_ = true;
      current_ = nameSpace;
      if( nameSpace.empty() ) return;
      w_.line( "namespace " + nameSpace + " {" );
   }
   void close() {
      if( !open_ ) return;
      open_ = false;
      if( current_.empty() ) return;
      w_.line( "}" );
   }

 private:
   Writer& w_;
   std::string current_;
   bool open_ = false;
};

void object( Writer& w, const Decl& decl ) {
   switch( decl.kind ) {
   case Kind::enumeration: return enumObject( w, decl );
   case Kind::entity: return entityObject( w, decl );
   case Kind::machine: return machineObject( w, decl );
   default: return valueObject( w, decl );
   }
}

}

std::string emitSource( const Module& module ) {
   Writer w;
   const auto order = definitionOrder( module );
   const std::string name = module.name.text;
   w.line( "// Written by kelc from the definitions of module " + name + "." );
   w.line( "#include <" + module.prefix + "/" + name + ".h>" );
   w.line( "#include <kel/GenericIf.h>" );
   w.line( "#pragma GCC diagnostic ignored \"-Winvalid-offsetof\"" );
   if( !module.trace.empty() ) {
      w.blank();
      w.line( "::Kel::TraceHandle& kelModule" + name + "::_defaultTraceHandle() {" );
      w.line( "   static ::Kel::TraceHandle& handle = ::Kel::traceHandle( " + cppText( module.trace ) + " );" );
      w.line( "   return handle;" );
      w.line( "}" );
   }
   {
      Scope scope( w );
      for( const Decl* decl : order ) {
         scope.in( decl->nameSpace );
         object( w, *decl );
      }
   }
   w.blank();
   std::vector< std::string > types, handles{ "0" };
   for( const auto& decl : module.decls ) {
      if( decl->isExtern() ) continue;
      types.push_back( "&" + typeObject( *decl ) );
      if( decl->kind == Kind::entity )
         handles.push_back( "2 + " + cppType( *decl ) + "::Attr_::count_ - " + baseClass( *decl ) + "::Attr_::count_" );
   }
   const std::string object = "kelModule" + name + "_";
   if( !types.empty() ) {
      w.line( "static ::Kel::Type* const kelTypes[] = {" );
      w.in();
      w.filled( types, "," );
      w.out();
      w.line( "};" );
   }
   if( handles.size() > 1 ) w.line( "static ::Kel::S32 kelHandles[ " + joined( handles, " + " ) + " ];" );
   w.line( "extern ::Kel::Module " + object + ";" );
   w.line( "constinit ::Kel::Module " + object + "{ .name = \"" + name + "\", .types = " +
           ( types.empty() ? "{}" : "kelTypes" ) + ( handles.size() > 1 ? ", .handles = kelHandles" : "" ) + " };" );
   w.line( "void kelInit" + name + "() { ::Kel::describeModule( " + object + " ); }" );
   return w.str();
}

}
