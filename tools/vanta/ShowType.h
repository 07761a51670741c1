#pragma once

#include "Schema.h"

namespace Tool {

/// Prints the reference of a type for a person, wrapped to the terminal's width; where standard output is no terminal, each entry
/// stands on one line.
void showType( const Schema::Type& type );

/// Prints the schema of a type as one line of JSON, as its file has it, with the name of its module.
void showTypeAsJson( const Schema::Type& type );

}
