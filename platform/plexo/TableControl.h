#pragma once

#include <functional>
#include <kel/Entity.h>
#include <plexo/Reader.h>
#include <vector>

namespace [[gnu::visibility("default")]] Plexo {

/// What a process is to a table.
enum class TableMode : U32 {
   none,                                                                // not set up
   writer,                                                              // the one that changes it
   reader,                                                              // reads and follows it
   shadow                                                               // a reader that works on its own copy
};

/// How a table attribute is set up.
struct TableSetup {
   /// Under which the processes find each other, in `directory`.
   std::string name;
   TableMode mode = TableMode::reader;
   /// Sizes in records, for the writer: given room at once, and at most. At least 1.
   U32 initialRecords = 1024;
   U32 maxRecords = 1u << 20;
   std::string directory = tableDirectory();
};

/// The control handle of an entity's table attribute. Until it is set up, the table reads as empty and refuses writes.
class TableControl : private TableObserver {
 public:
   TableControl( const TableControl& ) = delete;
   TableControl& operator=( const TableControl& ) = delete;

   /// Joins the table as writer or reader. Throws `Kel::InternalException` when it is set up already, `Kel::RangeException` for a
   /// size of 0, a bad name or mode; for a writer whatever the constructor of `Writer` throws. A reader may come before the
   /// writer. A writer that finds records announces the attribute as a whole at once, a reader all of them when it is dispatched.
   void setUp( const TableSetup& setup );
   /// Leaves the table, which stays as it is.
   void close();

   TableMode mode() const noexcept { return mode_; }
   /// Empty before it is set up.
   const std::string& name() const noexcept { return name_; }
   /// `connecting` before it is set up; a writer's table is `live` unless it is corrupted.
   TableState state() const noexcept;
   /// Why it is degraded, else empty.
   const std::string& reason() const noexcept;
   U32 records() const noexcept;
   /// Called with each new state of a reader's table, and when a corruption is detected. One at a time; null for none.
   void stateHandlerIs( std::function< void( TableState, const std::string& ) > handler ) {
      stateHandler_ = std::move( handler );
   }

   /// The hook for a corruption that somebody met in a look-up or a walk: counts it, traces it at level 0 of "Plexo" (the first
   /// one in each state of the table), records the state as degraded and tells the corruption handler. Writes throw
   /// `AssertionException` from then on.
   void corruptionDetected( const std::string& text );
   U32 corruptionsDetected() const noexcept { return corruptions_; }
   void corruptionHandlerIs( std::function< void( const std::string& ) > handler ) { corruptionHandler_ = std::move( handler ); }

   /// A reader's descriptor and work, see `Reader`; -1 and nothing for the others.
   int fd() const noexcept { return reader_ ? reader_->fd() : -1; }
   bool dispatch( std::chrono::nanoseconds budget = std::chrono::milliseconds( 10 ) ) {
      return reader_ && reader_->dispatch( budget );
   }
   /// Has the activity dispatch this reader until it is closed. Does nothing for a writer.
   void attach( Kel::Activity& activity ) {
      if( reader_ ) reader_->attach( activity );
   }

   /// The writer, to hold a `WriterBatch` on; null in the other modes.
   Writer* writer() noexcept { return writer_.get(); }

 protected:
   TableControl( Kel::Entity& owner, U16 attr, U32 ( *hash )( const void* key ) );
   ~TableControl();

   Kel::Entity& owner() const noexcept { return owner_; }
   U16 attr() const noexcept { return attr_; }
   /// The writer. Throws `AssertionException` in the other modes.
   Writer& writing() const;
   /// What a write does when it meets a corruption: marks the table and throws `AssertionException`.
   [[noreturn]] void writeRefused( const CorruptionException& corruption ) const;
   bool findRecord( const void* key, void* record ) const;
   bool nextRecord( U32& at, void* record ) const;
   /// Zeroes the bytes of a record that belong to no attribute.
   void tidy( void* record ) const noexcept;
   const void* keyOf( const void* record ) const noexcept {
      return static_cast< const std::byte* >( record ) + layout_.keyOffset;
   }

 private:
   /// A number in a record whose type does not allow every value.
   struct Bounded {
      U32 offset;
      const Kel::Type* type;
      std::string name;
   };

   void describe();
   void describe( const Kel::Type& type, U32 offset, const std::string& prefix );
   void check( const void* record ) const;
   [[noreturn]] void refuseValue( const Bounded& field ) const;
   void onState( TableState state, const std::string& reason ) override;

   Kel::Entity& owner_;
   U16 attr_;
   RecordLayout layout_;
   std::string text_;
   std::vector< Bounded > bounded_;
   /// 0xff where a record has an attribute; empty when it has one everywhere.
   std::vector< U8 > mask_;
   TableMode mode_ = TableMode::none;
   std::string name_;
   std::unique_ptr< Writer > writer_;
   std::unique_ptr< Reader > reader_;
   U32 corruptions_ = 0;
   bool corruptionTraced_ = false;
   std::function< void( TableState, const std::string& ) > stateHandler_;
   std::function< void( const std::string& ) > corruptionHandler_;
};

}
