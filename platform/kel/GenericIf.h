#pragma once

#include <kel/Entity.h>
#include <kel/Ptr.h>
#include <kel/Text.h>
#include <kel/Type.h>
#include <span>

namespace [[gnu::visibility("default")]] Kel {

/// What is to be done with which attribute.
struct AttributeOp {
   enum class Kind : U8 {
      get,         ///< the attribute's value; of a collection, the element under `key` (an empty result when absent)
      set,         ///< sets it; in a collection, the element under `key` (a collection keyed by its elements needs no key)
      create,      ///< in a collection of children: the child under `key`, made from `arguments`, its constructor parameters
      del,         ///< removes the element under `key`, or an optional child
      delAll,
      enq, deq,    ///< of a queue
      count,       ///< a collection's number of elements, as U32
      next,        ///< the key behind `key` in iteration order, the first one when it is null; an empty result at the end
      notify,      ///< announces again: one key, or the attribute as a whole
      invoke,      ///< calls an operation with `arguments`; the result is what it returns
   };
   U16 attribute = 0;
   Kind kind = Kind::get;
   const GenericIf* key = nullptr;
   std::span< const GenericIf* const > arguments = {};
};

/// The reflection adapter: any instance of any type, behind one interface. It wraps an instance that stays its owner's, const or
/// not, or owns a copied value. An entity that is wrapped is held.
class GenericIf : public PtrInterface {
 public:
   GenericIf( Type& type, void* object, bool isConst );
   /// Owns a copy of the value, or a default one when `value` is null.
   GenericIf( Type& type, const void* value );
   ~GenericIf() override;
   GenericIf( const GenericIf& ) = delete;
   GenericIf& operator=( const GenericIf& ) = delete;

   /// Of an entity: runs (true) the zombie handling of its reactors, as its removal would.
   virtual void kelDoZombieReactors( bool run );
   /// Of a machine: whether its reactors deliver.
   virtual void hasNotificationActiveIs( bool on );
   /// A copy of a value, writable; of an entity, another adapter to the same one.
   virtual Ptr< GenericIf > clone();
   virtual Ptr< const GenericIf > clone() const;
   virtual Type& type() const { return type_; }
   /// The wrapped instance seen as `type`, one of its own bases or itself; null when it is none.
   virtual void* voidPtrIs( const Type& type ) const;
   /// The index of the attribute, or -1.
   virtual S32 attributeId( std::string_view name ) const { return type_.attributeId( name ); }
   /// Builds the value from one value per attribute, in order.
   virtual void genericIfListConstructor( std::span< const GenericIf* const > list );
   /// Performs one operation. `result` may be null when none is wanted. Throws `ConstException` "attempting to modify a const
   /// instance" for a change through an adapter that wraps a const instance, `RangeException` for an argument of another type or
   /// outside its range, and what the typed operation throws.
   virtual void attributeOp( const AttributeOp& op, const GenericIf* argument, Ptr< GenericIf >* result );
   /// The canonical form of a value; the full name of an entity.
   virtual String8 strRep() const;

   String8 stringValue() const { return strRep(); }
   bool isConst() const { return const_; }
   const void* object() const { return object_; }

   /// The value as a `T`. Throws `RangeException` when it is of another type.
   template< class T >
   const T& as() const {
      return *static_cast< const T* >( checked( typeOf< T >() ) );
   }

   void attributeOp( const AttributeOp& op, const GenericIf* argument, Ptr< GenericIf >& result ) {
      attributeOp( op, argument, &result );
   }
   /// Sets a plain attribute from a value of its type, without a wrapper around it.
   template< class T >
   void attributeIs( U16 attribute, const T& value ) {
      const Attr& row = type_.attr( attribute );
      if( row.type != &typeOf< T >() && !( std::is_same_v< T, double > && row.code == TypeCode::f64 ) ) [[unlikely]] {
         wrongType( typeOf< T >(), *row.type );
      }
      setAttribute( attribute, row, &value );
   }

   /// The wrapped instance as `wanted`. Throws `RangeException` when it is of another type.
   const void* checked( const Type& wanted ) const;

 protected:
   /// The wrapped value, writable. Throws `ConstException` through a const adapter.
   void* mutableObject();

 private:
   [[noreturn]] static void wrongType( const Type& given, const Type& wanted );
   void setAttribute( U16 attribute, const Attr& row, const void* value );
   void valueOp( const AttributeOp& op, const Attr& row, const GenericIf* argument, Ptr< GenericIf >* result );
   void entityOp( const AttributeOp& op, const Attr& row, const GenericIf* argument, Ptr< GenericIf >* result );
   void collectionOp( const AttributeOp& op, const Attr& row, const GenericIf* argument, Ptr< GenericIf >* result );
   void create( const AttributeOp& op, const Attr& row, Ptr< GenericIf >* result );
   Entity& entity() const { return *static_cast< Entity* >( object_ ); }

   Type& type_;
   void* object_;
   bool const_;
   bool owned_;
   Ptr< PtrInterface > held_;

 protected:
   void constIs( bool on ) { const_ = on; }
};

/// An adapter that owns a copy of a value of any type.
class OwnedValueIf : public GenericIf {
 public:
   OwnedValueIf( Type& type, const void* value, bool isConst ) : GenericIf( type, value ) { constIs( isConst ); }
   /// The owned value, whether the adapter is const or not.
   void* storage() const { return const_cast< void* >( object() ); }
};

/// The adapter of one type: what `T::GenericIf_` names.
template< class T >
class GenericIfOf : public GenericIf {
 public:
   GenericIfOf( T* object, bool isConst ) : GenericIf( typeOf< T >(), object, isConst ) {}
   explicit GenericIfOf( const T* object ) : GenericIf( typeOf< T >(), const_cast< T* >( object ), true ) {}
   explicit GenericIfOf( const T& value )
      requires( !std::is_base_of_v< PtrInterface, T > )
      : GenericIf( typeOf< T >(), &value ) {}

   const T& val() const { return *static_cast< const T* >( object() ); }
   /// Assigns the value. Throws `ConstException` through a const adapter.
   virtual void valIs( const T& value ) {
      if constexpr( std::is_copy_assignable_v< T > ) *static_cast< T* >( mutableObject() ) = value;
   }
};

template< class T >
Ptr< GenericIf > makeGenericIf( void* object, bool isConst ) {
   return Ptr< GenericIf >( new GenericIfOf< T >( static_cast< T* >( object ), isConst ) );
}


namespace Detail {

/// What an operation has returned, for reflection: a copy of a value, an entity itself, nothing for a null reference.
template< class T >
Ptr< GenericIf > resultIf( const T& value ) {
   if constexpr( requires { typename T::element_type; } ) {
      using Referred = std::remove_const_t< typename T::element_type >;
      return value ? typeOf< Referred >().genericIf( const_cast< Referred* >( value.ptr() ), std::is_const_v< typename T::element_type > ) :
                     Ptr< GenericIf >();
   } else {
      return Ptr< GenericIf >( new OwnedValueIf( typeOf< T >(), &value, false ) );
   }
}

template< class M >
struct IsConstMember : std::false_type {};
template< class T, class R, class... A >
struct IsConstMember< R ( T::* )( A... ) const > : std::true_type {};

}

/// The row of an operation written by hand: the member function `Op`, callable through reflection under its name. One that is const is
/// not marked writable and can be called on a const instance.
template< class T, auto Op, class... Arguments >
constexpr Attr operationAttr( const char* name ) {
   Attr row;
   row.name = name;
   row.nameSize = static_cast< U16 >( std::string_view( name ).size() );
   row.kind = AttrKind::operation;
   row.flags = KelAttrIntrospectionFlags::nonInstantiating |
               ( Detail::IsConstMember< decltype( Op ) >::value ? 0 : KelAttrIntrospectionFlags::writable );
   row.parameters = sizeof...( Arguments );
   row.extra.operation = []( void* self, const GenericIf* const* arguments ) {
      return [ & ]< std::size_t... I >( std::index_sequence< I... > ) -> Ptr< GenericIf > {
         const auto call = [ & ] { return ( static_cast< T* >( self )->*Op )( Detail::argumentAs< Arguments >( arguments[ I ] )... ); };
         if constexpr( std::is_void_v< decltype( call() ) > ) return call(), nullptr;
         else return Detail::resultIf( call() );
      }( std::index_sequence_for< Arguments... >() );
   };
   return row;
}

// --- what generated type objects are made of ------------------------------------------------------------------------------------------

template< class T >
constexpr TypeInfo valueInfo( const char* qualifiedName, std::span< const Attr > attrs, const Bounds& bounds = {} ) {
   return { .qualifiedName = qualifiedName, .code = T::_code, .size = sizeof( T ), .attrs = attrs, .values = &valueOps< T >, .bounds = bounds,
            .wrap = &makeGenericIf< T > };
}

template< class E >
constexpr TypeInfo enumInfo( const char* qualifiedName, std::span< const Enumerator > names ) {
   return { .qualifiedName = qualifiedName, .code = TypeCode::enumeration, .size = sizeof( E ), .values = &valueOps< E >,
            .enumerators = names, .wrap = &makeGenericIf< E > };
}

/// Of an entity or a machine; `Base` is the class that it derives from.
template< class T, class Base >
constexpr TypeInfo objectInfo( const char* qualifiedName, std::span< const Attr > attrs ) {
   return { .qualifiedName = qualifiedName, .code = T::_code, .size = sizeof( T ), .attrs = attrs, .base = &Base::_Type,
            .firstAttr = Base::Attr_::count_, .wrap = &makeGenericIf< T > };
}

/// Of an entity that is made from a key and constructor parameters, given by their types.
template< class T, class Base, class... Parameters >
constexpr TypeInfo entityInfo( const char* qualifiedName, std::span< const Attr > attrs ) {
   TypeInfo info = objectInfo< T, Base >( qualifiedName, attrs );
   info.make = []( const void* const* p ) {
      return [ p ]< std::size_t... I >( std::index_sequence< I... > ) {
         return Ptr< Entity >( new T( *static_cast< const Parameters* >( p[ I ] )... ) );
      }( std::index_sequence_for< Parameters... >() );
   };
   return info;
}

/// Of an entity that is made from its name first.
template< class T, class Base, class... Parameters >
constexpr TypeInfo namedInfo( const char* qualifiedName, std::span< const Attr > attrs ) {
   TypeInfo info = entityInfo< T, Base, Name, Parameters... >( qualifiedName, attrs );
   info.takesName = true;
   return info;
}

}
