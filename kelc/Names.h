#pragma once

#include "Ast.h"

#include <string>
#include <vector>

// The one place that decides how generated things are called.
namespace Kelc {

/// "foo" as "Foo" and back.
std::string upperFirst( std::string_view name );
std::string lowerFirst( std::string_view name );

/// The reactor class of a watching attribute: "KelStatus" unless the definition names it.
std::string reactorName( const Attr& attr );

/// Every member name that an attribute gives its class, its own accessor first.
std::vector< std::string > memberNames( const Attr& attr );

/// True for words that C++ keeps for itself.
bool isReservedWord( std::string_view name );

/// True for names that every class of this kind has from the framework.
bool isFrameworkName( Kind kind, std::string_view name );

/// True when the attribute has a setter, or a collection its mutators.
bool isWritable( const Attr& attr );

/// True when changes of the attribute are announced.
bool notifies( const Attr& attr );

}
