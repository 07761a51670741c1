#include <cerrno>
#include <cstring>
#include <kel/Activity.h>
#include <optional>
#include <plexo/BellThread.h>
#include <plexo/ChangeFeed.h>
#include <plexo/Fork.h>
#include <plexo/Reader.h>
#include <plexo/TableFile.h>
#include <sys/eventfd.h>
#include <unistd.h>

// A reader lives on one eventfd that the process's helper thread writes to: when the doorbell rings, and on a slow tick. What
// happens then is decided in `dispatch`: whether the name still leads to the mapped file and the file still has its size,
// whether somebody holds the writer's lock, then the journal. Before it returns with nothing left, it arms the doorbell and
// looks at the journal once more.
//
// The mapping is only replaced by one that has been checked, and only given up when the file has been cut. A file that is cut
// between that check and a load ends the process (SIGBUS); only the table's owner can cut it, and no writer of this library
// ever does.

namespace Plexo {

namespace {

using Clock = std::chrono::steady_clock;

constexpr U32 tickConnecting = 50;
constexpr U32 tickAttached = 200;
constexpr U32 tickPolling = 5;
constexpr auto lookPeriod = std::chrono::milliseconds( 100 );
constexpr U32 stepsPerClock = 32;
constexpr auto activityBudget = std::chrono::milliseconds( 2 );

const char forkedText[] = "this process is a child of the one that attached; attach again";

}

const char* stringValue( TableState state ) noexcept {
   switch( state ) {
      case TableState::connecting: return "connecting";
      case TableState::live: return "live";
      case TableState::stale: return "stale";
      case TableState::degraded: break;
   }
   return "degraded";
}

class Reader::Impl : public ForkAware {
 public:
   Impl( const RecordLayout& layout, const std::string& name, ReaderRole role, const std::string& directory );
   ~Impl() {
      if( dispatching_ ) dispatching_->destroyed = true;
   }

   const TableView& view() const noexcept {
      return role_ == ReaderRole::shadow ? static_cast< const TableView& >( shadow_ ) : view_;
   }
   TableState state() const noexcept { return state_; }
   const std::string& reason() const noexcept { return reason_; }
   const std::string& name() const noexcept { return name_; }
   int fd() const noexcept { return event_.get(); }
   void observerIs( TableObserver* observer );
   void corruptIs( const std::string& reason );
   bool dispatch( std::chrono::nanoseconds budget );
   void attach( Kel::Activity& activity );

 private:
   /// Survives the reader when an observer destroys it in a callback.
   struct Dispatching {
      explicit Dispatching( Impl& reader ) : self( reader ) { self.dispatching_ = this; }
      ~Dispatching() {
         if( !destroyed ) self.dispatching_ = nullptr;
      }
      Impl& self;
      bool destroyed = false;
   };

   void forked() noexcept override;
   bool cut();
   void look();
   void attach( const Directory& directory );
   std::string refusal( const Directory& directory, const Kel::UniqueFd& file, FileIdentity& self, Format::Header& header );
   void tableIs( Kel::UniqueFd file, Mapping memory, const FileIdentity& identity, const Format::Header& header );
   void shadowIs( const Format::Header& header );
   void detach( const std::string& reason );
   void writerCheck();
   void bellCheck( const Directory& directory );
   void settle();
   void stateIs( TableState state, const std::string& reason );
   bool following() const noexcept { return observer_ || role_ == ReaderRole::shadow; }
   void feedCheck();
   bool deliver( Clock::time_point until, const Dispatching& here );
   ChangeFeed::Step step();
   void shadowUpdate( const void* key );
   void signal() noexcept;

   const RecordLayout& layout_;
   std::string name_;
   FileNames names_;
   ReaderRole role_;
   std::string directory_;
   TableObserver* observer_ = nullptr;

   Kel::UniqueFd event_;
   Bell bell_;
   std::optional< BellWatch > watch_;                                   // goes before what it watches
   Kel::Activity::Watch following_;
   Clock::time_point looked_;
   bool forked_ = false;

   Kel::UniqueFd file_;
   FileIdentity identity_;
   Mapping memory_;
   TableView view_;
   U64 writerInstance_ = 0;
   Mapping shadowMemory_;
   TableCore shadow_;

   std::optional< ChangeFeed > feed_;
   bool feedFails_ = false;
   bool feedIsOld_ = false;
   U32 tick_ = 0;
   std::vector< std::byte > key_;
   std::vector< std::byte > record_;
   std::string corrupted_;
   std::string refused_;
   TableState state_ = TableState::connecting;
   std::string reason_;
   Dispatching* dispatching_ = nullptr;
};

Reader::Impl::Impl( const RecordLayout& layout, const std::string& name, ReaderRole role, const std::string& directory )
      : layout_( layout ), name_( name ), names_( name ), role_( role ), directory_( directory ),
        event_( ::eventfd( 0, EFD_CLOEXEC | EFD_NONBLOCK ) ), key_( layout.keyBytes ), record_( layout.recordBytes ) {
   layout.check();
   if( !event_ ) systemFailure( "cannot make an eventfd for the table", name_ );
   watch_.emplace( event_.get() );
   look();
   feedCheck();
   settle();
}

void Reader::Impl::forked() noexcept {
   forked_ = true;
   event_.reset();
   bell_.forget();
   if( watch_ ) watch_->forget();
}

void Reader::Impl::signal() noexcept {
   const U64 one = 1;
   static_cast< void >( ::write( event_.get(), &one, sizeof one ) == sizeof one );
}

// --- attachment ------------------------------------------------------------------------------------------------------------

/// True when the mapped file lost bytes; then the mapping is given up.
bool Reader::Impl::cut() {
   FileIdentity now;
   if( !view_.attached() || !FileIdentity::of( file_.get(), now ) || now.bytes >= view_.geometry().fileBytes ) return false;
   detach( "the table's file was cut to " + std::to_string( now.bytes ) + " bytes" );
   return true;
}

/// Finds out what the table's name leads to now.
void Reader::Impl::look() {
   looked_ = Clock::now();
   refused_.clear();
   const Directory directory = Directory::tryOpen( directory_ );
   if( directory.fd() < 0 ) {
      if( errno != ENOENT ) refused_ = "cannot open the table directory " + directory_ + ": " + std::strerror( errno );
      return;
   }
   if( cut() ) return;
   FileIdentity now;
   if( !FileIdentity::of( directory.fd(), names_.table, now ) ) {
      if( errno != ENOENT ) refused_ = "cannot examine " + directory.of( names_.table ) + ": " + std::strerror( errno );
      return;
   }
   if( !view_.attached() || !now.sameFile( identity_ ) ) attach( directory );
   if( !view_.attached() ) return;
   writerCheck();
   bellCheck( directory );
}

void Reader::Impl::attach( const Directory& directory ) {
   Kel::UniqueFd file = openForReading( directory, names_.table );
   if( !file ) {
      if( errno != ENOENT ) refused_ = "cannot open " + directory.of( names_.table ) + ": " + std::strerror( errno );
      return;
   }
   FileIdentity self;
   Format::Header header;
   const std::string reason = refusal( directory, file, self, header );
   if( !reason.empty() ) {
      refused_ = directory.of( names_.table ) + " is refused: " + reason;
      return;
   }
   Mapping memory = Mapping::ofFile( file.get(), header.geometry.fileBytes, Mapping::Access::read );
   if( !memory ) {
      refused_ = "cannot map " + directory.of( names_.table ) + ": " + std::strerror( errno );
      return;
   }
   try {
      tableIs( std::move( file ), std::move( memory ), self, header );
   } catch( const Kel::Exception& e ) {
      refused_ = directory.of( names_.table ) + " cannot be copied: " + e.what();
   }
}

std::string Reader::Impl::refusal( const Directory& directory, const Kel::UniqueFd& file, FileIdentity& self,
                                   Format::Header& header ) {
   if( !FileIdentity::of( file.get(), self ) || !self.regular ) return "it is no regular file";
   if( !directory.trusts( self ) )
      return "it belongs to user " + std::to_string( self.owner ) + ", who does not own the directory";
   if( !readHeader( file.get(), header ) ) return "it is shorter than a table's header";
   const std::string fault = header.fault( self.bytes );
   return fault.empty() ? header.mismatch( layout_ ) : fault;
}

void Reader::Impl::tableIs( Kel::UniqueFd file, Mapping memory, const FileIdentity& identity, const Format::Header& header ) {
   TableView view( name_, memory.base(), header.geometry, layout_, header.hashSeed );
   if( role_ == ReaderRole::shadow ) shadowIs( header );
   view_ = std::move( view );
   memory_ = std::move( memory );
   file_ = std::move( file );
   identity_ = identity;
   writerInstance_ = view_.writerInstance();
   corrupted_.clear();
   feedIsOld_ = true;
   feedFails_ = false;
}

/// The copy keeps its records when the table moves to a new file; it is sized for the old and the new ones together.
void Reader::Impl::shadowIs( const Format::Header& header ) {
   const U64 wanted = U64( header.geometry.maxRecords ) * 2;
   const auto geometry = Format::Geometry::of( layout_, 1, U32( std::min< U64 >( wanted, Format::maxRecords ) ) );
   if( shadow_.attached() && shadow_.geometry() == geometry ) return;
   Mapping memory = Mapping::anonymous( geometry.fileBytes );
   TableCore core = TableCore::format( name_, memory.base(), geometry, layout_, 0, U32( randomNumber() ), []( U64, U64 ) {} );
   if( shadow_.attached() ) {
      for( U32 at = 0; shadow_.next( at, record_.data() ); ) core.upsert( record_.data() );
   }
   shadow_ = std::move( core );
   shadowMemory_ = std::move( memory );
}

void Reader::Impl::detach( const std::string& reason ) {
   refused_ = reason;
   if( feed_ ) feed_->viewIs( nullptr );
   view_ = TableView();
   memory_.reset();
   file_.reset();
}

/// A corruption ends with the writer that has taken the table over; what could not be read before is then told again.
void Reader::Impl::writerCheck() {
   const U64 instance = view_.writerInstance();
   if( instance == writerInstance_ ) return;
   writerInstance_ = instance;
   feedIsOld_ = feedIsOld_ || !corrupted_.empty();
   feedFails_ = false;
   corrupted_.clear();
}

void Reader::Impl::bellCheck( const Directory& directory ) {
   if( bell_ && bell_.intact( directory, names_ ) ) return;
   watch_->wordIs( nullptr );
   bell_ = Bell::forReader( directory, names_ );
   watch_->wordIs( bell_.word() );
}

/// Works the state out, tells about it, and sets the tick.
void Reader::Impl::settle() {
   const U32 tick = !view_.attached() ? tickConnecting : bell_ ? tickAttached : tickPolling;
   if( tick != tick_ ) watch_->tickIs( tick_ = tick );
   if( !refused_.empty() ) return stateIs( TableState::degraded, refused_ );
   if( !view_.attached() ) return stateIs( TableState::connecting, {} );
   if( !corrupted_.empty() ) return stateIs( TableState::degraded, corrupted_ );
   stateIs( lockedByWriter( file_.get() ) ? TableState::live : TableState::stale, {} );
}

void Reader::Impl::stateIs( TableState state, const std::string& reason ) {
   if( state == state_ && reason == reason_ ) return;
   state_ = state;
   reason_ = reason;
   if( observer_ ) observer_->onState( state_, reason );
}

void Reader::Impl::corruptIs( const std::string& reason ) {
   if( corrupted_.empty() ) corrupted_ = reason;
   settle();
}

// --- changes ---------------------------------------------------------------------------------------------------------------

void Reader::Impl::observerIs( TableObserver* observer ) {
   observer_ = observer;
   if( !observer_ || forked_ ) return;
   feedIsOld_ = true;
   feedCheck();
   signal();
   settle();
}

/// A feed for whoever follows the table that is attached.
void Reader::Impl::feedCheck() {
   if( !following() || !view_.attached() || feedFails_ ) return;
   if( feed_ && !feedIsOld_ ) return;
   try {
      if( !feed_ ) feed_.emplace( layout_ );
      feedIsOld_ = false;
      feed_->viewIs( &view_ );
   } catch( const CorruptionException& e ) {
      feedFails_ = true;
      corrupted_ = e.what();
   }
}

bool Reader::Impl::dispatch( std::chrono::nanoseconds budget ) {
   if( forked_ ) {
      stateIs( TableState::degraded, forkedText );
      return false;
   }
   if( dispatching_ ) return false;                                     // called by an observer
   const Dispatching here( *this );
   U64 count;
   static_cast< void >( ::read( event_.get(), &count, sizeof count ) );
   const auto start = Clock::now();
   bool more = false;
   // Changes first: whether the writer lives can wait until they are told. Of a corrupted table it can't: they may be another's.
   const bool changes = !cut() && corrupted_.empty() && feed_ && !feedFails_ && feed_->pending();
   if( changes ) more = deliver( start + budget, here );
   if( here.destroyed ) return false;
   if( !changes || start - looked_ > lookPeriod ) {
      look();
      feedCheck();
      settle();
      if( here.destroyed ) return false;
      if( !changes ) more = deliver( start + budget, here );
      if( here.destroyed ) return false;
   }
   if( !more && bell_ && feed_ && !feedFails_ ) {
      bell_.arm();
      more = feed_->pending();
   }
   if( more ) signal();
   return more;
}

void Reader::Impl::attach( Kel::Activity& activity ) {
   following_.close();
   following_ = activity.watch( event_.get(), Kel::FdEvents::reading(),
                                [ this ]( Kel::FdEvents ) { dispatch( activityBudget ); } );
}

/// True when there is more to tell than the time allowed.
bool Reader::Impl::deliver( Clock::time_point until, const Dispatching& here ) {
   for( U32 steps = 1; feed_ && !feedFails_; ++steps ) {
      const ChangeFeed::Step now = step();
      if( here.destroyed || now == ChangeFeed::Step::none ) return false;
      if( observer_ && now == ChangeFeed::Step::key ) observer_->onKey( key_.data() );
      else if( observer_ && now == ChangeFeed::Step::collection ) observer_->onCollection();
      if( here.destroyed ) return false;
      if( steps % stepsPerClock == 0 && Clock::now() >= until ) return feed_ && !feedFails_ && feed_->pending();
   }
   return false;
}

ChangeFeed::Step Reader::Impl::step() {
   try {
      const ChangeFeed::Step now = feed_->next( key_.data() );
      if( now == ChangeFeed::Step::key && role_ == ReaderRole::shadow ) shadowUpdate( key_.data() );
      return now;
   } catch( const Plexo::Exception& e ) {
      feedFails_ = true;
      corruptIs( e.what() );
      return ChangeFeed::Step::none;
   }
}

void Reader::Impl::shadowUpdate( const void* key ) {
   if( view_.find( key, record_.data() ) ) shadow_.upsert( record_.data() );
   else shadow_.erase( key );
}

// --- Reader ----------------------------------------------------------------------------------------------------------------

Reader::Reader( const RecordLayout& layout, const std::string& name, ReaderRole role, const std::string& directory )
      : impl_( std::make_unique< Impl >( layout, name, role, directory ) ) {}

Reader::~Reader() = default;

TableState Reader::state() const noexcept { return impl_->state(); }
const std::string& Reader::reason() const noexcept { return impl_->reason(); }
void Reader::observerIs( TableObserver* observer ) { impl_->observerIs( observer ); }

bool Reader::find( const void* key, void* record ) const {
   return impl_->view().attached() && impl_->view().find( key, record );
}

U32 Reader::findMany( const void* keys, U32 count, void* records, bool* found ) const {
   if( impl_->view().attached() ) return impl_->view().findMany( keys, count, records, found );
   std::fill_n( found, count, false );
   return 0;
}

bool Reader::next( U32& at, void* record ) const { return impl_->view().attached() && impl_->view().next( at, record ); }
U32 Reader::records() const noexcept { return impl_->view().attached() ? impl_->view().liveRecords() : 0; }
const std::string& Reader::name() const noexcept { return impl_->name(); }
int Reader::fd() const noexcept { return impl_->fd(); }
bool Reader::dispatch( std::chrono::nanoseconds budget ) { return impl_->dispatch( budget ); }
void Reader::attach( Kel::Activity& activity ) { impl_->attach( activity ); }
void Reader::corruptIs( const std::string& reason ) { impl_->corruptIs( reason ); }

}
