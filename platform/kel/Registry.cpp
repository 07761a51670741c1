#include <kel/Registry.h>

#include <algorithm>
#include <iostream>
#include <kel/Dir.h>
#include <kel/Machine.h>
#include <kel/Seqno32.h>
#include <mutex>
#include <unordered_map>

namespace Kel {

namespace {

// Libraries may be loaded from any thread, and their initialisers enter their types.
struct Names {
   std::mutex mutex;
   std::unordered_map< std::string_view, Type* > types;
   std::vector< const Module* > modules;
};

Names& names() {
   // It outlives every library's clean-up. The framework's own types are there from the start.
   static Names* all = [] {
      auto* made = new Names;
      for( Type* type : { &BuiltIn::boolean, &BuiltIn::u8, &BuiltIn::u16, &BuiltIn::u32, &BuiltIn::u64, &BuiltIn::s8,
                          &BuiltIn::s16, &BuiltIn::s32, &BuiltIn::s64, &BuiltIn::f64, &BuiltIn::seconds, &BuiltIn::string8,
                          &BuiltIn::name, &Entity::_Type, &Dir::_Type, &Machine::_Type, &Oru::Seqno32::_Type } ) {
         made->types.emplace( type->qualifiedName(), type );
      }
      return made;
   }();
   return *all;
}

IntrospectionReactor*& globalReactor() {
   static IntrospectionReactor* reactor = nullptr;
   return reactor;
}

}

TypeRegistry& TypeRegistry::instance() {
   static TypeRegistry registry;
   return registry;
}

void TypeRegistry::add( std::string_view name, Type& type ) {
   const std::lock_guard lock( names().mutex );
   const auto [ at, isNew ] = names().types.emplace( name, &type );
   if( !isNew && at->second != &type ) throw NameInUseException( "two types have the name " + std::string( name ) );
}

Type* TypeRegistry::type( std::string_view qualifiedName ) const {
   const std::lock_guard lock( names().mutex );
   const auto at = names().types.find( qualifiedName );
   return at == names().types.end() ? nullptr : at->second;
}

void TypeRegistry::add( Module& module ) {
   const std::lock_guard lock( names().mutex );
   names().modules.push_back( &module );
}

const Module* TypeRegistry::module( std::string_view name ) const {
   const std::lock_guard lock( names().mutex );
   const auto& all = names().modules;
   const auto at = std::find_if( all.begin(), all.end(), [ name ]( const Module* m ) { return m->name == name; } );
   return at == all.end() ? nullptr : *at;
}

std::vector< Type* > TypeRegistry::types() const {
   const std::lock_guard lock( names().mutex );
   std::vector< Type* > all;
   for( const auto& [ name, type ] : names().types ) all.push_back( type );
   std::sort( all.begin(), all.end(), []( const Type* a, const Type* b ) { return a->qualifiedName() < b->qualifiedName(); } );
   return all;
}

Ptr< Entity > TypeRegistry::newEntity( std::string_view qualifiedName, std::span< const GenericIf* const > parameters ) const {
   const Type* found = type( qualifiedName );
   if( !found ) throw RangeException( "no type has the name " + std::string( qualifiedName ) );
   if( !found->isEntity() || !found->info().make )
      throw RangeException( std::string( qualifiedName ) + " can't be created by name" );
   const bool named = found->info().takesName;
   if( named && parameters.empty() ) throw RangeException( "no name given for a new " + std::string( qualifiedName ) );
   const void* name = named ? Detail::checkedArgument( parameters[ 0 ], BuiltIn::name ) : nullptr;
   ConstructorArguments arguments( *found, parameters.subspan( named ) );
   if( named ) arguments.values.insert( arguments.values.begin(), name );
   return found->info().make( arguments.values.data() );
}

Ptr< Entity > TypeRegistry::newEntity( std::string_view qualifiedName, const Name& name ) const {
   const GenericIfOf< Name > parameter( &name );
   const GenericIf* parameters[] = { &parameter };
   return newEntity( qualifiedName, parameters );
}

IntrospectionReactor* IntrospectionReactor::instance() { return globalReactor(); }

void IntrospectionReactor::instanceIs( bool exists ) {
   if( exists == ( globalReactor() != nullptr ) ) return;
   delete std::exchange( globalReactor(), exists ? new IntrospectionReactor : nullptr );
}

void IntrospectionReactor::namespaceIs( std::string_view name ) {
   if( std::find( namespaces_.begin(), namespaces_.end(), name ) == namespaces_.end() ) namespaces_.push_back( name );
}

const TypeDescription* IntrospectionReactor::type( std::string_view name ) const {
   const auto at = std::find_if( types_.begin(), types_.end(), [ name ]( const auto& t ) { return t.name == name; } );
   return at == types_.end() ? nullptr : &*at;
}

TypeDescription& IntrospectionReactor::description( const Type& type ) {
   // A module describes one type after the other, so it is nearly always the last one.
   for( auto t = types_.rbegin(); t != types_.rend(); ++t ) {
      if( t->name == type.qualifiedName() ) return *t;
   }
   throw InternalException( std::string( type.qualifiedName() ) + " has not been announced" );
}

void IntrospectionReactor::typeIs( const Type& type ) {
   if( !this->type( type.qualifiedName() ) ) types_.push_back( { .name = type.qualifiedName(), .attributes = {} } );
}

void IntrospectionReactor::typeKindIs( const Type& type, bool isValue, bool hasReflection ) {
   TypeDescription& d = description( type );
   d.isValue = isValue;
   d.hasReflection = hasReflection;
}

void IntrospectionReactor::attributeIs( const Type& type, std::string_view name, std::string_view typeName, U32 flags ) {
   description( type ).attributes.push_back( { name, typeName, KelAttrIntrospectionFlags( flags ) } );
}

// Announce the namespace, then for each type: itself, its kind, its attributes, its constants, and "hash" for a value type that
// has one.
void describeModule( Module& module ) {
   IntrospectionReactor* reactor = IntrospectionReactor::instance();
   if( module.described || !reactor || !reactor->enabled() ) return;
   module.described = true;
   for( const Type* type : module.types ) {
      reactor->namespaceIs( type->namespaceName() );
      reactor->typeIs( *type );
      reactor->typeKindIs( *type, type->isValue(), type->hasReflection() );
      for( const bool constants : { false, true } ) {
         for( const Attr& row : type->ownAttrs() ) {
            if( row.isConstant() != constants ) continue;
            reactor->attributeIs( *type, row.name, row.type ? row.type->qualifiedName() : "operation", row.flags );
         }
      }
      if( type->isValue() && type->info().values && type->info().values->hash ) {
         reactor->attributeIs( *type, "hash", BuiltIn::u32.qualifiedName(), KelAttrIntrospectionFlags::nonInstantiating );
      }
   }
}

namespace {

// The accessors use the indices that the compiler gave them; a handle that differs means that library and header do not belong
// together.
void cacheHandles( Module& module ) {
   std::size_t n = 0;
   const auto cache = [ & ]( const Type& type, const char* name, S32 expected ) {
      const S32 handle = type.attributeId( name );
      if( handle != expected || n == module.handles.size() ) {
         throw InternalException( std::string( type.qualifiedName() ) + "::" + name +
                                  ": attribute handle is not what the accessors use" );
      }
      module.handles[ n++ ] = handle;
   };
   for( const Type* type : module.types ) {
      if( !type->isEntity() ) continue;
      cache( *type, "kelNboAttrLogSaForMsgChannel", Entity::Attr_::kelNboAttrLogSaForMsgChannel );
      cache( *type, "kelHasAttrLogInterface", Entity::Attr_::kelHasAttrLogInterface );
      S32 expected = type->info().firstAttr;
      for( const Attr& row : type->ownAttrs() ) cache( *type, row.name, expected++ );
   }
}

}

void initialiseModule( Module& module, void ( *kelInit )() ) {
   static const std::ios_base::Init streams;
   TypeRegistry::instance().add( module );
   for( Type* type : module.types ) {
      type->typeNodeIs( type->info().qualifiedName );
      module.typesNamed = true;
   }
   cacheHandles( module );
   kelInit();
   module.initialised = true;
}

}
