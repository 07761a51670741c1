#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace Kelc {

/// The whole command: reads the arguments, compiles, writes the outputs. Returns the exit status.
int compile( const std::vector< std::string >& arguments, std::ostream& out, std::ostream& err );

}
