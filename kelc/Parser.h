#pragma once

#include "Ast.h"
#include "Lexer.h"

namespace Kelc {

/// Reads one definition file. After a syntax error it goes on with the next declaration or member, so that one run finds them
/// all; what it returns is then incomplete but well-formed.
std::unique_ptr< Module > parse( const Source& source, Diagnostics& diagnostics );

}
