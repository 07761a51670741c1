#include "Cli.h"
#include "ElfTypes.h"
#include "Output.h"
#include "ShowType.h"

#include <filesystem>

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

/// Whether the operand means a file rather than a type.
bool isLibrary( const std::string& operand ) {
   std::error_code unknown;
   return operand.find( '/' ) != operand.npos || operand.ends_with( ".so" ) || std::filesystem::exists( operand, unknown );
}

std::string joined( const std::vector< std::string >& names ) {
   std::string out;
   for( const std::string& name : names ) out += ( out.empty() ? "" : ", " ) + printable( name );
   return out;
}

int showTypeNamed( const std::string& name, const std::string& directory, bool json ) {
   const Schema schema( directory );
   const auto found = schema.find( name );
   if( found.size() == 1 ) {
      json ? showTypeAsJson( *found.front() ) : showType( *found.front() );
      return exitOk;
   }
   std::vector< std::string > names;
   for( const Schema::Type* type : found ) names.push_back( type->name );
   if( !names.empty() ) throw Failure( exitFalse, "'" + printable( name ) + "' may be any of " + joined( names ) );
   names = schema.like( name );
   throw Failure( exitFalse, "there is no type '" + printable( name ) + "'" +
                                ( names.empty() ? "" : "; did you mean " + joined( names ) + "?" ) );
}

}

int typesCommand( int argc, char** argv ) {
   bool json = false;
   std::string directory;
   const CommandLine line{ .name = "vanta types",
                           .operands = "[TYPE|LIBRARY]",
                           .description = "Shows the reference of a type: its attributes, operations, notifications and messages.\n"
                                          "TYPE is a qualified name, or the end of one that is no other's.\n\n"
                                          "Without TYPE, lists the types that a library declares, in the order of its section\n"
                                          ".kel.type, without loading it. LIBRARY is a file of either word size (there is one, or\n"
                                          "its name has a '/' or ends in .so); without it, the libVanta that this command uses.",
                           .options = { { "json", nullptr, "print one JSON object", [ & ]( const char* ) { json = true; } },
                                        { "schema", "DIR", "where types are described (else VANTA_SCHEMA, or beside the program)",
                                          [ & ]( const char* text ) { directory = text; } } },
                           .mostOperands = 1 };
   const auto operands = line.parse( argc, argv );
   if( !operands ) return exitOk;
   if( !operands->empty() && !isLibrary( operands->front() ) )
      return showTypeNamed( operands->front(), directory.empty() ? schemaDirectory() : directory, json );
   if( !directory.empty() ) throw UsageError( "--schema is for one type; name it" );

   const std::string library = operands->empty() ? loadedVantaLibrary() : operands->front();
   if( library.empty() ) throw UsageError( "no libVanta is loaded; name a library" );
   const auto names = typeNamesOf( library );
   show( library, names, json );
   return names.empty() ? exitFalse : exitOk;
}

}
