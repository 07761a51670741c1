#pragma once

#include <memory>
#include <plexo/RecordLayout.h>
#include <string>

namespace [[gnu::visibility("default")]] Plexo {

/// The directory of tables: the environment's PLEXO_DIR, else "/dev/shm/plexo".
std::string tableDirectory();

/// Bytes of the longest name that a table can have.
inline constexpr std::size_t longestTableName = 200;
/// Throws `Kel::RangeException` for a name that no table can have: it is empty, longer than that, begins with a dot or holds '/'
/// or NUL.
void checkTableName( const std::string& name );

/// What an upsert did.
enum class Outcome { unchanged, changed, inserted };

/// The one process that writes a table. The table outlives it: a later writer of the same name, layout and maximum finds the
/// records as this one left them, even if it died in mid-record; with another maximum they are carried over into a new file;
/// with another layout of the same type of records the table begins empty. Used from one thread. Closed in a child of fork,
/// where every write throws.
class Writer {
 public:
   /// Takes the writer's role. `initial` records have their room at once, up to `max` are given room as they come.
   /// Throws `Kel::RangeException` for a bad name or size, `RoleException` while another process has the role,
   /// `ForeignFileException` when the file of that name is no table, or one of another type of records or newer format,
   /// `TableFullException` when the file system lacks room, `SystemException` for anything else that the system refuses.
   Writer( const RecordLayout& layout, const std::string& name, U32 initial, U32 max,
           const std::string& directory = tableDirectory() );
   ~Writer();
   Writer( const Writer& ) = delete;
   Writer& operator=( const Writer& ) = delete;

   /// Inserts or overwrites the record under its key. A record that stands there byte for byte is no change. Throws
   /// `TableFullException`; `AssertionException` when the table is corrupted or the role is lost (this holds for every write).
   Outcome upsert( const void* record );
   /// False when there is no such key.
   bool erase( const void* key );
   /// Erases every record, each as `erase` does.
   void eraseAll();

   /// Direct mode: the cell in which the caller composes one record in place, zeroed. `commit` upserts it and ends the mode.
   void* direct();
   /// Throws `AssertionException` outside direct mode and for any other record than `direct` gave.
   Outcome commit( const void* record );

   /// Between the two, changes become visible as ever but readers are woken only at the end. Calls nest.
   void batchBegin() noexcept;
   void batchEnd() noexcept;

   /// Copies the record with this key (which lies elsewhere than `record`); false when there is none. Throws
   /// `CorruptionException`.
   bool find( const void* key, void* record ) const;
   /// Copies the first record at position `at` or after it and moves `at` behind it; begins at 0, false at the end. Records may
   /// be written and erased during a walk. Throws `CorruptionException`.
   bool next( U32& at, void* record ) const;
   U32 records() const noexcept;
   U32 maxRecords() const noexcept;
   const std::string& name() const noexcept;

   /// Marks the table as corrupted: every later write throws `AssertionException` with this reason.
   void corruptIs( const std::string& reason );
   /// Empty while the table is sound.
   const std::string& corruptReason() const noexcept;

 private:
   class Impl;
   std::unique_ptr< Impl > impl_;
};

/// Holds a writer's wake-ups back while it lives: one for the whole batch at its end.
class WriterBatch {
 public:
   explicit WriterBatch( Writer& writer ) noexcept : writer_( writer ) { writer_.batchBegin(); }
   ~WriterBatch() { writer_.batchEnd(); }
   WriterBatch( const WriterBatch& ) = delete;
   WriterBatch& operator=( const WriterBatch& ) = delete;

 private:
   Writer& writer_;
};

}
