#pragma once

#include <algorithm>
#include <kel/Entity.h>
#include <vector>

namespace [[gnu::visibility("default")]] Kel {

/// Base of every state machine: a reference-counted object that owns reactors to the entities that it watches and has operations
/// that reflection can call.
class Machine : public PtrInterface {
 public:
   static constexpr TypeCode _code = TypeCode::machine;
   static Type _Type;
   struct Attr_ { enum : U16 { hasNotificationActive, count_ }; };

   Machine() = default;
   Machine( const Machine& ) = delete;
   Machine& operator=( const Machine& ) = delete;

   virtual Type& fwkType() const { return _Type; }
   /// Whether its reactors deliver (true at start).
   bool hasNotificationActive() const { return hasNotificationActive_; }
   virtual void hasNotificationActiveIs( bool on ) { hasNotificationActive_ = on; }

 protected:
   [[noreturn, gnu::cold]] void nullRefused( const char* attribute ) const;
   /// Keeps the machine as long as what it returns lives. Null while it is being made or destroyed, when nobody else holds it.
   Ptr< const Machine > kelKept() const { return referenceCount() ? this : nullptr; }
   /// A machine that is created again under its key must get the constructor parameter that it was made with.
   template< class T >
   static void sameParameter( const char* attribute, const T& current, const T& wanted ) {
      if( !( current == wanted ) ) reinstantiated( attribute, parameterText( wanted ), parameterText( current ) );
   }

 private:
   template< class T >
   static std::string parameterText( const T& value ) { return valueToStrep( value ).str(); }
   template< class T >
   static std::string parameterText( const Ptr< T >& value ) {
      if constexpr( std::is_base_of_v< Entity, T > ) return value ? value->fullName().str() : "null";
      else return value ? "a machine" : "null";
   }
   [[noreturn, gnu::cold]] static void reinstantiated( const char* attribute, const std::string& wanted,
                                                       const std::string& current );

   bool hasNotificationActive_ = true;
};

/// A machine's reactors to the entities of one collection, by key. `Reactor` is made from (entity, machine); `kelStart()` is
/// called when it is in its place, `kelGone()` once before it goes with its entity.
template< class K, class Reactor >
using ReactorMap = HashMap< K, Ptr< Reactor > >;

/// Makes `reactors` follow `source`, a collection of entities: a reactor for every key, in ascending order, none for a key that
/// is gone.
template< class Source, class Add, class Remove, class Reactors >
void followAll( const Source& source, const Reactors& reactors, Add add, Remove remove ) {
   std::vector< typename Source::Key > keys;
   for( auto i = source.iterator(); i; ++i ) keys.push_back( i.key() );
   std::sort( keys.begin(), keys.end() );
   for( const auto& key : keys ) {
      if( const auto* entity = source.find( key ) ) add( *entity );
   }
   for( auto i = reactors.iterator(); i; ++i ) {
      if( !source.find( i.key() ) ) remove( i.key() );
   }
}

/// Lets the reactor under `key` go, after its `kelGone()`. Does nothing when there is none.
template< class K, class Reactor >
void unfollowEntity( ReactorMap< K, Reactor >& reactors, const K& key ) {
   Ptr< Reactor > reactor;
   if( !reactors.erase( key, &reactor ) ) return;
   reactor->hasNotificationActiveIs( false );   // its end may cause changes that it must not react to
   reactor->kelGone();
   reactor->deactivate();
}

/// The reactor to `entity` under `key`: the one that watches it already, or a new one, started, in place of one to another
/// entity.
template< class K, class Reactor, class Watched, class Owner >
Ptr< Reactor > followEntity( ReactorMap< K, Reactor >& reactors, const K& key, const Ptr< const Watched >& entity,
                             Owner* owner ) {
   if( const auto* current = reactors.find( key ) ) {
      if( ( *current )->notifier() == entity ) return *current;
      unfollowEntity( reactors, key );
   }
   Ptr< Reactor > made( new Reactor( entity, owner ) );
   made->hasNotificationActiveIs( owner->hasNotificationActive() );
   reactors.insert( key, made );
   made->kelStart();
   return made;
}

/// The row of a machine's own collection of values. It is described, but not changed through reflection.
template< class Map >
constexpr Attr machineMapAttr( const char* name, std::size_t offset ) {
   Attr row = attr< typename Map::Value >( name, offset );
   row.kind = AttrKind::reactorMap;
   row.keyType = &typeOf< typename Map::Key >();
   row.ordered = requires { typename Map::Ordered; };
   return row;
}

/// The row of a machine's reactors to entities of type `Watched`.
template< class Map, class Watched >
constexpr Attr reactorMapAttr( const char* name, std::size_t offset ) {
   Attr row = ptrAttr< Watched >( name, AttrKind::reactorMap, offset, 0 );
   row.keyType = &typeOf< typename Map::Key >();
   row.ordered = requires { typename Map::Ordered; };
   return row;
}

}
