#pragma once

#include <cstddef>
#include <cstring>
#include <exception>
#include <kel/Ptr.h>
#include <kel/Type.h>
#include <vector>

namespace [[gnu::visibility("default")]] Kel {

class Entity;

/// One change of an entity, as the runtime hands it to a notifiee's `dispatch`.
struct Change {
   U16 attr;                    ///< the attribute's index
   const void* key = nullptr;   ///< the key that changed; null for a scalar and for a collection as a whole
};

/// Base of every reactor to an entity. Generated `NotifieeConst` classes derive from it, users derive from those and override
/// `on<Attr>` callbacks. A reactor attached to an entity is called synchronously, in order of attachment, until it is detached,
/// goes, or loses its last reference outside the entity's own list. It does not keep the entity alive: when that goes,
/// `onZombie()` is called and `notifier()` reads null from then on.
class NotifieeBase : public PtrInterface {
 public:
   /// The code that `onException` is called with for an exception out of a callback.
   static constexpr U32 callbackException = 260;

   ~NotifieeBase() override;
   NotifieeBase( const NotifieeBase& ) = delete;
   NotifieeBase& operator=( const NotifieeBase& ) = delete;

   /// Attaches it to `entity`, behind those that are attached already. A null entity leaves it unattached. Throws
   /// `InternalException` "entity reactor is already active" when it is attached, `FrameworkException` "Entity is the wrong type"
   /// for one of another type.
   void activate( const Entity* entity );
   /// Takes it off its entity; a callback that is running goes on to its end. Does nothing when it is not attached.
   void deactivate();

   /// Whether callbacks are delivered (true at start).
   bool hasNotificationActive() const { return !references_.flag( silenced ); }
   void hasNotificationActiveIs( bool on ) { references_.flagIs( silenced, !on ); }

   /// How many exceptions out of callbacks the default handler has seen.
   U32 exceptionCount() const { return exceptions_; }

   /// Runs the typed callbacks of one change. The generated override switches on the attribute. A typed setter calls the callback
   /// of a scalar itself instead.
   virtual void dispatch( const Change& change );
   /// The typed callback of a scalar attribute, `&NotifieeConst::on<Attr>`, as the runtime calls it.
   using Callback = void ( NotifieeBase::* )();

 protected:
   NotifieeBase() = default;

   const Entity* notifierEntity() const { return notifier_; }
   /// Told by every generated class: the type of the entities that it watches, whose attributes it has callbacks for.
   void watchedTypeIs( const Type& type ) {
      watchedType_ = &type;
      knownAttrs_ = type.attrCount();
   }

   /// The entity is being removed from its collection, or goes; it can still be read. Called once.
   virtual void onZombie() {}

   /// A callback has thrown. The default counts, and traces at level 0 with the entity, the attribute and the text unless a
   /// `CallbackFailure` waits for the exception. What a handler throws in turn is dropped.
   virtual void onException( U32 code, const Change& change, std::exception_ptr exception );

 private:
   friend class Entity;
   friend class NotifieeList;

   /// Hands an exception out of a callback, which is being handled, to `onException`.
   void callbackThrew( const Change& change ) noexcept;

   /// A flag beside the reference count, so that a walk asks for both at once.
   static constexpr unsigned silenced = 0;
   /// Somebody besides the entity's list refers to it, and callbacks are to be delivered.
   bool isHeldAndActive() const { return references_.isAboveAndPlain( 1 ); }

   const Entity* notifier_ = nullptr;
   const Type* watchedType_ = nullptr;
   /// Attributes below this index have their callbacks in this class or a base; a reactor to a base type knows fewer.
   U16 knownAttrs_ = 0;
   U32 exceptions_ = 0;
};

/// A callback, taken apart once for a walk over many reactors. The pointer to a virtual member function is the offset of its
/// entry in the table that an object's first word points to, plus 1 (Itanium C++ ABI, 2.3); a call through the pointer tests for
/// that, and for more, each time.
class VirtualCallback {
 public:
   explicit VirtualCallback( NotifieeBase::Callback callback ) {
      struct {
         std::ptrdiff_t entry, adjustment;
      } parts;
      static_assert( sizeof parts == sizeof callback );
      std::memcpy( &parts, &callback, sizeof parts );
      if( parts.entry & 1 && parts.adjustment == 0 ) entry_ = parts.entry - 1;
   }
   /// False for one that has to be called in the language's own way.
   explicit operator bool() const { return entry_ >= 0; }
   void operator()( NotifieeBase& reactor ) const {
      const char* table;
      void ( *function )( NotifieeBase* );
      std::memcpy( &table, static_cast< const void* >( &reactor ), sizeof table );
      std::memcpy( &function, table + entry_, sizeof function );
      function( &reactor );
   }

 private:
   std::ptrdiff_t entry_ = -1;
};

/// What every generated `T::NotifieeConst` begins with; `Base` is that of the entity type that `T` derives from.
template< class T, class Base >
class NotifieeOf : public Base {
 public:
   NotifieeOf() { this->watchedTypeIs( T::_Type ); }
   explicit NotifieeOf( const Ptr< const T >& notifier ) : NotifieeOf() { this->activate( notifier.ptr() ); }
   /// The watched entity; null once it has gone.
   Ptr< const T > notifier() const { return static_cast< const T* >( this->notifierEntity() ); }
};

/// For a caller that cannot go on when a reactor to what it changes fails. While it lives, what the default handler
/// (`onException`) meets in this thread is kept here, the first exception of all, and not traced; of several the innermost one
/// keeps it.
class CallbackFailure {
 public:
   CallbackFailure() noexcept;
   CallbackFailure( const CallbackFailure& ) = delete;
   CallbackFailure& operator=( const CallbackFailure& ) = delete;
   ~CallbackFailure();

   /// Throws the exception that is kept, and keeps it no longer. Does nothing when there is none.
   void rethrow();

 private:
   friend class NotifieeBase;

   CallbackFailure* const outer_;
   std::exception_ptr first_;
};

/// The reactors of one entity, in order of attachment. How a walk over them goes stands in Entity.cpp.
class NotifieeList {
 public:
   /// Calls `visit` for each live reactor; only for those that deliver unless `silencedToo`.
   template< class Visit >
   void walk( bool silencedToo, Visit visit ) {
      ++walks_;
      const std::size_t end = places_.size();
      for( std::size_t i = 0; i < end; ++i ) {
         NotifieeBase* reactor = places_[ i ].ptr();
         if( !reactor ) [[unlikely]] continue;
         if( !reactor->isHeldAndActive() ) [[unlikely]] {
            if( dropDead( i ) || !silencedToo ) continue;
         }
         visit( *reactor );
      }
      if( --walks_ == 0 && untidy_ ) [[unlikely]] settle();
   }

 private:
   friend class Entity;
   friend class NotifieeBase;

   void add( NotifieeBase* reactor ) { places_.emplace_back( reactor ); }
   void remove( NotifieeBase* reactor );
   /// The entity goes; so does the list, but not in the middle of a walk, which then finds nobody left.
   void orphan();
   /// Drops the reactor in a place if nobody else refers to it.
   bool dropDead( std::size_t i );
   void bury( std::size_t i );
   void settle();

   std::vector< Ptr< NotifieeBase > > places_;
   std::vector< Ptr< NotifieeBase > > buried_;
   std::size_t walks_ = 0;
   bool untidy_ = false;     ///< there is something to do when the outermost walk has ended
   bool orphaned_ = false;   ///< the entity has gone
};

}
