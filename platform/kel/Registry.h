#pragma once

#include <kel/GenericIf.h>
#include <kel/Type.h>
#include <span>
#include <string_view>
#include <vector>

namespace [[gnu::visibility("default")]] Kel {

struct Module;

/// All types of the process that have been given their names, by qualified name.
class TypeRegistry {
 public:
   static TypeRegistry& instance();

   /// The type object with this name, or null. A type is found once its module's initialiser has run.
   Type* type( std::string_view qualifiedName ) const;
   /// A new entity of the type with this name, from its constructor parameters in order (its `Kel::Name` first where it takes
   /// one). Throws `RangeException` for an unknown name or a type that can't be created so.
   Ptr< Entity > newEntity( std::string_view qualifiedName, std::span< const GenericIf* const > parameters ) const;
   Ptr< Entity > newEntity( std::string_view qualifiedName, const Name& name ) const;
   std::vector< Type* > types() const;
   /// The module with this name whose initialiser has begun, or null.
   const Module* module( std::string_view name ) const;

 private:
   friend class Type;
   friend void initialiseModule( Module& module, void ( *kelInit )() );
   void add( std::string_view name, Type& type );
   void add( Module& module );
};

/// What one attribute of a type was described as.
struct AttributeDescriptor {
   std::string_view name;
   std::string_view typeName;
   KelAttrIntrospectionFlags flags;
};

/// What a module has told of one type.
struct TypeDescription {
   std::string_view name;
   bool isValue = false;
   bool hasReflection = false;
   std::vector< AttributeDescriptor > attributes;
};

/// Collects what modules tell of their types. Modules describe themselves, once, while the global reactor exists and is enabled.
class IntrospectionReactor {
 public:
   /// The global reactor, or null.
   static IntrospectionReactor* instance();
   /// Creates the global reactor (enabled) or removes it.
   static void instanceIs( bool exists );

   bool enabled() const { return enabled_; }
   void enabledIs( bool on ) { enabled_ = on; }

   void namespaceIs( std::string_view name );
   void typeIs( const Type& type );
   void typeKindIs( const Type& type, bool isValue, bool hasReflection );
   void attributeIs( const Type& type, std::string_view name, std::string_view typeName, U32 flags );

   const std::vector< std::string_view >& namespaces() const { return namespaces_; }
   const std::vector< TypeDescription >& types() const { return types_; }
   const TypeDescription* type( std::string_view name ) const;

 private:
   TypeDescription& description( const Type& type );
   bool enabled_ = true;
   std::vector< std::string_view > namespaces_;
   std::vector< TypeDescription > types_;
};

/// One module of type definitions: its types in registration order, and its state. kelc writes one per module.
struct Module {
   const char* name;
   std::span< Type* const > types;
   bool typesNamed = false;    ///< its type objects have their names
   bool initialised = false;   ///< its static initialiser has run to its end
   bool described = false;     ///< `kelInit<Module>` has run its body
   /// The cached attribute handles: per entity type the framework's two, then its own in declaration order.
   std::span< S32 > handles = {};
};

/// The body of `kelInit<Module>`: describes the module's types to the global introspection reactor, at most once, and only while
/// that exists and is enabled.
void describeModule( Module& module );

/// The five steps of a module's static initialiser: the stream library, type names, attribute handles, `kelInit`, the initialised
/// flag.
void initialiseModule( Module& module, void ( *kelInit )() );

}
