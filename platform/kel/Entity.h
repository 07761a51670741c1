#pragma once

#include <initializer_list>
#include <kel/HashMap.h>
#include <kel/Name.h>
#include <kel/Notifiee.h>
#include <kel/Ptr.h>
#include <kel/Queue.h>
#include <kel/RbTreeMap.h>
#include <kel/Text.h>
#include <kel/Type.h>
#include <span>
#include <vector>

namespace [[gnu::visibility("default")]] Kel {

class AttrLog;

/// The name of a child entity: the text of its key, without quotes.
String8 keyName( const Type& type, const void* key );
template< class K >
Name keyName( const K& key ) {
   if constexpr( std::is_convertible_v< K, String8 > ) return Name( String8( key ) );
   else return Name( keyName( typeOf< K >(), &key ) );
}

/// Whether the children of a collection with such keys are constructed with their key as their name, before their other
/// parameters.
bool isNamedByKey( const Type& child, const Type& key );

/// Base of every entity: it has a name and a parent, is held by `Ptr`, and tells its notifiees of every change, synchronously.
/// Attributes are compared, stored, counted, marked in the attribute log and announced, in this order, by the functions below;
/// the generated setters only name the attribute. An entity is used from the one thread that owns its tree.
class Entity : public PtrInterface {
 public:
   /// The base of every generated reactor hierarchy.
   using NotifieeConst = NotifieeBase;
   /// Attribute indices; those of generated types follow behind.
   struct Attr_ {
      enum : U16 { kelNboAttrLogSaForMsgChannel, kelHasAttrLogInterface, count_ };
   };
   static constexpr TypeCode _code = TypeCode::entity;
   static Type _Type;
   static Type& _fwkType() { return _Type; }

   Entity( const Entity& ) = delete;
   Entity& operator=( const Entity& ) = delete;
   ~Entity() override;

   virtual Type& fwkType() const { return _Type; }
   const Name& name() const { return name_; }
   /// The entity whose collection holds it; null for a root.
   Entity* parent() const { return parent_; }
   /// The names from the root to this entity, each behind a slash but the first: "root/status/1".
   String8 fullName() const;
   /// Advances with every change of an attribute.
   U32 changeCount() const { return changes_; }
   /// True once it has been removed from the collection that owned it.
   bool isZombie() const { return zombie_; }
   /// How many reactors are attached.
   std::size_t notifieeCount() const;

   /// The entity's attribute log; null until somebody asks for one with `attrLogIs`.
   AttrLog* attrLog() const { return log_; }
   /// Gives the entity an attribute log, or takes it away. A new log has everything marked dirty.
   AttrLog* attrLogIs( bool on );

   /// The revision up to which the attribute log's changes have been taken for sending; 0 without a log.
   U64 kelNboAttrLogSaForMsgChannel() const;
   /// Whether it has an attribute log.
   bool kelHasAttrLogInterface() const { return log_ != nullptr; }

   /// Announces an attribute as a whole, as if it had changed: a scalar, or a collection's key-less form.
   void attrNotify( U16 attr ) const;
   /// Announces one key of a collection without a change.
   void attrNotify( U16 attr, const void* key ) const;

   /// Throws the message of a null reference: "null _foo parameter to mutator for Namespace::Type::foo not allowed".
   [[noreturn, gnu::cold]] void nullRefused( U16 attr ) const;

   /// The type of the children that a collection creates: that of its row, or a narrower one that a derived entity says.
   virtual Type& kelChildType( U16 attr ) const { return *fwkType().attr( attr ).type; }

   /// The child entity with this name under any of its collections, or null.
   virtual Ptr< Entity > child( const Name& name ) const;

 protected:
   explicit Entity( Name name ) : name_( std::move( name ) ) {}
   void onZeroReferences() const noexcept override;

   // --- what generated mutators call ---

   /// `callback`, the attribute's own in its reactors, saves each of them the way through `dispatch`.
   template< class T, class Notifiee = NotifieeBase >
   void set( U16 attr, T& slot, const std::type_identity_t< T >& value, void ( Notifiee::*callback )() = nullptr ) {
      if( slot == value ) return;
      slot = value;
      changed( attr, static_cast< NotifieeBase::Callback >( callback ) );
   }

   /// A reference that may not be null.
   template< class T, class Notifiee = NotifieeBase >
   void setRef( U16 attr, Ptr< T >& slot, const Ptr< T >& value, void ( Notifiee::*callback )() = nullptr ) {
      if( !value ) nullRefused( attr );
      set( attr, slot, value, callback );
   }

   template< class Map, class K, class V >
   static V at( const Map& map, const K& key, const V& absent ) {
      const V* v = map.find( key );
      return v ? *v : absent;
   }

   template< class Map, class K, class V >
   V setIn( U16 attr, Map& map, const K& key, const V& value ) {
      auto [ slot, isNew ] = map.insert( key, value );
      if( !isNew ) {
         if( *slot == value ) return value;
         // What the old value held may change this very map when it goes, so it goes last.
         V old( value );
         std::swap( *slot, old );
      }
      changedKey( attr, &key );
      return value;
   }

   /// An entry of a collection of references.
   template< class Map, class K, class T >
   Ptr< T > setRefIn( U16 attr, Map& map, const K& key, const Ptr< T >& value ) {
      if( !value ) nullRefused( attr );
      return setIn( attr, map, key, value );
   }

   /// The child under `key`, made from `arguments` when it is not there yet; when it is, the immutable constructor parameters,
   /// given in the order of their rows in `parameters`, must be those that it was made with.
   template< class C, class Map, class K, class... Arguments >
   Ptr< C > newChild( U16 attr, Map& map, const K& key, std::initializer_list< const void* > parameters,
                      const Arguments&... arguments ) {
      if( auto* existing = map.find( key ) ) {
         ( *existing )->sameParameters( std::span( parameters.begin(), parameters.size() ) );
         return Ptr< C >( static_cast< C* >( existing->ptr() ) );
      }
      Ptr< C > made( new C( arguments... ) );
      adopt( *made );
      map.insert( key, made );
      changedKey( attr, &key );
      return made;
   }

   template< class Map, class K >
   auto delFrom( U16 attr, Map& map, const K& key ) {
      const K copy( key );
      typename Map::Value removed{};
      if( map.erase( copy, &removed ) ) deleted( attr, removed, &copy );
      return removed;
   }

   /// The entry that the iterator stands at; it is on the removed place from then on. Does nothing at the end.
   template< class Map >
   auto delAt( U16 attr, Map& map, const typename Map::ConstIterator& at ) {
      typename Map::Value removed{};
      if( !at ) return removed;
      const typename Map::Key copy( at.key() );
      if( map.erase( copy, &removed ) ) deleted( attr, removed, &copy );
      return removed;
   }

   template< class Map >
   void delAll( U16 attr, Map& map ) {
      const Ptr< Entity > self( held() );
      for( auto i = map.iterator(); i; ++i ) delAt( attr, map, i );
   }

   /// The optional child in `slot`, made by `name` when there is none.
   template< class C >
   Ptr< C > newOptional( U16 attr, Ptr< C >& slot, const Name& name ) {
      if( !slot ) {
         Ptr< C > made( new C( name ) );
         adopt( *made );
         slot = made;
         changed( attr );
      }
      return slot;
   }
   template< class C >
   Ptr< C > delOptional( U16 attr, Ptr< C >& slot ) {
      Ptr< C > removed( std::move( slot ) );
      slot = nullptr;
      if( removed ) {
         release( removed.ptr() );
         changed( attr );
      }
      return removed;
   }

   template< class Q, class V >
   void enqIn( U16 attr, Q& queue, const V& value ) {
      const auto index = queue.enq( value );
      changedKey( attr, &index );
   }
   template< class Q >
   auto deqFrom( U16 attr, Q& queue ) {
      typename Q::Value removed{};
      if( queue.empty() ) return removed;
      const auto index = queue.head();
      removed = queue.deq();
      changedKey( attr, &index );
      return removed;
   }

   /// Writes one position of a queue.
   template< class Q, class V >
   void setAt( U16 attr, Q& queue, const typename Q::Key& index, const V& value ) {
      if( const V* current = queue.find( index ); current && *current == value ) return;
      queue.set( index, value );
      changedKey( attr, &index );
   }

   void changed( U16 attr, NotifieeBase::Callback callback = nullptr ) {
      ++changes_;
      if( log_ ) [[unlikely]] logAttr( attr );
      if( !notifiees_ ) return;
      if( callback ) call( callback, attr );
      else notify( Change{ attr } );
   }
   void changedKey( U16 attr, const void* key ) {
      ++changes_;
      if( log_ ) [[unlikely]] logKey( attr, key );
      if( notifiees_ ) notify( Change{ attr, key } );
   }

   /// Takes a child in: its parent is this entity from now on.
   void adopt( Entity& child ) {
      child.parent_ = this;
      child.zombie_ = false;
   }
   /// Gives a child away that others may go on holding: it has no parent from now on.
   void giveAway( Entity& child ) {
      if( child.parent_ == this ) child.parent_ = nullptr;
   }

 private:
   friend class NotifieeBase;
   friend class AttrLog;
   template< class Map >
   friend struct CollectionOpsOf;
   friend class AttrLogProxy;
   friend class GenericIf;

   template< class V >
   static constexpr bool isEntityPtr = requires( const V& v ) { static_cast< const Entity* >( v.ptr() ); };

   /// Runs its reactors' `onZombie()` and those of the entities below it, and takes it off its parent.
   void zombieIs();

   /// Sets a stored attribute from a value of its type, with all that its typed setter does.
   void attrIs( U16 attr, const void* value );

   /// What the typed creator of a child does, by constructor parameters in order; for the reflection adapter.
   Ptr< Entity > newChildAt( U16 attr, std::span< const GenericIf* const > parameters );
   Ptr< Entity > newOptionalAt( U16 attr, const Name& name );
   void delOptionalAt( U16 attr );

   /// This entity, when somebody holds it: a callback may drop the last reference while there is work left to do.
   Entity* held() { return referenceCount() ? this : nullptr; }

   template< class V >
   void deleted( U16 attr, V& removed, const void* key ) {
      const Ptr< Entity > self( notifiees_ || isEntityPtr< V > ? held() : nullptr );
      if constexpr( isEntityPtr< V > ) {
         if( removed && removed->parent() == this )
            release( const_cast< std::remove_const_t< typename V::element_type >* >( removed.ptr() ) );
      }
      changedKey( attr, key );
   }
   void release( Entity* child );
   void sameParameters( std::span< const void* const > parameters ) const;
   /// Hands each reactor the change. Like `call`, there is a copy of it in each library.
   [[gnu::visibility( "hidden" ), gnu::noinline]] void notify( const Change& change ) const {
      notifiees_->walk( false, [ &change ]( NotifieeBase& reactor ) {
         try {
            reactor.dispatch( change );
         } catch( ... ) {
            reactor.callbackThrew( change );
         }
      } );
   }
   /// Gives each reactor its typed callback; one of a class that does not know the attribute has none. Each library has its own
   /// copy of this, beside the setters: a call across libraries costs as much as all the rest.
   [[gnu::visibility("hidden"), gnu::noinline]] void call( NotifieeBase::Callback callback, U16 attr ) const {
      const VirtualCallback own( callback );
      if( !own ) return notify( Change{ attr } );
      notifiees_->walk( false, [ own, attr ]( NotifieeBase& reactor ) {
         try {
            if( attr < reactor.knownAttrs_ ) own( reactor );
            else reactor.dispatch( Change{ attr } );
         } catch( ... ) {
            reactor.callbackThrew( Change{ attr } );
         }
      } );
   }
   void logAttr( U16 attr ) const;
   void logKey( U16 attr, const void* key ) const;

   Name name_;
   Entity* parent_ = nullptr;
   mutable NotifieeList* notifiees_ = nullptr;
   AttrLog* log_ = nullptr;
   U32 changes_ = 0;
   bool zombie_ = false;
};

/// The constructor parameters of an entity type, checked against its rows, as its `TypeInfo::make` takes them (but for the name).
class ConstructorArguments {
 public:
   /// Throws `RangeException` for one that is missing, too many or of another type. A reference may be null.
   ConstructorArguments( const Type& type, std::span< const GenericIf* const > given );
   std::vector< const void* > values;

 private:
   std::vector< Ptr< Entity > > references_;
};

/// A collection, for code that has only its attribute row. `map` is the member's address.
struct CollectionOps {
   std::size_t ( *size )( const void* map );
   /// The element under a key, or null.
   const void* ( *find )( const void* map, const void* key );
   /// Copies to `*keyOut` the first key behind `*after`, or the first of all when `after` is null. False at the end.
   bool ( *next )( const void* map, const void* after, void* keyOut );
   /// Sets one element with all that the typed mutator does; null where the collection creates its children itself.
   void ( *set )( Entity& owner, U16 attr, void* map, const void* key, const void* value );
   /// Removes one element with all that the typed mutator does. False when it was absent.
   bool ( *erase )( Entity& owner, U16 attr, void* map, const void* key );
   /// Takes a new child in under its key; null for other collections.
   void ( *adopt )( Entity& owner, U16 attr, void* map, const void* key, const Ptr< Entity >& child );
   /// Appends to a queue and removes its head into `*value`; null for other collections.
   void ( *enq )( Entity& owner, U16 attr, void* map, const void* value );
   void ( *deq )( Entity& owner, U16 attr, void* map, void* value );
   /// Where the next element of a queue goes.
   U32 ( *tail )( const void* map );
   /// Moves the tail on to that of the queue that this one is a copy of, and removes what is too old for it.
   void ( *tailIs )( Entity& owner, U16 attr, void* map, U32 tail );
   /// As `set`, for a position that lies before the tail.
   void ( *setBeforeTail )( Entity& owner, U16 attr, void* map, const void* key, const void* value );
};

template< class Map >
struct CollectionOpsOf {
   using Key = typename Map::Key;
   using Element = typename Map::Value;
   static constexpr bool isQueue = requires( Map m, Element e ) { m.enq( e ); };
   static constexpr bool ofEntities = requires( Element e ) { static_cast< const Entity* >( e.ptr() ); };

   static const Map& constMap( const void* map ) { return *static_cast< const Map* >( map ); }
   static std::size_t size( const void* map ) { return constMap( map ).size(); }
   static const void* find( const void* map, const void* key ) {
      return constMap( map ).find( *static_cast< const Key* >( key ) );
   }
   static bool next( const void* map, const void* after, void* keyOut ) {
      auto i = after ? constMap( map ).iteratorAfter( *static_cast< const Key* >( after ) ) : constMap( map ).iterator();
      if( !i ) return false;
      *static_cast< Key* >( keyOut ) = i.key();
      return true;
   }
   static void set( Entity& owner, U16 attr, void* map, const void* key, const void* value ) {
      auto& m = *static_cast< Map* >( map );
      if constexpr( isQueue ) owner.setAt( attr, m, *static_cast< const Key* >( key ), *static_cast< const Element* >( value ) );
      else owner.setIn( attr, m, *static_cast< const Key* >( key ), *static_cast< const Element* >( value ) );
   }
   static U32 tail( const void* map ) {
      if constexpr( isQueue ) return constMap( map ).tail();
      else return 0;
   }
   static void tailIs( Entity& owner, U16 attr, void* map, U32 tail ) {
      if constexpr( isQueue ) {
         auto& queue = *static_cast< Map* >( map );
         const auto to = static_cast< Key >( tail );
         if( to != tail ) throw RangeException( "a queue has no position " + std::to_string( tail ) );
         for( auto i = queue.iterator(); i && queue.isBehind( i.key(), to ); ++i ) owner.delFrom( attr, queue, Key( i.key() ) );
         queue.tailIs( to );
      }
   }
   static void setBeforeTail( Entity& owner, U16 attr, void* map, const void* key, const void* value ) {
      if constexpr( isQueue ) {
         auto& queue = *static_cast< Map* >( map );
         const auto& index = *static_cast< const Key* >( key );
         const auto& v = *static_cast< const Element* >( value );
         if( const Element* current = queue.findBeforeTail( index ); current && *current == v ) return;
         queue.setBeforeTail( index, v );
         owner.changedKey( attr, key );
      }
   }
   static void enq( Entity& owner, U16 attr, void* map, const void* value ) {
      if constexpr( isQueue ) owner.enqIn( attr, *static_cast< Map* >( map ), *static_cast< const Element* >( value ) );
   }
   static void deq( Entity& owner, U16 attr, void* map, void* value ) {
      if constexpr( isQueue ) *static_cast< Element* >( value ) = owner.deqFrom( attr, *static_cast< Map* >( map ) );
   }
   static bool erase( Entity& owner, U16 attr, void* map, const void* key ) {
      if( !constMap( map ).find( *static_cast< const Key* >( key ) ) ) return false;
      owner.delFrom( attr, *static_cast< Map* >( map ), *static_cast< const Key* >( key ) );
      return true;
   }
   static void adopt( Entity& owner, U16 attr, void* map, const void* key, const Ptr< Entity >& child ) {
      if constexpr( ofEntities ) {
         owner.adopt( *child );
         static_cast< Map* >( map )->insert( *static_cast< const Key* >( key ),
                                             Element( static_cast< typename Element::element_type* >( child.ptr() ) ) );
         owner.changedKey( attr, key );
      }
   }
   static constexpr CollectionOps make() {
      return { &size, &find, &next, &set, &erase, ofEntities ? &adopt : nullptr, isQueue ? &enq : nullptr, isQueue ? &deq : nullptr,
               isQueue ? &tail : nullptr, isQueue ? &tailIs : nullptr, isQueue ? &setBeforeTail : nullptr };
   }
};

template< class Map >
inline constexpr CollectionOps collectionOps = CollectionOpsOf< Map >::make();

/// The row of a collection attribute held in a `Map`. `keyAttr`: 1 + the index of the elements' own key attribute, or 0.
template< class Map >
constexpr Attr collectionAttr( const char* name, AttrKind kind, std::size_t offset, U32 flags, U8 keyAttr = 0 ) {
   Attr row = attr< typename Map::Value >( name, offset, flags );
   row.kind = kind;
   row.keyType = &typeOf< typename Map::Key >();
   row.extra.collection = &collectionOps< Map >;
   row.ordered = requires { typename Map::Ordered; };
   row.keyAttr = keyAttr;
   return row;
}

/// The row of an attribute that holds a `Ptr`: a reference or an optional child.
template< class T >
constexpr Attr ptrAttr( const char* name, AttrKind kind, std::size_t offset, U32 flags ) {
   Attr row = attr< Ptr< T > >( name, offset, flags );
   row.kind = kind;
   return row;
}

/// The row of an attribute that is computed on each read by the member function `Get`. A constant whose type can't be one in C++
/// is such an attribute with the flag `nonInstantiating`.
template< class T, auto Get >
constexpr Attr derivedAttr( const char* name, U32 flags = 0 ) {
   const auto get = []( [[maybe_unused]] const T& self ) {
      if constexpr( std::is_member_pointer_v< decltype( Get ) > ) return ( self.*Get )();
      else return Get();
   };
   using Result = decltype( get( std::declval< const T& >() ) );
   Attr row = attr< Result >( name, 0, flags );
   row.kind = AttrKind::derived;
   row.extra.derived = []( const void* self, void* out ) {
      *static_cast< Result* >( out ) = decltype( get )()( *static_cast< const T* >( self ) );
   };
   return row;
}

namespace Detail {
const void* checkedArgument( const GenericIf* argument, const Type& wanted );
template< class T >
const T& argumentAs( const GenericIf* argument ) {
   return *static_cast< const T* >( checkedArgument( argument, typeOf< T >() ) );
}
}

/// Replaces the generic setter of a stored attribute by the member function `Set`, which is written by hand.
template< class T, class V, auto Set >
constexpr Attr withSetter( Attr row ) {
   row.extra.set = []( void* self, const void* value ) {
      ( static_cast< T* >( self )->*Set )( *static_cast< const V* >( value ) );
   };
   return row;
}

}
