#include "Cli.h"
#include "ElfTypes.h"
#include "Output.h"

namespace Tool {

namespace {

void show( const std::string& library, const std::vector< std::string >& names, bool json ) {
   if( json ) {
      Json out;
      out.object().member( "library", library ).key( "types" ).array();
      for( const std::string& name : names ) out.value( name );
      out.endArray().endObject().printLine();
   } else {
      for( const std::string& name : names ) print( printable( name ) + "\n" );
   }
   flushOutput();
}

}

int typesCommand( int argc, char** argv ) {
   bool json = false;
   const CommandLine line{ .name = "vanta types",
                           .operands = "[LIBRARY]",
                           .description = "Lists the types that a library declares, in the order of its section .kel.type, without\n"
                                          "loading it. LIBRARY is a file of either word size; without it, the libVanta that this\n"
                                          "command uses.",
                           .options = { { "json", nullptr, "print one JSON object", [ & ]( const char* ) { json = true; } } },
                           .mostOperands = 1 };
   const auto operands = line.parse( argc, argv );
   if( !operands ) return exitOk;

   const std::string library = operands->empty() ? loadedVantaLibrary() : operands->front();
   if( library.empty() ) throw UsageError( "no libVanta is loaded; name a library" );
   const auto names = typeNamesOf( library );
   show( library, names, json );
   return names.empty() ? exitFalse : exitOk;
}

}
