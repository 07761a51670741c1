// Files are read depth first, so that a module stands behind everything it imports. A file is known by its canonical path: it is
// read once however it is spelled, and a file that is met again while its own imports are read closes a cycle.
#include "Program.h"

#include "Parser.h"

#include <filesystem>

namespace Kelc {

namespace {

constexpr std::size_t maxImportDepth = 100;

std::string canonical( const std::string& path ) {
   std::error_code error;
   const auto out = std::filesystem::weakly_canonical( path, error );
   return error ? path : out.string();
}

std::string join( const std::string& scope, const std::string& name ) {
   return scope.empty() ? name : scope + "::" + name;
}

std::string enclosing( const std::string& scope ) {
   const auto colon = scope.rfind( "::" );
   return colon == std::string::npos ? std::string() : scope.substr( 0, colon );
}

// `bool` is the language's own; all other built-in types come from a definition file.
std::unique_ptr< Decl > makeBoolean() {
   auto decl = std::make_unique< Decl >();
   decl->kind = Kind::externValue;
   decl->name.text = "bool";
   decl->ordered = true;
   decl->literals = LiteralForm::boolean;
   decl->size = decl->align = 1;
   return decl;
}

}

Program::Program( std::vector< ImportDir > dirs, Diagnostics& diagnostics )
   : dirs_( std::move( dirs ) ), diagnostics_( diagnostics ), boolean_( makeBoolean() ) {
   types_[ "bool" ] = boolean_.get();
}

Module* Program::load( const std::string& path, const std::string& prefix, std::string& why ) {
   const auto known = byPath_.find( canonical( path ) );
   Module* module = known != byPath_.end() ? known->second : loadFile( path, prefix, why );
   if( module ) module->isMain = true;
   return module;
}

Module* Program::loadFile( const std::string& path, const std::string& prefix, std::string& why ) {
   std::string text;
   if( !readFile( path, text, why ) ) return nullptr;
   sources_.push_back( std::make_unique< Source >( path, std::move( text ) ) );
   const auto key = canonical( path );
   byPath_[ key ] = nullptr;
   reading_.push_back( { key, {} } );
   auto module = parse( *sources_.back(), diagnostics_ );
   module->prefix = prefix;
   loadImports( *module );
   reading_.pop_back();
   diagnostics_.sourceIs( module->source );
   byPath_[ key ] = module.get();
   modules_.push_back( std::move( module ) );
   return modules_.back().get();
}

void Program::loadImports( Module& module ) {
   for( Import& import : module.imports ) {
      reading_.back().second = import.span;
      if( reading_.size() > maxImportDepth ) {
         diagnostics_.error( import.span, "imports nest more than " + std::to_string( maxImportDepth ) + " deep" );
         return;
      }
      import.module = resolveImport( import );
   }
}

// The directory nearest to a file says how its header is included: a library may lie inside of another's tree.
std::string Program::prefixOf( const std::string& canonicalPath, const std::string& found ) const {
   std::string prefix = found;
   std::size_t nearest = 0;
   for( const ImportDir& dir : dirs_ ) {
      const std::string inside = canonical( dir.path ) + "/";
      if( inside.size() <= nearest || !canonicalPath.starts_with( inside ) ) continue;
      nearest = inside.size();
      prefix = dir.prefix;
   }
   return prefix;
}

Module* Program::resolveImport( const Import& import ) {
   std::string tried;
   for( const ImportDir& dir : dirs_ ) {
      const auto path = ( std::filesystem::path( dir.path ) / import.path ).string();
      const auto key = canonical( path );
      if( const auto known = byPath_.find( key ); known != byPath_.end() ) {
         if( known->second ) return known->second;
         Error& error = diagnostics_.error( import.span, "this import closes a cycle" );
         bool inCycle = false;
         for( std::size_t i = 0; i + 1 < reading_.size(); ++i ) {
            inCycle |= reading_[ i ].first == key;
            if( inCycle ) error.note( reading_[ i ].second, "which is reached through this import" );
         }
         return nullptr;
      }
      std::string why;
      if( Module* module = loadFile( path, prefixOf( key, dir.prefix ), why ) ) return module;
      tried += "\n   " + path + ": " + why;
   }
   diagnostics_.error( import.span,
                       "can't find the imported file" + ( dirs_.empty() ? ": no -I directory is given" : "; tried" + tried ) );
   return nullptr;
}

std::vector< std::string > Program::files() const {
   std::vector< std::string > out;
   for( const auto& source : sources_ ) out.push_back( source->path() );
   return out;
}

void Program::declare() {
   for( const auto& module : modules_ ) {
      const Ident& name = module->name;
      const auto [ at, isNew ] = byName_.emplace( name.text, module.get() );
      if( !isNew && !name.empty() ) {
         diagnostics_.error( name.span, "module " + name.text + " is already defined by another file" )
            .note( at->second->name.span, "the other file says so here" );
      }
      for( const auto& decl : module->decls ) declare( *decl );
   }
}

void Program::declare( Decl& decl ) {
   for( std::string scope = decl.outer ? "" : decl.nameSpace; !scope.empty(); scope = enclosing( scope ) )
      nameSpaces_.insert( scope );
   for( const auto& nested : decl.nested ) {
      nested->nameSpace = decl.nameSpace;
      nested->outer = &decl;
      declare( *nested );
   }
   const auto [ at, isNew ] = types_.emplace( decl.qualifiedName(), &decl );
   if( isNew ) return;
   diagnostics_.error( decl.name.span, decl.qualifiedName() + " is already declared" )
      .note( at->second->name.span, "it is declared here" );
}

Decl* Program::find( const std::string& qualifiedName ) const {
   const auto at = types_.find( qualifiedName );
   return at == types_.end() ? nullptr : at->second;
}

// Looks in one scope. As in C++, the nearest scope that knows the first part of a qualified name decides; `stop` says that it
// did.
Decl* Program::inScope( const std::string& scope, const std::string& name, std::string* hidden, bool& stop ) const {
   const auto colon = name.find( "::" );
   if( Decl* decl = find( join( scope, name ) ) ) return decl;
   if( colon == std::string::npos ) return nullptr;
   const auto first = join( scope, name.substr( 0, colon ) );
   stop = nameSpaces_.contains( first ) || find( first );
   if( stop && hidden && find( name ) ) *hidden = first;
   return nullptr;
}

Decl* Program::lookup( const std::string& name, const Decl* scope, const std::string& nameSpace, std::string* hidden ) const {
   if( name.starts_with( "::" ) ) return find( name.substr( 2 ) );
   bool stop = false;
   for( const Decl* type = scope; type; type = type->outer ) {
      const Decl* base = type;
      for( int i = 0; base && i < 64; ++i, base = base->base.decl ) {
         if( Decl* decl = inScope( base->qualifiedName(), name, hidden, stop ) ) return decl;
      }
   }
   for( std::string space = nameSpace;; space = enclosing( space ) ) {
      Decl* decl = inScope( space, name, hidden, stop );
      if( decl || stop ) return decl;
      if( space.empty() ) break;
   }
   return name.find( "::" ) == std::string::npos ? find( "Kel::" + name ) : nullptr;
}

std::vector< std::string_view > Program::typeNames() const {
   std::vector< std::string_view > out;
   for( const auto& [ name, decl ] : types_ ) {
      out.push_back( name );
      out.push_back( decl->name.text );
   }
   return out;
}

}
