#include "Peers.pb.h"

#include <Vanta/Bridging.h>
#include <array>
#include <benchmark/benchmark.h>
#include <kel/LogStream.h>
#include <quor/EthIntfId.h>
#include <vector>

// One learned host as bytes: the attribute log of a `LearnedHost`, and a protobuf message. Messages, buffers and values are used again
// from turn to turn, and what is encoded is there before the turn begins.

namespace {

using Bridging::LearnedHost;
using Kel::U32;
using Kel::U64;
using Kel::U8;

constexpr std::size_t count = 64;

/// A host on one of 48 ports, learned at a wall-clock time; it has moved three times, or never.
LearnedHost hostOf( std::size_t turn, bool moved = true ) {
   const U64 n = turn % count;
   const auto address = Quor::EthAddr::fromNumber( 0x02005e000000 + n * 0x10b1 );
   const auto intf = Quor::EthIntfId::make( 0, static_cast< U32 >( 1 + n % 48 ), 0 );
   const double time = 1732170000.25 + 3.5 * static_cast< double >( n );
   return LearnedHost( address, intf, moved ? 3 : 0, moved ? time : 0, Bridging::EntryType::learnedSecureMac );
}

template< class Message >
Message messageOf( const LearnedHost& host ) {
   Message m;
   m.set_address( host.address().number() );
   m.set_intf( U64( host.intf().high() ) << 32 | host.intf().low() );
   m.set_moves( host.moves() );
   m.set_last_move_time( host.lastMoveTime() );
   m.set_entry_type( peers::LEARNED_SECURE_MAC );
   return m;
}

template< class Make >
auto hosts( Make make ) {
   std::vector< decltype( make( LearnedHost() ) ) > all;
   for( std::size_t i = 0; i < count; ++i ) all.push_back( make( hostOf( i ) ) );
   return all;
}

std::vector< U8 > logOf( const LearnedHost& host ) {
   Kel::LogOut out;
   out << host;
   return { out.bytes().begin(), out.bytes().end() };
}

template< class Message >
double bytes( bool moved ) {
   return static_cast< double >( messageOf< Message >( hostOf( 1, moved ) ).ByteSizeLong() );
}

void encodeVanta( benchmark::State& state ) {
   const auto all = hosts( []( const LearnedHost& h ) { return h; } );
   Kel::LogOut out;
   std::size_t turn = 0;
   for( auto _ : state ) {
      out.clear();
      out << all[ turn++ % count ];
      benchmark::DoNotOptimize( out.bytes().data() );
      benchmark::ClobberMemory();
   }
   state.counters[ "moved_bytes" ] = static_cast< double >( logOf( hostOf( 1 ) ).size() );
   state.counters[ "unmoved_bytes" ] = static_cast< double >( logOf( hostOf( 1, false ) ).size() );
}

template< class Message >
void encodeProtobuf( benchmark::State& state ) {
   const auto all = hosts( messageOf< Message > );
   std::array< U8, 256 > buffer;
   std::size_t turn = 0;
   for( auto _ : state ) {
      benchmark::DoNotOptimize( all[ turn++ % count ].SerializeToArray( buffer.data(), buffer.size() ) );
      benchmark::ClobberMemory();
   }
   state.counters[ "moved_bytes" ] = bytes< Message >( true );
   state.counters[ "unmoved_bytes" ] = bytes< Message >( false );
}

void decodeVanta( benchmark::State& state ) {
   const auto all = hosts( logOf );
   LearnedHost host;
   std::size_t turn = 0;
   for( auto _ : state ) {
      Kel::LogIn in( all[ turn++ % count ] );
      Kel::read( LearnedHost::_Type, &host, in );
      benchmark::DoNotOptimize( host );
   }
   if( host != hostOf( turn - 1 ) ) state.SkipWithError( "decoded to another host" );
}

template< class Message >
void decodeProtobuf( benchmark::State& state ) {
   const auto all = hosts( []( const LearnedHost& h ) { return messageOf< Message >( h ).SerializeAsString(); } );
   Message message;
   std::size_t turn = 0;
   for( auto _ : state ) {
      const std::string& from = all[ turn++ % count ];
      benchmark::DoNotOptimize( message.ParseFromArray( from.data(), static_cast< int >( from.size() ) ) );
      benchmark::DoNotOptimize( message );
   }
   if( message.address() != hostOf( turn - 1 ).address().number() ) state.SkipWithError( "decoded to another host" );
}

BENCHMARK( encodeVanta )->Name( "log-encode/vanta" );
BENCHMARK( encodeProtobuf< peers::FastHost > )->Name( "log-encode/protobuf-fixed" );
BENCHMARK( encodeProtobuf< peers::SmallHost > )->Name( "log-encode/protobuf-varint" );
BENCHMARK( decodeVanta )->Name( "log-decode/vanta" );
BENCHMARK( decodeProtobuf< peers::FastHost > )->Name( "log-decode/protobuf-fixed" );
BENCHMARK( decodeProtobuf< peers::SmallHost > )->Name( "log-decode/protobuf-varint" );

}
