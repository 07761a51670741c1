#include <Vanta/Counter.h>
#include <Vanta/PlexoIntfCounter.h>
#include <kel/Assert.h>
#include <kel/Dir.h>
#include <kel/Path.h>
#include <string>

// The look-up goes through entities that anybody may have put there, and through virtual functions of theirs that may change the
// tree. So each step holds the entity that it stands on and asks for the type of the one that it comes to.

namespace Interface {

namespace {

using Kel::Entity;
using Kel::Name;
using Kel::Ptr;

constexpr char source[] = "Intf/Counter";
constexpr char current[] = "current";
constexpr char slicesPath[] = "counter/eth/slice/phy";

Kel::TraceStream trace( Kel::U32 level ) { return kelModuleVlanIntf::_defaultTraceHandle().at( level, source, "counterCommon" ); }

/// The end of a look-up that has failed: traces why.
template< class... Texts >
std::nullptr_t missing( const Texts&... texts ) {
   if( auto t = trace( 0 ) ) ( t << ... << texts );
   return nullptr;
}

/// The entity, which is there, as a `T`. `where` begins the trace that it is none.
template< class T >
Ptr< T > as( const Ptr< Entity >& entity, std::string_view where ) {
   if( Ptr< T > typed = dynamicCast< T >( entity ) ) return typed;
   return missing( where, "dynamic_cast to ", T::_fwkType().qualifiedName(), " failed; typeid is ",
                   entity->fwkType().qualifiedName() );
}

/// Begins a trace that is about a status.
std::string about( const IntfStatus& status ) { return std::string( status.name().view() ) + ": "; }

Ptr< Entity > rootOf( const IntfStatusDirBase& dir ) {
   const Entity* at = &dir;
   for( int level = 1; level <= 3; ++level ) {
      if( !at->parent() ) return missing( at->name(), ": ->parent() at level ", level, " is null" );
      at = at->parent();
   }
   return const_cast< Entity* >( at );
}

/// What is at the `counterDirPath` of a directory in shared memory, by its full name or from the root of the tree.
Ptr< Entity > fromTheRoot( const IntfStatusDirBase& dir ) {
   const Kel::String8 path = dir.counterDirPath();
   const Ptr< Entity > named = entityAtFullName( dir, path );
   return named ? named : entityAtPath( dir.parent(), "/" + path.str() );
}

Ptr< IntfCounterDirBase > counterDirIn( IntfCounterDirDirBase& all, const Quor::IntfId& intfId ) {
   IntfCounterDirBase* found = nullptr;
   IntfCounterDirBase** const out = &found;
   all.doGetIntfCounterDir( intfId, out );
   return found;
}

Ptr< IntfCounterDirBase > inSlices( const IntfStatus& status, const Ptr< Entity >& root ) {
   const Ptr< Entity > found = entityAtPath( root, slicesPath );
   if( !found ) return missing( "counter slice dir is null: ", slicesPath );
   const Ptr< Kel::Dir > slices = as< Kel::Dir >( found, "" );
   if( !slices ) return nullptr;
   for( auto i = slices->entryIterConst(); i; ++i ) {
      const Name name = i.key();
      const Ptr< Entity > entry = i.value();
      if( auto t = trace( 2 ) ) t << "Searching counter slice " << name;
      const Ptr< IntfCounterDirDirBase > slice = as< IntfCounterDirDirBase >( entry, "" );
      if( !slice ) return nullptr;
      if( const Ptr< IntfCounterDirBase > counterDir = counterDirIn( *slice, status.intfId() ) ) {
         if( auto t = trace( 2 ) ) t << "Found " << status.intfId() << " in slice " << name;
         return counterDir;
      }
   }
   return missing( about( status ), "in no slice of ", slicesPath );
}

/// The view over a table; `kind` begins the trace that there is none.
Ptr< VlanIntfCounter > view( const Ptr< Entity >& counterDir, const IntfStatus& status, const char* kind ) {
   const auto table = dynamicCast< Plexo::Interface::AllIntfCounterDir >( counterDir );
   if( !table ) return missing( kind, " Plexo counterDir is null" );
   return Kel::makePtr< PlexoIntfCounter >( Name( current ), table, status.intfId() );
}

Ptr< VlanIntfCounter > subIntfView( const IntfStatus& status, const IntfStatusDirBase& dir ) {
   if( const Ptr< Entity > cached = dir.counterDir() ) return view( cached, status, "SubIntf" );
   if( dir.counterDirPath().empty() ) return missing( "SubIntf Plexo counterDir path not found" );
   return view( fromTheRoot( dir ), status, "SubIntf" );
}

Ptr< VlanIntfCounter > vlanView( const IntfStatus& status, const IntfStatusDirBase& dir ) {
   if( const Ptr< Entity > cached = dir.counterDir() ) {
      if( cached->fullName() == dir.counterDirPath() ) return view( cached, status, "Vlan" );
      if( auto t = trace( 0 ) ) t << "Vlan counterDirPath " << dir.counterDirPath() << " does not match counterDir";
   }
   return view( fromTheRoot( dir ), status, "Vlan" );
}

/// What holds the counters of all interfaces of the directory; null when nothing is there.
Ptr< Entity > allCountersOf( const IntfStatus& status, const Ptr< IntfStatusDirBase >& dir, const Ptr< Entity >& root ) {
   if( const Ptr< Entity > cached = dir->counterDir() ) return cached;
   if( const Kel::String8 path = dir->counterDirPath(); !path.empty() ) {
      if( auto t = trace( 2 ) ) t << dir->fullName() << " has counterDirPath " << path;
      return entityAtPath( dir, path );
   }
   const std::string path = "counter/" + dir->parent()->name().str() + "/" + dir->name().str();
   if( auto t = trace( 2 ) ) t << "Constructed counterDir path " << path << " for " << status.intfId();
   return entityAtPath( root, path );
}

Ptr< IntfCounterDirBase > inDirectory( const IntfStatus& status, const Ptr< IntfStatusDirBase >& dir,
                                       const Ptr< Entity >& root ) {
   const Ptr< Entity > found = allCountersOf( status, dir, root );
   if( !found ) return missing( about( status ), "->counterDir() is null" );
   const auto all = as< IntfCounterDirDirBase >( found, about( status ) );
   if( !all ) return nullptr;
   const Ptr< IntfCounterDirBase > counterDir = counterDirIn( *all, status.intfId() );
   if( !counterDir ) return missing( about( status ), "->doGetIntfCounterDir(", status.intfId(), ") returned null" );
   return counterDir;
}

Ptr< VlanIntfCounter > currentIn( IntfCounterDirBase& counterDir, const IntfStatus& status ) {
   IntfCounter* found = nullptr;
   IntfCounter** const out = &found;
   counterDir.doGetIntfCounter( current, out );
   if( !found ) return missing( about( status ), "->doGetIntfCounter(", current, ") returned null" );
   return as< VlanIntfCounter >( Ptr< Entity >( found ), about( status ) );
}

}

template<>
Ptr< VlanIntfCounter > counterCommon< VlanIntfCounter >( Ptr< const IntfStatus > status ) {
   if( !status ) return missing( "the status is null" );
   const Ptr< Entity > parent = status->parent();
   if( !parent ) return missing( about( *status ), "->parent() is null" );
   const auto dir = dynamicCast< IntfStatusDirBase >( parent );
   KEL_ASSERT( source, dir );
   const Ptr< Entity > root = rootOf( *dir );
   if( !root ) return nullptr;
   const std::string_view name = dir->name().view();
   if( name == "subintf" ) return subIntfView( *status, *dir );
   const std::string_view path = dir->counterDirPath().view();
   if( name == "vlan" && path.find( "Plexo" ) != path.npos ) return vlanView( *status, *dir );
   const Ptr< IntfCounterDirBase > counterDir = name == "phy" ? inSlices( *status, root ) : inDirectory( *status, dir, root );
   return counterDir ? currentIn( *counterDir, *status ) : nullptr;
}

}
