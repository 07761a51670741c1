#pragma once

#include "Ast.h"
#include "Diagnostics.h"

#include <unordered_map>
#include <unordered_set>

namespace Kelc {

/// A directory where imported definition files are looked for, and the prefix of the generated headers of all files below it that no
/// other such directory is nearer to.
struct ImportDir {
   std::string path;
   std::string prefix;
};

/// A definition file with everything that it imports, and the names that they declare.
class Program {
 public:
   Program( std::vector< ImportDir > dirs, Diagnostics& diagnostics );

   /// Reads a file and its imports. Returns null with the reason in `why` when the file itself can't be read; everything else is
   /// an error of the definitions. Call it once per main file.
   Module* load( const std::string& path, const std::string& prefix, std::string& why );

   /// All modules, imported ones before those that import them.
   const std::vector< std::unique_ptr< Module > >& modules() const { return modules_; }
   /// The files that were read, for the depfile.
   std::vector< std::string > files() const;

   /// Enters the declared names. REQUIRES: all files are loaded.
   void declare();
   /// What a name means inside `scope` (a type) or, without one, in a namespace; null when it means nothing. When a nearer name
   /// hides the one that was meant, `hidden` tells what it was taken for.
   Decl* lookup( const std::string& name, const Decl* scope, const std::string& nameSpace, std::string* hidden = nullptr ) const;
   /// The type with this qualified name, or null.
   Decl* find( const std::string& qualifiedName ) const;
   /// The names of all types, for suggestions: qualified and short.
   std::vector< std::string_view > typeNames() const;

 private:
   Module* loadFile( const std::string& path, const std::string& prefix, std::string& why );
   std::string prefixOf( const std::string& canonicalPath, const std::string& found ) const;
   void loadImports( Module& module );
   Module* resolveImport( const Import& import );
   void declare( Decl& decl );
   Decl* inScope( const std::string& scope, const std::string& name, std::string* hidden, bool& stop ) const;

   std::vector< ImportDir > dirs_;
   Diagnostics& diagnostics_;
   std::vector< std::unique_ptr< Source > > sources_;
   std::unique_ptr< Decl > boolean_;
   std::vector< std::unique_ptr< Module > > modules_;
   std::unordered_map< std::string, Module* > byPath_;          ///< by canonical path; null while it is being read
   std::vector< std::pair< std::string, Span > > reading_;      ///< the chain of imports being read: canonical path, import
   std::unordered_map< std::string, const Module* > byName_;
   std::unordered_map< std::string, Decl* > types_;
   std::unordered_set< std::string > nameSpaces_;
};

}
