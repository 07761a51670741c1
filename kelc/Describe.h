#pragma once

#include "Ast.h"

// Parts of a definition in their own spelling, with qualified type names: for reference pages, JSON and comments.
namespace Kelc {

std::string describe( const TypeRef& type );
std::string describe( const Shape& shape );
std::string describe( const Literal& literal );
/// "in 1..4094", "max 10" or nothing.
std::string describe( const Range& range );
/// "handleLearnedHost( addr : Quor::EthAddr )".
std::string describe( const Op& op );
/// "value", "entity", ...
const char* describe( Kind kind );
/// "key", "param", ...; nothing for a plain attribute.
const char* describe( Role role );
/// The type of an attribute as its definition says it.
std::string typeText( const Attr& attr );

}
