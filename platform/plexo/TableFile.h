#pragma once

#include <plexo/Bell.h>
#include <plexo/TableCore.h>

namespace Plexo {

/// A table as its writer holds it.
struct WrittenTable {
   Kel::UniqueFd file;
   Mapping memory;
   TableCore core;
};

/// Opens or creates the table with the writer's role, and throws as the constructor of `Writer` does.
WrittenTable openForWriting( const Directory& directory, const FileNames& names, const std::string& name,
                             const RecordLayout& layout, const Format::Geometry& geometry );

/// Opens a table's file for reading; unopened, with the reason in `errno`, when it cannot.
Kel::UniqueFd openForReading( const Directory& directory, const std::string& file ) noexcept;
/// Reads the header of a file by copying, so that a file that is cut meanwhile is no fault. False when it is shorter; what is
/// missing reads as zero.
bool readHeader( int fd, Format::Header& header );

}
