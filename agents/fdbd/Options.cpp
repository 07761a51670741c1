#include "Options.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <getopt.h>
#include <kel/Exception.h>
#include <map>
#include <plexo/Writer.h>
#include <set>
#include <sys/stat.h>

namespace Fdbd {

const char helpText[] = R"(Usage: vanta-fdbd SOURCE... [OPTION]...

Owns the forwarding database: learns which MAC address is behind which port and
publishes it in a table in shared memory, where 'vanta fdb show' and any other
program can read it.

Sources, any mix and number of them:
  --capture FILE[=PORT]    a recorded capture (pcap or pcapng, Ethernet) of what
                           arrived on one port; without PORT the first capture is
                           Ethernet1, the second Ethernet2, and so on
  --interface DEV[=PORT]   frames that arrive on a network device (needs root or
                           CAP_NET_RAW); without PORT it is Ethernet<ifindex>
  --bridge BR              the forwarding database of a Linux bridge; its ports
                           are Ethernet<ifindex>, or the PORT that --interface
                           gives the same device

Learning:
  --native-vlan N          the VLAN of frames without one (default 1)
  --aging-time SECONDS     how long a host stays after it was last seen
                           (default 300, 0: for ever)
  --capacity N             the most hosts to keep (default 1048576)
  --pace real|max          play captures as they were recorded (the default), or
                           as fast as they can be read; hosts then age by the
                           captures' own time
  --exit-at-end            stop when all captures have ended; without it the agent
                           stays, and its hosts age, until it is stopped

Output:
  --table NAME             the name of the table (default "fdb")
  --vlan-counters NAME     the name of the table of frames and octets per VLAN
                           (default: the table's name and "-vlan-counters"), which
                           with "-snapshot" behind it names a third table;
                           bridges show no frames to count
  --print                  write each change to standard output as a line of JSON
                           instead of publishing it in a table; nothing is counted
  --statistics[=SECONDS]   print counters to standard error at the end, and every
                           so many seconds
  --json                   print them as JSON
  --trace SETTING          trace to standard error: FACILITY/LEVELS,... such as
                           'FdbStatusSm/0-5' or '*'

  --help, --version        print this, or the version, and stop

Entities, below the root 'vanta-fdbd', for whatever runs in the agent's process;
other processes reach the tables only, so far:
  bridging/status                the forwarding databases and their hosts
  bridging/plexoStatus           the owner of the table
  bridging/vlanCounters          the owner of the table of counters
  bridging/vlanCounterSnapshots  the owner of that table's snapshots: what each VLAN
                                 had counted when it was cleared, in a table of the
                                 same name and "-snapshot"
  bridging/vlanCountersCliReq    a VLAN that is entered here has its counters cleared
                                 at once, and the entry is removed
The last three are there when VLANs are counted.

A VLAN is its own filtering database. SIGTERM or SIGINT stops the agent; the table
stays and keeps what was learned. Exit status: 0 stopped or ended as asked,
1 nothing could be learned from, the table failed, or, with --exit-at-end, a
capture was damaged or hosts were left out for want of --capacity, 2 wrong
command line, 3 this help or the version could not be written.
)";

namespace {

constexpr double longestTime = 1e6;

enum Code { capture = 256, interface, bridge, table, vlanCounters, nativeVlan, agingTime, capacity, statistics, pace, trace, json,
            print, exitAtEnd, help, version };

constexpr option longOptions[] = {
   { "capture", required_argument, nullptr, capture },
   { "interface", required_argument, nullptr, interface },
   { "bridge", required_argument, nullptr, bridge },
   { "table", required_argument, nullptr, table },
   { "vlan-counters", required_argument, nullptr, vlanCounters },
   { "native-vlan", required_argument, nullptr, nativeVlan },
   { "aging-time", required_argument, nullptr, agingTime },
   { "capacity", required_argument, nullptr, capacity },
   { "statistics", optional_argument, nullptr, statistics },
   { "pace", required_argument, nullptr, pace },
   { "trace", required_argument, nullptr, trace },
   { "json", no_argument, nullptr, json },
   { "print", no_argument, nullptr, print },
   { "exit-at-end", no_argument, nullptr, exitAtEnd },
   { "help", no_argument, nullptr, help },
   { "version", no_argument, nullptr, version },
   { nullptr, 0, nullptr, 0 },
};

std::string quoted( std::string_view text ) { return "'" + std::string( text ) + "'"; }

std::uint64_t wholeNumber( const std::string& name, std::string_view text, std::uint64_t least, std::uint64_t most ) {
   std::uint64_t value = 0;
   const auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), value );
   if( error != std::errc() || end != text.data() + text.size() || value < least || value > most )
      throw UsageError( name + " " + quoted( text ) + ": give a whole number from " + std::to_string( least ) + " to " +
                        std::to_string( most ) );
   return value;
}

Nanos seconds( const std::string& name, std::string_view text, bool zeroToo ) {
   double value = 0;
   const auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), value );
   const bool isNumber = error == std::errc() && end == text.data() + text.size() && value >= 0 && value <= longestTime;
   const double nanos = std::round( value * 1e9 );
   if( !isNumber || ( !zeroToo && nanos < 1 ) || ( value > 0 && nanos < 1 ) )
      throw UsageError( name + " " + quoted( text ) + ": give seconds, " + ( zeroToo ? "from 0" : "more than 0" ) +
                        " to 1000000" );
   return static_cast< Nanos >( nanos );
}

Quor::IntfId portNamed( const std::string& where, std::string_view text ) try {
   const Quor::IntfId port( text );
   if( port.isEmpty() )
      throw UsageError( where + ": no port behind '='; give one like Ethernet3 or Port-Channel7, or leave '=' out" );
   return port;
} catch( const Kel::Exception& e ) {
   throw UsageError( where + ": " + e.what() );
}

SourceOption source( SourceOption::Kind kind, const std::string& optionName, const std::string& text ) {
   SourceOption out{ kind, text, {} };
   struct stat status;
   // A file may have '=' in its name; one that is there as it was written is what was meant.
   const bool isFile = kind == SourceOption::Kind::capture && stat( text.c_str(), &status ) == 0;
   const std::size_t at = kind == SourceOption::Kind::bridge || isFile ? std::string::npos : text.rfind( '=' );
   if( at != std::string::npos ) {
      out.name = text.substr( 0, at );
      out.port = portNamed( optionName + " " + quoted( text ), std::string_view( text ).substr( at + 1 ) );
   }
   if( out.name.empty() )
      throw UsageError( optionName + " " + quoted( text ) + ": no name; give " +
                        ( kind == SourceOption::Kind::capture ? "a file" : "a device" ) );
   return out;
}

/// Names the captures' ports by their order, and refuses what is given twice.
void settleSources( std::vector< SourceOption >& sources ) {
   static constexpr const char* kinds[] = { "--capture", "--interface", "--bridge" };
   std::uint32_t captures = 0;
   std::map< Quor::IntfId, std::string > ports;
   std::set< std::pair< SourceOption::Kind, std::string > > names;
   for( SourceOption& s : sources ) {
      const std::string what = kinds[ static_cast< int >( s.kind ) ] + ( " " + quoted( s.name ) );
      if( s.kind == SourceOption::Kind::capture && ( ++captures, s.port.isEmpty() ) )
         s.port = Quor::IntfId( "Ethernet" + std::to_string( captures ) );
      if( !names.emplace( s.kind, s.name ).second ) throw UsageError( what + ": given twice; name each source once" );
      if( s.port.isEmpty() ) continue;
      const auto [ at, isNew ] = ports.emplace( s.port, what );
      if( !isNew )
         throw UsageError( what + ": its port " + s.port.stringValue().str() + " is that of " + at->second +
                           " already; give one of them another port with =PORT" );
   }
}

std::string tableName( const char* option, const std::string& text, const char* suffix = "" ) try {
   Plexo::checkTableName( text );
   Plexo::checkTableName( text + suffix );
   return text;
} catch( const Kel::RangeException& e ) {
   throw UsageError( option + ( ": " + std::string( e.what() ) ) );
}

/// Names the tables of counters, and refuses a name that two tables would have.
void settleTables( const std::string& hosts, std::string& counters ) {
   static constexpr std::string_view suffix = "-vlan-counters";
   static constexpr std::size_t longest = Plexo::longestTableName - suffix.size() - std::string_view( snapshotSuffix ).size();
   if( counters.empty() && hosts.size() > longest )
      throw UsageError( "--table " + quoted( hosts ) + ": too long for the names of the VLANs' counters, which are made from it; "
                        "give at most " + std::to_string( longest ) + " bytes, or name the counters with --vlan-counters" );
   if( counters.empty() ) counters = hosts + std::string( suffix );
   for( const std::string& name : { counters, counters + snapshotSuffix } )
      if( name == hosts )
         throw UsageError( "--vlan-counters " + quoted( counters ) + ": its table " + quoted( name ) +
                           " is the table of hosts already; give one of them another name" );
}

Pace paceNamed( std::string_view text ) {
   if( text == "real" ) return Pace::real;
   if( text == "max" ) return Pace::max;
   throw UsageError( "--pace " + quoted( text ) + ": give 'real' or 'max'" );
}

/// The argument of `--statistics`, which may stand behind '=' or, as no operand can, as a word of its own.
const char* statisticsArgument( int argc, char* const* argv ) {
   if( optarg || optind >= argc || !std::strchr( "0123456789.", argv[ optind ][ 0 ] ) || !argv[ optind ][ 0 ] ) return optarg;
   return argv[ optind++ ];
}

void apply( int code, int argc, char* const* argv, Options& out ) {
   switch( code ) {
   case capture: out.sources.push_back( source( SourceOption::Kind::capture, "--capture", optarg ) ); break;
   case interface: out.sources.push_back( source( SourceOption::Kind::interface, "--interface", optarg ) ); break;
   case bridge: out.sources.push_back( source( SourceOption::Kind::bridge, "--bridge", optarg ) ); break;
   case table: out.table = tableName( "--table", optarg ); break;
   case vlanCounters: out.vlanCounters = tableName( "--vlan-counters", optarg, snapshotSuffix ); break;
   case nativeVlan:
      out.learning.nativeVlan = static_cast< Vlan >( wholeNumber( "--native-vlan", optarg, minVlan, maxVlan ) );
      break;
   case agingTime: out.learning.agingTime = seconds( "--aging-time", optarg, true ); break;
   case capacity: out.learning.capacity = wholeNumber( "--capacity", optarg, 1, 1u << 28 ); break;
   case statistics:
      out.statistics = true;
      if( const char* interval = statisticsArgument( argc, argv ) )
         out.statisticsInterval = seconds( "--statistics", interval, false );
      break;
   case pace: out.pace = paceNamed( optarg ); break;
   case trace: out.trace = optarg; break;
   case json: out.json = true; break;
   case print: out.print = true; break;
   case exitAtEnd: out.exitAtEnd = true; break;
   case help: out.action = Options::Action::help; break;
   case version: out.action = Options::Action::version; break;
   }
}

/// What getopt has stumbled over: the word before `optind`, or the short option `optopt`.
[[noreturn]] void refuse( int result, char* const* argv ) {
   if( result == ':' ) throw UsageError( std::string( argv[ optind - 1 ] ) + ": needs a value" );
   if( optopt && optopt < 256 ) throw UsageError( std::string( "-" ) + static_cast< char >( optopt ) + ": no such option" );
   const std::string_view word = argv[ optind - 1 ];
   if( optopt ) throw UsageError( quoted( word ) + ": the option takes no value" );
   throw UsageError( quoted( word ) + ": no such option, or the beginning of more than one" );
}

}

bool Options::countsVlans() const {
   const auto showsFrames = []( const SourceOption& s ) { return s.kind != SourceOption::Kind::bridge; };
   return !print && std::any_of( sources.begin(), sources.end(), showsFrames );
}

Options parseOptions( int argc, char* const* argv ) {
   Options out;
   optind = 0; // GNU: start over
   opterr = 0;
   while( out.action == Options::Action::run ) {
      const int code = getopt_long( argc, argv, "+:", longOptions, nullptr );
      if( code == -1 ) break;
      if( code == '?' || code == ':' ) refuse( code, argv );
      apply( code, argc, argv, out );
   }
   if( out.action != Options::Action::run ) return out;
   if( optind < argc )
      throw UsageError( quoted( argv[ optind ] ) + ": not an option; put --capture, --interface or --bridge before it" );
   if( out.sources.empty() ) throw UsageError( "nothing to learn from: give at least one --capture, --interface or --bridge" );
   settleSources( out.sources );
   if( out.countsVlans() ) settleTables( out.table, out.vlanCounters );
   const auto isCapture = []( const SourceOption& s ) { return s.kind == SourceOption::Kind::capture; };
   if( out.exitAtEnd && std::none_of( out.sources.begin(), out.sources.end(), isCapture ) )
      throw UsageError( "--exit-at-end: there is no --capture that could end" );
   return out;
}

}
