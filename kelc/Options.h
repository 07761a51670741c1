#pragma once

#include "Program.h"

#include <string>
#include <vector>

namespace Kelc {

/// What the command line asks for.
struct Options {
   std::vector< ImportDir > importDirs;
   std::string includePrefix = "Vanta";
   std::string header, source, depfile, json, markdown;
   std::string registry, index, library;
   std::vector< std::string > files;
   bool help = false;
   bool version = false;
};

/// The text of `--help`.
extern const char* const helpText;

/// Reads the command line. Returns false with one line in `why`.
bool parseOptions( const std::vector< std::string >& arguments, Options& options, std::string& why );

}
