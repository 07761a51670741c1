#include "Fdb.h"

#include "FdbConnection.h"
#include "FdbHosts.h"

#include <algorithm>

namespace Tool {

namespace {

struct Host {
   Bridging::Fid fid;
   Bridging::LearnedHost host;
   friend bool operator<( const Host& a, const Host& b ) {
      return a.fid != b.fid ? a.fid < b.fid : a.host.address() < b.host.address();
   }
};

std::vector< Host > matchingHosts( const Bridging::Status& status, const HostFilter& filter ) {
   std::vector< Host > found;
   for( auto fdb = status.fdbStatusIterConst(); fdb; ++fdb ) {
      for( auto host = fdb.value()->learnedHostIterConst(); host; ++host ) {
         if( filter.matches( fdb.key(), host.value() ) ) found.push_back( { fdb.key(), host.value() } );
      }
   }
   std::sort( found.begin(), found.end() );
   return found;
}

void show( const std::vector< Host >& hosts ) {
   Table table( { { "VLAN", Table::right }, { "ADDRESS" }, { "PORT" }, { "MOVES", Table::right }, { "LAST MOVE" }, { "TYPE" } } );
   for( const Host& each : hosts ) {
      const Bridging::LearnedHost& host = each.host;
      table.row( { std::to_string( each.fid.value() ), host.address().stringValue().str(), host.intf().stringValue().str(),
                   std::to_string( host.moves() ), dateTime( host.lastMoveTime() ), entryTypeName( host.entryType() ) } );
   }
   table.print();
   print( std::to_string( hosts.size() ) + ( hosts.size() == 1 ? " host\n" : " hosts\n" ) );
}

void showAsJson( const FdbConnection& connection, const std::string& table, const std::vector< Host >& hosts ) {
   Json out;
   out.object().member( "table", table ).member( "state", Plexo::stringValue( connection.state() ) ).key( "hosts" ).array();
   for( const Host& each : hosts ) {
      putHost( out.object(), each.fid, each.host );
      out.endObject();
   }
   out.endArray().endObject().printLine();
}

/// Throws `Failure` when there is no table that can be read.
void requireTable( const FdbConnection& connection ) {
   if( connection.state() == Plexo::TableState::connecting ) {
      throw Failure( exitNotConnected,
                     "there is no " + connection.description() +
                        "; is its writer (vanta-fdbd) running? 'vanta tables' lists the tables" );
   }
   if( connection.state() == Plexo::TableState::degraded ) {
      throw Failure( exitNotConnected, connection.description() + " can't be used: " + printable( connection.reason() ) );
   }
}

}

void addTableOption( std::vector< Option >& options, std::string& table ) {
   table = "fdb";
   options.push_back( { "table", "NAME", "the table of learned hosts (default: fdb)",
                        [ &table ]( const char* text ) { table = text; } } );
}

int fdbShow( int argc, char** argv ) {
   std::string table;
   HostFilter filter;
   bool json = false;
   CommandLine line{ .name = "vanta fdb show",
                     .description = "Shows the MAC address table.\n\n"
                                    "Exit codes: 0 shown; 1 no host matches what was asked for; 3 there is no table." };
   addTableOption( line.options, table );
   filter.addOptionsTo( line.options );
   line.options.push_back( { "json", nullptr, "print one JSON object", [ & ]( const char* ) { json = true; } } );
   if( !line.parse( argc, argv ) ) return exitOk;

   const FdbConnection connection( table );
   requireTable( connection );
   if( connection.state() == Plexo::TableState::stale ) {
      std::fprintf( stderr, "vanta fdb show: the writer of %s is gone; these are its last records\n",
                    connection.description().c_str() );
   }
   const std::vector< Host > hosts = matchingHosts( *connection.hosts(), filter );
   if( json ) showAsJson( connection, table, hosts );
   else if( !hosts.empty() || !filter.any() ) show( hosts );
   else std::fprintf( stderr, "vanta fdb show: no host in %s matches\n", connection.description().c_str() );
   flushOutput();
   return hosts.empty() && filter.any() ? exitFalse : exitOk;
}

int fdbCommand( int argc, char** argv ) {
   static constexpr Command commands[] = {
      { "show", "print the table once", fdbShow },
      { "watch", "print the table, then every change as it happens", fdbWatch },
   };
   return runCommand( "vanta fdb", "The MAC address table: which host was learned on which port of which VLAN.", commands, argc,
                      argv );
}

}
