#include <kel/Trace.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <kel/Exception.h>
#include <mutex>
#include <sstream>
#include <unistd.h>
#include <utility>
#include <vector>

// One registry holds the handles, the settings and the destinations. It is made on first use and never destroyed, so that a
// line traced by the last exit handler still finds it. A handle's storage stays too: its "destruction" takes its levels away
// for good. Handles are destroyed newest first, each by an exit handler of its own, which is the order in which exit handlers
// run.
//
// A line is delivered without the registry's lock, over a snapshot of the destinations. Each destination has a lock of its
// own, recursive, so that a callback may close its own destination and closing waits for a call in another thread. A line
// that is traced while the same thread delivers one is dropped: a destination that traces must not feed itself.

namespace Kel {

class TraceDestination::Sink {
 public:
   virtual ~Sink() = default;

   void deliver( const TraceLine& line ) {
      std::lock_guard lock( mutex_ );
      if( open_ ) write( line );
   }
   void close() noexcept {
      std::lock_guard lock( mutex_ );
      if( std::exchange( open_, false ) ) closed();
   }

 private:
   virtual void write( const TraceLine& line ) = 0;
   virtual void closed() noexcept {}

   std::recursive_mutex mutex_;
   bool open_ = true;
};

namespace {

using Sinks = std::vector< std::shared_ptr< TraceDestination::Sink > >;

struct Setting {
   std::string pattern;
   TraceLevels levels;
};

/// Whether `text` matches `pattern`; on a mismatch the last `*` takes one character more, so the time is bounded by the
/// product of the lengths.
bool matches( std::string_view pattern, std::string_view text ) noexcept {
   std::size_t p = 0, t = 0, star = std::string_view::npos, resume = 0;
   while( t < text.size() ) {
      if( p < pattern.size() && pattern[ p ] == '*' ) {
         star = p++;
         resume = t;
      } else if( p < pattern.size() && ( pattern[ p ] == '?' || pattern[ p ] == text[ t ] ) ) {
         ++p;
         ++t;
      } else if( star != std::string_view::npos ) {
         p = star + 1;
         t = ++resume;
      } else {
         return false;
      }
   }
   return pattern.find_first_not_of( '*', p ) == std::string_view::npos;
}

void writeAll( int fd, std::string_view text ) noexcept {
   while( !text.empty() ) {
      const ssize_t n = ::write( fd, text.data(), text.size() );
      if( n > 0 ) text.remove_prefix( static_cast< std::size_t >( n ) );
      else if( n == 0 || errno != EINTR ) return;
   }
}

class FileSink : public TraceDestination::Sink {
 public:
   explicit FileSink( int fd ) : fd_( fd ) {}
   ~FileSink() override { closed(); }

 private:
   void write( const TraceLine& line ) override { writeAll( fd_, line.str() + '\n' ); }
   void closed() noexcept override {
      if( fd_ >= 0 ) ::close( std::exchange( fd_, -1 ) );
   }

   int fd_;
};

class CallbackSink : public TraceDestination::Sink {
 public:
   explicit CallbackSink( std::function< void( const TraceLine& ) > callback ) : callback_( std::move( callback ) ) {}

 private:
   void write( const TraceLine& line ) override { callback_( line ); }

   std::function< void( const TraceLine& ) > callback_;
};

}

struct TraceRegistry {
   static TraceRegistry& instance() {
      static TraceRegistry& registry = *new TraceRegistry;
      return registry;
   }

   TraceLevels levelsFor( std::string_view name ) const {
      TraceLevels levels = TraceLevels::only( 0 );
      for( const Setting& s : settings )
         if( matches( s.pattern, name ) ) levels = s.levels;
      return levels;
   }
   void apply() noexcept {
      for( auto& h : handles ) set( *h, levelsFor( h->name() ) );
   }
   static void set( TraceHandle& handle, TraceLevels levels ) noexcept {
      if( !handle.destroyed_ ) handle.bits_.store( levels.bits(), std::memory_order_relaxed );
   }
   TraceHandle& add( std::string_view name ) {
      handles.push_back( std::unique_ptr< TraceHandle >( new TraceHandle( name ) ) );
      set( *handles.back(), levelsFor( name ) );
      std::atexit( destroyNewest );
      return *handles.back();
   }
   static void destroyNewest() {
      auto& self = instance();
      std::lock_guard lock( self.mutex );
      for( auto h = self.handles.rbegin(); h != self.handles.rend(); ++h ) {
         if( ( *h )->destroyed_ ) continue;
         set( **h, TraceLevels::none() );
         ( *h )->destroyed_ = true;
         return;
      }
   }
   void settingIs( Setting s ) {
      std::erase_if( settings, [ & ]( const Setting& old ) { return s.pattern == "*" || old.pattern == s.pattern; } );
      settings.push_back( std::move( s ) );
   }
   std::shared_ptr< const Sinks > currentSinks() {
      std::lock_guard lock( mutex );
      return sinks;
   }
   TraceDestination destination( std::shared_ptr< TraceDestination::Sink > sink ) {
      std::lock_guard lock( mutex );
      auto next = std::make_shared< Sinks >( *sinks );
      next->push_back( sink );
      sinks = std::move( next );
      return TraceDestination( std::move( sink ) );
   }
   void forget( const std::shared_ptr< TraceDestination::Sink >& sink ) {
      std::lock_guard lock( mutex );
      auto next = std::make_shared< Sinks >( *sinks );
      std::erase( *next, sink );
      sinks = std::move( next );
   }

   std::mutex mutex;
   std::vector< std::unique_ptr< TraceHandle > > handles;
   std::vector< Setting > settings;
   std::shared_ptr< const Sinks > sinks = std::make_shared< Sinks >();
   std::atomic< bool > standardError{ true };
};

// Handles and settings.

TraceLevels TraceHandle::levels() const noexcept {
   TraceLevels levels;
   for( U32 level = 0; level < TraceLevels::count; ++level )
      if( enabled( level ) ) levels = levels | TraceLevels::only( level );
   return levels;
}

void TraceHandle::levelsIs( TraceLevels levels ) noexcept {
   std::lock_guard lock( TraceRegistry::instance().mutex );
   TraceRegistry::set( *this, levels );
}

TraceHandle& traceHandle( std::string_view name ) {
   auto& registry = TraceRegistry::instance();
   std::lock_guard lock( registry.mutex );
   for( auto& h : registry.handles )
      if( h->name() == name ) return *h;
   return registry.add( name );
}

void traceLevelIs( std::string_view pattern, TraceLevels levels ) {
   auto& registry = TraceRegistry::instance();
   std::lock_guard lock( registry.mutex );
   registry.settingIs( { std::string( pattern ), levels } );
   registry.apply();
}

void traceSettingIs( std::string_view setting ) {
   std::vector< Setting > parsed;
   for( std::string_view rest = setting; !setting.empty(); ) {
      const std::size_t comma = rest.find( ',' );
      const std::string_view item = rest.substr( 0, comma );
      const std::size_t slash = item.find( '/' );
      const std::string_view pattern = item.substr( 0, slash );
      if( pattern.empty() )
         throw RangeException( "trace setting \"" + std::string( setting ) + "\" has no facility at column " +
                               std::to_string( item.data() - setting.data() ) +
                               ": expected FACILITY/LEVELS joined by commas" );
      const bool bare = slash == std::string_view::npos;
      parsed.push_back(
         { std::string( pattern ), bare ? TraceLevels::all() : TraceLevels::parse( item.substr( slash + 1 ) ) } );
      if( comma == std::string_view::npos ) break;
      rest.remove_prefix( comma + 1 );
   }
   auto& registry = TraceRegistry::instance();
   std::lock_guard lock( registry.mutex );
   for( Setting& s : parsed ) registry.settingIs( std::move( s ) );
   registry.apply();
}

void traceSettingReset() {
   auto& registry = TraceRegistry::instance();
   std::lock_guard lock( registry.mutex );
   registry.settings.clear();
   registry.apply();
}

// Lines.

struct TraceStream::Line {
   TraceLine head;
   std::string text;
};

namespace {

thread_local bool delivering = false;

void deliver( const TraceLine& line ) {
   auto& registry = TraceRegistry::instance();
   if( registry.standardError.load( std::memory_order_relaxed ) ) writeAll( STDERR_FILENO, line.str() + '\n' );
   const auto sinks = registry.currentSinks();
   for( const auto& sink : *sinks ) {
      try {
         sink->deliver( line );
      } catch( ... ) { // the others and the caller must not suffer from it
      }
   }
}

}

TraceStream::TraceStream( const TraceHandle& handle, U32 level, std::string_view source,
                          std::string_view function ) noexcept {
   if( delivering ) return;
   line_ = new( std::nothrow ) Line;
   if( line_ ) line_->head = { wallClock(), handle.name(), level, source, function, {} };
}

void TraceStream::append( std::string_view text ) noexcept {
   try {
      line_->text += text;
   } catch( const std::exception& ) { // out of memory: the line stays shorter
   }
}

void TraceStream::print( void ( *printer )( std::ostream&, const void* ), const void* value ) noexcept {
   try {
      std::ostringstream out;
      printer( out, value );
      line_->text += out.view();
   } catch( const std::exception& e ) {
      append( "(unprintable: " );
      append( e.what() );
      append( ")" );
   } catch( ... ) {
      append( "(unprintable)" );
   }
}

void TraceStream::emit() noexcept {
   const std::unique_ptr< Line > line( line_ );
   line->head.text = line->text;
   delivering = true;
   try {
      deliver( line->head );
   } catch( const std::exception& ) { // out of memory
   }
   delivering = false;
}

// Destinations.

TraceDestination& TraceDestination::operator=( TraceDestination&& other ) noexcept {
   if( this != &other ) {
      close();
      sink_ = std::move( other.sink_ );
   }
   return *this;
}

void TraceDestination::close() noexcept {
   if( !sink_ ) return;
   const auto sink = std::move( sink_ );
   sink->close();
   try {
      TraceRegistry::instance().forget( sink );
   } catch( const std::exception& ) { // out of memory: it stays listed, and is closed
   }
}

void traceToStandardErrorIs( bool on ) { TraceRegistry::instance().standardError.store( on ); }

bool traceToStandardError() noexcept { return TraceRegistry::instance().standardError.load(); }

TraceDestination traceToFile( const std::string& path ) {
   const int fd = ::open( path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0640 );
   if( fd < 0 )
      throw Exception( "trace file " + path + " can't be opened: " + std::strerror( errno ) +
                       "; name a file in a folder that this user may write" );
   return TraceRegistry::instance().destination( std::make_shared< FileSink >( fd ) );
}

TraceDestination traceToCallback( std::function< void( const TraceLine& ) > callback ) {
   return TraceRegistry::instance().destination( std::make_shared< CallbackSink >( std::move( callback ) ) );
}

}
