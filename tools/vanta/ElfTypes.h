#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Tool {

/// The names that a library lists in its section ".kel.type", in the order in which they stand there. The file is read, never
/// loaded, and any byte of it may be wrong. Throws `Failure`: `exitFalse` when the library has no such section, `exitNotConnected`
/// when the file can't be read as a little-endian ELF file of either word size.
std::vector< std::string > typeNamesOf( const std::string& path );

/// The names in the bytes of such a section: each ends in a NUL, and zero padding may stand between them. Throws `Failure` when
/// the last name has no end.
std::vector< std::string > typeNamesIn( std::string_view section, const std::string& path );

/// The path of the libVanta that this process has loaded, or "" when there is none.
std::string loadedVantaLibrary();

}
