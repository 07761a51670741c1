#include <Vanta/VlanDynIntfSm.h>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kel/Dir.h>
#include <kel/Trace.h>
#include <map>
#include <random>
#include <set>

// The merge beside a short restatement of its rules, through random scripts; what it says and what stops it; and what becomes of
// it when somebody intervenes in the middle.

namespace Vanta {
namespace {

using Interface::VlanIntfConfigErrorDir;
using Priority = Interface::VlanIntfConfigPriority;
using Requests = Interface::VlanIntfConfigDir;
using Kel::Ptr;
using Kel::U32;
using Config = Ptr< Interface::VlanIntfConfig >;
using Source = Ptr< Requests >;

constexpr auto lo = Priority::vlanIntfConfigPriorityLo, med = Priority::vlanIntfConfigPriorityMed,
               hi = Priority::vlanIntfConfigPriorityHi;
constexpr U32 sourceCount = 4, intfCount = 3;

Quor::IntfId vlan( U32 n ) { return Quor::IntfId( "Vlan" + std::to_string( n ) ); }
std::string nameOf( U32 source ) { return std::string( 1, static_cast< char >( 'a' + source ) ); }

/// One thing that somebody does: with which source, which of its two directories, which interface, and a number or so.
struct Op {
   enum Kind { request, withdraw, again, enter, reenter, priority, verdict, mark, place, standby, launched, restart } kind;
   U32 source, dir, intf, arg;
};

/// A few sources, a few interfaces, and the reactor between them.
struct World {
   World() {
      for( U32 s = 0; s < sourceCount; ++s ) {
         for( auto& d : dirs[ s ] ) d = Interface::vlanIntfConfigDirFactory( nameOf( s ) );
         reports[ s ] = Interface::vlanIntfConfigErrorDirFactory( nameOf( s ) );
         errors->entryIs( nameOf( s ), reports[ s ] );
      }
   }
   void start( bool isStandby = false, bool withErrors = true ) {
      reactor = nullptr;
      reactor = dynVlanIntfReactorFactory( sources, withErrors ? errors : nullptr, list, isStandby );
   }
   void request( U32 source, U32 intf ) { dirs[ source ][ 0 ]->intfConfigIs( vlan( intf ) ); }
   void withdraw( U32 source, U32 intf ) { dirs[ source ][ 0 ]->intfConfigDel( vlan( intf ) ); }
   void again( U32 source, U32 intf ) { dirs[ source ][ 0 ]->intfConfigNotify( vlan( intf ) ); }
   void enter( U32 source, Priority priority ) {
      dirs[ source ][ 0 ]->configPriorityIs( priority );
      sources->entryIs( nameOf( source ), dirs[ source ][ 0 ] );
   }
   /// Under the name of a source: nothing, an entity of another type, or the right one.
   void put( Kel::Dir& dir, const Op& op, const Ptr< Kel::Entity >& right ) {
      if( op.arg ) dir.entryIs( nameOf( op.source ), op.arg == 1 ? list : right );
      else dir.entryDel( nameOf( op.source ) );
   }
   void apply( const Op& op ) {
      const Source dir = dirs[ op.source ][ op.dir ];
      const auto intf = vlan( op.intf );
      const Config config = dir->intfConfig( intf );
      switch( op.kind ) {
      case Op::request: dir->intfConfigIs( intf ); break;
      case Op::withdraw: dir->intfConfigDel( intf ); break;
      case Op::again: dir->intfConfigNotify( intf ); break;
      case Op::enter: put( *sources, op, dir ); break;
      case Op::reenter: sources->entryNotify( nameOf( op.source ) ); break;
      case Op::priority: dir->configPriorityIs( static_cast< Priority >( op.arg % 3 ) ); break;
      case Op::verdict: op.arg < 2 ? list->intfConfigErrorIs( intf, op.arg ) : list->intfConfigErrorDel( intf ); break;
      case Op::mark: if( config ) config->dynamicIs( op.arg % 2 ), config->sourceIs( op.arg / 2 ? "cli" : "x" ); break;
      case Op::place: put( *errors, op, reports[ op.source ] ); break;
      case Op::standby: reactor->standbyModeIs( op.arg % 2 ); break;
      case Op::launched: reactor->launchedByVantaIs( op.arg % 2 ); break;
      case Op::restart: start( op.arg % 2, op.arg / 2 );
      }
   }
   /// The requests of a source as its entry has them, or null.
   Source entry( U32 s ) const { return Kel::dynamicCast< Requests >( sources->entry( nameOf( s ) ) ); }
   bool isReported( U32 source, U32 intf ) const {
      return reports[ source ]->vlanIntfConfigError( vlan( intf ) ) == "Rejected: Higher priority config found";
   }
   std::map< SourcePriorityPair, Source > machines() const {
      std::map< SourcePriorityPair, Source > all;
      for( auto i = reactor->dynVlanIntfConfigSmIterConst(); i; ++i ) all[ i.key() ] = i.value()->dynVlanConfig();
      return all;
   }

   Ptr< Kel::Dir > sources = Kel::dirFactory( "sources" ), errors = Kel::dirFactory( "errors" );
   Ptr< DynVlanIntfList > list = dynVlanIntfListFactory( "list" );
   Source dirs[ sourceCount ][ 2 ];
   Ptr< VlanIntfConfigErrorDir > reports[ sourceCount ];
   Ptr< DynVlanIntfReactor > reactor;
};

// --- beside a model

/// What others do is read from the world; what the machines make of it is kept here.
struct Model : World {
   using Key = std::pair< int, std::string >;   // the priority negated, so that the best comes first
   struct Mark { bool dynamic = false; std::string source = "cli"; };

   static Key keyOf( U32 s, const Source& dir ) { return { -static_cast< int >( dir->configPriority() ), nameOf( s ) }; }
   static SourcePriorityPair pairOf( const Key& key ) { return { key.second, static_cast< Priority >( -key.first ) }; }
   static Config at( const std::map< U32, Config >& in, U32 intf ) { return in.contains( intf ) ? in.at( intf ) : nullptr; }
   Config asked( const Key& key, U32 intf ) { return machineOf[ key ]->intfConfig( vlan( intf ) ); }
   void report( const std::string& name, U32 intf, bool add ) {
      if( isStandby || !hasErrors || !Kel::dynamicCast< VlanIntfConfigErrorDir >( errors->entry( name ) ) ) return;
      if( add ) reported.insert( { name, intf } );
      else reported.erase( { name, intf } );
   }
   void publish( U32 intf, const Config& config ) {
      if( at( picked, intf ) == config && marks[ config ].dynamic && marks[ config ].source != "cli" ) published[ intf ] = config;
   }
   void own( U32 intf, const Key& key ) {
      owner[ intf ] = key, picked[ intf ] = asked( key, intf );
      publish( intf, picked[ intf ] );
   }
   void disown( U32 intf ) { published.erase( intf ), picked.erase( intf ), owner.erase( intf ); }
   bool isOwner( const std::string& name, U32 intf ) { return owner.contains( intf ) && owner[ intf ].second == name; }
   void alternate( const Key& skip, U32 intf ) {
      for( const auto& [ key, dir ] : machineOf ) {
         if( key == skip || !asked( key, intf ) ) continue;
         own( intf, key );
         return report( key.second, intf, list->intfConfigError( vlan( intf ) ) );
      }
   }
   void merge( const Key& me, U32 intf ) {
      const Config config = asked( me, intf );
      if( !config ) {
         if( !owner.contains( intf ) || owner[ intf ] != me ) return report( me.second, intf, false );
         disown( intf );
         return alternate( me, intf );
      }
      if( !isStandby && isLaunched ) marks[ config ] = { true, me.second }, publish( intf, config );
      if( owner.contains( intf ) ) {
         const Key previous = owner[ intf ];
         if( previous < me ) return report( me.second, intf, true );
         disown( intf );
         report( me.second, intf, list->intfConfigError( vlan( intf ) ) );
         report( previous.second, intf, true );
      }
      own( intf, me );
   }
   void mergeAll( const Key& me ) { for( U32 intf = 1; intf <= intfCount; ++intf ) if( asked( me, intf ) ) merge( me, intf ); }
   void reconcile( const std::string& name, const std::set< U32 >& settled ) {
      for( U32 intf = 1; intf <= intfCount; ++intf ) {
         bool due = false;
         for( const auto& [ key, dir ] : machineOf ) due = due || ( key.second == name && asked( key, intf ) );
         due = due && ( !isOwner( name, intf ) || list->intfConfigError( vlan( intf ) ) );
         if( !settled.contains( intf ) ) report( name, intf, due );
      }
   }
   void add( const Key& key, const Source& dir ) { if( machineOf.insert( { key, dir } ).second ) mergeAll( key ); }
   void drop( const Key key ) {
      if( !machineOf.erase( key ) ) return;
      std::set< U32 > settled;
      for( const auto& [ intf, config ] : std::map( published ) ) {
         disown( intf );
         alternate( key, intf );
         if( isOwner( key.second, intf ) ) settled.insert( intf );
      }
      reconcile( key.second, settled );
   }
   void step( const Op& op ) {
      const Source dir = dirs[ op.source ][ op.dir ], entryBefore = entry( op.source );
      const std::string name = nameOf( op.source );
      const auto intf = vlan( op.intf );
      const Config before = dir->intfConfig( intf );
      const Key key = keyOf( op.source, dir ), keyBefore = entryBefore ? keyOf( op.source, entryBefore ) : Key();
      const auto* verdict = list->intfConfigErrorMap_().find( intf );
      const U32 verdictBefore = verdict ? *verdict : 2;
      // A verdict on an interface whose owner has gone stops the process.
      if( op.kind == Op::verdict && owner.contains( op.intf ) && !machineOf.contains( owner[ op.intf ] ) ) return;
      if( op.kind == Op::restart ) while( !machineOf.empty() ) drop( machineOf.begin()->first );
      if( op.kind == Op::restart ) picked.clear(), published.clear();
      apply( op );
      const Config now = dir->intfConfig( intf );
      if( ( before != now || op.kind == Op::again ) && entryBefore == dir ) merge( key, op.intf );
      if( entryBefore && entryBefore != entry( op.source ) ) drop( keyBefore );
      const Source entryNow = op.kind == Op::enter || op.kind == Op::reenter ? entry( op.source ) : nullptr;
      if( entryNow ) add( keyOf( op.source, entryNow ), entryNow );
      if( entryBefore == dir && key != keyOf( op.source, dir ) ) add( keyOf( op.source, dir ), dir ), drop( key );
      if( now && op.kind == Op::mark ) {
         marks[ now ].dynamic = op.arg % 2, publish( op.intf, now );
         marks[ now ].source = op.arg / 2 ? "cli" : "x", publish( op.intf, now );
      }
      if( op.kind == Op::verdict && std::min( op.arg, 2u ) != verdictBefore && owner.contains( op.intf ) )
         report( owner[ op.intf ].second, op.intf, op.arg == 1 );
      if( op.kind == Op::launched ) isLaunched = op.arg % 2;
      if( op.kind == Op::standby && std::exchange( isStandby, op.arg % 2 ) && !isStandby && isLaunched ) {
         for( const auto& [ k, d ] : machineOf ) mergeAll( k );
         for( U32 s = 0; s < sourceCount; ++s ) reconcile( nameOf( s ), {} );
      }
      if( op.kind != Op::restart ) return;
      isStandby = op.arg % 2, hasErrors = isLaunched = op.arg / 2;
      for( auto i = sources->entryIterConst(); i; ++i ) {
         const U32 s = static_cast< U32 >( i.key().view()[ 0 ] - 'a' );
         if( entry( s ) ) add( keyOf( s, entry( s ) ), entry( s ) );
      }
   }
   /// What the two say differently.
   std::string difference() {
      std::string out;
      const auto check = [ &out ]( bool same, const std::string& what, U32 n ) {
         if( !same ) out += what + std::to_string( n ) + " ";
      };
      std::map< SourcePriorityPair, Source > expected;
      for( const auto& [ key, dir ] : machineOf ) expected[ pairOf( key ) ] = dir;
      check( machines() == expected, "machines", 0 );
      for( auto i = reactor->dynVlanIntfConfigSmIterConst(); i; ++i ) check( i.value()->initialized(), "start of machine", 0 );
      std::size_t sourcesNow = 0, entries = 0;
      for( U32 s = 0; s < sourceCount; ++s ) {
         const auto priority = reactor->dynVlanIntfConfigPrioritySm( nameOf( s ) );
         check( ( priority ? priority->dynVlanConfig() : nullptr ) == entry( s ), "priority machine", s );
         sourcesNow += !!entry( s ), entries += reports[ s ]->vlanIntfConfigErrorCount();
      }
      check( reactor->dynVlanIntfConfigPrioritySmCount() == sourcesNow, "priority machines", 0 );
      check( entries == reported.size() && list->sourcePriorityCount() == owner.size(), "reports or owners", 0 );
      check( reactor->preIntfListCount() == picked.size() && reactor->preIntfListSmCount() == picked.size(), "picked", 0 );
      check( list->intfConfigCount() == published.size(), "published", 0 );
      for( U32 n = 1; n <= intfCount; ++n ) {
         const auto* is = list->sourcePriorityMap_().find( vlan( n ) );
         check( is ? owner.contains( n ) && *is == pairOf( owner[ n ] ) : !owner.contains( n ), "owner", n );
         check( reactor->preIntfList( vlan( n ) ) == at( picked, n ), "picked", n );
         const auto publisher = reactor->preIntfListSm( vlan( n ) );
         check( publisher ? publisher->initialized() && publisher->preIntfListSm() == at( picked, n ) : !picked.contains( n ),
                "publisher", n );
         check( list->intfConfig( vlan( n ) ) == at( published, n ), "published", n );
         for( U32 s = 0; s < sourceCount; ++s ) {
            check( isReported( s, n ) == reported.contains( { nameOf( s ), n } ), "report to " + nameOf( s ), n );
            for( const auto& d : dirs[ s ] )
               if( const Config c = d->intfConfig( vlan( n ) ) )
                  check( c->dynamic() == marks[ c ].dynamic && c->source().str() == marks[ c ].source, "mark", n );
         }
      }
      return out;
   }

   std::map< Key, Source > machineOf;
   std::map< U32, Key > owner;
   std::map< U32, Config > picked, published;
   std::map< Config, Mark > marks;
   std::set< std::pair< std::string, U32 > > reported;
   bool isStandby = false, isLaunched = false, hasErrors = false;
};

using Script = std::vector< Op >;

/// After how many steps the two differ, and in what; beyond the script's length when they never do.
std::pair< std::size_t, std::string > runScript( const Script& script ) {
   Model model;
   model.step( { Op::restart, 0, 0, 1, 2 } );
   for( std::size_t n = 1; n <= script.size(); ++n ) {
      model.step( script[ n - 1 ] );
      if( const auto difference = model.difference(); !difference.empty() ) return { n, difference };
   }
   return { script.size() + 1, "" };
}

/// The script without all that its failure does not need.
Script shrunk( Script script ) {
   for( std::size_t i = script.size(); i-- > 0; ) {
      Script shorter;
      for( const Op& op : script ) if( &op != &script[ i ] ) shorter.push_back( op );
      if( runScript( shorter ).first <= shorter.size() ) script = shorter, i = script.size();
   }
   return script;
}

TEST( DynVlanModel, RandomScripts ) {
   // How often each kind of step is drawn, in their order.
   std::discrete_distribution< int > kinds{ 30, 15, 3, 14, 2, 9, 10, 8, 4, 4, 2, 1 };
   for( U32 seed = 1; seed <= 4000; ++seed ) {
      std::mt19937 random( seed );
      const auto below = [ & ]( U32 n ) { return static_cast< U32 >( random() % n ); };
      Script script( 30 + below( 171 ) );
      for( Op& op : script )
         op = { Op::Kind( kinds( random ) ), below( sourceCount ), below( 4 ) / 3, 1 + below( intfCount ), below( 4 ) };
      if( runScript( script ).first > script.size() ) continue;
      script = shrunk( script );
      for( const Op& o : script ) std::cout << o.kind << " " << o.source << " " << o.dir << " " << o.intf << " " << o.arg << "\n";
      FAIL() << "seed " << seed << ", " << script.size() << " steps; " << runScript( script ).second;
   }
}

// --- what it says, and what stops it

TEST( SourcePriorityPair, BestFirst ) {
   const SourcePriorityPair ascending[] = { { "b", hi }, { "c", hi }, { "B", med }, { "a", med }, { "", lo }, { "a", lo },
                                            { "", Priority( ~0u ) } };
   for( const auto& a : ascending ) {
      for( const auto& b : ascending ) {
         EXPECT_EQ( &a <=> &b, a <=> b );
         EXPECT_EQ( &b < &a, a.isLowerPriority( b ) ) << a << b;
      }
      EXPECT_EQ( a == SourcePriorityPair(), !a );
   }
}

struct DynVlan : testing::Test, World {};

/// The lines that somebody causes: their level unless that is 8; reactor (R), source (C), its priority (P) or owned interface
/// (I); handler; text. `+` stands for the three of an owned interface that is published at once, `-` for its end.
std::string traceOf( const std::function< void() >& act ) {
   static constexpr const char* shorter[][ 2 ] = {
      { "void Vanta::DynVlanIntf", "" }, { "Reactor::KelPreIntfListSm::", "I " }, { "Reactor::", "R " }, { "ConfigSm::", "C " },
      { "ConfigPrioritySm::", "P " }, { "const Kel::Name&", "name" }, { "const Quor::IntfId&", "id" }, { "'})", "}" },
      { "const Vanta::SourcePriorityPair&", "pair" }, { "Value('Vanta::SourcePriorityPair', ** {'source': '", "{" },
      { "', 'priority': 'vlanIntfConfigPriority", " " }, { "vlanIntfConfigPriority", "" }, { "'Vlan1'", "V1" },
      { "handleInitialized", "start" }, { "handleDynVlanIntfDir", "dir" }, { "handleDynVlanConfig", "merge" },
      { "handleIntfConfigDynamicOrSource", "mark" }, { "setAlternateInput(pair, id, bool)", "alternate(..)" },
      { "addOrDeleteIntfConfigError(name, id, bool)", "report(..)" }, { "handleIntfConfigError", "verdict" },
      { "handleStandbyMode", "standby" }, { "handleConfigPriority", "priority" },
      { "I start():; I mark(): initialized:1 intf V1; I mark():adding prelisted intf V1 to dynVlanIntfList", "+" },
      { "I cleanup():removing prelisted intf V1", "-" } };
   std::string lines;
   const auto destination = Kel::traceToCallback( [ &lines ]( const Kel::TraceLine& line ) {
      EXPECT_EQ( "VantaDynVlanIntf VlanDynIntfSm", std::string( line.facility ) + " " + std::string( line.source ) );
      lines += ( lines.empty() ? "" : "; " ) + ( line.level == 8 ? "" : std::to_string( line.level ) + " " );
      lines += std::string( line.function ) + ":" + std::string( line.text );
   } );
   Kel::traceToStandardErrorIs( false );
   Kel::traceLevelIs( "VantaDynVlanIntf", Kel::TraceLevels::all() );
   act();
   Kel::traceSettingReset();
   Kel::traceToStandardErrorIs( true );
   for( const auto& [ from, to ] : shorter )
      for( auto at = lines.find( from ); at != lines.npos; at = lines.find( from ) ) lines.replace( at, std::strlen( from ), to );
   return lines;
}

TEST_F( DynVlan, TraceTexts ) {
   const auto a = dirs[ 0 ][ 0 ], b = dirs[ 1 ][ 0 ];
   const auto verdict = [ & ]( bool is ) { list->intfConfigErrorIs( vlan( 1 ), is ); };
   const struct { std::function< void() > act; const char* lines; } story[] = {
      { [ & ] { start(); },
        "R start(): launched by Vanta? : 1; R dir():" },
      { [ & ] { request( 0, 1 ), enter( 0, med ); },
        "R dir(name): source a; 6 R dir(name): add source a priority Med; C start():; C merge(): sourcePriority: {a Med}; "
        "C merge(id): intf V1; C merge(id): add config sources/a/Vlan1; +" },
      { [ & ] { request( 1, 1 ), enter( 1, lo ); },
        "R dir(name): source b; 6 R dir(name): add source b priority Lo; C start():; C merge(): sourcePriority: {b Lo}; "
        "C merge(id): intf V1; C merge(id):myPri < prevPri? 1 {a Med} {b Lo}; C report(..): add report for b, intf V1; "
        "C merge(id): keep prev config " },
      { [ & ] { verdict( true ), again( 0, 1 ); },
        "R verdict(id): intf  V1; C report(..): add report for a, intf V1; C merge(id): intf V1; "
        "C merge(id):myPri < prevPri? 0 {a Med} {a Med}; C merge(id): replace prev config ; -; "
        "C report(..): add report for a, intf V1; C report(..): add report for a, intf V1; "
        "C merge(id): add config sources/a/Vlan1; +" },
      { [ & ] { request( 2, 1 ), enter( 2, hi ); },
        "R dir(name): source c; 6 R dir(name): add source c priority Hi; C start():; C merge(): sourcePriority: {c Hi}; "
        "C merge(id): intf V1; C merge(id):myPri < prevPri? 0 {a Med} {c Hi}; C merge(id): replace prev config ; -; "
        "C report(..): add report for c, intf V1; C report(..): add report for a, intf V1; "
        "C merge(id): add config sources/c/Vlan1; +" },
      { [ & ] { withdraw( 1, 1 ), withdraw( 2, 1 ); },
        "C merge(id): intf V1; C report(..): del report for b, intf V1; C merge(id): intf V1; "
        "C merge(id): del config for intf:V1; -; C alternate(..): skip: {c Hi}intf V1; "
        "C alternate(..):found alternate cfg sources/a/Vlan1; +; C report(..): add report for a, intf V1" },
      { [ & ] { a->configPriorityIs( hi ), reactor->dynVlanIntfConfigPrioritySm( "a" )->handleConfigPriority(); },
        "P priority(): replace previous priority Med with new priority Hi; C start():; C merge(): sourcePriority: {a Hi}; "
        "C merge(id): intf V1; C merge(id):myPri < prevPri? 0 {a Med} {a Hi}; C merge(id): replace prev config ; -; "
        "C report(..): add report for a, intf V1; C report(..): add report for a, intf V1; "
        "C merge(id): add config sources/a/Vlan1; +; C cleanup(): source: {a Med}; -; C alternate(..): skip: {a Med}intf V1; "
        "C alternate(..):found alternate cfg sources/a/Vlan1; +; C report(..): add report for a, intf V1; "
        "P priority(): no change from previous priority Hi" },
      { [ & ] { reactor->standbyModeIs( true ), verdict( false ), request( 1, 1 ), sources->entryDel( "c" ); },
        "R standby(): standbyMode 1; R verdict(id): intf  V1; C report(..): standbyMode: 1; C merge(id): intf V1; "
        "C merge(id):myPri < prevPri? 1 {a Hi} {b Lo}; C report(..): standbyMode: 1; C merge(id): keep prev config ; "
        "R dir(name): source c; 6 R dir(name):remove source c; C cleanup(): source: {c Hi}; -; "
        "C alternate(..): skip: {c Hi}intf V1; C alternate(..):found alternate cfg sources/a/Vlan1; +; "
        "C report(..): standbyMode: 1" },
      { [ & ] { verdict( true ), reactor->standbyModeIs( false ); },
        "R verdict(id): intf  V1; C report(..): standbyMode: 1; R standby(): standbyMode 0; C merge(): sourcePriority: {a Hi}; "
        "C merge(id): intf V1; C merge(id):myPri < prevPri? 0 {a Hi} {a Hi}; C merge(id): replace prev config ; -; "
        "C report(..): add report for a, intf V1; C report(..): add report for a, intf V1; "
        "C merge(id): add config sources/a/Vlan1; +; C merge(): sourcePriority: {b Lo}; C merge(id): intf V1; "
        "C merge(id):myPri < prevPri? 1 {a Hi} {b Lo}; C report(..): add report for b, intf V1; "
        "C merge(id): keep prev config ; C report(..): add report for a, intf V1; C report(..): add report for b, intf V1; "
        "C report(..): del report for c, intf V1" },
      { [ & ] { reactor->dynVlanIntfConfigSm( { "a", hi } )->cleanup(), again( 0, 1 ); },
        "C cleanup(): source: {a Hi}; -; C alternate(..): skip: {a Hi}intf V1; "
        "C alternate(..):found alternate cfg sources/b/Vlan1; +; C report(..): add report for b, intf V1; "
        "C report(..): del report for a, intf V1; C merge(id): intf V1" },
      { [ & ] { reactor->initializedIs( false ), verdict( false ), reactor->standbyModeIs( true );
                reactor->standbyModeIs( false ), sources->entryNotify( "a" ), reactor->initializedIs( true ); },
        "R verdict(id): intf  V1; R standby(): standbyMode 1; R standby(): standbyMode 0; R dir(name): source a" },
      { [ & ] { sources->entryIs( "a", list ), sources->entryDel( "a" ); },
        "R dir(name): source a; 6 R dir(name):remove source a; C cleanup(): source: {a Hi}; -; "
        "C alternate(..): skip: {a Hi}intf V1; C alternate(..):found alternate cfg sources/b/Vlan1; +; "
        "C report(..): del report for b, intf V1; R dir(name): source a; 6 R dir(name):remove source a; R dir(name): source a; "
        "6 R dir(name):remove source a" },
      { [ & ] { errors->entryDel( "b" ), verdict( true ), withdraw( 1, 1 ); },
        "R verdict(id): intf  V1; C report(..): return no err dir intf V1; C merge(id): intf V1; "
        "C merge(id): del config for intf:V1; -; C alternate(..): skip: {b Lo}intf V1" },
      // A new priority that the priority machine has not heard of.
      { [ & ] { reactor->hasNotificationActiveIs( false ), b->configPriorityIs( med ), reactor->hasNotificationActiveIs( true ),
                sources->entryNotify( "b" ); },
        "R dir(name): source b; 6 R dir(name): add source b priority Med; "
        "P priority(): replace previous priority Lo with new priority Med; C start():; C merge(): sourcePriority: {b Med}; "
        "C cleanup(): source: {b Lo}" },
      { [ & ] { start( false, false ); },
        "R cleanup():; C cleanup(): source: {b Med}; R start(): launched by Vanta? : 0; R dir():; R dir(name): source b; "
        "6 R dir(name): add source b priority Med; C start():; C merge(): sourcePriority: {b Med}" },
      { [ & ] { b->intfConfigIs( vlan( 1 ) )->dynamicIs( true ), b->intfConfig( vlan( 1 ) )->sourceIs( "x" ); },
        "C merge(id): intf V1; C merge(id): add config sources/b/Vlan1; I start():; I mark(): initialized:1 intf V1; "
        "I mark(): initialized:1 intf V1; I mark(): initialized:1 intf V1; "
        "I mark():adding prelisted intf V1 to dynVlanIntfList" },
      { [ & ] { reactor = nullptr; },
        "R cleanup():; C cleanup(): source: {b Med}; -; C alternate(..): skip: {b Med}intf V1" } };
   for( const auto& step : story ) EXPECT_EQ( step.lines, traceOf( step.act ) );
}

TEST_F( DynVlan, RefusalsAndAssertions ) {
   start(), enter( 0, hi ), request( 0, 1 );
   EXPECT_THAT( [ & ] { list->intfConfigIs( nullptr ); }, testing::ThrowsMessage< Kel::RangeException >(
      "null _intfConfig parameter to mutator for Vanta::DynVlanIntfList::intfConfig not allowed" ) );
   EXPECT_THAT( [ & ] { reactor->newDynVlanIntfConfigSm( { "a", hi }, dirs[ 0 ][ 1 ] ); },
                testing::ThrowsMessage< Kel::NameInUseException >( testing::StartsWith( "Reinstantiating the pointer interface "
                   "where constructor parameter attribute _dynVlanConfig has a different value of" ) ) );

   const auto owned = [ & ]( const SourcePriorityPair& by ) { list->sourcePriorityIs( vlan( 1 ), by ); };
   const auto notOwned = [ & ] { list->sourcePriorityDel( vlan( 1 ) ); };
   const auto verdict = [ & ] { list->intfConfigErrorIs( vlan( 1 ), true ); };
   const struct { const char *function, *text; std::function< void() > act; } rows[] = {
      { "handleInitialized", "dynVlanIntfList()", [ & ] { dynVlanIntfReactorFactory( sources, errors, nullptr, false ); } },
      { "handleInitialized", "parent()", [ & ] { dynVlanIntfConfigSmFactory( { "z", hi }, dirs[ 0 ][ 0 ], nullptr ); } },
      { "handleDynVlanConfig", "!!prevPri", [ & ] { owned( {} ), again( 0, 1 ); } },
      { "handleIntfConfigError", "!!sourcePri", [ & ] { owned( {} ), verdict(); } },
      { "handleIntfConfigError", "dynVlanIntfConfigSm( sourcePri )", [ & ] { owned( { "z", hi } ), verdict(); } },
      { "cleanup", "!!parent()->dynVlanIntfList()->sourcePriority( i.key() )", [ & ] { notOwned(), sources->entryDel( "a" ); } },
      { "handleInitialized", "!!dynVlanIntfReactor()->dynVlanIntfList()->sourcePriority( intfId() )",
        [ & ] { reactor->preIntfListIs( dirs[ 1 ][ 0 ]->intfConfigIs( vlan( 2 ) ) ); } },
      { "handleIntfConfigDynamicOrSource", "!!dynVlanIntfReactor()->dynVlanIntfList()->sourcePriority( intfId() )",
        [ & ] { notOwned(), dirs[ 0 ][ 0 ]->intfConfig( vlan( 1 ) )->sourceIs( "x" ); } },
   };
   for( const auto& row : rows ) {
      const std::string function( row.function ), text( row.text );
      EXPECT_DEATH( row.act(), testing::HasSubstr( "VlanDynIntfSm: " + function + ": assertion \"" + text + "\" failed" ) );
   }
}

/// Calls somebody back at every change of an entity.
struct Meddler : Kel::NotifieeBase {
   Meddler( const Ptr< Kel::Entity >& entity, std::function< void() > what ) : then( what ) { activate( entity.ptr() ); }
   void dispatch( const Kel::Change& ) override { then(); }
   std::function< void() > then;
};

/// What is seen between two writes that leave no line.
TEST_F( DynVlan, OrderOfWrites ) {
   std::string seen;
   request( 0, 1 ), start();
   const auto config = dirs[ 0 ][ 0 ]->intfConfig( vlan( 1 ) );
   const auto ofConfig = Kel::makePtr< Meddler >( config, [ & ] {
      seen += std::string( config->dynamic() ? "dynamic of " : "of " ) + config->source().str() + "; ";
   } );
   const auto ofList = Kel::makePtr< Meddler >( list, [ & ] {
      seen += list->sourcePriority( vlan( 1 ) ).source().str() + ( list->intfConfig( vlan( 1 ) ) ? " published" : "" );
      seen += reactor->dynVlanIntfConfigPrioritySm( "a" ) ? " followed; " : "; ";
   } );
   enter( 0, hi ), again( 0, 1 ), sources->entryDel( "a" );
   EXPECT_EQ( "dynamic of cli; dynamic of a; a; a published; "
              "a followed;  followed; a followed; a published followed; a; ; ", seen );
}

// --- when somebody intervenes

/// The walk over what was published hands on the verdict that it found, even where the consumer takes it back meanwhile.
TEST_F( DynVlan, ReportsOfTheWalkStay ) {
   start(), request( 0, 1 ), enter( 0, hi );
   const auto consumer = Kel::makePtr< Meddler >( list, [ this ] {
      if( !list->intfConfig( vlan( 1 ) ) ) list->intfConfigErrorDel( vlan( 1 ) );
   } );
   list->intfConfigErrorIs( vlan( 1 ), true );
   dirs[ 0 ][ 0 ]->configPriorityIs( med );
   EXPECT_EQ( SourcePriorityPair( "a", med ), list->sourcePriority( vlan( 1 ) ) );
   EXPECT_TRUE( !list->intfConfigError( vlan( 1 ) ) && isReported( 0, 1 ) );
}

/// A collection that is to be read again as a whole: what has gone unheard is made up for.
TEST_F( DynVlan, ReadingAgain ) {
   start(), request( 0, 1 ), request( 0, 2 ), enter( 0, hi ), request( 1, 2 ), enter( 1, lo ), enter( 3, lo );
   reactor->hasNotificationActiveIs( false );
   withdraw( 0, 1 ), request( 0, 3 ), withdraw( 1, 2 ), enter( 2, lo ), sources->entryDel( "d" );
   list->intfConfigErrorIs( vlan( 3 ), true );
   reactor->hasNotificationActiveIs( true );
   list->sourcePriorityIs( vlan( 9 ), { "z", lo } );   // as a source that has gone may leave it
   for( U32 s : { 0u, 1u } ) dirs[ s ][ 0 ]->intfConfigNotifyCollection();
   list->intfConfigErrorNotifyCollection();
   list->sourcePriorityDel( vlan( 9 ) );
   const SourcePriorityPair a( "a", hi );
   EXPECT_TRUE( list->sourcePriority( vlan( 2 ) ) == a && list->sourcePriority( vlan( 3 ) ) == a );
   EXPECT_EQ( 2u, list->sourcePriorityCount() );
   EXPECT_TRUE( !isReported( 0, 2 ) && isReported( 0, 3 ) && !isReported( 1, 2 ) );
   sources->attrNotify( Kel::Dir::Attr_::entry );
   EXPECT_TRUE( reactor->dynVlanIntfConfigSmCount() == 3 && reactor->dynVlanIntfConfigPrioritySm( "c" ) );
}

/// Whatever somebody does inside of callbacks, everything is in order when the outermost call returns.
struct Meddling : World {
   explicit Meddling( U32 seed ) : random( seed ) {
      attach( sources ), attach( list ), start(), attach( sources ), attach( list );
      for( auto& r : reports ) attach( r );
   }
   void attach( const Ptr< Kel::Entity >& e ) {
      meddlers.push_back( Kel::makePtr< Meddler >( e, [ this ] { if( depth < 3 && random() % 3 == 0 ) step(); } ) );
   }
   void step() {
      const auto below = [ this ]( U32 n ) { return static_cast< U32 >( random() % n ); };
      static constexpr Op::Kind kinds[] = { Op::request, Op::request, Op::request, Op::withdraw, Op::again, Op::enter,
                                            Op::enter, Op::enter, Op::reenter, Op::priority, Op::priority, Op::verdict };
      const Op op{ kinds[ below( 12 ) ], below( 3 ), below( 4 ) / 3, 1 + below( 2 ), below( 4 ) };
      const Source dir = dirs[ op.source ][ op.dir ];
      if( op.kind == Op::verdict && !list->intfConfig( vlan( op.intf ) ) ) return;
      if( op.kind == Op::request && dir->intfConfig( vlan( op.intf ) ) ) return;
      ++depth;
      apply( op );
      if( const Config config = op.kind == Op::request ? dir->intfConfig( vlan( op.intf ) ) : nullptr ) {
         // Marked from the start: what is owned by a source that goes, and not published, would stay with it.
         config->dynamicIs( true ), config->sourceIs( "x" );
         attach( config );
      }
      --depth;
   }
   std::string wrong() {
      std::string out;
      std::map< SourcePriorityPair, Source > expected;
      std::map< U32, SourcePriorityPair > owner;
      std::map< U32, Config > config;
      for( U32 s = 0; s < 3; ++s ) {
         const auto priority = reactor->dynVlanIntfConfigPrioritySm( nameOf( s ) );
         if( ( priority ? priority->dynVlanConfig() : nullptr ) != entry( s ) ) out += "priority of " + nameOf( s ) + " ";
         if( entry( s ) ) expected[ { nameOf( s ), entry( s )->configPriority() } ] = entry( s );
      }
      if( machines() != expected ) out += "machines ";
      for( U32 n : { 1u, 2u } ) {
         for( const auto& [ key, dir ] : expected )
            if( !config[ n ] && dir->intfConfig( vlan( n ) ) ) owner[ n ] = key, config[ n ] = dir->intfConfig( vlan( n ) );
         if( list->sourcePriority( vlan( n ) ) != owner[ n ] ) out += "owner ";
         if( reactor->preIntfList( vlan( n ) ) != config[ n ] || list->intfConfig( vlan( n ) ) != config[ n ] ) out += "config ";
      }
      return out;
   }

   std::mt19937 random;
   std::vector< Ptr< Meddler > > meddlers;
   int depth = 0;
};

TEST( DynVlanMeddling, RandomScripts ) {
   for( U32 seed = 1; seed <= 3000; ++seed ) {
      Meddling world( seed );
      for( int n = 0; n < 40; ++n ) {
         world.step();
         ASSERT_EQ( "", world.wrong() ) << "seed " << seed << ", step " << n;
      }
      world.depth = 3;
      world.reactor->standbyModeIs( true ), world.reactor->standbyModeIs( false );
      for( U32 s = 0; s < 3; ++s ) {
         for( U32 n : { 1u, 2u } ) {
            const bool isAsked = world.entry( s ) && world.entry( s )->intfConfig( vlan( n ) );
            const bool isOwn = world.list->sourcePriority( vlan( n ) ).source() == nameOf( s );
            const bool isDue = isAsked && ( !isOwn || world.list->intfConfigError( vlan( n ) ) );
            ASSERT_EQ( isDue, world.isReported( s, n ) ) << "seed " << seed;
         }
      }
      // The reactor goes in the middle of something.
      world.attach( world.list ), world.meddlers.back()->then = [ &world ] { world.reactor = nullptr; };
      world.withdraw( 0, 1 ), world.request( 0, 1 ), world.list->sourcePriorityNotify( vlan( 9 ) );
      ASSERT_EQ( 0u, world.list->intfConfigCount() + world.list->sourcePriorityCount() );
   }
}

}
}
