#pragma once

#include "Ast.h"

// Questions about checked declarations. All of them end on any input: the checker cuts cycles of bases and of values, and bounds
// their depth, before anybody asks.
namespace Kelc {

/// How deep values may nest, and how many bases stand above a type.
inline constexpr int maxTypeDepth = 64;

/// An own or inherited attribute, or null. The nearest one wins.
const Attr* findAttr( const Decl& decl, std::string_view name );

/// An own or inherited operation with this name and number of parameters, or null.
const Op* findOp( const Decl& decl, std::string_view name, std::size_t parameters );

/// True when `decl` is `base` or derives from it.
bool derivesFrom( const Decl& decl, const Decl& base );

/// The key of an entity or machine, own or inherited, or null.
const Attr* keyOf( const Decl& decl );

/// True when the type, or a base of it, is constructed with a name.
bool isNamed( const Decl& decl );

/// The type of an entity's name: `Kel::Name` unless the definition says otherwise. Null when it is `Kel::Name` and that is
/// unknown.
const TypeRef* nameTypeOf( const Decl& decl );

/// What the constructor takes behind the name, in order: the base's parameters first.
std::vector< const Attr* > constructorParameters( const Decl& decl );

bool isOrdered( const Decl& decl );
bool isHashed( const Decl& decl );

/// The innermost extern type of a scalar: `U16` for `VlanId`. Null when it is unknown.
const Decl* basisOf( const Decl& decl );

/// Where a value stands in shared memory. Nothing for types that have no fixed size, or one over 64 KiB.
std::optional< Layout > layoutOf( const Decl& decl );

/// The stored attributes of a composite value, in order.
std::vector< const Attr* > fieldsOf( const Decl& decl );

/// The offset of each stored attribute of a composite in shared memory, in order. REQUIRES: `layoutOf( decl )`.
std::vector< std::uint32_t > offsetsOf( const Decl& decl );

/// The first attribute that keeps a value from having a fixed size, followed into nested values; null when nothing does.
const Attr* unfixedAttr( const Decl& decl );

}
