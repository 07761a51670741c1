#include "Counters.h"

#include "Cli.h"
#include "Output.h"

#include <Vanta/VlanCounters.h>
#include <algorithm>
#include <array>
#include <chrono>
#include <thread>

// What a VLAN has counted since it was cleared is its counter minus its snapshot. The counter is read first: whatever happens
// between the two reads then shows in the snapshot, as one that is newer than the counter (cleared: nothing has passed since), or
// as none (the agent has started again).

namespace Tool {

namespace {

using Stats = Plexo::Bridging::VlanStats;

struct Column {
   const char* member;
   const char* heading;
   Kel::U64 ( Stats::*count )() const;
};

constexpr Column columns[] = {
   { "inOctets", "IN OCTETS", &Stats::inOctets },      { "inUcastPkts", "IN UCAST", &Stats::inUcastPkts },
   { "inMcastPkts", "IN MCAST", &Stats::inMcastPkts }, { "inBcastPkts", "IN BCAST", &Stats::inBcastPkts },
   { "outOctets", "OUT OCTETS", &Stats::outOctets },   { "outUcastPkts", "OUT UCAST", &Stats::outUcastPkts },
   { "outMcastPkts", "OUT MCAST", &Stats::outMcastPkts }, { "outBcastPkts", "OUT BCAST", &Stats::outBcastPkts },
};
constexpr std::size_t columnCount = std::size( columns );

/// The counts of one VLAN, in the order of `columns`.
struct Row {
   std::uint32_t vlan = 0;
   std::array< std::uint64_t, columnCount > counts{};
   double updated = 0;
   friend bool operator<( const Row& a, const Row& b ) { return a.vlan < b.vlan; }
};

Row rowOf( const Plexo::Bridging::VlanCounter& counter ) {
   Row row{ .vlan = counter.key().value(), .updated = counter.statsUpdateTime() };
   for( std::size_t i = 0; i < columnCount; ++i ) row.counts[ i ] = ( counter.vlanStats().*columns[ i ].count )();
   return row;
}

std::string described( const std::string& table ) { return "table '" + table + "' in " + Plexo::tableDirectory(); }

void join( Plexo::TableControl& control, const std::string& table ) {
   try {
      control.setUp( { .name = table, .mode = Plexo::TableMode::reader } );
   } catch( const Kel::RangeException& e ) {
      throw UsageError( std::string( "--table: " ) + e.what() );
   }
   if( control.state() == Plexo::TableState::degraded )
      throw Failure( exitNotConnected, described( table ) + " can't be used: " + printable( control.reason() ) );
}

/// The table of counters and that of their snapshots. Throws `Failure` when there are no counters, or a table that is needed
/// can't be used.
class CounterTables {
 public:
   explicit CounterTables( const std::string& table ) : table_( table ) {
      join( counters_->vlanCounterControl(), table );
      if( state() == Plexo::TableState::connecting ) {
         throw Failure( exitNotConnected, "there is no " + described( table ) +
                                             "; is its writer (vanta-fdbd with a capture or an interface) running? "
                                             "'vanta tables' lists the tables" );
      }
   }
   Plexo::TableState state() const { return counters_->vlanCounterControl().state(); }

   /// What each VLAN has counted in all, by VLAN.
   std::vector< Row > totals() const {
      std::vector< Row > rows;
      for( auto i = counters_->vlanCounterIterConst(); i; ++i ) rows.push_back( rowOf( i.value() ) );
      std::sort( rows.begin(), rows.end() );
      return rows;
   }
   /// What each VLAN has counted since it was cleared. REQUIRES: not called before.
   std::vector< Row > sinceCleared() {
      std::vector< Row > rows = totals();
      join( snapshots_->vlanCounterSnapshotControl(), table_ + "-snapshot" ); // without one, nothing was ever cleared
      for( Row& row : rows ) {
         const Row snapshot = rowOf( snapshots_->vlanCounterSnapshot( Bridging::VlanId( Kel::U16( row.vlan ) ) ) );
         if( snapshot.updated > row.updated ) row.counts = {};
         else std::transform( row.counts.begin(), row.counts.end(), snapshot.counts.begin(), row.counts.begin(), passed );
      }
      return rows;
   }

 private:
   const std::string table_;
   const Kel::Ptr< Plexo::Bridging::VlanCounterDir > counters_ = Plexo::Bridging::vlanCounterDirFactory( "counters" );
   const Kel::Ptr< Plexo::Bridging::VlanCounterSnapshotDir > snapshots_ =
      Plexo::Bridging::vlanCounterSnapshotDirFactory( "snapshots" );
};

void subtract( std::vector< Row >& rows, const std::vector< Row >& earlier ) {
   for( Row& row : rows ) {
      const auto at = std::lower_bound( earlier.begin(), earlier.end(), row );
      if( at != earlier.end() && at->vlan == row.vlan )
         std::transform( row.counts.begin(), row.counts.end(), at->counts.begin(), row.counts.begin(), passed );
   }
}

/// Counts, and over how many seconds they are to be divided; 0: not at all.
struct Reading {
   std::vector< Row > rows;
   double seconds = 0;
   Plexo::TableState state = Plexo::TableState::live;
};

Reading readOnce( const std::string& table ) {
   CounterTables tables( table );
   return { tables.sinceCleared(), 0, tables.state() };
}

Reading readTwice( const std::string& table, double interval ) {
   using Clock = std::chrono::steady_clock;
   const std::vector< Row > earlier = CounterTables( table ).totals();
   const auto begin = Clock::now();
   std::this_thread::sleep_for( std::chrono::duration< double >( interval ) );
   const CounterTables tables( table );
   const double seconds = std::chrono::duration< double >( Clock::now() - begin ).count();
   Reading reading{ tables.totals(), seconds, tables.state() };
   subtract( reading.rows, earlier );
   return reading;
}

void show( const Reading& reading ) {
   std::vector< Table::Column > headings = { { "VLAN", Table::right } };
   const char* const unit = reading.seconds > 0 ? "/S" : "";
   for( const Column& column : columns ) headings.push_back( { std::string( column.heading ) + unit, Table::right } );
   headings.push_back( { "UPDATED" } );
   Table table( headings );
   for( const Row& row : reading.rows ) {
      std::vector< std::string > cells = { std::to_string( row.vlan ) };
      for( const std::uint64_t count : row.counts ) {
         char text[ 32 ];
         std::snprintf( text, sizeof text, "%.1f", double( count ) / reading.seconds );
         cells.push_back( reading.seconds > 0 ? text : std::to_string( count ) );
      }
      cells.push_back( dateTime( row.updated ) );
      table.row( cells );
   }
   table.print();
}

void showAsJson( const std::string& table, const Reading& reading ) {
   Json out;
   out.object().member( "table", table ).member( "state", Plexo::stringValue( reading.state ) );
   if( reading.seconds > 0 ) out.member( "seconds", reading.seconds );
   out.key( "vlans" ).array();
   for( const Row& row : reading.rows ) {
      out.object().member( "vlan", row.vlan );
      for( std::size_t i = 0; i < columnCount; ++i ) {
         out.key( columns[ i ].member );
         reading.seconds > 0 ? out.value( double( row.counts[ i ] ) / reading.seconds ) : out.value( row.counts[ i ] );
      }
      out.member( "statsUpdateTime", row.updated ).endObject();
   }
   out.endArray().endObject().printLine();
}

/// What the command line of `vanta counters show` asks for.
struct Asked {
   std::string table = "fdb-vlan-counters";
   std::uint32_t vlan = 0;    ///< 0: all.
   bool rate = false;
   double interval = 0;       ///< 0: not given.
   bool json = false;

   void intervalIs( const char* text ) {
      interval = secondsOf( "--interval", text );
      if( interval <= 0 ) throw UsageError( "--interval is more than 0 seconds" );
   }
};

CommandLine commandLine( Asked& asked ) {
   return {
      .name = "vanta counters show",
      .description = "Shows what has passed through each VLAN since it was last cleared, or, where it never was,\n"
                     "since the agent started. Packets are frames by their destination address. vanta-fdbd counts what\n"
                     "arrives, in octets of whole frames without their check sequence; out stays 0. UPDATED (local time;\n"
                     "in JSON statsUpdateTime, in seconds since 1970) is when a frame was last counted.\n\n"
                     "Counters are cleared within the agent that counts, as 'vanta-fdbd --help' tells. They go on then; what\n"
                     "they were is kept in the table NAME-snapshot, and taken off here, but not with --rate, which goes by\n"
                     "the counters alone.\n\n"
                     "Exit codes: 0 shown; 1 the VLAN that was asked for has no counters; 3 there is no table, or it can't\n"
                     "be used.",
      .options = {
         { "table", "NAME", "the table of counters (default: fdb-vlan-counters)", [ & ]( const char* t ) { asked.table = t; } },
         { "vlan", "N", "only this VLAN, from 1 to 4094",
           [ & ]( const char* text ) { asked.vlan = std::uint32_t( numberOf( "--vlan", text, 1, 4094 ) ); } },
         { "rate", nullptr, "read twice, and show what passes per second", [ & ]( const char* ) { asked.rate = true; } },
         { "interval", "SECONDS", "the time between the two, for --rate (default: 1)",
           [ & ]( const char* text ) { asked.intervalIs( text ); } },
         { "json", nullptr, "print one JSON object; with --rate, \"seconds\" is the time between the two",
           [ & ]( const char* ) { asked.json = true; } } } };
}

int countersShow( int argc, char** argv ) {
   Asked asked;
   if( !commandLine( asked ).parse( argc, argv ) ) return exitOk;
   if( asked.interval > 0 && !asked.rate ) throw UsageError( "--interval is for --rate" );

   Reading reading = asked.rate ? readTwice( asked.table, asked.interval > 0 ? asked.interval : 1 ) : readOnce( asked.table );
   if( asked.vlan ) std::erase_if( reading.rows, [ & ]( const Row& row ) { return row.vlan != asked.vlan; } );
   const bool missing = asked.vlan && reading.rows.empty();
   if( reading.state == Plexo::TableState::stale ) {
      std::fprintf( stderr, "vanta counters show: the writer of %s is gone; these are its last records\n",
                    described( asked.table ).c_str() );
   }
   if( asked.json ) showAsJson( asked.table, reading );
   else if( !missing ) show( reading );
   else std::fprintf( stderr, "vanta counters show: VLAN %u has no counters in %s\n", asked.vlan,
                      described( asked.table ).c_str() );
   flushOutput();
   return missing ? exitFalse : exitOk;
}

}

std::uint64_t passed( std::uint64_t now, std::uint64_t before ) { return ( now - before ) >> 63 ? now : now - before; }

int countersCommand( int argc, char** argv ) {
   static constexpr Command commands[] = { { "show", "print the counters, or what passes per second", countersShow } };
   return runCommand( "vanta counters", "The traffic counters of each VLAN.", commands, argc, argv );
}

}
