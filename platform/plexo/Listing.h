#pragma once

#include <plexo/Reader.h>
#include <vector>

namespace [[gnu::visibility("default")]] Plexo {

/// What can be said of a table's file without attaching to it.
struct TableInfo {
   std::string name;
   std::string path;
   /// `live`, `stale`, or `degraded` with the reason why no reader can use the file.
   TableState state = TableState::degraded;
   std::string reason;
   /// The last writer's process; 0 when the file does not say.
   U32 writerPid = 0;
   U32 records = 0;
   U32 maxRecords = 0;
   U32 recordBytes = 0;
   /// Memory that the file takes now.
   U64 bytesUsed = 0;
   /// Changes since the table began.
   U64 changes = 0;
   /// The record's fields, as its writer names them.
   std::string layout;
};

/// The tables in a directory, in the order of their names; none when there is no such directory. Reads headers only, by
/// copying, and disturbs nobody. Throws `SystemException` when the directory cannot be read.
std::vector< TableInfo > listTables( const std::string& directory = tableDirectory() );

}
