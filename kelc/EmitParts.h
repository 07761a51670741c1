#pragma once

#include "Cpp.h"

// The pieces that a module's header and source are put together from: per kind of type its class (header) and its rows and
// bodies (source).
namespace Kelc {

void enumClass( Writer& w, const Decl& decl );
void enumObject( Writer& w, const Decl& decl );
void valueClass( Writer& w, const Decl& decl );
void valueObject( Writer& w, const Decl& decl );
void entityClass( Writer& w, const Decl& decl );
void entityObject( Writer& w, const Decl& decl );
void machineClass( Writer& w, const Decl& decl );
void machineObject( Writer& w, const Decl& decl );

// Shared by several kinds

/// What makes a class a type: `GenericIf_`, `_code`, `_Type`.
void typeMembers( Writer& w, const Decl& decl );
/// Nested values and enumerations.
void nestedClasses( Writer& w, const Decl& decl );
void nestedObjects( Writer& w, const Decl& decl );
/// A constant as the class declares it, and its row. Types that no constant expression can make are returned by a function.
void constantMember( Writer& w, const Attr& attr );
std::string constantRow( const Attr& attr );
/// The declarations of operations.
void opMembers( Writer& w, const std::vector< Op >& ops );
/// The type behind a row's template argument: `double` for seconds.
std::string rowType( const Decl& decl );
/// `, &::Kel::BuiltIn::seconds` where a row must say so.
std::string rowExtra( const Decl& decl );
/// Opens `constinit const ::Kel::Attr X::attrs_[] = {`; without rows nothing is written. Returns true when there are any.
bool rows( Writer& w, const Decl& decl, const std::vector< std::string >& all );
/// The class of an entity or machine up to its indices, one per row.
void openClass( Writer& w, const Decl& decl, const std::vector< std::string >& rowNames );
/// The objects of an entity or machine: its nested types', its rows, those of its operations last, and its own, which libKel's `info` makes
/// for its class, its base and the types of its parameters.
void typeObjectOf( Writer& w, const Decl& decl, std::vector< std::string > all, const std::string& info,
                   const std::vector< std::string >& parameters = {} );
/// The operations that reflection can call, one per name.
std::vector< const Op* > reflectedOps( const Decl& decl );
std::string opRow( const Decl& decl, const Op& op );

/// A constructor's parameters: the name of an entity that has one, then the key and the parameters, each as `TYPE NAME`.
std::vector< std::string > constructorDeclaration( const Decl& decl );
/// The same as arguments: their names.
std::vector< std::string > constructorArguments( const Decl& decl );
/// `::Kel::Name` or `::Kel::String8` for an entity that is constructed with a name.
std::string nameType( const Decl& decl );
std::string factoryName( const Decl& decl );

// The texts of refusals

/// Of a scalar's bounds; nothing for a scalar that has none of its own.
std::string boundsText( const Decl& decl );
/// Of a setter's limit.
std::string limitText( const Decl& decl, const Attr& attr );

/// The C++ base: `::Kel::Entity` unless the definition names one.
std::string baseClass( const Decl& decl );

}
