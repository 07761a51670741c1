#pragma once

#include <kel/Types.h>
#include <string>
#include <string_view>

namespace [[gnu::visibility("default")]] Kel {

/// The trace ring of this process: its last messages, in a file in shared memory that is read without the process and
/// outlives its death, however it dies. The file is `/dev/shm/rilo/PROGRAM.PID` (another folder in the environment variable
/// RILO_DIR); docs/rilo.md has its format, `RiloReader` reads it.
///
/// Everything is safe from any thread and throws nothing; a message makes no system call once the ring is there. A child of
/// fork() gets a ring of its own with its first message.
class Rilo {
 public:
   static constexpr U32 defaultBytes = 1 << 20;
   static constexpr U32 minBytes = 1 << 12;
   static constexpr U32 maxBytes = 1 << 30;
   /// A message's source and text together; what is longer is cut, and marked so.
   static constexpr U32 maxMessageBytes = 224;
   /// As many rings of dead processes of one program stay when another of that program opens its ring.
   static constexpr U32 deadRingsKept = 8;

   /// Makes the ring; without this call the first message does, under the executable's name. `program` names it: up to 63
   /// bytes, with `/` and control bytes replaced by `_`. `bytes`, for messages of 256 bytes each, is rounded down to a power
   /// of two and clamped to `minBytes`..`maxBytes`. Returns whether there is a ring now; one that exists already stays as it
   /// is.
   static bool open( std::string_view program, U32 bytes = defaultBytes ) noexcept;
   static void message( std::string_view text ) noexcept { message( {}, text ); }
   /// `source` is the component that speaks, such as "FdbStatusSm".
   static void message( std::string_view source, std::string_view text ) noexcept;

   /// The ring's file, or empty.
   static std::string path() noexcept;
   /// Messages that went nowhere: no ring, or its place was being written.
   static U64 dropped() noexcept;
   /// Why there is no ring; empty when there is one or none was asked for.
   static std::string problem() noexcept;
};

}
