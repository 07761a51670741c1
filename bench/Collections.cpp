#include <Bench/Cell.h>
#include <Vanta/Bridging.h>
#include <absl/container/flat_hash_map.h>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <memory>
#include <quor/EthIntfId.h>
#include <random>
#include <time.h>
#include <unordered_map>
#include <vector>

// A hundred thousand keys through a collection of an entity with one reactor, and through other maps whose owner makes one virtual
// call for each change. The peers hash a number as they do by default; an address has no default, so all hash it as we do.

namespace {

using Bridging::LearnedHost;
using Kel::U32;
using Kel::U64;
using Quor::EthAddr;

constexpr std::size_t count = 100000;

struct HashOfAddress {
   std::size_t operator()( const EthAddr& a ) const noexcept { return a.hash(); }
};

/// What a collection holds, and its n-th element in the version `round`.
struct Numbers {
   using Key = U64;
   using Value = U64;
   using Std = std::unordered_map< U64, U64 >;
   using Absl = absl::flat_hash_map< U64, U64 >;
   static U64 key( U64 number ) { return number; }
   static U64 value( U64 key, U32 round ) { return key + round; }
};
struct Hosts {
   using Key = EthAddr;
   using Value = LearnedHost;
   using Std = std::unordered_map< EthAddr, LearnedHost, HashOfAddress >;
   using Absl = absl::flat_hash_map< EthAddr, LearnedHost, HashOfAddress >;
   static EthAddr key( U64 number ) { return EthAddr::fromNumber( number & 0xffffffffffff ); }
   static LearnedHost value( const EthAddr& key, U32 round ) {
      return LearnedHost( key, Quor::EthIntfId::make( 0, round, 0 ), round, 0, Bridging::EntryType::learnedDynamicMac );
   }
};

class VantaNumbers {
 public:
   void set( U64 key, U64 value ) { table_->numberIs( key, value ); }
   U64 get( U64 key ) const { return table_->number( key ); }
   void del( U64 key ) { table_->numberDel( key ); }
   U64 told() const { return observer_->told; }

 private:
   struct Observer : Bench::Table::NotifieeConst {
      using NotifieeConst::NotifieeConst;
      void onNumber( U64 ) override { ++told; }
      U64 told = 0;
   };
   Kel::Ptr< Bench::Table > table_{ Bench::tableFactory( "table" ) };
   Kel::Ptr< Observer > observer_{ new Observer( table_ ) };
};

class VantaHosts {
 public:
   void set( const EthAddr&, const LearnedHost& value ) { fdb_->learnedHostIs( value ); }
   LearnedHost get( const EthAddr& key ) const { return fdb_->learnedHost( key ); }
   void del( const EthAddr& key ) { fdb_->learnedHostDel( key ); }
   U64 told() const { return observer_->told; }

 private:
   struct Observer : Bridging::FdbStatus::NotifieeConst {
      using NotifieeConst::NotifieeConst;
      void onLearnedHost( const EthAddr& ) override { ++told; }
      U64 told = 0;
   };
   Kel::Ptr< Bridging::FdbStatus > fdb_{ Bridging::fdbStatusFactory( Bridging::Fid( 1 ) ) };
   Kel::Ptr< Observer > observer_{ new Observer( fdb_ ) };
};

template< class Map >
class Peer {
   using Key = typename Map::key_type;
   using Value = typename Map::mapped_type;

 public:
   void set( const Key& key, const Value& value ) {
      const auto [ at, isNew ] = map_.try_emplace( key, value );
      if( !isNew ) {
         if( at->second == value ) return;
         at->second = value;
      }
      observer_->onKey( key );
   }
   Value get( const Key& key ) const {
      const auto at = map_.find( key );
      return at == map_.end() ? Value() : at->second;
   }
   void del( const Key& key ) {
      if( map_.erase( key ) ) observer_->onKey( key );
   }
   U64 told() const { return observer_->told; }

 private:
   struct Listener {
      virtual ~Listener() = default;
      virtual void onKey( const Key& ) = 0;
      U64 told = 0;
   };
   struct Observer : Listener {
      void onKey( const Key& ) override { ++this->told; }
   };
   /// Nobody knows at compile time which observer it is.
   static std::unique_ptr< Listener > observer() {
      std::unique_ptr< Listener > made( new Observer );
      benchmark::DoNotOptimize( made );
      return made;
   }

   Map map_;
   std::unique_ptr< Listener > observer_{ observer() };
};

/// Nanoseconds of this thread on a processor.
double spent() {
   timespec t;
   clock_gettime( CLOCK_THREAD_CPUTIME_ID, &t );
   return static_cast< double >( t.tv_sec ) * 1e9 + static_cast< double >( t.tv_nsec );
}

enum class Order { random, sequential };

/// Inserts all keys, changes, finds and erases each. Random ones are taken in another order by each step.
template< class Kind, class Collection, Order order >
void collection( benchmark::State& state ) {
   std::mt19937_64 random( 8 );
   std::vector< typename Kind::Key > keys;
   for( U64 n = 0; n < count; ++n ) keys.push_back( Kind::key( order == Order::random ? random() : n ) );
   double inserting = 0, changing = 0, finding = 0, erasing = 0;
   const auto each = [ & ]( double& total, auto step ) {
      if( order == Order::random ) std::shuffle( keys.begin(), keys.end(), random );
      const double begin = spent();
      for( const auto& key : keys ) step( key );
      total += spent() - begin;
   };
   for( auto _ : state ) {
      Collection c;
      U64 wrong = 0;
      each( inserting, [ & ]( const auto& key ) { c.set( key, Kind::value( key, 1 ) ); } );
      each( changing, [ & ]( const auto& key ) { c.set( key, Kind::value( key, 2 ) ); } );
      each( finding, [ & ]( const auto& key ) { wrong += c.get( key ) != Kind::value( key, 2 ); } );
      each( erasing, [ & ]( const auto& key ) { c.del( key ); } );
      if( wrong || c.told() != 3 * count ) state.SkipWithError( "a key was not found or not announced" );
   }
   const double keysInAll = double( count ) * static_cast< double >( state.iterations() );
   state.counters[ "insert_ns" ] = inserting / keysInAll;
   state.counters[ "change_ns" ] = changing / keysInAll;
   state.counters[ "find_ns" ] = finding / keysInAll;
   state.counters[ "erase_ns" ] = erasing / keysInAll;
}

template< class Kind, class Vanta, Order order >
void collections( const std::string& name ) {
   const auto add = [ &name ]( const char* who, auto* run ) {
      benchmark::RegisterBenchmark( ( name + who ).c_str(), run )->Iterations( 3 )->Unit( benchmark::kMillisecond );
   };
   add( "/vanta", &collection< Kind, Vanta, order > );
   add( "/unordered_map", &collection< Kind, Peer< typename Kind::Std >, order > );
   add( "/flat_hash_map", &collection< Kind, Peer< typename Kind::Absl >, order > );
}

const bool registered = [] {
   collections< Numbers, VantaNumbers, Order::random >( "random-numbers" );
   collections< Numbers, VantaNumbers, Order::sequential >( "sequential-numbers" );
   collections< Hosts, VantaHosts, Order::random >( "random-hosts" );
   collections< Hosts, VantaHosts, Order::sequential >( "sequential-hosts" );
   return true;
}();

}
