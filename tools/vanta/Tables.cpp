#include "Cli.h"
#include "Output.h"

#include <plexo/Listing.h>

namespace Tool {

namespace {

std::string stateOf( const Plexo::TableInfo& table ) {
   const std::string state = Plexo::stringValue( table.state );
   if( table.state == Plexo::TableState::live ) return green( state );
   return red( table.reason.empty() ? state : state + ": " + printable( table.reason ) );
}

void show( const std::vector< Plexo::TableInfo >& tables ) {
   Table out( { { "TABLE" },
                { "RECORDS", Table::right },
                { "CAPACITY", Table::right },
                { "KIB", Table::right },
                { "CHANGES", Table::right },
                { "LAST WRITER", Table::right },
                { "STATE" } } );
   for( const Plexo::TableInfo& table : tables ) {
      out.row( { printable( table.name ), std::to_string( table.records ), std::to_string( table.maxRecords ),
                 std::to_string( ( table.bytesUsed + 1023 ) / 1024 ), std::to_string( table.changes ),
                 table.writerPid ? std::to_string( table.writerPid ) : "-", stateOf( table ) } );
   }
   out.print();
}

void showAsJson( const std::vector< Plexo::TableInfo >& tables ) {
   Json out;
   out.array();
   for( const Plexo::TableInfo& table : tables ) {
      out.object().member( "name", table.name ).member( "path", table.path );
      out.member( "state", Plexo::stringValue( table.state ) ).member( "reason", table.reason );
      out.member( "writerAlive", table.state == Plexo::TableState::live ).member( "writerPid", table.writerPid );
      out.member( "records", table.records ).member( "capacity", table.maxRecords ).member( "recordBytes", table.recordBytes );
      out.member( "bytes", table.bytesUsed ).member( "changes", table.changes ).member( "layout", table.layout ).endObject();
   }
   out.endArray().printLine();
}

}

int tablesCommand( int argc, char** argv ) {
   bool json = false;
   const CommandLine line{ .name = "vanta tables",
                           .description = "Lists the shared-memory tables of this machine (in PLEXO_DIR, or /dev/shm/plexo) with their writers' state:\n"
                                          "live, stale (the writer is gone, its records stay readable) or degraded, with the reason.",
                           .options = { { "json", nullptr, "print one JSON array", [ & ]( const char* ) { json = true; } } } };
   if( !line.parse( argc, argv ) ) return exitOk;

   const std::vector< Plexo::TableInfo > tables = Plexo::listTables();
   if( json ) showAsJson( tables );
   else if( !tables.empty() ) show( tables );
   else std::fprintf( stderr, "vanta tables: there is no table in %s\n", Plexo::tableDirectory().c_str() );
   flushOutput();
   return tables.empty() ? exitFalse : exitOk;
}

}
