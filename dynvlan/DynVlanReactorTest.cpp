#include "DynVlanTest.h"

#include <cstring>
#include <kel/Trace.h>
#include <random>

// What the machines say, what stops them, and what becomes of the merge when somebody intervenes in the middle of it.

namespace Vanta::Test {
namespace {

using Interface::VlanIntfConfigPriority;
using testing::ElementsAre;
constexpr auto lo = VlanIntfConfigPriority::vlanIntfConfigPriorityLo, med = VlanIntfConfigPriority::vlanIntfConfigPriorityMed,
               hi = VlanIntfConfigPriority::vlanIntfConfigPriorityHi;

TEST( SourcePriorityPair, BestFirst ) {
   const SourcePriorityPair ascending[] = { { "b", hi }, { "c", hi }, { "B", med }, { "a", med }, { "", lo }, { "a", lo } };
   for( const auto& a : ascending ) {
      for( const auto& b : ascending ) {
         EXPECT_EQ( &a <=> &b, a <=> b );
         EXPECT_EQ( &b < &a, a.isLowerPriority( b ) ) << a << b;
      }
      EXPECT_EQ( a == SourcePriorityPair(), !a );
      EXPECT_EQ( a, Kel::strepToValue< SourcePriorityPair >( Kel::valueToStrep( a ) ) );
   }
   EXPECT_EQ( "Value('Vanta::SourcePriorityPair', ** {'source': 'b', 'priority': 'vlanIntfConfigPriorityHi'})", Kel::valueToStrep( ascending[ 0 ] ) );
}

struct DynVlan : testing::Test, World {
   void request( U32 source, U32 intf ) { apply( { Op::request, source, 0, intf, 0 }, source + 1 ); }
   void withdraw( U32 source, U32 intf ) { apply( { Op::withdraw, source, 0, intf, 0 }, 0 ); }
   void enter( U32 source, VlanIntfConfigPriority priority ) {
      dirs[ source ][ 0 ]->configPriorityIs( priority );
      sources->entryIs( nameOf( source ), dirs[ source ][ 0 ] );
   }
   std::string owner( U32 intf ) const { return list->sourcePriority( vlan( intf ) ).source().str(); }
   bool isReported( U32 source, U32 intf ) const { return !reports[ source ]->vlanIntfConfigError( vlan( intf ) ).empty(); }
};

TEST_F( DynVlan, TraceTexts ) {
   std::vector< std::string > lines;
   const auto destination = Kel::traceToCallback( [ &lines ]( const Kel::TraceLine& line ) {
      if( line.facility != "VantaDynVlanIntf" ) return;
      EXPECT_EQ( "VlanDynIntfSm", line.source );
      std::string text = std::to_string( line.level ) + " " + std::string( line.function ) + ":" + std::string( line.text );
      static constexpr const char* shorter[][ 2 ] = { { "void Vanta::DynVlanIntf", "" }, { "Reactor::KelPreIntfListSm::", "Pre " },
         { "Reactor::", "R " }, { "ConfigSm::", "C " }, { "ConfigPrioritySm::", "P " }, { "const Quor::IntfId&", "id" }, { "'}", "}" },
         { "Value('Vanta::SourcePriorityPair', ** {'source': '", "{" }, { "', 'priority': 'vlanIntfConfigPriority", "" }, { "vlanIntfConfigPriority", "" } };
      for( const auto& [ from, to ] : shorter )
         for( auto at = text.find( from ); at != text.npos; at = text.find( from ) ) text.replace( at, strlen( from ), to );
      lines.push_back( text );
   } );
   Kel::traceToStandardErrorIs( false );
   Kel::traceLevelIs( "VantaDynVlanIntf", Kel::TraceLevels::all() );
   const auto told = [ & ]( std::function< void() > act ) {
      lines.clear();
      act();
      return lines;
   };
   request( 0, 1 ), request( 1, 1 );
   EXPECT_THAT( told( [ & ] { start(); } ), ElementsAre( "8 R handleInitialized(): launched by Vanta? : 1", "8 R handleDynVlanIntfDir():" ) );
   EXPECT_THAT( told( [ & ] { enter( 0, hi ); } ), ElementsAre(
      "8 R handleDynVlanIntfDir(const Kel::Name&): source a", "6 R handleDynVlanIntfDir(const Kel::Name&): add source a priority Hi",
      "8 C handleInitialized():", "8 C handleDynVlanConfig(): sourcePriority: {aHi})", "8 C handleDynVlanConfig(id): intf 'Vlan1'",
      "8 C handleDynVlanConfig(id): add config sources/a/Vlan1", "8 Pre handleInitialized():",
      "8 Pre handleIntfConfigDynamicOrSource(): initialized:1 intf 'Vlan1'",
      "8 Pre handleIntfConfigDynamicOrSource():adding prelisted intf 'Vlan1' to dynVlanIntfList" ) );
   enter( 1, lo );
   EXPECT_THAT( told( [ & ] { dirs[ 1 ][ 0 ]->intfConfigNotify( vlan( 1 ) ); } ), ElementsAre(
      "8 C handleDynVlanConfig(id): intf 'Vlan1'", "8 C handleDynVlanConfig(id):myPri < prevPri? 1 {aHi}) {bLo})",
      "8 C addOrDeleteIntfConfigError(const Kel::Name&, id, bool): add report for b, intf 'Vlan1'", "8 C handleDynVlanConfig(id): keep prev config " ) );
   EXPECT_THAT( told( [ & ] { dirs[ 0 ][ 0 ]->intfConfigNotify( vlan( 1 ) ); } ), testing::IsSupersetOf( {
      "8 C handleDynVlanConfig(id):myPri < prevPri? 0 {aHi}) {aHi})", "8 C handleDynVlanConfig(id): replace prev config ",
      "8 C addOrDeleteIntfConfigError(const Kel::Name&, id, bool): del report for a, intf 'Vlan1'" } ) );
   errors->entryDel( "b" );
   EXPECT_THAT( told( [ & ] { withdraw( 0, 1 ); } ), testing::AllOf( testing::SizeIs( 9 ), testing::IsSupersetOf( {
      "8 C handleDynVlanConfig(id): del config for intf:'Vlan1'", "8 Pre cleanup():removing prelisted intf 'Vlan1'",
      "8 C setAlternateInput(const Vanta::SourcePriorityPair&, id, bool): skip: {aHi})intf 'Vlan1'",
      "8 C setAlternateInput(const Vanta::SourcePriorityPair&, id, bool):found alternate cfg sources/b/Vlan1",
      "8 C addOrDeleteIntfConfigError(const Kel::Name&, id, bool): return no err dir intf 'Vlan1'" } ) ) );
   EXPECT_THAT( told( [ & ] { list->intfConfigErrorIs( vlan( 1 ), true ); } ), testing::Contains( "8 R handleIntfConfigError(id): intf  'Vlan1'" ) );
   EXPECT_THAT( told( [ & ] { dirs[ 0 ][ 0 ]->configPriorityIs( med ); } ), ElementsAre(
      "8 P handleConfigPriority(): replace previous priority Hi with new priority Med", "8 C handleInitialized():",
      "8 C handleDynVlanConfig(): sourcePriority: {aMed})", "8 C cleanup(): source: {aHi})", "8 Pre cleanup():removing prelisted intf 'Vlan1'",
      "8 C setAlternateInput(const Vanta::SourcePriorityPair&, id, bool): skip: {aHi})intf 'Vlan1'", testing::_, testing::_, testing::_, testing::_, testing::_,
      "8 C addOrDeleteIntfConfigError(const Kel::Name&, id, bool): del report for a, intf 'Vlan1'" ) );
   EXPECT_THAT( told( [ & ] { reactor->dynVlanIntfConfigPrioritySm( "a" )->handleConfigPriority(); } ), ElementsAre(
      "8 P handleConfigPriority(): no change from previous priority Med" ) );
   EXPECT_THAT( told( [ & ] { sources->entryDel( "a" ); } ), testing::Contains( "6 R handleDynVlanIntfDir(const Kel::Name&):remove source a" ) );
   EXPECT_THAT( told( [ & ] { reactor->standbyModeIs( true ); } ), ElementsAre( "8 R handleStandbyMode(): standbyMode 1" ) );
   EXPECT_THAT( told( [ & ] { dirs[ 1 ][ 0 ]->intfConfigNotify( vlan( 2 ) ); } ), testing::Contains(
      "8 C addOrDeleteIntfConfigError(const Kel::Name&, id, bool): standbyMode: 1" ) );
   Kel::traceSettingReset();
   Kel::traceToStandardErrorIs( true );
}

TEST_F( DynVlan, Refusals ) {
   start();
   enter( 0, hi );
   const auto text = []( std::function< void() > act ) {
      try { act(); } catch( const Kel::Exception& e ) { return std::string( e.what() ); }
      return std::string();
   };
   EXPECT_EQ( "null _intfConfig parameter to mutator for Vanta::DynVlanIntfList::intfConfig not allowed", text( [ & ] { list->intfConfigIs( nullptr ); } ) );
   EXPECT_THAT( text( [ & ] { reactor->newDynVlanIntfConfigSm( { "a", hi }, dirs[ 0 ][ 1 ] ); } ), testing::StartsWith(
      "Reinstantiating the pointer interface where constructor parameter attribute _dynVlanConfig has a different value of" ) );
   EXPECT_EQ( reactor->dynVlanIntfConfigSm( { "a", hi } ), reactor->newDynVlanIntfConfigSm( { "a", hi }, dirs[ 0 ][ 0 ] ) );
}

TEST_F( DynVlan, Assertions ) {
   start();
   enter( 0, hi );
   request( 0, 1 );
   const SourcePriorityPair none, absent( "z", hi );
   const struct { const char* text; std::function< void() > act; } rows[] = {
      { "handleInitialized: assertion \"dynVlanIntfList()\"", [ & ] { dynVlanIntfReactorFactory( sources, errors, nullptr, false ); } },
      { "handleInitialized: assertion \"parent()\"", [ & ] { dynVlanIntfConfigSmFactory( absent, dirs[ 0 ][ 0 ], nullptr ); } },
      { "handleDynVlanConfig: assertion \"!!prevPri\"", [ & ] { list->sourcePriorityIs( vlan( 1 ), none ), dirs[ 0 ][ 0 ]->intfConfigNotify( vlan( 1 ) ); } },
      { "handleIntfConfigError: assertion \"!!sourcePri\"", [ & ] { list->sourcePriorityIs( vlan( 1 ), none ), list->intfConfigErrorIs( vlan( 1 ), true ); } },
      { "handleIntfConfigError: assertion \"dynVlanIntfConfigSm( sourcePri )\"",
        [ & ] { list->sourcePriorityIs( vlan( 1 ), absent ), list->intfConfigErrorIs( vlan( 1 ), true ); } },
      { "cleanup: assertion \"!!parent()->dynVlanIntfList()->sourcePriority( i.key() )\"", [ & ] { list->sourcePriorityDel( vlan( 1 ) ), sources->entryDel( "a" ); } },
      { "handleInitialized: assertion \"!!dynVlanIntfReactor()->dynVlanIntfList()->sourcePriority( intfId() )\"",
        [ & ] { reactor->preIntfListIs( dirs[ 1 ][ 0 ]->intfConfigIs( vlan( 2 ) ) ); } },
      { "handleIntfConfigDynamicOrSource: assertion \"!!dynVlanIntfReactor()->dynVlanIntfList()->sourcePriority( intfId() )\"",
        [ & ] { list->sourcePriorityDel( vlan( 1 ) ), dirs[ 0 ][ 0 ]->intfConfig( vlan( 1 ) )->sourceIs( "x" ); } },
   };
   for( const auto& row : rows ) EXPECT_DEATH( row.act(), testing::HasSubstr( std::string( "VlanDynIntfSm: " ) + row.text + " failed" ) );
}

TEST_F( DynVlan, WithoutAPlaceForReportsNothingIsMarked ) {
   start( false, false );
   request( 0, 1 ), enter( 0, hi ), request( 1, 1 ), enter( 1, hi );
   EXPECT_FALSE( reactor->launchedByVanta() );
   EXPECT_EQ( "a", owner( 1 ) );
   EXPECT_EQ( 0u, list->intfConfigCount() );
   EXPECT_FALSE( dirs[ 0 ][ 0 ]->intfConfig( vlan( 1 ) )->dynamic() || isReported( 1, 1 ) );
}

/// Calls somebody back at every change of an entity.
struct Meddler : Kel::NotifieeBase {
   Meddler( const Ptr< Kel::Entity >& entity, std::function< void() > what ) : then( std::move( what ) ) { activate( entity.ptr() ); }
   void dispatch( const Kel::Change& ) override { then(); }
   std::function< void() > then;
};

/// The walk over what was published hands on the verdict that it found, even where the consumer takes it back in the middle of it.
TEST_F( DynVlan, ReportsOfTheWalkStay ) {
   start();
   request( 0, 1 ), enter( 0, hi );
   const auto consumer = Kel::makePtr< Meddler >( list, [ this ] { if( !list->intfConfig( vlan( 1 ) ) ) list->intfConfigErrorDel( vlan( 1 ) ); } );
   list->intfConfigErrorIs( vlan( 1 ), true );
   dirs[ 0 ][ 0 ]->configPriorityIs( med );
   EXPECT_EQ( SourcePriorityPair( "a", med ), list->sourcePriority( vlan( 1 ) ) );
   EXPECT_FALSE( list->intfConfigError( vlan( 1 ) ) );
   EXPECT_TRUE( isReported( 0, 1 ) );
}

/// A collection that is to be read again as a whole: what has gone unheard is made up for.
TEST_F( DynVlan, ReadingAgain ) {
   start();
   request( 0, 1 ), request( 0, 2 ), enter( 0, hi ), request( 1, 2 ), enter( 1, lo );
   reactor->hasNotificationActiveIs( false );
   withdraw( 0, 1 ), request( 0, 3 ), withdraw( 1, 2 ), sources->entryIs( "c", dirs[ 2 ][ 0 ] ), list->intfConfigErrorIs( vlan( 2 ), true );
   reactor->hasNotificationActiveIs( true );
   for( U32 s : { 0u, 1u } ) dirs[ s ][ 0 ]->intfConfigNotifyCollection();
   sources->attrNotify( Kel::Dir::Attr_::entry );
   list->intfConfigErrorNotifyCollection();
   EXPECT_EQ( "/a/a", owner( 1 ) + "/" + owner( 2 ) + "/" + owner( 3 ) );
   EXPECT_TRUE( isReported( 0, 2 ) && !isReported( 1, 2 ) );
   EXPECT_EQ( 3u, reactor->dynVlanIntfConfigSmCount() );
}

/// Whatever somebody does inside of callbacks, everything is in order when the outermost call returns.
struct Meddling : DynVlan {
   explicit Meddling( U32 seed = 1 ) : random( seed ) {
      attach( sources ), attach( list );
      start();
      attach( sources ), attach( list );
      for( auto& r : reports ) attach( r );
   }
   void TestBody() override {}
   void attach( const Ptr< Kel::Entity >& e ) { meddlers.push_back( Kel::makePtr< Meddler >( e, [ this ] { meddle(); } ) ); }
   void meddle() {
      if( depth < 3 && random() % 3 == 0 ) step();
   }
   void step() {
      static constexpr Op::Kind kinds[] = { Op::request, Op::request, Op::request, Op::withdraw, Op::again, Op::enter, Op::enter, Op::enter,
                                            Op::reenter, Op::priority, Op::priority, Op::verdict };
      const Op op{ kinds[ random() % 12 ], static_cast< U32 >( random() % 3 ), random() % 4 == 0, 1 + static_cast< U32 >( random() % 2 ),
                   static_cast< U32 >( random() % 4 ) };
      if( op.kind == Op::verdict && !list->intfConfig( vlan( op.intf ) ) ) return;
      ++depth;
      apply( op, 0 );
      if( const auto config = op.kind == Op::request ? dirs[ op.source ][ op.dir ]->intfConfig( vlan( op.intf ) ) : nullptr ) {
         // Marked from the start: what is owned by a source that goes, and not published, would stay with it.
         config->dynamicIs( true ), config->sourceIs( "x" );
         attach( config );
      }
      --depth;
   }
   std::string wrong() {
      std::string out;
      for( U32 s = 0; s < 3; ++s ) {
         const auto entry = Kel::dynamicCast< Interface::VlanIntfConfigDir >( sources->entry( nameOf( s ) ) );
         const auto machine = entry ? reactor->dynVlanIntfConfigSm( { nameOf( s ), entry->configPriority() } ) : nullptr;
         const auto priority = reactor->dynVlanIntfConfigPrioritySm( nameOf( s ) );
         if( entry ? !machine || machine->dynVlanConfig() != entry || !priority || priority->dynVlanConfig() != entry : !!priority ) out += nameOf( s );
         machines += !!entry;
      }
      if( std::exchange( machines, 0 ) != reactor->dynVlanIntfConfigSmCount() ) out += " machines";
      for( U32 n = 1; n <= 2; ++n ) {
         Ptr< DynVlanIntfConfigSm > best;
         for( auto i = reactor->dynVlanIntfConfigSmIterConst(); i && !best; ++i ) if( i.value()->dynVlanConfig()->intfConfig( vlan( n ) ) ) best = i.value();
         const auto config = best ? best->dynVlanConfig()->intfConfig( vlan( n ) ) : nullptr;
         const auto* owner = list->sourcePriorityMap_().find( vlan( n ) );
         if( best ? !owner || *owner != best->sourcePriority() : !!owner ) out += " owner";
         if( reactor->preIntfList( vlan( n ) ) != config ) out += " picked";
         if( list->intfConfig( vlan( n ) ) != config ) out += " published";
      }
      return out;
   }

   std::mt19937 random;
   std::vector< Ptr< Meddler > > meddlers;
   std::size_t machines = 0;
   int depth = 0;
};

TEST( DynVlanMeddling, RandomScripts ) {
   Kel::traceToStandardErrorIs( false );
   for( U32 seed = 1; seed <= 3000; ++seed ) {
      Meddling world( seed );
      for( int n = 0; n < 40; ++n ) {
         world.step();
         ASSERT_EQ( "", world.wrong() ) << "seed " << seed << ", step " << n;
      }
      world.depth = 3;
      world.reactor->standbyModeIs( true ), world.reactor->standbyModeIs( false );
      for( U32 s = 0; s < 3; ++s ) {
         const auto machine = world.reactor->dynVlanIntfConfigPrioritySm( World::nameOf( s ) );
         for( U32 n = 1; n <= 2; ++n ) {
            const bool due = machine && machine->dynVlanConfig()->intfConfig( vlan( n ) ) &&
                             ( world.owner( n ) != World::nameOf( s ) || world.list->intfConfigError( vlan( n ) ) );
            ASSERT_EQ( due, world.isReported( s, n ) ) << "seed " << seed;
         }
      }
      // The reactor goes in the middle of something.
      world.attach( world.list ), world.meddlers.back()->then = [ &world ] { world.reactor = nullptr; };
      world.withdraw( 0, 1 ), world.request( 0, 1 ), world.list->sourcePriorityNotify( vlan( 9 ) );
      ASSERT_EQ( 0u, world.list->intfConfigCount() );
      ASSERT_EQ( 0u, world.list->sourcePriorityCount() );
   }
   Kel::traceToStandardErrorIs( true );
}

}
}
