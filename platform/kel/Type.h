#pragma once

#include <atomic>
#include <cstring>
#include <kel/Types.h>
#include <kel/Name.h>
#include <new>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

// How a type describes itself. Every type has one `Type` object and a constant table of attribute rows; text form, parser,
// reflection and attribute log are interpreters over the rows and exist once.
namespace [[gnu::visibility("default")]] Kel {

class Entity;
class GenericIf;
class LogIn;
class LogOut;
class PtrInterface;
class TextOut;
struct Plan;
class Type;
template< class T >
class GenericIfOf;
template< class T >
class Ptr;

/// A position in text that is parsed. It is no plain pointer, so that two C strings are never taken for the bounds of a text.
class TextIter {
 public:
   constexpr TextIter() = default;
   constexpr explicit TextIter( const char* at ) : at_( at ) {}
   constexpr const char* ptr() const { return at_; }
   friend constexpr bool operator==( TextIter, TextIter ) = default;

 private:
   const char* at_ = nullptr;
};

/// How an attribute's bytes are to be read; the interpreters switch on it.
enum class TypeCode : U8 {
   boolean, u8, u16, u32, u64, s8, s16, s32, s64, f64,
   string8, name,
   enumeration,   ///< a 32-bit number with names
   scalar,        ///< a value type with the one attribute `value`: a constrained number or a bounded string
   composite,     ///< a value type with rows
   external,      ///< a value type of hand-written C++ with `ExternalOps`
   entity,        ///< held by `Ptr`
   machine,       ///< a state machine, held by `Ptr`
};

/// What an attribute row stands for.
enum class AttrKind : U8 {
   scalar,         ///< a stored value
   ref,            ///< a `Ptr` to an entity that is not owned
   child,          ///< an optional owned child entity, a `Ptr`
   map,            ///< a hashed or ordered map, or a queue, of values
   childMap,       ///< a map of owned child entities
   refMap,         ///< a map of `Ptr`s that are not owned
   queue,          ///< a queue of values
   table,          ///< a table in shared memory
   control,        ///< the control handle of the table before it; never created with the entity
   constant,       ///< a type-level constant
   derived,        ///< computed on each read
   operation,      ///< a handler that reflection can call
   reactor,        ///< a machine's reactor to one entity
   reactorMap,     ///< a machine's reactors, by key
};

/// The introspection flags of an attribute: a set of six bits.
class KelAttrIntrospectionFlags {
 public:
   static constexpr U32 logged = 0x01;            ///< it takes part in the attribute log
   static constexpr U32 notifies = 0x02;          ///< its changes are announced
   static constexpr U32 constructorRole = 0x04;   ///< a constructor parameter
   static constexpr U32 writable = 0x08;          ///< it has a setter
   static constexpr U32 nonInstantiating = 0x10;  ///< it belongs to the type, not to instances
   static constexpr U32 nonNull = 0x20;           ///< a reference that refuses null

   constexpr KelAttrIntrospectionFlags() = default;
   /// Throws `RangeException` "KelAttrIntrospectionFlags::value > 0x3f not allowed".
   constexpr KelAttrIntrospectionFlags( U32 value ) : value_( value ) {
      if( value > 0x3f ) refuse();
   }
   constexpr U32 value() const { return value_; }
   constexpr bool has( U32 bit ) const { return ( value_ & bit ) != 0; }
   friend bool operator==( const KelAttrIntrospectionFlags&, const KelAttrIntrospectionFlags& ) = default;

 private:
   [[noreturn]] static void refuse();
   U32 value_ = 0;
};

/// Lifetime and comparison of a value type, for code that has only the type object.
struct ValueOps {
   void ( *construct )( void* at );
   void ( *copyConstruct )( void* at, const void* from );
   void ( *assign )( void* to, const void* from );
   void ( *destroy )( void* at ) noexcept;
   bool ( *equal )( const void* a, const void* b );
   U32 ( *hash )( const void* v );   ///< null for a type without a hash
   void ( *write )( const void* v, LogOut& out );
   void ( *read )( void* v, LogIn& in );
};

/// One stored attribute of a value: where it stands, which may be at any alignment.
template< class T >
struct Part {
   void* at;
};
template< class T >
Part< T > part( const T* at ) { return { const_cast< void* >( static_cast< const void* >( at ) ) }; }

/// The names of an enumeration, ascending by number.
struct Enumerator {
   U32 value;
   const char* name;
};

/// The declared bounds of a scalar type's `value`. For a string type `max` is the number of bytes.
struct Bounds {
   S64 min = 0;
   U64 max = ~U64( 0 );
   const char* text = nullptr;   ///< the whole text of the range exception; null when every value is allowed
};

struct CollectionOps;
struct ExternalOps;

/// One attribute of a type: a constant row.
struct Attr {
   const char* name = nullptr;
   Type* type = nullptr;        ///< the attribute's own type, or that of a collection's elements
   Type* keyType = nullptr;     ///< of a collection's keys
   union Extra {
      const void* none = nullptr;
      const CollectionOps* collection;                                        ///< collections
      const void* constant;                                                   ///< constants: where the value stands
      void ( *derived )( const void* self, void* out );                       ///< derived: assigns to *out, a value of `type`
      Ptr< GenericIf > ( *operation )( void* self, const GenericIf* const* arguments );   ///< operations; null when they return nothing
      void ( *set )( void* self, const void* value );                         ///< scalars with a setter written by hand
   } extra{};
   U32 offset = 0;              ///< of the member in the object
   U16 nameSize = 0;
   TypeCode code = TypeCode::boolean;   ///< of `type`
   AttrKind kind = AttrKind::scalar;
   U8 flags = 0;                ///< `KelAttrIntrospectionFlags`
   U8 parameters = 0;           ///< of an operation: how many arguments it takes
   bool ordered = false;        ///< of a collection: it is iterated in the order of its keys
   U8 keyAttr = 0;              ///< of a collection keyed by its elements: 1 + the index of their key attribute

   constexpr std::string_view nameView() const { return { name, nameSize }; }
   constexpr bool has( U32 flag ) const { return ( flags & flag ) != 0; }
   /// It belongs to the type and never changes.
   constexpr bool isConstant() const {
      return kind == AttrKind::constant || ( kind == AttrKind::derived && has( KelAttrIntrospectionFlags::nonInstantiating ) );
   }
};

/// Text and log of a value type whose class is written by hand. `print` writes the display form, which the framework puts
/// between single quotes, and returns its end; `parse` reads it from inside the quotes and says whether it could.
struct ExternalOps {
   std::size_t maxText;
   char* ( *print )( const void* v, char* to );
   bool ( *parse )( void* v, const char*& from, const char* to );
   /// Null for a class that tells its parts (LogValue.h).
   void ( *write )( const void* v, LogOut& out );
   void ( *read )( void* v, LogIn& in );
};

/// What a type object is made of; kelc writes one per type.
struct TypeInfo {
   const char* qualifiedName;                 ///< "Bridging::VlanId"
   TypeCode code;
   U32 size = 0;
   std::span< const Attr > attrs = {};        ///< its own rows, in order; those of its base come before them
   Type* base = nullptr;                      ///< the entity type that it derives from
   U16 firstAttr = 0;                         ///< index of its first own row: the number of its bases' rows
   const ValueOps* values = nullptr;
   const ExternalOps* external = nullptr;
   std::span< const Enumerator > enumerators = {};
   Bounds bounds = {};
   Ptr< Entity > ( *make )( const void* const* parameters ) = nullptr;   ///< entities: from their constructor parameters in order
   bool takesName = false;                                               ///< the first of them is its `Kel::Name`
   Ptr< GenericIf > ( *wrap )( void* object, bool isConst ) = nullptr;   ///< a reflection adapter over an instance
};

/// The type object of one type, shared for the life of the process.
class Type {
 public:
   constexpr explicit Type( const TypeInfo& info ) : info_( info ) {}
   Type( const Type& ) = delete;
   Type& operator=( const Type& ) = delete;

   /// "Bridging::VlanId".
   std::string_view qualifiedName() const { return info_.qualifiedName; }
   /// "VlanId".
   std::string_view shortName() const;
   /// "Bridging".
   std::string_view namespaceName() const;
   TypeCode code() const { return info_.code; }
   bool isValue() const { return info_.code < TypeCode::entity; }
   bool isEntity() const { return info_.code == TypeCode::entity; }
   bool hasReflection() const { return info_.wrap != nullptr; }
   std::size_t size() const { return info_.size; }
   Type* base() const { return info_.base; }
   bool derivesFrom( const Type& other ) const;
   const TypeInfo& info() const { return info_; }

   /// Its own rows. `attr( i )` and `attrCount()` include those of its bases.
   std::span< const Attr > ownAttrs() const { return info_.attrs; }
   U16 attrCount() const { return static_cast< U16 >( info_.firstAttr + info_.attrs.size() ); }
   const Attr& attr( U16 index ) const {
      const Type* t = this;
      while( index < t->info_.firstAttr ) t = t->info_.base;
      return t->info_.attrs[ index - t->info_.firstAttr ];
   }
   /// The attribute's index, or -1.
   S32 attributeId( std::string_view name ) const noexcept;

   /// What text form goes through for a value of this type.
   const Plan& plan() const {
      const Plan* made = plan_.load( std::memory_order_acquire );
      return made ? *made : makePlan();
   }

   /// Gives the type object its qualified name in the type registry, where it can be found from then on.
   void typeNodeIs( const char* qualifiedName );
   /// True once it can be found by name.
   bool named() const { return named_; }

   /// A reflection adapter over an instance.
   Ptr< GenericIf > genericIf( void* object, bool isConst );
   /// A copy of another adapter's value. Throws `RangeException` when that is of another type.
   Ptr< GenericIf > genericIf( const GenericIf* from, bool isConst );
   /// A value read from its canonical text form; the whole text must be one value.
   Ptr< GenericIf > genericIf( const String8& text, bool isConst );

 private:
   const Plan& makePlan() const;

   TypeInfo info_;
   mutable std::atomic< const Plan* > plan_ = nullptr;
   bool named_ = false;
};

/// The type objects of the built-in types.
struct BuiltIn {
   static Type boolean, u8, u16, u32, u64, s8, s16, s32, s64, f64, seconds, string8, name;
};

namespace Detail {

template< class T >
struct TypeOf {
   static constexpr Type* type() {
      if constexpr( std::is_enum_v< T > ) return kelTypeOf( static_cast< const T* >( nullptr ) );
      else return &T::_Type;
   }
};
template<> struct TypeOf< bool > { static constexpr Type* type() { return &BuiltIn::boolean; } };
template<> struct TypeOf< U8 > { static constexpr Type* type() { return &BuiltIn::u8; } };
template<> struct TypeOf< U16 > { static constexpr Type* type() { return &BuiltIn::u16; } };
template<> struct TypeOf< U32 > { static constexpr Type* type() { return &BuiltIn::u32; } };
template<> struct TypeOf< U64 > { static constexpr Type* type() { return &BuiltIn::u64; } };
template<> struct TypeOf< S8 > { static constexpr Type* type() { return &BuiltIn::s8; } };
template<> struct TypeOf< S16 > { static constexpr Type* type() { return &BuiltIn::s16; } };
template<> struct TypeOf< S32 > { static constexpr Type* type() { return &BuiltIn::s32; } };
template<> struct TypeOf< S64 > { static constexpr Type* type() { return &BuiltIn::s64; } };
template<> struct TypeOf< double > { static constexpr Type* type() { return &BuiltIn::f64; } };
template<> struct TypeOf< String8 > { static constexpr Type* type() { return &BuiltIn::string8; } };
template<> struct TypeOf< Name > { static constexpr Type* type() { return &BuiltIn::name; } };
template< class T > struct TypeOf< Ptr< T > > : TypeOf< std::remove_const_t< T > > {};

template< class T >
constexpr TypeCode codeOf() {
   if constexpr( std::is_same_v< T, bool > ) return TypeCode::boolean;
   else if constexpr( std::is_same_v< T, U8 > ) return TypeCode::u8;
   else if constexpr( std::is_same_v< T, U16 > ) return TypeCode::u16;
   else if constexpr( std::is_same_v< T, U32 > ) return TypeCode::u32;
   else if constexpr( std::is_same_v< T, U64 > ) return TypeCode::u64;
   else if constexpr( std::is_same_v< T, S8 > ) return TypeCode::s8;
   else if constexpr( std::is_same_v< T, S16 > ) return TypeCode::s16;
   else if constexpr( std::is_same_v< T, S32 > ) return TypeCode::s32;
   else if constexpr( std::is_same_v< T, S64 > ) return TypeCode::s64;
   else if constexpr( std::is_same_v< T, double > ) return TypeCode::f64;
   else if constexpr( std::is_same_v< T, String8 > ) return TypeCode::string8;
   else if constexpr( std::is_same_v< T, Name > ) return TypeCode::name;
   else if constexpr( std::is_enum_v< T > ) return TypeCode::enumeration;
   else return T::_code;   // each class says it: scalar, composite, external, entity or machine
}
template< class T > struct CodeOf { static constexpr TypeCode code = codeOf< T >(); };
template< class T > struct CodeOf< Ptr< T > > { static constexpr TypeCode code = TypeCode::entity; };

/// A value at its place. A number may stand at any alignment: 64-bit ones in values are aligned to 4.
template< class T >
decltype( auto ) valueAt( const void* at ) {
   if constexpr( std::is_arithmetic_v< T > ) {
      T v;
      std::memcpy( &v, at, sizeof v );
      return v;
   } else {
      return *static_cast< const T* >( at );
   }
}

template< class T >
U32 hashValue( const void* v ) { return hashOf( valueAt< T >( v ) ); }

template< class T >
concept Hashable = requires( const T& v ) { hashOf( v ); } &&
                   ( std::is_arithmetic_v< T > || std::is_enum_v< T > || requires( const T& v ) { v.hash(); } );

template< class T >
constexpr ValueOps makeValueOps() {
   return { []( void* at ) { ::new( at ) T(); },
            []( void* at, const void* from ) { ::new( at ) T( valueAt< T >( from ) ); },
            []( void* to, const void* from ) {
               if constexpr( std::is_arithmetic_v< T > ) std::memmove( to, from, sizeof( T ) );
               else *static_cast< T* >( to ) = *static_cast< const T* >( from );
            },
            []( void* at ) noexcept { static_cast< T* >( at )->~T(); },
            []( const void* a, const void* b ) -> bool { return valueAt< T >( a ) == valueAt< T >( b ); },
            []() -> U32 ( * )( const void* ) {
               if constexpr( Hashable< T > ) return &hashValue< T >;
               else return nullptr;
            }(),
            // Found where they are made, in LogValue.h.
            []( const void* v, LogOut& out ) { logWrite( out, part( static_cast< const T* >( v ) ) ); },
            []( void* v, LogIn& in ) { logRead( in, part( static_cast< const T* >( v ) ) ); } };
}

}

/// The type object of any type: a built-in, an enumeration, or a class with `_Type`.
template< class T >
constexpr Type& typeOf() { return *Detail::TypeOf< T >::type(); }

template< class T >
inline constexpr ValueOps valueOps = Detail::makeValueOps< T >();

/// The row of a stored attribute of type `T`.
template< class T >
constexpr Attr attr( const char* name, std::size_t offset, U32 flags, Type* type ) {
   return { .name = name, .type = type, .offset = static_cast< U32 >( offset ),
            .nameSize = static_cast< U16 >( std::string_view( name ).size() ), .code = Detail::CodeOf< T >::code,
            .kind = AttrKind::scalar, .flags = static_cast< U8 >( KelAttrIntrospectionFlags( flags ).value() ) };
}
template< class T >
constexpr Attr attr( const char* name, std::size_t offset, U32 flags = 0 ) {
   return attr< T >( name, offset, flags, Detail::TypeOf< T >::type() );
}

/// A type-level constant: reads as its value and calls like an accessor, `VlanId::max` and `VlanId::max()` alike.
template< class T >
struct Constant {
   T value;
   constexpr operator T() const { return value; }
   constexpr T operator()() const { return value; }
};

/// A constant string; it becomes a `String8` where one is wanted.
template<>
struct Constant< String8 > {
   const char* value;
   operator String8() const { return String8( value ); }
   String8 operator()() const { return String8( value ); }
};

/// The row of a type-level constant.
template< class T >
constexpr Attr constantAttr( const char* name, const Constant< T >* constant ) {
   Attr row = attr< T >( name, 0, KelAttrIntrospectionFlags::nonInstantiating );
   row.kind = AttrKind::constant;
   row.extra.constant = constant;
   return row;
}

}
