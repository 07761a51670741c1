#include "Options.h"

#include <algorithm>

namespace Kelc {

const char* const helpText =
   "usage: kelc [OPTION]... FILE.kel\n"
   "       kelc --registry OUT.cpp --library NAME [--index OUT.md] [-I DIR]... FILE.kel...\n"
   "\n"
   "Compiles type definitions to C++. Without an output option it only checks them.\n"
   "\n"
   "  -I DIR[=PREFIX]        look for imported files in DIR; their headers are included as <PREFIX/Module.h>\n"
   "                         (without =PREFIX as those of the compiled file)\n"
   "  --include-prefix NAME  include the generated header as <NAME/Module.h> (default: Vanta)\n"
   "  --header FILE          write the module's C++ header\n"
   "  --source FILE          write the module's C++ source\n"
   "  --json FILE            write the module's schema as JSON\n"
   "  --markdown FILE        write the module's reference page\n"
   "  --depfile FILE         write the files that the outputs depend on, as a rule for make or ninja\n"
   "  --registry FILE        write the source that registers a library's modules, in the order of the files given\n"
   "  --library NAME         the library's name, for --registry\n"
   "  --index FILE           write the page that lists the modules and their types, with --registry\n"
   "  --help, --version\n"
   "\n"
   "A file that would not change is not written. Exit status: 0 done, 1 the definitions have errors, 2 a wrong command line or\n"
   "a file that can't be read or written.\n";

namespace {

ImportDir importDir( const std::string& argument ) {
   const auto at = argument.rfind( '=' );
   return at == std::string::npos ? ImportDir{ argument, "" } : ImportDir{ argument.substr( 0, at ), argument.substr( at + 1 ) };
}

// The option's value: behind a '=' or the next argument.
bool take( const std::vector< std::string >& arguments, std::size_t& i, const std::string& name, std::string& value ) {
   const std::string& argument = arguments[ i ];
   if( argument.starts_with( name + "=" ) ) return value = argument.substr( name.size() + 1 ), true;
   if( i + 1 >= arguments.size() ) return false;
   return value = arguments[ ++i ], true;
}

bool consistent( Options& o, std::string& why ) {
   if( o.help || o.version ) return true;
   if( o.files.empty() ) return why = "no definition file is given", false;
   if( o.registry.empty() != o.library.empty() ) return why = "--registry and --library go together", false;
   if( !o.index.empty() && o.registry.empty() ) return why = "--index needs --registry", false;
   const bool perModule = !o.header.empty() || !o.source.empty() || !o.json.empty() || !o.markdown.empty();
   if( !o.registry.empty() && perModule ) return why = "--registry excludes --header, --source, --json and --markdown", false;
   if( o.registry.empty() && o.files.size() > 1 ) return why = "more than one definition file: " + o.files[ 1 ], false;
   if( !o.depfile.empty() && o.registry.empty() && !perModule )
      return why = "--depfile needs an output that depends on something", false;
   for( ImportDir& dir : o.importDirs ) {
      if( dir.prefix.empty() ) dir.prefix = o.includePrefix;
   }
   return true;
}

}

bool parseOptions( const std::vector< std::string >& arguments, Options& o, std::string& why ) {
   const std::vector< std::pair< std::string, std::string* > > named{
      { "--include-prefix", &o.includePrefix }, { "--header", &o.header }, { "--source", &o.source }, { "--depfile", &o.depfile },
      { "--json", &o.json }, { "--markdown", &o.markdown }, { "--registry", &o.registry },
      { "--index", &o.index }, { "--library", &o.library } };
   bool onlyFiles = false;
   for( std::size_t i = 0; i < arguments.size(); ++i ) {
      const std::string& a = arguments[ i ];
      if( onlyFiles || !a.starts_with( '-' ) || a == "-" ) {
         o.files.push_back( a );
         continue;
      }
      const auto option = std::find_if( named.begin(), named.end(),
                                        [ & ]( const auto& n ) { return a == n.first || a.starts_with( n.first + "=" ); } );
      std::string dir;
      if( a == "--" ) onlyFiles = true;
      else if( a == "--help" || a == "-h" ) o.help = true;
      else if( a == "--version" ) o.version = true;
      else if( a.starts_with( "-I" ) && a.size() > 2 ) o.importDirs.push_back( importDir( a.substr( 2 ) ) );
      else if( a == "-I" && take( arguments, i, a, dir ) ) o.importDirs.push_back( importDir( dir ) );
      else if( option == named.end() && a != "-I" ) return why = "unknown option " + a, false;
      else if( a == "-I" || !take( arguments, i, option->first, *option->second ) ) return why = a + " needs a value", false;
   }
   return consistent( o, why );
}

}
