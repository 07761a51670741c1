#pragma once

#include <kel/Types.h>
#include <kel/UniqueFd.h>
#include <string>
#include <vector>

namespace [[gnu::visibility("default")]] Kel {

struct RiloMessage {
   U64 sequence = 0; ///< 1 for the first message of the process, then one more each
   U64 time = 0;     ///< nanoseconds since 1970-01-01 UTC
   U32 thread = 0;   ///< the kernel's number of the thread that wrote it
   bool cut = false; ///< there was more text than fits
   std::string source;
   std::string text;
};

/// What `RiloReader::read` found: messages in ascending sequence, how many in that span are lost, where to read on.
struct RiloBatch {
   std::vector< RiloMessage > messages;
   U64 lost = 0;
   U64 next = 1;
};

/// Reads one ring file, of a living or a dead process. The file is not trusted: whatever its bytes, reading ends, stays
/// inside the file and reports only what is consistent. Nothing is mapped, so a file that is cut meanwhile does no harm.
class RiloReader {
 public:
   /// Throws `Exception` when `path` can't be opened or is no ring: the text has the path and the reason.
   explicit RiloReader( const std::string& path );

   const std::string& path() const noexcept { return path_; }
   const std::string& program() const noexcept { return program_; }
   U32 pid() const noexcept { return pid_; }
   /// When the ring was made, in nanoseconds since 1970-01-01 UTC.
   U64 openedAt() const noexcept { return openedAt_; }
   /// How many messages the ring holds.
   U32 slots() const noexcept { return slots_; }
   /// Whether that process still runs; a later process with the same number is not taken for it.
   bool alive() const;

   /// The messages from sequence `from` to the newest; 0 takes everything there is. To follow a ring, pass the last batch's
   /// `next`: a message that is being written is then waited for until the following call, and given up as lost there.
   RiloBatch read( U64 from = 0 );

 private:
   struct Scan;

   void readHeader();
   [[noreturn]] void refuse( const std::string& reason ) const;
   void scanSlots( U64 from, Scan& scan ) const;

   std::string path_;
   UniqueFd fd_;
   std::string program_;
   U32 pid_ = 0;
   U64 processStart_ = 0;
   U64 openedAt_ = 0;
   U32 slots_ = 0;
   U64 awaited_ = 0;
};

/// The folder of the rings: RILO_DIR, or /dev/shm/rilo.
std::string riloDirectory();
/// The ring files in `directory` by name, unread: some may be foreign. Empty when there is no such folder.
std::vector< std::string > riloFiles( const std::string& directory = riloDirectory() );

}
