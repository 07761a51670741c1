#pragma once

#include "Ast.h"

#include <string>
#include <vector>

// What the compiler writes, as text. REQUIRES: the program was checked without errors.
namespace Kelc {

/// The header of a module: `<Vanta/VlanId.h>`.
std::string emitHeader( const Module& module );

/// The source of a module, compiled once into its library.
std::string emitSource( const Module& module );

/// The schema of a module as JSON.
std::string emitJson( const Module& module );

/// The reference page of a module, from its documentation comments.
std::string emitMarkdown( const Module& module );

/// The page that lists a library's modules with their types; it stands beside theirs.
std::string emitIndex( const std::string& library, const std::vector< const Module* >& modules );

/// The one source of a library that holds its modules' load order and the list of its type names.
std::string emitRegistry( const std::string& library, const std::vector< const Module* >& modules );

}
