// Runs an endpoint per VLAN on one Ethernet device: says what each receives, answers it, sends.
#include <Vanta/VlanMuxDemux.h>
#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <kel/Activity.h>
#include <kel/Trace.h>
#include <map>
#include <net/if.h>
#include <optional>
#include <quor/EthTag.h>
#include <set>
#include <stdexcept>

namespace {

using Kel::Ptr;
using Kel::U16;
using Kel::U32;
using Kel::U64;
using Quor::EthHdr;
using Quor::Packet;

constexpr char helpText[] = R"(Usage: vlan-endpoints DEVICE VLAN... [OPTION]...

Runs an endpoint for each VLAN (0 to 4094) on an Ethernet device and prints what
it receives, a line a frame:

   VLAN 10: 02:00:00:00:00:02 > ff:ff:ff:ff:ff:ff, type 0x0806, 42 bytes

Needs root or CAP_NET_RAW. VLAN 0 stands for frames with a priority tag, which
names no VLAN, and for those without a tag unless --native says otherwise. What
an endpoint sends leaves with the tag of its VLAN, also of the native one.

  --native N     frames without a tag are those of VLAN N (default 0)
  --leave-tag    frames are received with their tag
  --echo         send each frame back to its sender, on its VLAN
  --send TEXT    at the start, send a frame that holds TEXT to all stations of
                 each VLAN, with the type 0x88b5
  --count N      end after N frames
  --help         print this

A device that vanishes is looked for until it is back. SIGTERM or SIGINT ends it.
Exit status: 0 ended as asked, 1 the output can't be written, 2 wrong command
line, 3 the device can't be opened.
)";

/// Set apart for experiments (IEEE Std 802-2014, 9.2.4).
constexpr U16 experimentalType = 0x88b5;
/// The shortest frame without its check sequence (IEEE Std 802.3-2022, 4.4.2).
constexpr U32 minFrameBytes = 60;
constexpr std::chrono::milliseconds retryInterval( 200 );

void say( const std::string& text ) { std::fprintf( stderr, "vlan-endpoints: %s\n", text.c_str() ); }

struct UsageError : std::runtime_error {
   using runtime_error::runtime_error;
};

struct Options {
   std::string device;
   std::set< U16 > vlans;
   U16 native = 0;
   bool leaveTag = false;
   bool echo = false;
   bool help = false;
   std::string text;
   U64 count = 0;   ///< 0: without end
};

U64 number( const std::string& name, std::string_view text, U64 least, U64 most ) {
   U64 value = 0;
   const auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), value );
   if( error != std::errc() || end != text.data() + text.size() || value < least || value > most )
      throw UsageError( name + " '" + std::string( text ) + "': give a whole number from " + std::to_string( least ) + " to " +
                        std::to_string( most ) );
   return value;
}
U16 vlanNumber( const std::string& name, std::string_view text ) { return static_cast< U16 >( number( name, text, 0, 4094 ) ); }

enum Code { native = 256, leaveTag, echo, send, count, help };

constexpr option optionNames[] = {
   { "native", required_argument, nullptr, native }, { "leave-tag", no_argument, nullptr, leaveTag },
   { "echo", no_argument, nullptr, echo },           { "send", required_argument, nullptr, send },
   { "count", required_argument, nullptr, count },   { "help", no_argument, nullptr, help },
   { nullptr, 0, nullptr, 0 },
};

/// False when there is no more to read.
bool apply( int code, char** argv, Options& out ) {
   const bool isShort = optopt > 0 && optopt < native;   // of a fault: it is no word of its own
   switch( code ) {
   case native: out.native = vlanNumber( "--native", optarg ); break;
   case leaveTag: out.leaveTag = true; break;
   case echo: out.echo = true; break;
   case send: out.text = optarg; break;
   case count: out.count = number( "--count", optarg, 1, UINT64_MAX ); break;
   case help: out.help = true; break;
   case ':': throw UsageError( std::string( argv[ optind - 1 ] ) + ": needs a value" );
   case '?':
      throw UsageError( "'" + ( isShort ? std::string{ '-', static_cast< char >( optopt ) } : argv[ optind - 1 ] ) +
                        "': no such option, or not in this form" );
   default: return false;
   }
   return !out.help;
}

Options parse( int argc, char** argv ) {
   Options out;
   opterr = 0;
   while( apply( getopt_long( argc, argv, ":", optionNames, nullptr ), argv, out ) ) {}
   if( out.help ) return out;
   if( optind < argc ) out.device = argv[ optind++ ];
   if( out.device.empty() || optind == argc ) throw UsageError( "give a device and at least one VLAN" );
   while( optind < argc ) out.vlans.insert( vlanNumber( "VLAN", argv[ optind++ ] ) );
   return out;
}

/// A frame to all stations that holds `text`.
Ptr< Packet > textFrame( const Quor::EthAddr& source, const std::string& text ) {
   const auto bytes = static_cast< U32 >( EthHdr::bytes + std::min< std::size_t >( text.size(), UINT16_MAX ) );
   const auto frame = Kel::makePtr< Packet >( std::max( bytes, minFrameBytes ) );
   const EthHdr head( frame->writableData() );
   head.destinationIs( Quor::EthAddr::broadcast() );
   head.sourceIs( source );
   head.etherTypeIs( experimentalType );
   std::memcpy( frame->writableData() + EthHdr::bytes, text.data(), bytes - EthHdr::bytes );
   return frame;
}

class Endpoints {
 public:
   Endpoints( Kel::Activity& activity, const Options& options ) : activity_( activity ), options_( options ) {
      for( const U16 vlan : options.vlans ) {
         mux_->newPam( vlan )->notifieeIs( &endpoints_.try_emplace( vlan, *this, vlan ).first->second );
      }
   }

   void sendText() {
      for( const U16 vlan : options_.vlans ) {
         const auto frame = textFrame( device_->address(), options_.text );
         if( options_.leaveTag ) Quor::tagPush( *frame, Quor::Dot1qHdr::customerTpid, vlan );
         mux_->pam( vlan )->tx( frame );
      }
      const auto sent = device_->counters().txFrames, all = U64( options_.vlans.size() );
      if( sent < all )
         say( std::to_string( all - sent ) + " of " + std::to_string( all ) + " frames not sent: '" + options_.device +
              "' is down, or they are too long for it" );
   }

 private:
   struct Endpoint : Quor::PamNotifiee {
      Endpoint( Endpoints& owner, U16 vlan ) : owner_( owner ), vlan_( vlan ) {}
      void onRx( const Ptr< Packet >& frame ) override { owner_.received( vlan_, frame ); }
      void onGone( const Kel::String8& why ) override { owner_.gone( why ); }
      Endpoints& owner_;
      const U16 vlan_;
   };

   void received( U16 vlan, const Ptr< Packet >& frame ) {
      if( isDone_ || frame->bytes() < EthHdr::bytes ) return;
      const Quor::ConstEthHdr head( frame->data() );
      std::printf( "VLAN %u: %s > %s, type 0x%04x, %u bytes\n", vlan, head.source().stringValue().str().c_str(),
                   head.destination().stringValue().str().c_str(), head.etherType(), frame->bytes() );
      isDone_ = std::fflush( stdout ) != 0 || ++count_ == options_.count;
      if( options_.echo ) answer( vlan, frame );
      if( isDone_ ) activity_.stop();
   }

   /// A group can't be a sender (IEEE Std 802.3-2022, 3.2.4), so what was sent to one is answered in the device's own name.
   void answer( U16 vlan, const Ptr< Packet >& frame ) {
      const EthHdr head( frame->writableData() );
      const Quor::EthAddr to = head.source(), from = head.destination();
      head.destinationIs( to );
      head.sourceIs( from.isMulticast() ? device_->address() : from );
      mux_->pam( vlan )->tx( frame );
   }

   /// Each endpoint is told; the first one passes it on.
   void gone( const Kel::String8& why ) {
      if( retry_ ) return;
      say( why.str() + "; it is looked for until it is back" );
      retry_.emplace( activity_.every( retryInterval, [ this ] { reopen(); } ) );
   }

   void reopen() try {
      if( if_nametoindex( options_.device.c_str() ) == 0 ) return;
      device_->enabledIs( true );
      say( "Ethernet device '" + options_.device + "' is back" );
      lastReason_.clear();
      retry_.reset();
   } catch( const Kel::Exception& e ) {
      if( std::exchange( lastReason_, e.what() ) != e.what() ) say( e.what() );
   }

   Kel::Activity& activity_;
   const Options& options_;
   const Ptr< Vanta::VlanMuxDemux > mux_ =
      Vanta::vlanMuxDemuxFactory( nullptr, options_.device, options_.native, options_.leaveTag );
   const Ptr< Quor::EthDevPam > device_ = mux_->ethPam();
   std::map< U16, Endpoint > endpoints_;
   Kel::Activity::Watch watch_ =
      activity_.watch( device_->fd(), Kel::FdEvents::reading(), [ this ]( Kel::FdEvents ) { device_->dispatch(); } );
   std::optional< Kel::Timer > retry_;
   std::string lastReason_;
   U64 count_ = 0;
   bool isDone_ = false;
};

int run( int argc, char** argv ) {
   const Options options = parse( argc, argv );
   if( options.help ) return std::fputs( helpText, stdout ) < 0 || std::fflush( stdout ) != 0;
   Kel::traceToStandardErrorIs( false );   // what it would say is said here in fewer words
   Kel::Activity activity;
   const Kel::SignalWatch signals( activity, { SIGTERM, SIGINT }, [ & ]( int ) { activity.stop(); } );
   Endpoints endpoints( activity, options );
   if( !options.text.empty() ) endpoints.sendText();
   activity.run();
   if( std::ferror( stdout ) ) say( "the output can't be written" );
   return std::ferror( stdout ) != 0;
}

}

int main( int argc, char** argv ) try {
   return run( argc, argv );
} catch( const UsageError& e ) {
   say( std::string( e.what() ) + " (see 'vlan-endpoints --help')" );
   return 2;
} catch( const Kel::Exception& e ) {
   say( e.what() );
   return 3;
}
