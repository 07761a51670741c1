#pragma once

#include "Source.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

// A definition file as the parser reads it. The checker fills in the members marked "resolved"; the emitters rely on them.
namespace Kelc {

struct Attr;
struct Decl;
struct Module;

/// A name with the place where it stands.
struct Ident {
   std::string text;
   Span span;
   bool empty() const { return text.empty(); }
};

/// A type as a definition names it, and the declaration that it means.
struct TypeRef {
   std::string text;   ///< "Bridging::VlanId", "::Bridging::VlanId"
   Span span;
   Decl* decl = nullptr;   ///< resolved; stays null when the name is unknown
   bool empty() const { return text.empty(); }
};

struct Enumerator {
   Ident name;
   std::uint32_t value = 0;
   std::string doc;
};

/// A default or a constant as it is written.
struct Literal {
   enum class Kind { none, integer, real, text, boolean, name, list };
   Kind kind = Kind::none;
   Span span;
   bool negative = false;       ///< of an integer
   std::uint64_t number = 0;    ///< of an integer its magnitude; of a boolean 0 or 1
   double real = 0;
   std::string text;            ///< a text's bytes, a name's spelling
   std::vector< Literal > items;
   const Enumerator* enumerator = nullptr;   ///< resolved: what a name means, this
   const Attr* constant = nullptr;           ///< or this
   bool empty() const { return kind == Kind::none; }
};

/// Bounds as they are written: `in 1..4094`, `in 1..`, `max 10`. A missing bound has no literal.
struct Range {
   Literal min;
   Literal max;
   bool isMax = false;   ///< written `max N`
   bool empty() const { return min.empty() && max.empty(); }
};

enum class Collection { none, map, set, queue, table, optional };
enum class Holding { value, child, ref };

/// What an attribute holds: a value, a reference, or a collection of either or of child entities.
struct Shape {
   Collection collection = Collection::none;
   Holding holding = Holding::value;
   bool ordered = false;
   bool nonnull = false;
   bool isConst = false;
   Span span;         ///< the word that says what is held (`map`, `ref`, ...), or the type
   TypeRef key;       ///< of `map K -> V` and `set K`; a queue's index type
   TypeRef element;
   Ident by;          ///< `map of V by attr`
   const Attr* byAttr = nullptr;    ///< resolved
   Decl* keyDecl = nullptr;         ///< resolved: the key's type, also where the element or the child says it
   bool isCollection() const { return collection != Collection::none && collection != Collection::optional; }
};

struct Parameter {
   Ident name;
   TypeRef type;
   bool isRef = false;
   bool isConst = false;
   bool isOut = false;
};

/// A function that the room's .cpp defines.
struct Op {
   Ident name;
   std::string doc;
   std::vector< Parameter > parameters;
   Parameter result;   ///< its type is empty when nothing is returned
   bool isVirtual = false;
   bool isStatic = false;
   bool isConst = false;
   bool overrides = false;   ///< resolved: a base declares the same one
};

/// `on learnedHost( addr ) -> handleLearnedHost;`
struct Handler {
   Ident event;
   std::optional< Ident > argument;
   Ident op;
   const Attr* attr = nullptr;   ///< resolved: the watched attribute; null for `start` and `gone`
   const Op* target = nullptr;   ///< resolved
   bool inWatch = false;         ///< resolved: the target belongs to the reactor, not to the machine
   bool passesKey = false;       ///< resolved: the target takes the key
};

/// What stands behind `watch`: the reactor class and what it does.
struct Watch {
   TypeRef target;         ///< the watched entity type
   bool isConst = false;
   Ident reactor;          ///< `as KelStatus`, or made from the attribute's name
   Ident fromAttr;         ///< `from status.fdbStatus`: the machine's attribute
   Ident fromMember;       ///< and the watched entity's collection
   const Attr* from = nullptr;   ///< resolved: the collection that the reactors follow
   std::vector< std::unique_ptr< Attr > > attrs;
   std::vector< Op > ops;
   std::vector< Handler > handlers;
};

enum class Role { plain, key, param, constant, derivedView, derivedByHand, narrow, watch, owner };

struct Attr {
   Role role = Role::plain;
   Ident name;
   std::string doc;
   Shape shape;
   Literal init;              ///< default, or a constant's value
   bool paramVar = false;     ///< `param var`: stays writable
   bool isVirtual = false;    ///< a collection of children that derived entities may narrow
   bool silent = false;
   bool unlogged = false;
   Literal max;               ///< a setter's limit: a number or the name of a constant
   bool storeThenCheck = false;
   Ident viewOf, viewMember;  ///< `derived x = y.z`
   std::unique_ptr< Watch > watch;
   Decl* owner = nullptr;              ///< the declaration that it stands in
   const Attr* narrowed = nullptr;     ///< resolved: the base's attribute
   const Attr* viewAttr = nullptr;     ///< resolved
   const Attr* viewField = nullptr;    ///< resolved
   bool isParameter = false;           ///< resolved: given to the constructor
};

enum class Kind { scalar, composite, wrapper, enumeration, entity, machine, externValue, externEntity, externMachine };

/// How the literals of an extern value are written.
enum class LiteralForm { none, boolean, integer, real, text };

enum class HashRule { generated, byHand, none };

/// Size and alignment of a value in shared memory, where the word size of the process must not matter: 64-bit fields are aligned
/// to four bytes, as in the narrower of the two.
struct Layout {
   std::uint32_t size = 0;
   std::uint32_t align = 1;
};

struct Decl {
   Kind kind = Kind::composite;
   Ident name;
   std::string doc;
   std::string nameSpace;      ///< "Bridging::Input"; empty for the global one
   Decl* outer = nullptr;      ///< of a nested value or enumeration
   const Module* module = nullptr;
   Span span;

   TypeRef basis;              ///< a scalar's number or string, a wrapper's wrapped type
   Range range;
   Literal init;
   bool ordered = false;
   bool orderByHand = false;
   bool testable = false;
   HashRule hash = HashRule::generated;

   bool named = false;         ///< `( name )`: constructed with a name
   TypeRef nameType;           ///< of `( name : String8 )`, else empty
   std::vector< Ident > params;     ///< a machine's parameter list
   TypeRef base;
   std::vector< Ident > baseArgs;   ///< `: Quor::PamMuxDemux( onePam )`
   bool hasBaseArgs = false;
   bool unlogged = false;

   std::string header;         ///< of an extern type
   LiteralForm literals = LiteralForm::none;
   std::optional< std::uint32_t > size, align;
   mutable std::optional< std::optional< Layout > > layout;   ///< remembered by `layoutOf`

   std::vector< std::unique_ptr< Attr > > attrs;
   std::vector< Op > ops;
   std::vector< Handler > handlers;    ///< a machine's own
   std::vector< Enumerator > enumerators;
   std::vector< std::unique_ptr< Decl > > nested;

   bool isValue() const { return kind <= Kind::enumeration || kind == Kind::externValue; }
   bool isEntity() const { return kind == Kind::entity || kind == Kind::externEntity; }
   bool isMachine() const { return kind == Kind::machine || kind == Kind::externMachine; }
   bool isExtern() const { return kind >= Kind::externValue; }
   /// "Bridging::Input::VlanConfig".
   std::string qualifiedName() const;
};

struct Import {
   std::string path;
   Span span;
   const Module* module = nullptr;   ///< resolved
};

/// One definition file.
struct Module {
   Ident name;
   std::string doc;
   std::string trace;                 ///< the name of its trace handle, or empty
   Span traceSpan;
   const Source* source = nullptr;
   std::string prefix;                ///< of its generated header: `<Vanta/VlanId.h>`
   bool isMain = false;
   std::vector< Import > imports;
   std::vector< std::unique_ptr< Decl > > decls;
};

inline std::string Decl::qualifiedName() const {
   const std::string scope = outer ? outer->qualifiedName() : nameSpace;
   return scope.empty() ? name.text : scope + "::" + name.text;
}

}
