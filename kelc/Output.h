#pragma once

#include <string>
#include <vector>

namespace Kelc {

/// Makes `path` hold `text`. A file that holds it already is left untouched, so that nothing is built again; any other is
/// replaced as a whole, never seen half-written. Returns false with the reason in `why`.
bool writeIfChanged( const std::string& path, const std::string& text, std::string& why );

/// A depfile: one rule that makes `outputs` depend on `inputs`.
std::string depfile( const std::vector< std::string >& outputs, const std::vector< std::string >& inputs );

}
