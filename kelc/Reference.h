#pragma once

#include "Ast.h"

#include <string>
#include <vector>

// What the reference tells of a type besides its declaration. The schema and the reference page say the same.
namespace Kelc {

using Strings = std::vector< std::string >;

/// What a new instance holds, as a literal; nothing where that is told by the constructor, by another type or by emptiness.
std::string defaultText( const Attr& attr );

/// What is special about an attribute: "the key, immutable"; nothing for most.
std::string noteText( const Attr& attr );

/// What a map of reactors follows: "status.fdbStatus"; nothing for any other attribute.
std::string followedText( const Attr& attr );

/// The calls that make an instance, with their parameters: the type's own first, then the collections of its module.
Strings creation( const Decl& decl );

/// The callbacks of the type's own attributes, in order.
Strings notifications( const Decl& decl );

/// One text that an exception brings, in capitals what differs from case to case, and what it is thrown for.
struct Message {
   std::string text;
   std::string when;
};
/// What the type refuses, by the exact texts.
std::vector< Message > messages( const Decl& decl );

/// What a machine reacts to, and the operation that it runs then.
struct Reaction {
   std::string event;
   std::string runs;
};
std::vector< Reaction > reactions( const Decl& decl );

/// An operation, one of a machine's reactor with the reactor's name before it.
struct ListedOp {
   std::string signature;
   const Op* op;
};
std::vector< ListedOp > operationsOf( const Decl& decl );

/// The attributes that the type has from each of its bases, the nearest first.
struct Inheritance {
   const Decl* from;
   Strings attributes;
};
std::vector< Inheritance > inherited( const Decl& decl );

}
