#include "KernelTagger.h"

#include <Vanta/VlanMuxDemux.h>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <quor/TestNet.h>
#include <quor/TestPam.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

// The program on a real device, and the kernel's own stack as the station at the other end of the cable. A capture is taken there
// and compared with what should have passed, byte for byte.

namespace {

using namespace Quor::TestNet;
using Kel::Ptr;
using Kel::U16;
using Kel::U8;
using Quor::TestPams::Listener;

/// The program, its output line by line.
class Program {
 public:
   explicit Program( std::vector< std::string > arguments ) {
      int out[ 2 ], error[ 2 ];
      EXPECT_EQ( 0, pipe2( out, O_CLOEXEC ) | pipe2( error, O_CLOEXEC ) );
      arguments.insert( arguments.begin(), VLAN_ENDPOINTS );
      std::vector< char* > argv;
      for( std::string& a : arguments ) argv.push_back( a.data() );
      argv.push_back( nullptr );
      pid_ = fork();
      if( pid_ == 0 ) {
         prctl( PR_SET_PDEATHSIG, SIGKILL );
         dup2( out[ 1 ], STDOUT_FILENO );
         dup2( error[ 1 ], STDERR_FILENO );
         alarm( 60 );   // whatever happens, it ends, and so does the reading below
         execv( argv[ 0 ], argv.data() );
         _exit( 127 );
      }
      close( out[ 1 ] ), close( error[ 1 ] );
      out_ = fdopen( out[ 0 ], "r" ), error_ = fdopen( error[ 0 ], "r" );
   }
   ~Program() {
      if( pid_ > 0 ) kill( pid_, SIGKILL ), ended();
      std::fclose( out_ ), std::fclose( error_ );
   }
   std::string line() { return line( out_ ); }
   std::string errorLine() { return line( error_ ); }
   int ended() {
      int status = 0;
      waitpid( std::exchange( pid_, -1 ), &status, 0 );
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : -WTERMSIG( status );
   }
   void signal( int number ) { kill( pid_, number ); }

 private:
   static std::string line( FILE* from ) {
      char text[ 200 ];
      return std::fgets( text, sizeof text, from ) ? std::string( text, std::strcspn( text, "\n" ) ) : "nothing";
   }
   pid_t pid_;
   FILE *out_, *error_;
};

TEST( VlanEndpoints, WrongCommandLinesAndDevicesAreToldInOneLine ) {
   const struct {
      std::vector< std::string > arguments;
      int status;
      const char* text;
   } rows[] = {
      { { "near" }, 2, "give a device and at least one VLAN" },
      { { "", "10" }, 2, "give a device and at least one VLAN" },
      { { "near", "4095" }, 2, "VLAN '4095': give a whole number from 0 to 4094" },
      { { "near", "10", "--native", "-1" }, 2, "--native '-1': give a whole number from 0 to 4094" },
      { { "near", "--echo", "-xy" }, 2, "'-x': no such option, or not in this form" },
      { { "near", "10", "--echo=3" }, 2, "'--echo=3': no such option, or not in this form" },
      { { "near", "10", "--send" }, 2, "--send: needs a value" },
      { { "nosuch0", "10" }, 3, "Ethernet device 'nosuch0' can't be opened: " },
   };
   for( const auto& row : rows ) {
      Program program( row.arguments );
      EXPECT_THAT( program.errorLine(), testing::StartsWith( std::string( "vlan-endpoints: " ) + row.text ) );
      EXPECT_EQ( program.errorLine(), "nothing" );
      EXPECT_EQ( program.ended(), row.status );
   }
}

/// What passes at the far end, both ways, in a file.
struct VlanEndpointsLive : Net {
   void SetUp() override {
      Net::SetUp();
      if( !IsSkipped() && !HasFatalFailure() ) captureStart();
   }
   void TearDown() override {
      if( dumper ) pcap_dump_close( dumper ), pcap_close( capture );
      std::filesystem::remove( file );
   }
   void captureStart() {
      char error[ PCAP_ERRBUF_SIZE ];
      ASSERT_TRUE( capture = pcap_create( "far", error ) ) << error;
      pcap_set_immediate_mode( capture, 1 );
      ASSERT_GE( pcap_activate( capture ), 0 ) << pcap_geterr( capture );
      pcap_setnonblock( capture, 1, error );
      ASSERT_TRUE( dumper = pcap_dump_open( capture, file.c_str() ) ) << pcap_geterr( capture );
   }
   /// The frames in the file when there are `count`, or after some seconds.
   std::vector< Bytes > captured( std::size_t count ) {
      int seen = 0;
      until( [ & ] {
         seen += std::max( 0, pcap_dispatch( capture, -1, pcap_dump, reinterpret_cast< u_char* >( dumper ) ) );
         return seen >= static_cast< int >( count );
      } );
      pcap_dump_flush( dumper );
      std::vector< Bytes > out;
      char error[ PCAP_ERRBUF_SIZE ];
      pcap_t* in = pcap_open_offline( file.c_str(), error );
      pcap_pkthdr* head;
      for( const u_char* bytes; pcap_next_ex( in, &head, &bytes ) == 1; ) out.emplace_back( bytes, bytes + head->caplen );
      pcap_close( in );
      return out;
   }
   /// What another decoder of frames says of the file: a line of VLANs a frame.
   void expectDecoded( const std::string& vlans ) {
      if( !run( "tshark -v" ) ) return void( std::puts( "tshark is not installed: its view of the tags is left out" ) );
      const std::string decoded = file + ".vlans";
      EXPECT_EQ( std::system( ( "tshark -T fields -e vlan.id -r " + file + " > " + decoded + " 2> /dev/null" ).c_str() ), 0 );
      std::stringstream out;
      out << std::ifstream( decoded ).rdbuf();
      EXPECT_EQ( out.str(), vlans );
      std::filesystem::remove( decoded );
   }

   const std::string file = testing::TempDir() + "vlan-endpoints-" + std::to_string( getpid() ) + ".pcap";
   pcap_t* capture = nullptr;
   pcap_dumper_t* dumper = nullptr;
};

Bytes swapped( Bytes frame ) {
   std::swap_ranges( frame.begin(), frame.begin() + 6, frame.begin() + 6 );
   return frame;
}

TEST_F( VlanEndpointsLive, SaysWhatComesAndSendsItBackOnItsVlan ) {
   ASSERT_TRUE( run( "ip link set near address 02:00:00:00:00:99" ) );
   Program program( { "near", "10", "4094", "7", "--native", "7", "--echo", "--send", "hello" } );
   std::vector< Bytes > all;
   for( const int vlan : { 7, 10, 4094 } ) {
      Bytes hello = frame( { { 0x8100, vlan } }, 0 );
      std::fill_n( hello.begin(), 6, 0xff );
      hello[ 11 ] = 0x99;
      std::ranges::copy( std::string( "hello" ), hello.begin() + 18 );
      EXPECT_EQ( far->receive(), hello );
      all.push_back( hello );
   }
   const Bytes twice = frame( { { 0x8100, 10 }, { 0x8100, 11 } }, 4 ), full = frame( { { 0x8100, 4094 } }, 2, 1500 );
   Bytes toAll = frame( { { 0x8100, 10 } }, 5 ), fromUs = toAll;
   std::fill_n( toAll.begin(), 6, 0xff ), fromUs[ 5 ] = 0x99;   // nobody can answer as all
   const struct {
      Bytes frame, back;
      const char *vlan, *rest;
   } rows[] = {
      { frame( { { 0x8100, 0xe00a } }, 1 ), frame( { { 0x8100, 10 } }, 1 ), "VLAN 10", "type 0x88b5, 60 bytes" },
      { full, full, "VLAN 4094", "type 0x88b5, 1514 bytes" },
      { frame( {}, 3 ), frame( { { 0x8100, 7 } }, 3 ), "VLAN 7", "type 0x88b5, 60 bytes" },
      { twice, twice, "VLAN 10", "type 0x8100, 64 bytes" },
      { toAll, fromUs, "VLAN 10", "type 0x88b5, 60 bytes" },
   };
   far->send( frame( { { 0x8100, 11 } }, 9 ) );   // nobody's
   all.push_back( frame( { { 0x8100, 11 } }, 9 ) );
   for( const auto& row : rows ) {
      far->send( row.frame );
      EXPECT_EQ( far->receive(), swapped( row.back ) );
      const std::string to = row.frame == toAll ? "ff:ff:ff:ff:ff:ff, " : "02:00:00:00:00:01, ";
      EXPECT_EQ( program.line(), row.vlan + std::string( ": 02:00:00:00:00:02 > " ) + to + row.rest );
      all.insert( all.end(), { row.frame, swapped( row.back ) } );
   }
   EXPECT_EQ( captured( all.size() ), all );
   expectDecoded( "7\n10\n4094\n11\n10\n10\n4094\n4094\n\n7\n10,11\n10,11\n10\n10\n" );
   program.signal( SIGTERM );
   EXPECT_EQ( program.ended(), 0 );
}

TEST_F( VlanEndpointsLive, SaysWhatItCouldNotSend ) {
   ASSERT_TRUE( run( "ip link set near down" ) );
   Program program( { "near", "10", "20", "--send", "hello" } );
   EXPECT_EQ( program.errorLine(), "vlan-endpoints: 2 of 2 frames not sent: 'near' is down, or they are too long for it" );
}

TEST_F( VlanEndpointsLive, LooksForADeviceThatHasVanishedAndEndsAfterSoManyFrames ) {
   Program program( { "near", "10", "20", "--leave-tag", "--send", "up", "--count", "1" } );
   for( const int vlan : { 10, 20 } ) {
      const auto up = far->receive();
      ASSERT_TRUE( up );
      EXPECT_TRUE( Quor::ConstDot1qHdr( up->data() ).vlanId() == vlan && up->size() == 64 );
   }
   pull();
   EXPECT_EQ( program.errorLine(), "vlan-endpoints: Ethernet device 'near' has gone; it is looked for until it is back" );
   plug();
   EXPECT_EQ( program.errorLine(), "vlan-endpoints: Ethernet device 'near' is back" );
   program.signal( SIGSTOP );   // so that it finds all of them at once
   for( int i = 0; i < 3; ++i ) far->send( frame( { { 0x8100, 20 } }, 1 ) );
   program.signal( SIGCONT );
   EXPECT_EQ( program.line(), "VLAN 20: 02:00:00:00:00:02 > 02:00:00:00:00:01, type 0x8100, 64 bytes" );
   EXPECT_EQ( program.line(), "nothing" );
   EXPECT_EQ( program.ended(), 0 );
   EXPECT_EQ( program.errorLine(), "nothing" );
}

/// An ARP packet (RFC 826), as a request or as its answer. 192.0.2.2 at 02:..:02 is ours, 192.0.2.1 at 02:..:01 the kernel's.
Bytes arp( bool isReply ) {
   if( isReply )
      return { 2, 0, 0, 0, 0, 2, 2, 0, 0, 0, 0, 1, 8, 6, 0, 1, 8, 0, 6, 4, 0, 2, 2, 0, 0, 0, 0, 1, 192, 0, 2, 1,
               2, 0, 0, 0, 0, 2, 192, 0, 2, 2 };
   return { 255, 255, 255, 255, 255, 255, 2, 0, 0, 0, 0, 2, 8, 6, 0, 1, 8, 0, 6, 4, 0, 1, 2, 0, 0, 0, 0, 2,
            192, 0, 2, 2, 0, 0, 0, 0, 0, 0, 192, 0, 2, 1 };
}
void checksumIs( Bytes& frame, std::size_t from, std::size_t to, std::size_t at ) {
   unsigned sum = 0;
   for( std::size_t i = from; i < to; i += 2 ) sum += Quor::netU16( &frame[ i ] );
   Quor::netU16Is( &frame[ at ], static_cast< U16 >( ~( sum % 0xffff ) ) );
}
/// An ICMP echo (RFC 792), type 8, or its answer, type 0.
Bytes echo( U8 type, std::size_t bytes, U16 id ) {
   const U8 us = type ? 2 : 1, them = U8( 3 - us );
   Bytes out{ 2, 0, 0, 0, 0, them, 2, 0, 0, 0, 0, us, 8, 0, 0x45, 0, 0, 0, U8( id >> 8 ), U8( id ), 0, 0, 64, 1, 0, 0,
              192, 0, 2, us, 192, 0, 2, them, type, 0, 0, 0, 0, 9, 0, 1 };
   out.resize( out.size() + bytes, 0x5a );
   Quor::netU16Is( &out[ 16 ], static_cast< U16 >( out.size() - 14 ) );
   checksumIs( out, 14, 34, 24 );
   checksumIs( out, 34, out.size(), 36 );
   return out;
}

/// The kernel as a station of a VLAN. A device without VLANs takes frames with a priority tag for its own all the same, and
/// answers them without one.
struct KernelStation : VlanEndpointsLive, testing::WithParamInterface< U16 > {};

TEST_P( KernelStation, AnswersWhatTheMultiplexerTags ) {
   const U16 vlan = GetParam();
   std::string station = vlan ? "far." + std::to_string( vlan ) : "far";
   std::optional< KernelTagger > tagger;
   ASSERT_TRUE( run( "ip link set far address 02:00:00:00:00:01 && ip link set near address 02:00:00:00:00:02" ) );
   if( vlan && !run( "ip link add link far name " + station + " type vlan id " + std::to_string( vlan ) ) ) {
      station = "far";
      if( !tagger.emplace( "far", vlan ).works() ) GTEST_SKIP() << "the kernel has no VLAN devices (8021q), nor tcx for programs";
   }
   ASSERT_TRUE( run( "ip addr add 192.0.2.1/24 dev " + station + " && ip link set " + station + " up" ) );
   const auto mux = Vanta::vlanMuxDemuxFactory( nullptr, "near", 0, false );
   const auto device = mux->ethPam();
   Listener listener;
   mux->newPam( vlan )->notifieeIs( &listener );
   const auto watch = activity.watch( device->fd(), Kel::FdEvents::reading(), [ & ]( Kel::FdEvents ) { device->dispatch(); } );
   const auto tagged = [ & ]( Bytes frame, U16 with ) {
      frame.insert( frame.begin() + 12, { 0x81, 0, U8( with >> 8 ), U8( with ) } );
      return frame;
   };

   std::vector< Bytes > wire;
   if( vlan ) {   // what it is asked in another VLAN it does not hear
      mux->newPam( vlan - 1u )->tx( Quor::TestPams::packet( arp( false ) ) );
      wire.push_back( tagged( arp( false ), U16( vlan - 1 ) ) );
   }
   const std::size_t unheard = wire.size();
   for( const std::size_t bytes : { 0, 4, 1472 } ) {   // of an echo; none asks for the address first
      const Bytes request = bytes ? echo( 8, bytes, 77 ) : arp( false );
      mux->pam( vlan )->tx( Quor::TestPams::packet( request ) );
      ASSERT_TRUE( until( [ & ] { return listener.frames.size() * 2 > wire.size() - unheard; } ) );
      const Bytes& got = listener.frames.back();
      // The number of an answer's datagram is the kernel's to choose.
      EXPECT_EQ( got, bytes ? echo( 0, bytes, Quor::netU16( &got[ 18 ] ) ) : arp( true ) );
      wire.insert( wire.end(), { tagged( request, vlan ), vlan ? tagged( got, vlan ) : got } );
   }
   EXPECT_EQ( captured( wire.size() ), wire );
   const std::string id = std::to_string( vlan ) + "\n", back = vlan ? id : "\n";
   expectDecoded( ( vlan ? std::to_string( vlan - 1 ) + "\n" : "" ) + id + back + id + back + id + back );
}

INSTANTIATE_TEST_SUITE_P( Vlans, KernelStation, testing::Values( 0, 10, 4094 ), testing::PrintToStringParamName() );

}
