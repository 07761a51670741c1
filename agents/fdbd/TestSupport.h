#pragma once

#include "Options.h"
#include <algorithm>
#include <gtest/gtest.h>
#include <initializer_list>
#include <map>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <vector>

namespace Fdbd::Test {

using Bytes = std::vector< std::uint8_t >;

inline Quor::EthAddr mac( std::uint64_t n ) { return Quor::EthAddr::fromNumber( 0x020000000000 | n ); }
inline Quor::IntfId port( int n ) { return Quor::IntfId( "Ethernet" + std::to_string( n ) ); }

/// A frame from `source`, tagged with each of `tags` ({TPID, TCI}), padded to 60 bytes.
inline Bytes frameFrom( const Quor::EthAddr& source, std::initializer_list< std::pair< int, int > > tags = {} ) {
   Bytes out( 12, 0xff );
   std::copy( source.bytes().begin(), source.bytes().end(), out.begin() + 6 );
   const auto word = [ & ]( int w ) {
      out.push_back( static_cast< std::uint8_t >( w >> 8 ) );
      out.push_back( static_cast< std::uint8_t >( w ) );
   };
   for( const auto& [ tpid, tci ] : tags ) word( tpid ), word( tci );
   word( 0x0806 );
   out.resize( 60 );
   return out;
}

inline void put32( std::string& to, std::uint32_t v ) { to.append( reinterpret_cast< const char* >( &v ), 4 ); }
inline void put16( std::string& to, std::uint16_t v ) { to.append( reinterpret_cast< const char* >( &v ), 2 ); }

/// A frame and when it was seen.
struct Sent {
   Nanos time;
   Bytes frame;
   /// Octets of the whole frame, where `frame` is only its start.
   std::size_t length = 0;
};

/// The classic format (draft-ietf-opsawg-pcap), nanosecond flavour.
inline std::string pcapOf( const std::vector< Sent >& frames, std::uint32_t linkType = 1 ) {
   std::string out;
   put32( out, 0xa1b23c4d );
   put16( out, 2 ), put16( out, 4 );
   put32( out, 0 ), put32( out, 0 ), put32( out, 65535 ), put32( out, linkType );
   for( const Sent& f : frames ) {
      put32( out, static_cast< std::uint32_t >( f.time / nanosPerSecond ) ),
         put32( out, static_cast< std::uint32_t >( f.time % nanosPerSecond ) );
      put32( out, static_cast< std::uint32_t >( f.frame.size() ) );
      put32( out, static_cast< std::uint32_t >( std::max( f.length, f.frame.size() ) ) );
      out.append( f.frame.begin(), f.frame.end() );
   }
   return out;
}

/// The forwarding database as its readers see it. A host that is announced as gone without having been there, or announced again
/// without a change, is a failure.
class MirrorSink final : public HostSink {
 public:
   void learned( HostId id, const Host& host ) override {
      const auto [ at, isNew ] = hosts.try_emplace( id, host );
      EXPECT_TRUE( isNew || at->second != host ) << "announced without a change";
      at->second = host;
   }
   void gone( HostId id ) override { EXPECT_EQ( hosts.erase( id ), 1u ) << "gone without having been there"; }
   void arrived( Vlan vlan, const Quor::EthAddr&, std::size_t length ) override { octets[ vlan ] += length; }
   /// "vlan address port" of each host, sorted.
   std::vector< std::string > lines() const {
      std::vector< std::string > out;
      for( const auto& [ id, host ] : hosts )
         out.push_back( std::to_string( id.fid() ) + " " + id.address().stringValue().str() + " " +
                        host.port.stringValue().str() );
      return out;
   }

   std::map< HostId, Host > hosts;
   std::map< Vlan, std::size_t > octets;
};

/// A learner with its sink and the lines that it and its sources reported.
struct Bench {
   explicit Bench( FdbLearner::Settings settings = {} ) : learner( settings, sink, reporter() ) {}
   Reporter reporter() {
      return [ this ]( const std::string& line ) { reports.push_back( line ); };
   }
   bool reported( const std::string& part ) const {
      for( const std::string& line : reports )
         if( line.find( part ) != std::string::npos ) return true;
      return false;
   }

   MirrorSink sink;
   std::vector< std::string > reports;
   FdbLearner learner;
};

/// The options that the words of a command line give.
inline Options parsed( std::vector< std::string > words ) {
   words.insert( words.begin(), "vanta-fdbd" );
   std::vector< char* > argv;
   for( std::string& w : words ) argv.push_back( w.data() );
   argv.push_back( nullptr );
   return parseOptions( static_cast< int >( words.size() ), argv.data() );
}

/// From now on what is mounted is seen by this process and its children only. False where the system does not allow it.
inline bool mountsArePrivate() {
   return unshare( CLONE_NEWNS ) == 0 && mount( nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr ) == 0;
}

}
