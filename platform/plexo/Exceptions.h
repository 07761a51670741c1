#pragma once

#include <kel/Exception.h>
#include <kel/Types.h>

/// Keyed tables in shared memory: one process writes a table, any number of processes read and follow it.
namespace [[gnu::visibility("default")]] Plexo {

using Kel::U16;
using Kel::U32;
using Kel::U64;
using Kel::U8;

/// Base of everything that the table library throws, except for range errors of its arguments (`Kel::RangeException`).
class Exception : public Kel::Exception {
 public:
   using Kel::Exception::Exception;
};

/// A lookup or an iterator step met a bad magic, offset, size or slot number. A record that its writer left half-written is
/// not a corruption: it reads as it was before.
class CorruptionException : public Exception {
 public:
   using Exception::Exception;
};

/// The table holds its maximum number of records, or the file system has no room for one more.
class TableFullException : public Exception {
 public:
   using Exception::Exception;
};

/// A write that its caller must not make: to a corrupted table, without the writer's role, a commit outside direct mode.
class AssertionException : public Exception {
 public:
   using Exception::Exception;
};

/// The writer's role of the table is taken by another process.
class RoleException : public Exception {
 public:
   using Exception::Exception;
};

/// Where the table would stand is something else, which a writer must not destroy; the text names it and says what to do.
class ForeignFileException : public Exception {
 public:
   using Exception::Exception;
};

/// The system refused something; the text names the file and the system's reason.
class SystemException : public Exception {
 public:
   using Exception::Exception;
};

}
