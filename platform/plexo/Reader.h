#pragma once

#include <chrono>
#include <memory>
#include <plexo/Writer.h>

namespace Kel {
class Activity;
}

namespace [[gnu::visibility("default")]] Plexo {

/// What a reader knows of its table.
enum class TableState : U32 {
   connecting,                                                          // there is no table of that name yet
   live,                                                                // a process writes it
   stale,                                                               // its writer is gone; the records are its last ones
   degraded                                                             // it cannot be used or is corrupted; see the reason
};

/// "connecting", "live", "stale" or "degraded".
const char* stringValue( TableState state ) noexcept;

/// Is told what happens to a table, from within `Reader::dispatch`. It may use the reader and may destroy it.
class TableObserver {
 public:
   /// This key was inserted, changed or erased; a lookup gives its newest record.
   virtual void onKey( const void* key ) = 0;
   /// All keys have been compared with what was announced before: after the first announcement of a table's records and
   /// whenever changes came faster than they were read, or the table began anew.
   virtual void onCollection() = 0;
   virtual void onState( TableState state, const std::string& reason ) = 0;

 protected:
   ~TableObserver() = default;
};

/// How a reader looks at the table.
enum class ReaderRole {
   reader,                                                              // always the newest records, straight from the table
   shadow                                                               // a private copy, brought up to date by `dispatch`
};

/// One process's view of a table that another (or the same) process writes. It attaches by name before, during or after the
/// writer's life, follows the table to a new file, and never writes a byte of it. Used from one thread. In a child of fork it
/// goes on reading but is told nothing more.
class Reader {
 public:
   /// Throws `Kel::RangeException` for a bad name. That there is no table, or a foreign one, is a state and no error.
   Reader( const RecordLayout& layout, const std::string& name, ReaderRole role = ReaderRole::reader,
           const std::string& directory = tableDirectory() );
   ~Reader();
   Reader( const Reader& ) = delete;
   Reader& operator=( const Reader& ) = delete;

   TableState state() const noexcept;
   /// Why the table is degraded, else empty.
   const std::string& reason() const noexcept;
   /// Null for none; stays the caller's. Every record is announced to a new observer. It is told at once when the table can't be
   /// followed.
   void observerIs( TableObserver* observer );

   /// Copies the record with this key, which lies elsewhere than `record`; false when there is none (always, while there is no
   /// table). Throws `CorruptionException`.
   bool find( const void* key, void* record ) const;
   /// `find` for `count` keys that stand one after another, with their memory latencies overlapped. `found[ i ]` tells whether
   /// record i is there. Returns how many are. Throws `CorruptionException`.
   U32 findMany( const void* keys, U32 count, void* records, bool* found ) const;
   /// Copies the first record at position `at` or after it and moves `at` behind it; begins at 0, false at the end. A record
   /// that lives throughout is met exactly once whatever the writer does. Throws `CorruptionException`.
   bool next( U32& at, void* record ) const;
   U32 records() const noexcept;
   const std::string& name() const noexcept;

   /// Readable whenever `dispatch` has something to do; -1 in a child of fork.
   int fd() const noexcept;
   /// Attaches if need be, brings the state up to date and tells the observer about changes for about `budget`. True when it
   /// left some, and then `fd` is readable again.
   bool dispatch( std::chrono::nanoseconds budget = std::chrono::milliseconds( 10 ) );

   /// Has the activity dispatch this reader as long as both live.
   void attach( Kel::Activity& activity );

   /// Records that the table is corrupted: the state is degraded with this reason until another writer has taken over.
   void corruptIs( const std::string& reason );

 private:
   class Impl;
   std::unique_ptr< Impl > impl_;
};

}
