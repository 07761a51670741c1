#pragma once

#include <kel/Entity.h>

namespace [[gnu::visibility("default")]] Kel {

/// The entity at a path of names, separated by slashes. It starts at `from`, or where it begins with a slash at the root of the
/// tree that `from` stands in. ".." is the parent, "." and empty names stay, so "" is `from` itself and "/" its root. All others
/// are looked up with `Entity::child`. A name may hold slashes itself, at most 16: of the ways to divide the path into names that
/// lead to an entity it is the one whose first name is the shortest, then its second, and so on. Null when no way leads to one;
/// above the root there is none. Null too when too many ways have been tried, which takes a tree made for it: once all the names
/// that were looked up are together 256 times as long as the path.
Ptr< Entity > entityAtPath( const Ptr< Entity >& from, std::string_view path );

/// The entity with a full name, looked up from the root of the tree that `inTree` stands in; its names mean nothing but
/// themselves. Null when there is none, or as with `entityAtPath` too many ways. Where several entities have this full name it
/// is the one with the shortest names, seen from the root.
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
