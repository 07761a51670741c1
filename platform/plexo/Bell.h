#pragma once

#include <plexo/File.h>
#include <plexo/Shared.h>

namespace Plexo {

/// A table's doorbell: a file of one page with a flag that says "somebody sleeps" and a futex word. Readers write only here, so
/// they need no writable page of the table.
class Bell {
 public:
   Bell() = default;
   /// Opens the bell, creating it where it is missing. Throws `SystemException`.
   static Bell forWriter( const Directory& directory, const FileNames& names );
   /// Opens the bell of a writer; a null bell when this process may not, then it has to poll.
   static Bell forReader( const Directory& directory, const FileNames& names ) noexcept;

   explicit operator bool() const noexcept { return bool( page_ ); }
   /// Wakes the sleepers if there are any: one full fence, and a system call only for the first ring after they slept.
   void ring() noexcept;
   /// Announces that the caller is about to sleep; it must look for news once more after this.
   void arm() noexcept;
   /// The futex word; it changes with each ring that found sleepers.
   const std::byte* word() const noexcept { return page_ ? page_.base() + wordOffset : nullptr; }
   /// False when somebody cut the file below its page or put another in its place: then it must be opened again.
   bool intact( const Directory& directory, const FileNames& names ) const noexcept;
   /// In a child of fork: the page is not mapped there.
   void forget() noexcept;

   /// Wakes one sleeper.
   static void wakeOne( const std::byte* word ) noexcept;

 private:
   static constexpr U32 armedOffset = 64;
   static constexpr U32 wordOffset = 128;

   Kel::UniqueFd file_;
   Mapping page_;
};

}
