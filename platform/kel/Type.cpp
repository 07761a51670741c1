#include <kel/Type.h>

#include <kel/Exception.h>
#include <kel/GenericIf.h>
#include <kel/LogValue.h>
#include <kel/Registry.h>

namespace Kel {

void KelAttrIntrospectionFlags::refuse() { throw RangeException( "KelAttrIntrospectionFlags::value > 0x3f not allowed" ); }

namespace {

template< class T >
Ptr< GenericIf > wrapBuiltIn( void* object, bool isConst ) {
   return makeGenericIf< T >( object, isConst );
}

template< class T >
constexpr TypeInfo builtIn( const char* name, TypeCode code ) {
   return { .qualifiedName = name, .code = code, .size = sizeof( T ), .values = &valueOps< T >, .wrap = &wrapBuiltIn< T > };
}

}

constinit Type BuiltIn::boolean{ builtIn< bool >( "bool", TypeCode::boolean ) };
constinit Type BuiltIn::u8{ builtIn< U8 >( "U8", TypeCode::u8 ) };
constinit Type BuiltIn::u16{ builtIn< U16 >( "U16", TypeCode::u16 ) };
constinit Type BuiltIn::u32{ builtIn< U32 >( "U32", TypeCode::u32 ) };
constinit Type BuiltIn::u64{ builtIn< U64 >( "U64", TypeCode::u64 ) };
constinit Type BuiltIn::s8{ builtIn< S8 >( "S8", TypeCode::s8 ) };
constinit Type BuiltIn::s16{ builtIn< S16 >( "S16", TypeCode::s16 ) };
constinit Type BuiltIn::s32{ builtIn< S32 >( "S32", TypeCode::s32 ) };
constinit Type BuiltIn::s64{ builtIn< S64 >( "S64", TypeCode::s64 ) };
constinit Type BuiltIn::f64{ builtIn< double >( "double", TypeCode::f64 ) };
constinit Type BuiltIn::seconds{ builtIn< double >( "Kel::Seconds", TypeCode::f64 ) };
constinit Type BuiltIn::string8{ builtIn< String8 >( "Kel::String8", TypeCode::string8 ) };
constinit Type BuiltIn::name{ builtIn< Name >( "Kel::Name", TypeCode::name ) };

std::string_view Type::shortName() const {
   const std::string_view name = info_.qualifiedName;
   const std::size_t colon = name.rfind( ':' );
   return colon == std::string_view::npos ? name : name.substr( colon + 1 );
}

std::string_view Type::namespaceName() const {
   const std::string_view name = info_.qualifiedName;
   const std::size_t colon = name.rfind( "::" );
   return colon == std::string_view::npos ? std::string_view() : name.substr( 0, colon );
}

bool Type::derivesFrom( const Type& other ) const {
   for( const Type* t = this; t; t = t->info_.base ) {
      if( t == &other ) return true;
   }
   return false;
}

// A handful of rows is compared faster than a name is hashed; the sizes rule most of them out.
S32 Type::attributeId( std::string_view name ) const noexcept {
   for( const Type* t = this; t; t = t->info_.base ) {
      S32 index = t->info_.firstAttr;
      for( const Attr& row : t->info_.attrs ) {
         if( row.nameSize == name.size() && std::memcmp( row.name, name.data(), name.size() ) == 0 ) return index;
         ++index;
      }
   }
   return -1;
}

void Type::typeNodeIs( const char* qualifiedName ) {
   TypeRegistry::instance().add( qualifiedName, *this );
   named_ = true;
}

Ptr< GenericIf > Type::genericIf( void* object, bool isConst ) {
   if( !info_.wrap ) throw InternalException( std::string( qualifiedName() ) + " has no reflection adapter" );
   return info_.wrap( object, isConst );
}

Ptr< GenericIf > Type::genericIf( const GenericIf* from, bool isConst ) {
   if( !from || !from->voidPtrIs( *this ) ) {
      throw RangeException( ( from ? std::string( from->type().qualifiedName() ) : std::string( "null" ) ) + " is no " +
                            info_.qualifiedName );
   }
   if( !isValue() ) return genericIf( from->voidPtrIs( *this ), isConst );
   return Ptr< GenericIf >( new OwnedValueIf( *this, from->object(), isConst ) );
}

Ptr< GenericIf > Type::genericIf( const String8& text, bool isConst ) {
   if( !isValue() ) throw InternalException( std::string( qualifiedName() ) + " has no text form" );
   Ptr< OwnedValueIf > made( new OwnedValueIf( *this, nullptr, isConst ) );
   parseWhole( *this, made->storage(), text );
   return made;
}

}
