#include <kel/Entity.h>

#include <algorithm>
#include <kel/AttrLog.h>
#include <kel/GenericIf.h>
#include <kel/Trace.h>
#include <vector>

// Notification. An entity's reactors stand in one list, in order of attachment. A walk goes over the places that the list had
// when it began: reactors that are attached meanwhile stand behind them and are not called, reactors that are detached leave a
// null in their place. So a walk sees a snapshot without copying the list, and a reactor whose only reference is the list's can
// be told by its count alone. Places are closed up when the outermost walk has ended. A reactor that is detached while it runs is
// kept in `buried` until then, and the list itself outlives its entity when that goes in the middle of a walk.

namespace Kel {

namespace {

constinit const Attr entityAttrs[] = {
   derivedAttr< Entity, &Entity::kelNboAttrLogSaForMsgChannel >( "kelNboAttrLogSaForMsgChannel" ),
   derivedAttr< Entity, &Entity::kelHasAttrLogInterface >( "kelHasAttrLogInterface" ),
};

}

constinit Type Entity::_Type{ { .qualifiedName = "Kel::Entity", .code = TypeCode::entity, .attrs = entityAttrs } };

void NotifieeList::remove( NotifieeBase* reactor ) {
   const auto at = std::find_if( places_.begin(), places_.end(), [ reactor ]( const auto& p ) { return p == reactor; } );
   if( at == places_.end() ) return;
   // The reactor may go with the list's reference.
   if( walks_ ) {
      bury( static_cast< std::size_t >( at - places_.begin() ) );
   } else {
      const Ptr< NotifieeBase > self = std::move( *at );
      places_.erase( at );
   }
}

void NotifieeList::bury( std::size_t i ) {
   places_[ i ]->notifier_ = nullptr;
   untidy_ = true;
   buried_.push_back( std::move( places_[ i ] ) );
}

bool NotifieeList::dropDead( std::size_t i ) {
   if( places_[ i ]->referenceCount() > 1 ) return false;
   untidy_ = true;
   places_[ i ]->notifier_ = nullptr;
   const Ptr< NotifieeBase > dead = std::move( places_[ i ] );
   return true;
}

void NotifieeList::orphan() {
   orphaned_ = true;
   for( std::size_t i = 0; i < places_.size(); ++i ) {
      if( places_[ i ] ) bury( i );
   }
   if( !walks_ ) delete this;
}

void NotifieeList::settle() {
   if( orphaned_ ) {
      delete this;
      return;
   }
   untidy_ = false;
   std::erase_if( places_, []( const auto& p ) { return !p; } );
   // What is freed here may attach and detach again; it does so outside of any walk.
   auto dead = std::move( buried_ );
   buried_.clear();
}

NotifieeBase::~NotifieeBase() {
   // The list holds a reference, so a reactor that is still attached can only go when the list itself lets it.
}

void NotifieeBase::activate( const Entity* entity ) {
   if( notifier_ ) throw InternalException( "entity reactor is already active" );
   if( !entity ) return;
   if( watchedType_ && !entity->fwkType().derivesFrom( *watchedType_ ) ) throw FrameworkException( "Entity is the wrong type" );
   notifier_ = entity;
   if( !entity->notifiees_ ) entity->notifiees_ = new NotifieeList;
   entity->notifiees_->add( this );
}

void NotifieeBase::deactivate() {
   if( !notifier_ ) return;
   // It may go with the list's reference; nothing of it is touched behind this.
   std::exchange( notifier_, nullptr )->notifiees_->remove( this );
}

void NotifieeBase::dispatch( const Change& ) {}

namespace {

thread_local CallbackFailure* innermostFailure = nullptr;

}

CallbackFailure::CallbackFailure() noexcept : outer_( std::exchange( innermostFailure, this ) ) {}

CallbackFailure::~CallbackFailure() { innermostFailure = outer_; }

void CallbackFailure::rethrow() {
   if( first_ ) std::rethrow_exception( std::exchange( first_, nullptr ) );
}

void NotifieeBase::onException( U32 code, const Change& change, std::exception_ptr exception ) {
   ++exceptions_;
   if( CallbackFailure* waits = innermostFailure ) {
      if( !waits->first_ ) waits->first_ = exception;
      return;
   }
   std::string text = "unknown exception";
   try {
      std::rethrow_exception( exception );
   } catch( const std::exception& e ) {
      text = e.what();
   } catch( ... ) {
   }
   static TraceHandle& trace = traceHandle( "Kel" );
   if( auto t = trace.at( 0, "Kel/Notifiee", "onException" ) ) {
      t << "exception " << code << " in a callback";
      if( notifier_ ) t << " of " << notifier_->fullName().view() << " for " << notifier_->fwkType().attr( change.attr ).name;
      t << ": " << text;
   }
}

void NotifieeBase::callbackThrew( const Change& change ) noexcept {
   try {
      onException( callbackException, change, std::current_exception() );
   } catch( ... ) {
   }
}

Entity::~Entity() {
   delete log_;
   if( notifiees_ ) notifiees_->orphan();
}

void Entity::onZeroReferences() const noexcept {
   auto* self = const_cast< Entity* >( this );
   // Reactors may take references while they hear of the end; the object goes all the same, once.
   references_.increment();
   self->zombieIs();
   delete this;
}

std::size_t Entity::notifieeCount() const {
   if( !notifiees_ ) return 0;
   return static_cast< std::size_t >(
      std::count_if( notifiees_->places_.begin(), notifiees_->places_.end(), []( const auto& p ) { return p != nullptr; } ) );
}

String8 Entity::fullName() const {
   std::vector< std::string_view > names;
   for( const Entity* e = this; e; e = e->parent_ ) names.push_back( e->name_.view() );
   std::string full;
   for( auto i = names.rbegin(); i != names.rend(); ++i ) {
      if( !full.empty() ) full += '/';
      full += *i;
   }
   return String8( full );
}

namespace {

/// Calls `visit` for each entity of a collection until that returns true. A position is a key, so `visit` may change the collection.
template< class Visit >
void eachEntity( const Attr& row, const void* map, Visit visit ) {
   OwnedValueIf key( *row.keyType, nullptr, false );
   const CollectionOps& ops = *row.extra.collection;
   for( bool more = ops.next( map, nullptr, key.storage() ); more; more = ops.next( map, key.object(), key.storage() ) ) {
      // A `Ptr` to any type of entity is one to an `Entity`: there is one line of bases.
      const auto* element = static_cast< const Ptr< Entity >* >( ops.find( map, key.object() ) );
      if( element && *element && visit( Ptr< Entity >( *element ) ) ) return;
   }
}

/// The entity of this name in a collection, or null. One whose keys are the names is asked for it.
Ptr< Entity > named( const Attr& row, const void* map, const Name& name ) {
   if( row.kind == AttrKind::childMap && row.keyType == &BuiltIn::name && isNamedByKey( *row.type, *row.keyType ) ) {
      const void* const element = row.extra.collection->find( map, &name );
      return element ? *static_cast< const Ptr< Entity >* >( element ) : nullptr;
   }
   Ptr< Entity > found;
   eachEntity( row, map, [ & ]( const Ptr< Entity >& entity ) {
      if( entity->name() == name ) found = entity;
      return found != nullptr;
   } );
   return found;
}

}

void Entity::zombieIs() {
   if( zombie_ ) return;
   zombie_ = true;
   // Children first: their reactors may still read this entity.
   const Type& type = fwkType();
   for( U16 i = 0; i < type.attrCount(); ++i ) {
      const Attr& row = type.attr( i );
      void* member = reinterpret_cast< char* >( this ) + row.offset;
      if( row.kind == AttrKind::child ) {
         if( auto* c = static_cast< Ptr< Entity >* >( member )->ptr() ) c->zombieIs();
      } else if( row.kind == AttrKind::childMap ) {
         eachEntity( row, member, [ this ]( const Ptr< Entity >& c ) {
            if( c->parent() == this ) c->zombieIs();
            return false;
         } );
      }
   }
   if( notifiees_ ) {
      notifiees_->walk( true, []( NotifieeBase& reactor ) {
         try {
            reactor.onZombie();
         } catch( ... ) {
            reactor.callbackThrew( Change{ 0 } );
         }
      } );
   }
   parent_ = nullptr;
}

void Entity::release( Entity* child ) {
   child->zombieIs();
}

ConstructorArguments::ConstructorArguments( const Type& type, std::span< const GenericIf* const > given ) {
   references_.reserve( type.attrCount() );   // their addresses are handed out
   for( U16 i = 0; i < type.attrCount(); ++i ) {
      const Attr& row = type.attr( i );
      if( !row.has( KelAttrIntrospectionFlags::constructorRole ) ) continue;
      if( values.size() == given.size() ) {
         throw RangeException( "no " + std::string( row.name ) + " given for a new " + std::string( type.qualifiedName() ) );
      }
      const GenericIf* argument = given[ values.size() ];
      if( row.kind != AttrKind::ref ) {
         values.push_back( Detail::checkedArgument( argument, *row.type ) );
         continue;
      }
      references_.emplace_back( argument ? static_cast< Entity* >( const_cast< void* >( argument->checked( *row.type ) ) )
                                         : nullptr );
      values.push_back( &references_.back() );
   }
   if( values.size() != given.size() )
      throw RangeException( "too many parameters given for a new " + std::string( type.qualifiedName() ) );
}

void Entity::nullRefused( U16 attr ) const {
   const std::string name = fwkType().attr( attr ).name;
   throw RangeException( "null _" + name + " parameter to mutator for " + std::string( fwkType().qualifiedName() ) + "::" + name +
                         " not allowed" );
}

namespace {

std::string parameterText( const Attr& row, const void* value ) {
   if( row.kind != AttrKind::ref ) return textOf( *row.type, value );
   const auto* entity = static_cast< const Ptr< Entity >* >( value )->ptr();
   return entity ? entity->fullName().str() : "null";
}

bool parameterSame( const Attr& row, const void* a, const void* b ) {
   if( row.kind == AttrKind::ref ) return *static_cast< const Ptr< Entity >* >( a ) == *static_cast< const Ptr< Entity >* >( b );
   return row.type->info().values->equal( a, b );
}

}

void Entity::sameParameters( std::span< const void* const > parameters ) const {
   const Type& type = fwkType();
   auto given = parameters.begin();
   for( U16 i = 0; i < type.attrCount() && given != parameters.end(); ++i ) {
      const Attr& row = type.attr( i );
      if( !row.has( KelAttrIntrospectionFlags::constructorRole ) ) continue;
      const void* wanted = *given++;
      const void* current = reinterpret_cast< const char* >( this ) + row.offset;
      if( row.has( KelAttrIntrospectionFlags::writable ) || parameterSame( row, wanted, current ) ) continue;
      throw NameInUseException( "Reinstantiating the entity with name " + name_.str() +
                                " where constructor parameter attribute _" + row.name + " has a different value of " +
                                parameterText( row, wanted ) + " than the current value of " + parameterText( row, current ) +
                                " not allowed" );
   }
}

U64 Entity::kelNboAttrLogSaForMsgChannel() const { return log_ ? log_->takenRevision() : 0; }

AttrLog* Entity::attrLogIs( bool on ) {
   if( on == ( log_ != nullptr ) ) return log_;
   delete std::exchange( log_, nullptr );
   if( on ) log_ = new AttrLog( *this );
   return log_;
}

void Entity::logAttr( U16 attr ) const { log_->attrDirty( attr ); }

void Entity::logKey( U16 attr, const void* key ) const { log_->keyDirty( attr, key ); }

void Entity::attrNotify( U16 attr ) const {
   if( notifiees_ ) notify( Change{ attr } );
}

void Entity::attrNotify( U16 attr, const void* key ) const {
   if( notifiees_ ) notify( Change{ attr, key } );
}

void Entity::attrIs( U16 attr, const void* value ) {
   const Attr& row = fwkType().attr( attr );
   void* slot = reinterpret_cast< char* >( this ) + row.offset;
   if( row.extra.set && row.kind == AttrKind::scalar ) return row.extra.set( this, value );
   if( row.kind == AttrKind::ref ) {
      const auto& p = *static_cast< const Ptr< Entity >* >( value );
      if( !p && row.has( KelAttrIntrospectionFlags::nonNull ) ) nullRefused( attr );
      return set( attr, *static_cast< Ptr< Entity >* >( slot ), p );
   }
   const ValueOps& ops = *row.type->info().values;
   if( ops.equal( slot, value ) ) return;
   ops.assign( slot, value );
   changed( attr );
}

bool isNamedByKey( const Type& child, const Type& key ) {
   return child.info().takesName && ( &key == &BuiltIn::name || &key == &BuiltIn::string8 );
}

// A child's constructor takes its name first, when it has one of its own; that is the text of its key unless the key is the name.
Ptr< Entity > Entity::newChildAt( U16 attr, std::span< const GenericIf* const > parameters ) {
   const Attr& row = fwkType().attr( attr );
   const Type& type = kelChildType( attr );
   if( !type.info().make ) throw InternalException( std::string( type.qualifiedName() ) + " can't be created by reflection" );
   if( parameters.empty() ) throw RangeException( "no key given for a new " + std::string( type.qualifiedName() ) );
   const void* key = Detail::checkedArgument( parameters[ 0 ], *row.keyType );
   const bool byName = isNamedByKey( type, *row.keyType );
   const Name name( row.keyType == &BuiltIn::name      ? *static_cast< const Name* >( key ) :
                    row.keyType == &BuiltIn::string8 ? Name( *static_cast< const String8* >( key ) ) :
                                                       Name( keyName( *row.keyType, key ) ) );
   ConstructorArguments arguments( type, parameters.subspan( byName ) );
   std::vector< const void* >& values = arguments.values;
   void* map = reinterpret_cast< char* >( this ) + row.offset;
   if( const void* existing = row.extra.collection->find( map, key ) ) {
      const auto& child = *static_cast< const Ptr< Entity >* >( existing );
      child->sameParameters( values );
      return child;
   }
   if( type.info().takesName ) values.insert( values.begin(), &name );
   const Ptr< Entity > made = type.info().make( values.data() );
   row.extra.collection->adopt( *this, attr, map, key, made );
   return made;
}

Ptr< Entity > Entity::newOptionalAt( U16 attr, const Name& name ) {
   const Attr& row = fwkType().attr( attr );
   auto& slot = *reinterpret_cast< Ptr< Entity >* >( reinterpret_cast< char* >( this ) + row.offset );
   if( !slot ) {
      const void* parameters[] = { &name };
      const Ptr< Entity > made = row.type->info().make( parameters );
      adopt( *made );
      slot = made;
      changed( attr );
   }
   return slot;
}

void Entity::delOptionalAt( U16 attr ) {
   delOptional( attr, *reinterpret_cast< Ptr< Entity >* >( reinterpret_cast< char* >( this ) + fwkType().attr( attr ).offset ) );
}

Ptr< Entity > Entity::child( const Name& name ) const {
   const Type& type = fwkType();
   for( U16 i = 0; i < type.attrCount(); ++i ) {
      const Attr& row = type.attr( i );
      const void* member = reinterpret_cast< const char* >( this ) + row.offset;
      Ptr< Entity > found;
      if( row.kind == AttrKind::child ) {
         const auto& c = *static_cast< const Ptr< Entity >* >( member );
         if( c && c->name() == name ) found = c;
      } else if( row.kind == AttrKind::childMap || row.kind == AttrKind::refMap ) {
         found = named( row, member, name );
      }
      if( found ) return found;
   }
   return nullptr;
}

String8 keyName( const Type& type, const void* key ) {
   TextOut out;
   printBare( type, key, out );
   std::string_view text = out.view();
   if( type.code() == TypeCode::external || type.code() == TypeCode::scalar ) {
      // The text of an address or an interface stands between quotes; a name has none.
      if( text.size() >= 2 && text.front() == '\'' ) text = text.substr( 1, text.size() - 2 );
   }
   return text;
}

}
