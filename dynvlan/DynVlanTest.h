#pragma once

#include <Vanta/VlanDynIntfSm.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kel/Dir.h>

namespace Vanta::Test {

using Kel::Ptr;
using Kel::U32;

inline Quor::IntfId vlan( U32 n ) { return Quor::IntfId( "Vlan" + std::to_string( n ) ); }

/// One thing that somebody does to the world: which source, which of its two directories, which interface, and a number or so.
struct Op {
   enum Kind { request, withdraw, again, enter, reenter, priority, dynamic, by, verdict, standby, launched, place, restart, kinds } kind;
   U32 source, dir, intf, arg;
   friend std::ostream& operator<<( std::ostream& out, const Op& op ) {
      static constexpr const char* names[] = { "request", "withdraw", "again",   "enter",    "reenter", "priority", "dynamic",
                                               "by",      "verdict",  "standby", "launched", "place",   "restart" };
      return out << "{ Op::" << names[ op.kind ] << ", " << op.source << ", " << op.dir << ", " << op.intf << ", " << op.arg << " }";
   }
};

/// A few sources, a few interfaces, and the reactor between them.
struct World {
   static constexpr U32 sourceCount = 4, intfCount = 3;
   static std::string nameOf( U32 source ) { return std::string( 1, static_cast< char >( 'a' + source ) ); }

   World() {
      for( U32 s = 0; s < sourceCount; ++s ) {
         for( auto& d : dirs[ s ] ) d = Interface::vlanIntfConfigDirFactory( nameOf( s ) );
         reports[ s ] = Interface::vlanIntfConfigErrorDirFactory( nameOf( s ) );
         errors->entryIs( nameOf( s ), reports[ s ] );
      }
   }
   ~World() { reactor = nullptr; }
   void start( bool isStandby = false, bool withErrors = true ) {
      reactor = nullptr;
      reactor = dynVlanIntfReactorFactory( sources, withErrors ? errors : nullptr, list, isStandby );
   }
   void put( Kel::Dir& dir, const std::string& name, const Ptr< Kel::Entity >& entity ) {
      if( entity ) dir.entryIs( name, entity );
      else dir.entryDel( name );
   }
   /// `serial` tells configurations of one interface apart.
   void apply( const Op& op, U32 serial ) {
      const auto dir = dirs[ op.source ][ op.dir ];
      const auto intf = vlan( op.intf );
      const auto config = dir->intfConfig( intf );
      const auto name = nameOf( op.source );
      switch( op.kind ) {
      case Op::request: if( !config ) dir->intfConfigIs( intf )->mtuIs( serial ); break;
      case Op::withdraw: dir->intfConfigDel( intf ); break;
      case Op::again: dir->intfConfigNotify( intf ); break;
      case Op::enter: put( *sources, name, op.arg == 0 ? nullptr : op.arg == 1 ? Ptr< Kel::Entity >( list ) : dir ); break;
      case Op::reenter: sources->entryNotify( name ); break;
      case Op::priority: dir->configPriorityIs( static_cast< Interface::VlanIntfConfigPriority >( op.arg % 3 ) ); break;
      case Op::dynamic: if( config ) config->dynamicIs( op.arg % 2 ); break;
      case Op::by: if( config ) config->sourceIs( op.arg % 2 ? "cli" : "x" ); break;
      case Op::verdict:
         if( op.arg < 2 ) list->intfConfigErrorIs( intf, op.arg );
         else list->intfConfigErrorDel( intf );
         break;
      case Op::standby: if( reactor ) reactor->standbyModeIs( op.arg % 2 ); break;
      case Op::launched: if( reactor ) reactor->launchedByVantaIs( op.arg % 2 ); break;
      case Op::place: put( *errors, name, op.arg == 0 ? nullptr : op.arg == 1 ? Ptr< Kel::Entity >( list ) : reports[ op.source ] ); break;
      default: start( op.arg % 2, op.arg / 2 );
      }
   }

   Ptr< Kel::Dir > sources = Kel::dirFactory( "sources" ), errors = Kel::dirFactory( "errors" );
   Ptr< DynVlanIntfList > list = dynVlanIntfListFactory( "list" );
   Ptr< Interface::VlanIntfConfigDir > dirs[ sourceCount ][ 2 ];
   Ptr< Interface::VlanIntfConfigErrorDir > reports[ sourceCount ];
   Ptr< DynVlanIntfReactor > reactor;
};

}
