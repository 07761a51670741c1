#pragma once

#include <kel/Entity.h>

namespace [[gnu::visibility("default")]] Kel {

/// The entity at a path of names below `from`, separated by slashes; empty names are passed over, so "" is `from` itself. A name
/// is looked up with `Entity::child`; one that holds slashes itself, at most 16, is found where no shorter one is there. Null
/// when some name of it is not there.
Ptr< Entity > entityAtPath( const Ptr< Entity >& from, std::string_view path );

/// The entity with a full name, looked up from the root of the tree that `inTree` stands in. Null when there is none.
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
