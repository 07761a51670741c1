#pragma once

#include <Vanta/FdbStatusSm.h>
#include <map>
#include <string>

// What the tests of the machines and the program at their other end have in common.
namespace Bridging {

/// The two forms of a forwarding database in one: each host under its key, as text.
using Hosts = std::map< HostKey, std::string >;

inline std::string textOf( const LearnedHost& host ) { return Bridging::valueToStrep( host ).str(); }

inline Hosts hostsOf( const Status& status ) {
   Hosts out;
   for( auto fdb = status.fdbStatusIterConst(); fdb; ++fdb ) {
      for( auto host = fdb.value()->learnedHostIterConst(); host; ++host )
         out[ { fdb.key(), host.key() } ] = textOf( host.value() );
   }
   return out;
}

inline Hosts hostsOf( const Plexo::Bridging::Status& table ) {
   Hosts out;
   for( auto i = table.plexoFdbStatusIterConst(); i; ++i ) {
      const auto& r = i.value();
      out[ i.key() ] = textOf( { r.key().addr(), r.intf(), r.moves(), r.lastMoveTime(), r.entryType() } );
   }
   return out;
}

/// One host a line, in the order of their keys.
inline std::string linesOf( const Hosts& hosts ) {
   std::string out;
   for( const auto& [ key, text ] : hosts ) out += std::to_string( key.fid().value() ) + " " + text + "\n";
   return out;
}

/// The owner of the table `name`, attached to it.
inline Kel::Ptr< Plexo::Bridging::Status > tableOf( const std::string& name, Plexo::TableMode mode, Kel::U32 max = 100000 ) {
   const auto table = Plexo::Bridging::statusFactory( "table" );
   table->plexoFdbStatusControl().setUp( { .name = name, .mode = mode, .initialRecords = 1, .maxRecords = max } );
   return table;
}

}
