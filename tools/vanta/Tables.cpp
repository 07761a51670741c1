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

/// Whether the table's header could be read; if not, nothing is known of what the table holds.
bool isKnown( const Plexo::TableInfo& table ) { return table.recordBytes != 0; }

std::string cell( bool known, std::uint64_t number ) { return known ? std::to_string( number ) : "-"; }

void show( const std::vector< Plexo::TableInfo >& tables ) {
   Table out( { { "TABLE" },
                { "RECORDS", Table::right },
                { "CAPACITY", Table::right },
                { "KIB", Table::right },
                { "CHANGES", Table::right },
                { "LAST WRITER", Table::right },
                { "STATE" } } );
   for( const Plexo::TableInfo& table : tables ) {
      const bool known = isKnown( table );
      out.row( { printable( table.name ), cell( known, table.records ), cell( known, table.maxRecords ),
                 cell( known || table.bytesUsed, ( table.bytesUsed + 1023 ) / 1024 ), cell( known, table.changes ),
                 cell( table.writerPid, table.writerPid ), stateOf( table ) } );
   }
   out.print();
}

void showAsJson( const std::vector< Plexo::TableInfo >& tables ) {
   Json out;
   out.array();
   for( const Plexo::TableInfo& table : tables ) {
      out.object().member( "name", table.name ).member( "path", table.path );
      out.member( "state", Plexo::stringValue( table.state ) ).member( "reason", table.reason );
      const auto member = [ &out ]( const char* name, bool isTold, const auto& value ) {
         isTold ? out.member( name, value ) : out.member( name, nullptr );
      };
      const bool known = isKnown( table );
      member( "writerAlive", known, table.state == Plexo::TableState::live );
      member( "writerPid", table.writerPid, table.writerPid );
      member( "records", known, table.records );
      member( "capacity", known, table.maxRecords );
      member( "recordBytes", known, table.recordBytes );
      member( "bytes", known || table.bytesUsed, table.bytesUsed );
      member( "changes", known, table.changes );
      member( "layout", known, table.layout );
      out.endObject();
   }
   out.endArray().printLine();
}

}

int tablesCommand( int argc, char** argv ) {
   bool json = false;
   const CommandLine line{ .name = "vanta tables",
                           .description = "Lists the shared-memory tables of this machine (in PLEXO_DIR, or /dev/shm/plexo) with\n"
                                          "their writers' state: live, stale (the writer is gone, its records stay readable) or\n"
                                          "degraded, with the reason. What can't be told of a table is \"-\", or null in JSON.",
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
