#pragma once

#include <kel/Entity.h>

namespace [[gnu::visibility("default")]] Kel {

/// The entity at a path of names, separated by slashes. It starts at `from`, or where it begins with a slash at the root of the
/// tree that `from` stands in. ".." is the parent, "." and empty names stay, so "" is `from` itself and "/" its root. All others
/// are looked up with `Entity::child`; a name that holds slashes itself, at most 16, is found where no shorter one is there. Null
/// when some name of it is not there, and above the root.
Ptr< Entity > entityAtPath( const Ptr< Entity >& from, std::string_view path );

/// The entity with a full name, looked up from the root of the tree that `inTree` stands in; its names mean nothing but
/// themselves. Null when there is none.
Ptr< Entity > entityAtFullName( const Entity& inTree, std::string_view fullName );

/// The same as `entityAtPath`, as a `T`. Throws `FrameworkException` "Entity is the wrong type" when something else is there.
template< class T >
Ptr< T > entityAtPath( const Ptr< Entity >& from, std::string_view path ) {
   const Ptr< Entity > found = entityAtPath( from, path );
   Ptr< T > typed = dynamicCast< T >( found );
   if( found && !typed ) throw FrameworkException( "Entity is the wrong type" );
   return typed;
}

}
