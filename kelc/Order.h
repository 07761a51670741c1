#pragma once

#include "Ast.h"

namespace Kelc {

/// A module's types in the order in which C++ can define them: enumerations, values behind the values that they hold, entities
/// behind their bases and what they hold or refer to, machines. Where entities refer to each other in a circle, declaration
/// order decides.
std::vector< const Decl* > definitionOrder( const Module& module );

/// The headers of all other types that a module's types are made of, sorted, as they stand between the brackets of an include
/// line.
std::vector< std::string > includesOf( const Module& module );

}
