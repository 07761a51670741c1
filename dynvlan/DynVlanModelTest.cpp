#include "DynVlanTest.h"

#include <map>
#include <memory>
#include <random>
#include <set>

// The reactor beside a short restatement of its rules, through random scripts; after every step both must say the same of everything.

namespace Vanta::Test {
namespace {

struct Config { U32 serial; bool dynamic; std::string source; };
struct Source { int priority = 0; std::map< U32, std::shared_ptr< Config > > asks; };
using Key = std::pair< int, std::string >;   // the priority negated, so that the best comes first

struct Model {
   Source dirs[ World::sourceCount ][ 2 ];
   std::map< std::string, Source* > entry;   // null for something of another type
   std::map< Key, Source* > machines;
   std::map< U32, Key > owner;
   std::map< U32, std::shared_ptr< Config > > picked, published;
   std::map< U32, bool > verdict;
   std::map< std::string, std::set< U32 > > reports;
   std::map< std::string, bool > places;   // true for one of the right type
   bool standby = false, launched = false, hasErrors = false;

   bool canReport( const std::string& name ) { return !standby && hasErrors && places.contains( name ) && places[ name ]; }
   void report( const std::string& name, U32 intf, bool add ) {
      if( !canReport( name ) ) return;
      if( add ) reports[ name ].insert( intf );
      else reports[ name ].erase( intf );
   }
   bool hasVerdict( U32 intf ) { return verdict.contains( intf ) && verdict[ intf ]; }
   void publish( U32 intf ) {
      const auto i = picked.find( intf );
      if( i != picked.end() && i->second->dynamic && i->second->source != "cli" ) published[ intf ] = i->second;
   }
   void own( U32 intf, const Key& key ) {
      owner[ intf ] = key;
      picked[ intf ] = machines[ key ]->asks[ intf ];
      publish( intf );
   }
   void disown( U32 intf ) { published.erase( intf ), picked.erase( intf ), owner.erase( intf ); }
   void alternate( const Key& skip, U32 intf, bool error ) {
      for( const auto& [ key, source ] : machines ) {
         if( key == skip || !source->asks.contains( intf ) ) continue;
         own( intf, key );
         return report( key.second, intf, error );
      }
   }
   void merge( const Key& me, U32 intf ) {
      auto& asks = machines[ me ]->asks;
      if( !asks.contains( intf ) ) {
         if( !owner.contains( intf ) || owner[ intf ] != me ) return report( me.second, intf, false );
         disown( intf );
         return alternate( me, intf, hasVerdict( intf ) );
      }
      if( !standby && launched ) {
         asks[ intf ]->dynamic = true, asks[ intf ]->source = me.second;
         if( picked.contains( intf ) && picked[ intf ] == asks[ intf ] ) publish( intf );
      }
      if( owner.contains( intf ) ) {
         const Key previous = owner[ intf ];
         if( previous < me ) return report( me.second, intf, true );
         disown( intf );
         report( me.second, intf, hasVerdict( intf ) );
         report( previous.second, intf, true );
      }
      own( intf, me );
   }
   void mergeAll( const Key& me ) { for( const auto& [ intf, config ] : machines[ me ]->asks ) merge( me, intf ); }
   void reconcile( const std::string& name, const std::set< U32 >& settled ) {
      if( !canReport( name ) ) return;
      for( U32 intf = 1; intf <= World::intfCount; ++intf ) {
         bool due = false;
         for( const auto& [ key, source ] : machines ) due = due || ( key.second == name && source->asks.contains( intf ) );
         due = due && ( !owner.contains( intf ) || owner[ intf ].second != name || hasVerdict( intf ) );
         if( !settled.contains( intf ) ) report( name, intf, due );
      }
   }
   void drop( const Key& key ) {
      machines.erase( key );
      std::set< U32 > settled;
      for( const auto& [ intf, config ] : std::map( published ) ) {
         disown( intf );
         alternate( key, intf, hasVerdict( intf ) );
         if( owner.contains( intf ) && owner[ intf ].second == key.second ) settled.insert( intf );
      }
      reconcile( key.second, settled );
   }
   auto machineOf( const std::string& name ) {
      return std::find_if( machines.begin(), machines.end(), [ & ]( const auto& m ) { return m.first.second == name; } );
   }
   void sourceChanged( const std::string& name ) {
      if( Source* source = entry.contains( name ) ? entry[ name ] : nullptr ) {
         const Key key( -source->priority, name );
         if( machines.insert( { key, source } ).second ) mergeAll( key );
      } else if( const auto i = machineOf( name ); i != machines.end() ) {
         drop( Key( i->first ) );
      }
   }
   void enter( const std::string& name, const Op& op, Source* source ) {
      if( op.arg != 0 && entry.contains( name ) && entry[ name ] == source ) return;
      if( entry.erase( name ) ) sourceChanged( name );
      if( op.arg == 0 ) return;
      entry[ name ] = source;
      sourceChanged( name );
   }
   void priority( const std::string& name, Source& source, int now ) {
      if( std::exchange( source.priority, now ) == now ) return;
      const auto i = machineOf( name );
      if( i == machines.end() || i->second != &source ) return;
      const Key before = i->first, after( -now, name );
      machines[ after ] = &source;
      mergeAll( after );
      drop( before );
   }
   void standbyIs( bool on ) {
      if( std::exchange( standby, on ) == on || on || !launched ) return;
      for( const auto& [ key, source ] : std::map( machines ) ) mergeAll( key );
      for( const auto& [ name, right ] : places ) reconcile( name, {} );
   }
   void restart( const Op& op, const std::vector< std::string >& order ) {
      while( !machines.empty() ) drop( Key( machines.begin()->first ) );
      picked.clear(), published.clear();
      standby = op.arg % 2, hasErrors = launched = op.arg / 2;
      for( const auto& name : order ) sourceChanged( name );
   }
   /// Whether somebody's verdict would find the owner gone, which stops the process.
   bool isOrphan( U32 intf ) { return owner.contains( intf ) && !machines.contains( owner[ intf ] ); }
   void apply( const Op& op, U32 serial, const std::vector< std::string >& order ) {
      const std::string name = World::nameOf( op.source );
      Source& source = dirs[ op.source ][ op.dir ];
      const auto asked = source.asks.contains( op.intf ) ? source.asks[ op.intf ] : nullptr;
      const bool isNews = op.kind == Op::request ? !asked : op.kind == Op::withdraw ? asked != nullptr : op.kind == Op::again;
      if( op.kind == Op::request && !asked ) source.asks[ op.intf ] = std::make_shared< Config >( serial, false, "cli" );
      if( op.kind == Op::withdraw ) source.asks.erase( op.intf );
      if( const auto i = machineOf( name ); isNews && i != machines.end() && i->second == &source ) merge( Key( i->first ), op.intf );
      if( op.kind == Op::enter ) enter( name, op, op.arg > 1 ? &source : nullptr );
      if( op.kind == Op::reenter ) sourceChanged( name );
      if( op.kind == Op::priority ) priority( name, source, static_cast< int >( op.arg % 3 ) );
      if( asked && op.kind == Op::dynamic ) asked->dynamic = op.arg % 2;
      if( asked && op.kind == Op::by ) asked->source = op.arg % 2 ? "cli" : "x";
      if( asked && ( op.kind == Op::dynamic || op.kind == Op::by ) && picked.contains( op.intf ) && picked[ op.intf ] == asked ) publish( op.intf );
      if( op.kind == Op::verdict ) {
         const bool isNew = op.arg > 1 ? verdict.erase( op.intf ) : !verdict.contains( op.intf ) || verdict[ op.intf ] != bool( op.arg );
         if( op.arg < 2 ) verdict[ op.intf ] = op.arg;
         if( isNew && owner.contains( op.intf ) ) report( owner[ op.intf ].second, op.intf, hasVerdict( op.intf ) );
      }
      if( op.kind == Op::standby ) standbyIs( op.arg % 2 );
      if( op.kind == Op::launched ) launched = op.arg % 2;
      if( op.kind == Op::place && op.arg == 0 ) places.erase( name );
      if( op.kind == Op::place && op.arg > 0 ) places[ name ] = op.arg > 1;
      if( op.kind == Op::restart ) restart( op, order );
   }
   std::string state() {
      std::string out;
      for( const auto& [ key, source ] : machines ) out += key.second + std::to_string( -key.first ) + " ";
      for( U32 intf = 1; intf <= World::intfCount; ++intf ) {
         out += "\n" + std::to_string( intf ) + ": ";
         if( owner.contains( intf ) ) out += owner[ intf ].second + std::to_string( -owner[ intf ].first );
         if( picked.contains( intf ) ) out += " picked " + std::to_string( picked[ intf ]->serial );
         if( published.contains( intf ) ) out += " published " + std::to_string( published[ intf ]->serial );
         for( U32 s = 0; s < World::sourceCount; ++s ) {
            if( reports[ World::nameOf( s ) ].contains( intf ) ) out += " !" + World::nameOf( s );
            for( auto& d : dirs[ s ] ) {
               if( d.asks.contains( intf ) ) out += std::string( d.asks[ intf ]->dynamic ? " dynamic " : " by " ) + d.asks[ intf ]->source;
            }
         }
      }
      return out;
   }
};

std::string numbered( const SourcePriorityPair& pair ) {
   return pair.source().str() + std::to_string( static_cast< int >( pair.priority() ) );
}

std::string stateOf( const World& w ) {
   std::string out;
   for( auto i = w.reactor->dynVlanIntfConfigSmIterConst(); i; ++i ) out += numbered( i.key() ) + " ";
   for( U32 n = 1; n <= World::intfCount; ++n ) {
      out += "\n" + std::to_string( n ) + ": ";
      const auto intf = vlan( n );
      if( const auto* owner = w.list->sourcePriorityMap_().find( intf ) ) out += numbered( *owner );
      if( const auto c = w.reactor->preIntfList( intf ) ) out += " picked " + std::to_string( c->mtu() );
      if( const auto c = w.list->intfConfig( intf ) ) out += " published " + std::to_string( c->mtu() );
      for( U32 s = 0; s < World::sourceCount; ++s ) {
         if( w.reports[ s ]->vlanIntfConfigError( intf ) == "Rejected: Higher priority config found" ) out += " !" + World::nameOf( s );
         for( const auto& d : w.dirs[ s ] ) {
            if( const auto c = d->intfConfig( intf ) ) out += ( c->dynamic() ? " dynamic " : " by " ) + c->source().str();
         }
      }
   }
   return out;
}

using Script = std::vector< Op >;

/// Where the two part, and what they say then; the script's length when they never do.
std::pair< std::size_t, std::string > runScript( const Script& script ) {
   World world;
   Model model;
   for( U32 s = 0; s < World::sourceCount; ++s ) model.places[ World::nameOf( s ) ] = true;
   const Op first{ Op::restart, 0, 0, 1, 2 };
   for( std::size_t n = 0; n <= script.size(); ++n ) {
      const Op& op = n ? script[ n - 1 ] : first;
      const U32 serial = static_cast< U32 >( n );
      if( op.kind == Op::verdict && model.isOrphan( op.intf ) ) continue;
      std::vector< std::string > order;
      for( auto i = world.sources->entryIterConst(); i; ++i ) order.push_back( i.key().str() );
      model.apply( op, serial, order );
      world.apply( op, serial );
      if( const auto is = stateOf( world ), expected = model.state(); is != expected ) return { n, "is:\n" + is + "\nexpected:\n" + expected };
   }
   return { script.size() + 1, "" };
}

/// The script without all that the failure does not need.
Script shrunk( Script script ) {
   script.resize( std::min( script.size(), runScript( script ).first ) );
   for( std::size_t i = script.size(); i-- > 0; ) {
      Script shorter = script;
      shorter.erase( shorter.begin() + static_cast< std::ptrdiff_t >( i ) );
      if( runScript( shorter ).first <= shorter.size() ) script = std::move( shorter ), i = script.size();
   }
   return script;
}

TEST( DynVlanModel, RandomScripts ) {
   // How often each kind of step is drawn, in their order.
   std::discrete_distribution< int > kinds{ 30, 15, 3, 14, 2, 9, 4, 4, 10, 4, 2, 4, 1 };
   for( U32 seed = 1; seed <= 4000; ++seed ) {
      std::mt19937 random( seed );
      const auto below = [ & ]( U32 n ) { return static_cast< U32 >( random() % n ); };
      Script script( 30 + below( 171 ) );
      for( Op& op : script )
         op = { static_cast< Op::Kind >( kinds( random ) ), below( World::sourceCount ), below( 4 ) / 3, 1 + below( World::intfCount ), below( 4 ) };
      if( runScript( script ).first > script.size() ) continue;
      script = shrunk( script );
      for( const Op& op : script ) std::cout << op << ",\n";
      FAIL() << "seed " << seed << ", " << script.size() << " steps; " << runScript( script ).second;
   }
}

}
}
