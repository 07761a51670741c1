#pragma once

#include <compare>
#include <cstddef>
#include <kel/Exception.h>
#include <kel/RefCount.h>
#include <type_traits>
#include <utility>

namespace [[gnu::visibility("default")]] Kel {

/// Base of every object that is held by `Ptr`. A new object has no references; it goes when its last one does.
class PtrInterface {
 public:
   PtrInterface() = default;
   PtrInterface( const PtrInterface& ) = default;
   PtrInterface& operator=( const PtrInterface& ) = default;
   virtual ~PtrInterface() = default;

   U32 referenceCount() const noexcept { return references_.count(); }
   void referencesInc() const noexcept { references_.increment(); }
   void referencesDec() const noexcept {
      if( references_.decrement() ) onZeroReferences();
   }

 protected:
   /// Called when the last reference has gone; deletes the object.
   virtual void onZeroReferences() const noexcept { delete this; }

   mutable RefCount references_;
};

/// A counted reference to an entity, a reactor or another resource. A null `Ptr` is a fine value.
template< class T >
class Ptr {
 public:
   using element_type = T;

   constexpr Ptr() noexcept = default;
   constexpr Ptr( std::nullptr_t ) noexcept {}
   Ptr( T* object ) noexcept : object_( object ) { inc(); }
   Ptr( const Ptr& other ) noexcept : object_( other.object_ ) { inc(); }
   Ptr( Ptr&& other ) noexcept : object_( std::exchange( other.object_, nullptr ) ) {}
   template< class U >
      requires std::is_convertible_v< U*, T* >
   Ptr( const Ptr< U >& other ) noexcept : object_( other.ptr() ) {
      inc();
   }
   template< class U >
      requires std::is_convertible_v< U*, T* >
   Ptr( Ptr< U >&& other ) noexcept : object_( other.release() ) {}
   ~Ptr() { dec( object_ ); }

   Ptr& operator=( const Ptr& other ) noexcept { return *this = Ptr( other ); }
   Ptr& operator=( Ptr&& other ) noexcept {
      dec( std::exchange( object_, std::exchange( other.object_, nullptr ) ) );
      return *this;
   }

   T* ptr() const noexcept { return object_; }
   T* get() const noexcept { return object_; }
   T* operator->() const noexcept { return object_; }
   T& operator*() const noexcept { return *object_; }
   explicit operator bool() const noexcept { return object_ != nullptr; }
   /// Gives the reference away without dropping it.
   T* release() noexcept { return std::exchange( object_, nullptr ); }

   friend bool operator==( const Ptr& a, const Ptr& b ) noexcept { return a.object_ == b.object_; }
   friend bool operator==( const Ptr& a, std::nullptr_t ) noexcept { return a.object_ == nullptr; }
   friend bool operator==( const Ptr& a, const T* b ) noexcept { return a.object_ == b; }
   friend std::strong_ordering operator<=>( const Ptr& a, const Ptr& b ) noexcept {
      return std::compare_three_way()( a.object_, b.object_ );
   }

 private:
   void inc() const noexcept {
      if( object_ ) object_->referencesInc();
   }
   static void dec( T* object ) noexcept {
      if( object ) object->referencesDec();
   }

   T* object_ = nullptr;
};

/// The pointer as another type of its hierarchy, or null when the object is none.
template< class T, class U >
Ptr< T > dynamicCast( const Ptr< U >& p ) noexcept {
   return Ptr< T >( dynamic_cast< T* >( p.ptr() ) );
}

/// The pointer as another type of its hierarchy. REQUIRES: the object is one, or the pointer is null.
template< class T, class U >
Ptr< T > staticCast( const Ptr< U >& p ) noexcept {
   return Ptr< T >( static_cast< T* >( p.ptr() ) );
}

template< class T, class... Args >
Ptr< T > makePtr( Args&&... args ) {
   return Ptr< T >( new T( std::forward< Args >( args )... ) );
}

/// A reference that is never null. Throws `RangeException` "null ValidPtr" when it is made from a null one.
template< class T >
class ValidPtr : public Ptr< T > {
 public:
   template< class P >
      requires std::is_constructible_v< Ptr< T >, P >
   ValidPtr( P&& p ) : Ptr< T >( std::forward< P >( p ) ) {
      if( !*this ) throw RangeException( "null ValidPtr" );
   }
};

}
