#include "Fdb.h"

#include "FdbConnection.h"
#include "FdbFollower.h"
#include "FdbHosts.h"

#include <chrono>

// Order of the output: the hosts that the table holds, one marker once all of them have been told, then every change as it comes.
// A state is told when it differs from the last one told. A watch that begins before its writer waits for it and then does the
// same; one whose writer starts again goes on with the changes, without a second marker. A table that can't be used may be
// replaced by a sound one, so that only a watch that was to end by itself ends with it.

namespace Tool {

namespace {

using Clock = std::chrono::steady_clock;

struct Settings {
   std::string table;
   HostFilter filter;
   bool json = false;
   bool untilSync = false;
   std::uint64_t count = 0; ///< Changes after the marker to stop at; 0: none.
   double timeout = -1;     ///< Seconds; negative: none.
};

double wallClock() {
   return std::chrono::duration< double >( std::chrono::system_clock::now().time_since_epoch() ).count();
}

std::string stateForPeople( const FdbConnection& connection ) {
   const std::string& table = connection.description();
   switch( connection.state() ) {
   case Plexo::TableState::connecting: return "waiting for the " + table;
   case Plexo::TableState::live: return "following the " + table;
   case Plexo::TableState::stale: return "the writer of the " + table + " is gone; waiting for another";
   case Plexo::TableState::degraded: break;
   }
   return "the " + table + " can't be used: " + printable( connection.reason() );
}

/// Prints what happens, in either form, and counts the changes behind the marker.
class Printer : public HostListener {
 public:
   explicit Printer( const Settings& settings ) : settings_( settings ) {}

   void hostIs( Bridging::Fid fid, const Bridging::LearnedHost& host, const Quor::IntfId* before ) override {
      const bool matched = before && settings_.filter.matches( fid, Bridging::LearnedHost( host.address(), *before, 0, 0, {} ) );
      const bool matches = settings_.filter.matches( fid, host );
      if( !matched && !matches ) return;
      if( settings_.json && !matches ) return hostGone( fid, host.address(), *before ); // from what its reader asked for
      if( settings_.json ) {
         Json out;
         putHost( out.object().member( "event", "host" ), fid, host );
         out.endObject().printLine();
      } else if( before && *before != host.intf() ) {
         line( "moved", fid, host.address(), before->stringValue().str() + " -> " + host.intf().stringValue().str() +
                                                ", moves " + std::to_string( host.moves() ) );
      } else {
         line( before ? "changed" : "host", fid, host.address(), host.intf().stringValue().str() );
      }
      told();
   }

   void hostGone( Bridging::Fid fid, const Quor::EthAddr& address, const Quor::IntfId& before ) override {
      if( !settings_.filter.matches( fid, Bridging::LearnedHost( address, before, 0, 0, {} ) ) ) return;
      if( settings_.json ) {
         Json out;
         out.object().member( "event", "gone" ).member( "vlan", Kel::U32( fid.value() ) );
         out.member( "address", address.stringValue().str() ).member( "port", before.stringValue().str() );
         out.endObject().printLine();
      } else {
         line( "gone", fid, address, before.stringValue().str() );
      }
      told();
   }

   void stateIs( const FdbConnection& connection ) {
      const std::string text = Plexo::stringValue( connection.state() ), reason = connection.reason();
      if( text == state_ && reason == reason_ ) return;
      state_ = text;
      reason_ = reason;
      if( settings_.json )
         Json().object().member( "event", "state" ).member( "state", text ).member( "reason", reason ).endObject().printLine();
      else std::fprintf( stderr, "vanta fdb watch: %s\n", stateForPeople( connection ).c_str() );
   }

   void synced( std::uint64_t hosts ) {
      synced_ = true;
      if( settings_.json ) Json().object().member( "event", "sync" ).member( "hosts", hosts ).endObject().printLine();
      else print( bold( "--- " + std::to_string( hosts ) + ( hosts == 1 ? " host" : " hosts" ) + "; changes follow ---" ) + "\n" );
   }

   bool isSynced() const { return synced_; }
   std::uint64_t shown() const { return shown_; }
   std::uint64_t changes() const { return changes_; }

 private:
   void line( const char* event, Bridging::Fid fid, const Quor::EthAddr& address, const std::string& rest ) {
      char text[ 96 ];
      std::snprintf( text, sizeof text, "  %-7s  vlan %-5u  ", event, unsigned( fid.value() ) );
      print( dateTime( wallClock(), true ).substr( 11 ) + text + address.stringValue().str() + "  " + rest + "\n" );
   }

   void told() {
      ++shown_;
      if( synced_ ) ++changes_;
   }

   const Settings& settings_;
   std::string state_, reason_;
   bool synced_ = false;
   std::uint64_t shown_ = 0, changes_ = 0;
};

class Watch {
 public:
   explicit Watch( const Settings& settings )
      : settings_( settings ), connection_( settings.table ), printer_( settings ) {
      connection_.stateHandlerIs( [ this ] { printer_.stateIs( connection_ ); } );
      printer_.stateIs( connection_ );
      follower_ = Kel::Ptr< FdbFollower >( new FdbFollower( connection_.hosts(), printer_ ) );
   }

   int run() {
      const auto began = Clock::now();
      for( ;; ) {
         report();
         if( settings_.untilSync && printer_.isSynced() ) return exitOk;
         if( settings_.count > 0 && printer_.changes() >= settings_.count ) return exitOk;
         if( isUnusable() && ( settings_.untilSync || settings_.count > 0 ) ) return exitNotConnected; // its reason has been told
         double left = -1;
         if( settings_.timeout >= 0 ) {
            left = settings_.timeout - std::chrono::duration< double >( Clock::now() - began ).count();
            if( left <= 0 ) return outOfTime();
         }
         if( !connection_.wait( left ) ) return printer_.isSynced() ? exitOk : exitNotConnected;
      }
   }

 private:
   void report() {
      if( !printer_.isSynced() && connection_.synced() ) printer_.synced( printer_.shown() );
      flushOutput();
   }

   bool isUnusable() const { return connection_.state() == Plexo::TableState::degraded; }

   int outOfTime() const {
      if( isUnusable() ) return exitNotConnected;
      if( !printer_.isSynced() ) {
         throw Failure( exitNotConnected, "the " + connection_.description() + " did not come in time" );
      }
      return settings_.count > 0 ? exitFalse : exitOk;
   }

   const Settings& settings_;
   FdbConnection connection_;
   Printer printer_;
   Kel::Ptr< FdbFollower > follower_;
};

}

int fdbWatch( int argc, char** argv ) {
   Settings settings;
   CommandLine line{ .name = "vanta fdb watch",
                     .description = "Prints the MAC address table, a marker, then every change as it happens, until it\n"
                                    "is interrupted. It may start before the table's writer and outlives it.\n\n"
                                    "Exit codes: 0 ended as asked; 1 fewer changes than --count came in time; 3 the table\n"
                                    "never came, or can't be used." };
   addTableOption( line.options, settings.table );
   settings.filter.addOptionsTo( line.options );
   line.options.push_back( { "until-sync", nullptr, "stop at the marker", [ & ]( const char* ) { settings.untilSync = true; } } );
   line.options.push_back( { "count", "N", "stop after N changes behind the marker", [ & ]( const char* text ) {
                               settings.count = numberOf( "--count", text, 1, ~0ull );
                            } } );
   line.options.push_back( { "timeout", "SECONDS", "stop after this time", [ & ]( const char* text ) {
                               settings.timeout = secondsOf( "--timeout", text );
                            } } );
   line.options.push_back( { "json", nullptr, "print one JSON object a line", [ & ]( const char* ) { settings.json = true; } } );
   if( !line.parse( argc, argv ) ) return exitOk;
   return Watch( settings ).run();
}

}
