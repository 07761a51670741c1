#include "Child.h"

#include <Vanta/FdbStatusSm.h>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <filesystem>
#include <hiredis/hiredis.h>
#include <memory>
#include <quor/EthIntfId.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// From `learnedHostIs` in this process to the entity tree of another, which sleeps until something changes; and the same change through a
// Redis server to a subscriber that sleeps on its socket. Times are taken from one clock on both sides.

namespace {

using Bridging::LearnedHost;
using Kel::U32;
using Kel::U64;

constexpr char tableName[] = "hosts";
constexpr useconds_t toSleep = 300;   // microseconds: a process that waits has gone to sleep by then

/// The n-th host of a table.
LearnedHost hostOf( U32 n, U32 moves ) {
   return LearnedHost( Quor::EthAddr::fromNumber( 0x020000000000 + U64( n ) * 0x10b1 ), Quor::EthIntfId::make( 0, 1 + n % 48, 0 ), moves,
                       moves ? 1732170000.25 + n : 0, Bridging::EntryType::learnedDynamicMac );
}

/// A writer of a table in shared memory and the tree that it writes from.
class Publisher {
 public:
   explicit Publisher( U32 hosts ) {
      table_->plexoFdbStatusControl().setUp( { .name = tableName,
                                               .mode = Plexo::TableMode::writer,
                                               .initialRecords = hosts,
                                               .maxRecords = hosts,
                                               .directory = directory_.path() } );
      machine_ = Bridging::writerFdbStatusSmFactory( status_, table_ );
   }
   const std::string& directory() const { return directory_.path(); }
   const Kel::Ptr< Bridging::FdbStatus >& fdb() const { return fdb_; }
   Plexo::Bridging::Status& table() const { return *table_; }

 private:
   Bench::TemporaryDirectory directory_{ "/dev/shm" };
   Kel::Ptr< Bridging::Status > status_{ Bridging::statusFactory( "status" ) };
   Kel::Ptr< Bridging::FdbStatus > fdb_{ status_->fdbStatusIs( 1 ) };
   Kel::Ptr< Plexo::Bridging::Status > table_{ Plexo::Bridging::statusFactory( "table" ) };
   Kel::Ptr< Bridging::WriterFdbStatusSm > machine_;
};

std::unique_ptr< Bench::Child > follow( const Publisher& publisher, U32 hosts ) {
   auto child = std::make_unique< Bench::Child >( std::vector< std::string >{
      Bench::programPath( "vanta-bench-follow" ), "tree", tableName, publisher.directory(), std::to_string( hosts ) } );
   while( child->next().number ) {}
   return child;
}

void newHosts( benchmark::State& state ) {
   const auto hosts = static_cast< U32 >( state.range( 0 ) );
   double writing = 0, following = 0;
   for( auto _ : state ) {
      const Publisher publisher( hosts );
      const auto follower = follow( publisher, hosts );
      usleep( toSleep );
      const U64 begin = Bench::now();
      for( U32 n = 0; n < hosts; ++n ) publisher.fdb()->learnedHostIs( hostOf( n, 1 ) );
      const U64 written = Bench::now();
      const U64 all = follower->next().at;
      writing += static_cast< double >( written - begin ) * 1e-9;
      following += static_cast< double >( all - begin ) * 1e-9;
      state.SetIterationTime( static_cast< double >( all - begin ) * 1e-9 );
   }
   const double total = static_cast< double >( hosts ) * static_cast< double >( state.iterations() );
   state.counters[ "hosts_per_second" ] = total / following;
   state.counters[ "written_per_second" ] = total / writing;
}

/// Sends change after change with `send( n )` to a sleeping receiver and waits for its report of each.
template< class Send >
void singleChanges( benchmark::State& state, Bench::Child& receiver, U32& n, Send send ) {
   std::vector< double > samples;
   for( auto _ : state ) {
      usleep( toSleep );
      ++n;
      const U64 begin = Bench::now();
      send( n );
      const Bench::Report heard = receiver.next();
      if( heard.number != n ) state.SkipWithError( "another change was heard of" );
      samples.push_back( static_cast< double >( heard.at - begin ) );
      state.SetIterationTime( samples.back() * 1e-9 );
   }
   std::sort( samples.begin(), samples.end() );
   state.counters[ "median_us" ] = samples[ samples.size() / 2 ] * 1e-3;
   state.counters[ "p99_us" ] = samples[ samples.size() * 99 / 100 ] * 1e-3;
}

void changeThroughTable( benchmark::State& state ) {
   const Publisher publisher( 1 );
   const auto follower = follow( publisher, 1 );
   U32 n = 0;
   singleChanges( state, *follower, n, [ &publisher ]( U32 moves ) { publisher.fdb()->learnedHostIs( hostOf( 0, moves ) ); } );
}

/// A Redis server of our own, without persistence, on a socket in a private directory, and a connection to it.
class Redis {
 public:
   Redis() {
      for( int tries = 0; tries < 500 && !connection_; ++tries ) {
         usleep( 10000 );
         redisContext* c = redisConnectUnix( socket().c_str() );
         if( c && !c->err ) connection_ = c;
         else if( c ) redisFree( c );
      }
      if( !connection_ ) throw std::runtime_error( "redis-server does not answer" );
   }
   ~Redis() { redisFree( connection_ ); }
   std::string socket() const { return directory_.path() + "/redis.sock"; }

   /// One round trip for both, as a good client sends them.
   void setAndPublish( const std::string& value ) {
      redisAppendCommand( connection_, "SET host %b", value.data(), value.size() );
      redisAppendCommand( connection_, "PUBLISH hosts %b", value.data(), value.size() );
      for( int replies = 0; replies < 2; ++replies ) {
         void* reply;
         if( redisGetReply( connection_, &reply ) != REDIS_OK ) throw std::runtime_error( connection_->errstr );
         freeReplyObject( reply );
      }
   }

 private:
   Bench::TemporaryDirectory directory_{ std::filesystem::temp_directory_path() };
   Bench::Child server_{ { "redis-server", "--port", "0", "--unixsocket", socket(), "--save", "", "--appendonly", "no", "--dir",
                           directory_.path(), "--logfile", directory_.path() + "/log" } };
   redisContext* connection_ = nullptr;
};

void changeThroughRedis( benchmark::State& state ) {
   Redis redis;
   Bench::Child subscriber( { Bench::programPath( "vanta-bench-follow" ), "redis", redis.socket(), "hosts" } );
   while( subscriber.next().number ) {}
   const std::string rest = " 02:00:00:00:00:00 Ethernet1 1732170000.25";
   U32 n = 0;
   singleChanges( state, subscriber, n, [ & ]( U32 moves ) { redis.setAndPublish( std::to_string( moves ) + rest ); } );
}

void bytesPerHost( benchmark::State& state ) {
   const auto hosts = static_cast< U32 >( state.range( 0 ) );
   double bytes = 0;
   for( auto _ : state ) {
      const Publisher publisher( hosts );
      for( U32 n = 0; n < hosts; ++n ) {
         const LearnedHost host = hostOf( n, 1 );
         publisher.table().plexoFdbStatusIs( Plexo::Bridging::PlexoFdbStatus( Bridging::HostKey( 1, host.address() ), host.intf(), host.moves(),
                                                                              host.lastMoveTime(), host.entryType() ) );
      }
      bytes = 0;
      for( const auto& file : std::filesystem::directory_iterator( publisher.directory() ) ) {
         struct stat s;
         if( stat( file.path().c_str(), &s ) == 0 ) bytes += static_cast< double >( s.st_blocks ) * 512;
      }
      if( publisher.table().plexoFdbStatusCount() != hosts ) state.SkipWithError( "not every host is in the table" );
   }
   state.counters[ "bytes_per_host" ] = bytes / hosts;
}

BENCHMARK( newHosts )->Name( "new-hosts/vanta" )->Arg( 100000 )->Iterations( 1 )->UseManualTime()->Unit( benchmark::kMillisecond );
BENCHMARK( changeThroughTable )->Name( "one-change/vanta" )->Iterations( 500 )->UseManualTime()->Unit( benchmark::kMicrosecond );
BENCHMARK( changeThroughRedis )->Name( "one-change/redis" )->Iterations( 500 )->UseManualTime()->Unit( benchmark::kMicrosecond );
BENCHMARK( bytesPerHost )->Name( "table-bytes/vanta" )->Arg( 1000000 )->Iterations( 1 )->Repetitions( 1 )->Unit( benchmark::kMillisecond );

}
