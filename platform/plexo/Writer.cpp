#include <cstdlib>
#include <plexo/Fork.h>
#include <plexo/TableFile.h>
#include <plexo/Writer.h>

namespace Plexo {

std::string tableDirectory() {
   const char* set = ::secure_getenv( "PLEXO_DIR" );
   return set && *set ? set : "/dev/shm/plexo";
}

class Writer::Impl : public ForkAware {
 public:
   Impl( const RecordLayout& layout, const std::string& name, U32 initial, U32 max, const std::string& directory )
         : Impl( layout, name, Format::Geometry::of( layout, initial, max ), FileNames( name ),
                 Directory( directory, Directory::Access::write ) ) {}
   ~Impl() {
      if( !bell_ ) return;
      unlock( table_.file.get() );
      bell_.ring();                                                     // whoever sleeps learns at once that nobody writes
   }

   TableCore& core() {
      if( lost_ ) throw AssertionException( "write to table " + name_ + " in a child of its writer's process" );
      return table_.core;
   }
   const TableCore& core() const {
      if( lost_ ) throw AssertionException( "use of table " + name_ + "'s writer in a child of its process" );
      return table_.core;
   }
   void changed() noexcept {
      if( batch_ == 0 && bell_ ) bell_.ring();
   }
   void batchBegin() noexcept { ++batch_; }
   void batchEnd() noexcept {
      --batch_;
      changed();
   }
   void* direct() {
      core();
      if( composing_ ) throw AssertionException( "table " + name_ + " is in direct mode already" );
      composing_ = true;
      cell_.assign( cell_.size(), {} );
      return cell_.data();
   }
   Outcome commit( const void* record ) {
      if( !composing_ ) throw AssertionException( "commit to table " + name_ + " outside direct mode" );
      if( record != cell_.data() )
         throw AssertionException( "commit to table " + name_ + " of a record that is not its direct one" );
      composing_ = false;
      const Outcome outcome = core().upsert( record );
      changed();
      return outcome;
   }
   /// For what it knows itself; its shared memory may be gone.
   const TableCore& own() const noexcept { return table_.core; }
   const std::string& name() const noexcept { return name_; }

 private:
   Impl( const RecordLayout& layout, const std::string& name, const Format::Geometry& geometry, const FileNames& names,
         const Directory& directory )
         : name_( name ), bell_( Bell::forWriter( directory, names ) ),
           table_( openForWriting( directory, names, name_, layout, geometry ) ), cell_( layout.recordBytes ) {
      bell_.ring();
   }

   /// The lock lasts as long as any copy of its descriptor.
   void forked() noexcept override {
      lost_ = true;
      table_.file.reset();
      table_.memory.forget();
      bell_.forget();
   }

   std::string name_;
   Bell bell_;
   WrittenTable table_;
   std::vector< std::byte > cell_;
   bool composing_ = false;
   bool lost_ = false;
   U32 batch_ = 0;
};

Writer::Writer( const RecordLayout& layout, const std::string& name, U32 initial, U32 max, const std::string& directory )
      : impl_( std::make_unique< Impl >( layout, name, initial, max, directory ) ) {}

Writer::~Writer() = default;

Outcome Writer::upsert( const void* record ) {
   const Outcome outcome = impl_->core().upsert( record );
   if( outcome != Outcome::unchanged ) impl_->changed();
   return outcome;
}

bool Writer::erase( const void* key ) {
   const bool erased = impl_->core().erase( key );
   if( erased ) impl_->changed();
   return erased;
}

void Writer::eraseAll() {
   impl_->core().eraseAll();
   impl_->changed();
}

void* Writer::direct() { return impl_->direct(); }
Outcome Writer::commit( const void* record ) { return impl_->commit( record ); }
void Writer::batchBegin() noexcept { impl_->batchBegin(); }
void Writer::batchEnd() noexcept { impl_->batchEnd(); }
bool Writer::find( const void* key, void* record ) const { return std::as_const( *impl_ ).core().find( key, record ); }
bool Writer::next( U32& at, void* record ) const { return std::as_const( *impl_ ).core().next( at, record ); }
U32 Writer::records() const noexcept { return impl_->own().records(); }
U32 Writer::maxRecords() const noexcept { return impl_->own().geometry().maxRecords; }
const std::string& Writer::name() const noexcept { return impl_->name(); }
void Writer::corruptIs( const std::string& reason ) { impl_->core().corruptIs( reason ); }
const std::string& Writer::corruptReason() const noexcept { return impl_->own().corruptReason(); }

}
