#include "Compile.h"

#include "Check.h"
#include "Emit.h"
#include "Options.h"
#include "Output.h"

#include <ostream>

namespace Kelc {

namespace {

constexpr int done = 0, wrongDefinitions = 1, wrongUse = 2;

#ifndef KELC_VERSION
#define KELC_VERSION "unversioned"
#endif

struct Result {
   const std::string* path;
   std::string text;
};

bool writeAll( const Options& options, const Program& program, std::vector< Result > results, std::ostream& err ) {
   std::vector< std::string > outputs;
   for( const Result& r : results ) {
      if( !r.path->empty() ) outputs.push_back( *r.path );
   }
   results.push_back( { &options.depfile, depfile( outputs, program.files() ) } );
   for( const Result& r : results ) {
      std::string why;
      if( r.path->empty() || writeIfChanged( *r.path, r.text, why ) ) continue;
      err << "kelc: can't write " << *r.path << ": " << why << "\n";
      return false;
   }
   return true;
}

std::vector< Result > emit( const Options& o, const std::vector< const Module* >& modules ) {
   const Module& main = *modules.front();
   auto wanted = []( const std::string& path, auto make ) { return Result{ &path, path.empty() ? std::string() : make() }; };
   return { wanted( o.header, [ & ] { return emitHeader( main ); } ), wanted( o.source, [ & ] { return emitSource( main ); } ),
            wanted( o.json, [ & ] { return emitJson( main ); } ), wanted( o.markdown, [ & ] { return emitMarkdown( main ); } ),
            wanted( o.registry, [ & ] { return emitRegistry( o.library, modules ); } ),
            wanted( o.index, [ & ] { return emitIndex( o.library, modules ); } ) };
}

int run( const Options& options, std::ostream& err ) {
   Diagnostics diagnostics;
   Program program( options.importDirs, diagnostics );
   std::vector< const Module* > modules;
   for( const std::string& file : options.files ) {
      std::string why;
      modules.push_back( program.load( file, options.includePrefix, why ) );
      if( modules.back() ) continue;
      err << "kelc: can't read " << file << ": " << why << "\n";
      return wrongUse;
   }
   check( program, diagnostics );
   if( diagnostics.any() ) {
      err << diagnostics.str();
      return wrongDefinitions;
   }
   return writeAll( options, program, emit( options, modules ), err ) ? done : wrongUse;
}

}

int compile( const std::vector< std::string >& arguments, std::ostream& out, std::ostream& err ) {
   Options options;
   std::string why;
   if( !parseOptions( arguments, options, why ) ) {
      err << "kelc: " << why << "; kelc --help tells the options\n";
      return wrongUse;
   }
   if( options.help ) out << helpText;
   else if( options.version ) out << "kelc " << KELC_VERSION << "\n";
   else return run( options, err );
   return done;
}

}
