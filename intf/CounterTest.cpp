#include <Vanta/Counter.h>
#include <Vanta/PlexoIntfCounter.h>
#include <gtest/gtest.h>
#include <kel/Dir.h>
#include <plexo/Shared.h>
#include <plexo/TestTable.h>
#include <sstream>

// Counters: where they are looked for and what is said on the way; the view over those in shared memory.

namespace Interface {
namespace {

using Kel::Name;
using Kel::Ptr;
using Plexo::Interface::AllIntfCounterDir;
using Plexo::Interface::CounterName;
using Plexo::Interface::IntfCounterKey;
using Plexo::Interface::IntfCounterRecord;
using Quor::IntfId;

const IntfId vlan10( "Vlan10" ), vlan20( "Vlan20" );
const IntfCounterKey current( vlan10, CounterName::current );

/// Gives counters that are of no VLAN interface, and takes the whole tree away when it is asked for them.
struct Odd : IntfCounterDirDirBase {
   struct Counters : IntfCounterDirBase {
      Counters() : IntfCounterDirBase( vlan10 ) {}
      void doGetIntfCounter( const Kel::String8&, IntfCounter** const& out ) override { *out = counter.ptr(); }
      const Ptr< IntfCounter > counter = intfCounterFactory( Name( "current" ) );
   };
   Odd( const Name& name, const Ptr< Kel::Dir >& r ) : IntfCounterDirDirBase( name ), root( r ) {}
   void doGetIntfCounterDir( const IntfId&, IntfCounterDirBase** const& out ) override {
      *out = counters.ptr();
      root->entryDelAll();
   }
   const Ptr< Counters > counters = Kel::makePtr< Counters >();
   const Ptr< Kel::Dir > root;
};

/// A tree made of words, one a path: what stands there, below the root "sys" or, without any slash, nowhere.
///
///    S PATH    the status of Vlan10 in a status directory          T PATH    a table
///    P TEXT    whose counterDirPath this is                        O PATH    an `Odd`
///    K x       and which keeps what was made last as counterDir    D PATH    a directory
///    L x       the status in no directory
///    C PATH    current counters of Vlan10; C2 those of Vlan20, C3 a snapshot of those of Vlan10
struct Tree {
   explicit Tree( const char* words ) {
      std::istringstream in( words );
      for( std::string word, path; in >> word >> path; ) {
         if( word == "L" ) status = vlanIntfStatusFactory( vlan10, nullptr, 1, "Vlan10" );
         else if( word == "P" ) statuses->counterDirPathIs( path );
         else if( word == "K" ) statuses->counterDirIs( last );
         else put( path, last = make( word, Name( path.substr( path.rfind( '/' ) + 1 ) ) ) );
      }
   }
   void put( const std::string& path, const Ptr< Kel::Entity >& entity ) {
      Ptr< Kel::Dir > dir = root;
      for( std::size_t at = 0, end; ( end = path.find( '/', at ) ) != path.npos; at = end + 1 ) {
         const Name name( path.substr( at, end - at ) );
         if( at != end && !dir->entry( name ) ) dir->entryIs( Kel::dirFactory( name ) );
         if( at != end ) dir = dir->entry< Kel::Dir >( name );
      }
      if( path.find( '/' ) != path.npos ) dir->entryIs( entity );
   }
   Ptr< Kel::Entity > make( const std::string& word, const Name& name ) {
      if( word == "D" ) return Kel::dirFactory( name );
      if( word == "T" ) return Plexo::Interface::allIntfCounterDirFactory( name );
      if( word == "O" ) return Kel::makePtr< Odd >( name, root );
      if( word == "S" ) {
         statuses = vlanIntfStatusDirFactory( name );
         status = statuses->intfStatusIs( vlan10, nullptr, 1, "Vlan10" );
         return statuses;
      }
      const auto counters = allVlanIntfCounterDirFactory( name );
      const auto own = counters->intfCounterDirIs( word == "C2" ? vlan20 : vlan10 );
      own->intfCounterIs( Name( word == "C3" ? "snapshot" : "current" ) );
      return counters;
   }
   const Ptr< Kel::Dir > root = Kel::dirFactory( Name( "sys" ) );
   Ptr< VlanIntfStatusDir > statuses;
   Ptr< IntfStatus > status;
   Ptr< Kel::Entity > last;
};

/// A full name, "a view" or "nothing".
std::string found( const Ptr< VlanIntfCounter >& counter ) {
   const auto view = dynamicCast< PlexoIntfCounter >( counter );
   if( view && view->intfId() == vlan10 && view->fullName() == "current" ) return "a view";
   return counter ? counter->fullName().str() : "nothing";
}

#define ODD "dynamic_cast to Interface::IntfCounterDirDirBase failed; typeid is "
#define SLICES "i/counter/eth/slice/phy"
#define SEARCHING( slice ) "2 Searching counter slice " slice "\n"
#define FOUND( slice ) "2 Found 'Vlan10' in slice " slice "\n"
#define NO_CURRENT "0 Vlan10: ->doGetIntfCounter(current) returned null\nnothing"
#define NO_VLAN_COUNTER "0 Vlan10: dynamic_cast to Interface::VlanIntfCounter failed; typeid is Interface::IntfCounter\nnothing"
#define CONSTRUCTED "2 Constructed counterDir path counter/e/vlan for 'Vlan10'\n"
#define CONFIGURED( path ) "2 sys/i/s/e/vlan has counterDirPath " path "\n"
#define MISMATCH "0 Vlan counterDirPath sys/Plexo/t does not match counterDir\n"

/// A tree, and what the look-up in it traces and finds. Directories stand in i/s/e, so that the counters belong below i.
const struct {
   const char* tree;
   const char* outcome;
} cases[] = {
   { "", "0 the status is null\nnothing" },
   { "L x", "0 Vlan10: ->parent() is null\nnothing" },
   { "S vlan", "0 vlan: ->parent() at level 1 is null\nnothing" },
   { "S /vlan", "0 sys: ->parent() at level 2 is null\nnothing" },
   { "S a/subintf", "0 sys: ->parent() at level 3 is null\nnothing" },
   { "S s/e/vlan C counter/e/vlan", CONSTRUCTED "sys/counter/e/vlan/Vlan10/current" },
   // Slices.
   { "S i/s/e/phy P sys/Plexo T /Plexo K x", "0 counter slice dir is null: counter/eth/slice/phy\nnothing" },
   { "S i/s/e/phy C " SLICES, "0 dynamic_cast to Kel::Dir failed; typeid is Interface::AllVlanIntfCounterDir\nnothing" },
   { "S i/s/e/phy C " SLICES "/a C " SLICES "/b", SEARCHING( "a" ) FOUND( "a" ) "sys/" SLICES "/a/Vlan10/current" },
   { "S i/s/e/phy C2 " SLICES "/a C " SLICES "/b",
     SEARCHING( "a" ) SEARCHING( "b" ) FOUND( "b" ) "sys/" SLICES "/b/Vlan10/current" },
   { "S i/s/e/phy C2 " SLICES "/a C2 " SLICES "/b",
     SEARCHING( "a" ) SEARCHING( "b" ) "0 Vlan10: in no slice of counter/eth/slice/phy\nnothing" },
   { "S i/s/e/phy D " SLICES "/a C " SLICES "/b", SEARCHING( "a" ) "0 " ODD "Kel::Dir\nnothing" },
   { "S i/s/e/phy C3 " SLICES "/a", SEARCHING( "a" ) FOUND( "a" ) NO_CURRENT },
   { "S i/s/e/phy O " SLICES "/a", SEARCHING( "a" ) FOUND( "a" ) NO_VLAN_COUNTER },
   // Sub-interfaces, in shared memory.
   { "S i/s/e/subintf", "0 SubIntf Plexo counterDir path not found\nnothing" },
   { "S i/s/e/subintf P sys/c/t C c/t", "0 SubIntf Plexo counterDir is null\nnothing" },
   { "S i/s/e/subintf P sys/c/t T c/t", "a view" },
   { "S i/s/e/subintf P /c/t T c/t", "a view" },
   { "S i/s/e/subintf P c/t T c/t", "a view" },
   { "S i/s/e/subintf T c/t K x", "a view" },
   { "S i/s/e/subintf P sys/c/t T c/t D d K x", "0 SubIntf Plexo counterDir is null\nnothing" },
   // VLANs in shared memory.
   { "S i/s/e/vlan P sys/Plexo/t T Plexo/t", "a view" },
   { "S i/s/e/vlan P sys/xPlexo C i/counter/e/vlan", "0 Vlan Plexo counterDir is null\nnothing" },
   { "S i/s/e/vlan P Plexo T Plexo K x", "a view" },   // kept, and nowhere else
   { "S i/s/e/vlan P Plexo T /Plexo D Plexo K x", "0 Vlan Plexo counterDir is null\nnothing" },
   { "S i/s/e/vlan P sys/Plexo/t T Plexo/t T c/t K x", MISMATCH "a view" },
   { "S i/s/e/vlan P sys/Plexo/t T c/t K x", MISMATCH "0 Vlan Plexo counterDir is null\nnothing" },
   // All others.
   { "S i/s/e/vlan P /lexo/plexo C /lexo/plexo", CONFIGURED( "/lexo/plexo" ) "sys/lexo/plexo/Vlan10/current" },
   { "S i/s/e/vlan C i/counter/e/vlan", CONSTRUCTED "sys/i/counter/e/vlan/Vlan10/current" },
   { "S i/s/e/lag P /Plexo T /Plexo",
     "2 sys/i/s/e/lag has counterDirPath /Plexo\n0 Vlan10: " ODD "Plexo::Interface::AllIntfCounterDir\nnothing" },
   { "S i/s/e/vlan P nowhere C c/v K x", "sys/c/v/Vlan10/current" },
   { "S i/s/e/vlan C i/counter/e/vlan D c/v K x", "0 Vlan10: " ODD "Kel::Dir\nnothing" },
   { "S i/s/e/vlan P /c/v C c/v", CONFIGURED( "/c/v" ) "sys/c/v/Vlan10/current" },
   { "S i/s/e/vlan P ../../../c/v C i/c/v", CONFIGURED( "../../../c/v" ) "sys/i/c/v/Vlan10/current" },
   { "S i/s/e/vlan P sys/c/v C c/v C sys/c/v", CONFIGURED( "sys/c/v" ) "0 Vlan10: ->counterDir() is null\nnothing" },
   { "S i/s/e/vlan P Vlan10 C /Vlan10", CONFIGURED( "Vlan10" ) "0 Vlan10: " ODD "Interface::VlanIntfStatus\nnothing" },
   { "S i/s/e/vlan P nowhere C i/counter/e/vlan", CONFIGURED( "nowhere" ) "0 Vlan10: ->counterDir() is null\nnothing" },
   { "S i/s/e/vlan", CONSTRUCTED "0 Vlan10: ->counterDir() is null\nnothing" },
   { "S i/s/e/vlan C2 i/counter/e/vlan", CONSTRUCTED "0 Vlan10: ->doGetIntfCounterDir('Vlan10') returned null\nnothing" },
   { "S i/s/e/vlan C3 i/counter/e/vlan", CONSTRUCTED NO_CURRENT },
   { "S i/s/e/vlan O i/counter/e/vlan", CONSTRUCTED NO_VLAN_COUNTER },
};

TEST( Counter, IsFoundOrSaidToBeMissing ) {
   std::string outcome;
   const auto destination = Kel::traceToCallback( [ & ]( const Kel::TraceLine& line ) {
      EXPECT_TRUE( line.facility == "Counter" && line.source == "Intf/Counter" && line.function == "counterCommon" );
      outcome += std::to_string( line.level ) + " " + std::string( line.text ) + "\n";
   } );
   Kel::traceToStandardErrorIs( false );
   Kel::traceSettingIs( "Counter/*" );
   for( const auto& [ words, expected ] : cases ) {
      const Tree tree( words );
      outcome.clear();
      const auto counter = counterCommon< VlanIntfCounter >( tree.status );
      EXPECT_EQ( outcome + found( counter ), expected ) << words;
   }
   Kel::traceSettingReset();
   Kel::traceToStandardErrorIs( true );
}

TEST( CounterDeathTest, AStatusStandsInAStatusDirectory ) {
   const Ptr< IntfStatus > status = vlanIntfStatusFactory( vlan10, nullptr, 1, "Vlan10" );
   const auto dir = Kel::dirFactory( Name( "vlan" ) );
   dir->entryIs( status );
   EXPECT_DEATH( counterCommon< VlanIntfCounter >( status ), "Intf/Counter: counterCommon.*: assertion \"dir\" failed" );
}

/// The row that has counted to `n`: every field has a value of its own.
IntfCounterRecord counted( Kel::U64 n, const IntfCounterKey& key = current ) {
   if( !n ) return { key, {}, 0, 0 };
   n *= 100;
   return { key,
            { n + 1, n + 2, n + 3, n + 4, n + 5, n + 6, n + 7, n + 8, n + 9, n + 10, n + 11, n + 12, n + 13, n + 14, n + 15,
              n + 16, n + 17 },
            static_cast< Kel::Seconds >( n + 18 ), static_cast< Kel::Seconds >( n + 19 ) };
}

/// What counters show: how far they have counted when they are those of such a row, otherwise everything.
std::string show( const VlanIntfCounter& view ) {
   const Kel::U64 n = view.statistics().inOctets() / 100, octets = n * 100;
   const IntfCounterRecord row( current, view.statistics(), view.discontinuityTime(), view.statsUpdateTime() );
   const VlanIntfStatistics vlan( octets + 14, octets + 15, octets + 16, octets + 17 );
   std::ostringstream out;
   out << ( view.valid() ? "valid " : "invalid " ) << n;
   if( row != counted( n ) || view.vlanStatistics() != ( n ? vlan : VlanIntfStatistics() ) ) {
      out << ' ' << row << ' ' << view.vlanStatistics();
   }
   return out.str();
}

/// Calls `react` with the attributes of a view as they change.
struct Watch : VlanIntfCounter::NotifieeConst {
   Watch( const Ptr< VlanIntfCounter >& view, std::function< void( const std::string& ) > r )
         : NotifieeConst( view ), react( std::move( r ) ) {}
   void onStatistics() override { react( "statistics " ); }
   void onVlanStatistics() override { react( "vlanStatistics " ); }
   void onValid() override { react( show( *notifier() ) + " " ); }
   const std::function< void( const std::string& ) > react;
};

struct PlexoIntfCounterTest : testing::Test {
   static Ptr< AllIntfCounterDir > table( Plexo::TableMode mode, Kel::U32 maxRecords = 100 ) {
      const auto made = Plexo::Interface::allIntfCounterDirFactory( Name( "counters" ) );
      made->intfCounterControl().setUp( { .name = "counters", .mode = mode, .initialRecords = 16, .maxRecords = maxRecords } );
      return made;
   }
   static void count( AllIntfCounterDir& table, Kel::U32 n, const IntfCounterKey& key = current ) {
      table.intfCounterIs( counted( n, key ) );
   }
   static Ptr< VlanIntfCounter > viewOf( const Ptr< AllIntfCounterDir >& table ) {
      return Kel::makePtr< PlexoIntfCounter >( Name( "current" ), table, vlan10 );
   }
   static bool comesTo( AllIntfCounterDir& table, const VlanIntfCounter& view, const std::string& expected ) {
      auto& control = table.intfCounterControl();
      const auto drain = [ & ] { while( control.dispatch() ) {} };
      return Plexo::drainUntil( [ & ] { return control.fd(); }, drain, [ & ] { return show( view ) == expected; } );
   }
   const Plexo::TestDirectory home{ { "PLEXO_DIR" } };
};

TEST_F( PlexoIntfCounterTest, FollowsWhatAnotherProcessWrites ) {
   const Plexo::Signal next, written;
   Plexo::Child writer( [ & ] {
      const auto own = table( Plexo::TableMode::writer );
      const auto step = [ & ]( const auto& change ) { next.take(), change(), written.give(); };
      step( [ & ] { count( *own, 1 ); } );
      step( [ & ] {
         count( *own, 9, { vlan20, CounterName::current } );
         count( *own, 9, { vlan10, CounterName::snapshot } );
         count( *own, 2 );
      } );
      step( [ & ] { own->intfCounterDel( current ); } );
      next.take();
      return 0;
   } );
   const auto reading = table( Plexo::TableMode::reader );
   const auto view = viewOf( reading );
   EXPECT_EQ( show( *view ), "invalid 0" );
   next.give(), written.take();
   EXPECT_TRUE( comesTo( *reading, *view, "valid 1" ) );
   next.give(), written.take();
   // A view that is made now need not wait for the announcement.
   EXPECT_EQ( show( *view ), "valid 1" );
   EXPECT_EQ( show( *viewOf( reading ) ), "valid 2" );
   EXPECT_TRUE( comesTo( *reading, *view, "valid 2" ) );
   next.give(), written.take();
   EXPECT_TRUE( comesTo( *reading, *view, "invalid 0" ) );
   next.give();
   EXPECT_EQ( writer.wait(), 0 );
}

TEST_F( PlexoIntfCounterTest, OutlivesItsWriterAndFollowsTheNext ) {
   const auto reading = table( Plexo::TableMode::reader );   // of a table that is yet to come
   const auto view = viewOf( reading );
   std::string seen;
   const auto watch = Kel::makePtr< Watch >( view, [ & ]( const std::string& what ) { seen += what; } );
   Plexo::Child crashing( [] {
      const auto own = table( Plexo::TableMode::writer );
      count( *own, 1 );
      int stores = 40;   // of those that one change takes
      Plexo::SharedStore::hookIs( []( void* left ) { if( --*static_cast< int* >( left ) == 0 ) raise( SIGKILL ); }, &stores );
      count( *own, 2 );
      return 0;
   } );
   EXPECT_EQ( crashing.wait(), -SIGKILL );
   EXPECT_TRUE( comesTo( *reading, *view, "valid 1" ) );
   EXPECT_EQ( reading->intfCounterControl().state(), Plexo::TableState::stale );
   for( const Kel::U32 maxRecords : { 100, 200 } ) {   // the same file, then one in its place
      const auto next = table( Plexo::TableMode::writer, maxRecords );
      count( *next, maxRecords );
      const std::string n = std::to_string( maxRecords );
      EXPECT_TRUE( comesTo( *reading, *view, "valid " + n ) );
   }
   EXPECT_EQ( seen, "statistics vlanStatistics valid 1 statistics vlanStatistics statistics vlanStatistics " );
   std::filesystem::remove( home.path + "/counters.plexo" );
   const auto anew = table( Plexo::TableMode::writer );
   EXPECT_TRUE( comesTo( *reading, *view, "invalid 0" ) );
}

TEST_F( PlexoIntfCounterTest, IsValidWhileItsAttributesAreThoseOfARow ) {
   const auto root = Kel::dirFactory( Name( "sys" ) );
   const auto own = table( Plexo::TableMode::writer );
   root->entryIs( own );
   const auto view = viewOf( own );
   std::string seen;
   const auto watch = Kel::makePtr< Watch >( view, [ & ]( const std::string& what ) { seen += what; } );
   const std::string comes = "statistics vlanStatistics valid 1 ", goes = "invalid 1 statistics vlanStatistics ";
   count( *own, 1 );
   own->intfCounterDel( current );
   EXPECT_EQ( std::exchange( seen, "" ), comes + goes );
   count( *own, 1 );
   root->entryDel( own->name() );
   count( *own, 2 );   // the table is nobody's any more
   EXPECT_EQ( seen, comes + goes );
}

TEST_F( PlexoIntfCounterTest, ReactorsMayWriteTheTableAndLetGoOfTheView ) {
   const auto own = table( Plexo::TableMode::writer );
   auto view = viewOf( own );
   auto watch = Kel::makePtr< Watch >( view, [ & ]( const std::string& ) { count( *own, 7 ); } );
   count( *own, 1 );
   EXPECT_EQ( show( *view ), "valid 7" );
   watch = Kel::makePtr< Watch >( view, [ & ]( const std::string& ) { view = nullptr; } );
   count( *own, 8 );
   EXPECT_FALSE( view );
   EXPECT_EQ( own->notifieeCount(), 0u );
}

TEST_F( PlexoIntfCounterTest, ACorruptionHidesTheRowAndIsTold ) {
   const auto own = table( Plexo::TableMode::writer );
   count( *own, 1 );
   const auto view = viewOf( own );
   Plexo::FileBytes( home.path + "/counters.plexo" ).put( 0, 0 );   // the magic number
   own->intfCounterNotifyCollection();
   EXPECT_EQ( show( *view ), "invalid 0" );
   EXPECT_EQ( own->intfCounterControl().corruptionsDetected(), 1u );
}

}
}
