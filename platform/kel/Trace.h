#pragma once

#include <atomic>
#include <chrono>
#include <concepts>
#include <functional>
#include <kel/Types.h>
#include <memory>
#include <ostream>
#include <source_location>
#include <string>
#include <string_view>
#include <type_traits>

namespace [[gnu::visibility("default")]] Kel {

/// A set of trace levels 0..9. By convention 0 is errors, 2 progress, 5 the entry of a state machine's handler, 6 the coming
/// and going of its sources, 8 its decisions.
class TraceLevels {
 public:
   static constexpr U32 count = 10;

   constexpr TraceLevels() noexcept = default;
   static constexpr TraceLevels none() noexcept { return {}; }
   static constexpr TraceLevels all() noexcept { return TraceLevels( ( 1u << count ) - 1 ); }
   /// `level` alone; empty for a level above 9.
   static constexpr TraceLevels only( U32 level ) noexcept { return TraceLevels( level < count ? 1u << level : 0 ); }
   /// 0 to `level`, both included.
   static constexpr TraceLevels upTo( U32 level ) noexcept {
      return level < count ? TraceLevels( ( 2u << level ) - 1 ) : all();
   }
   /// The levels of a text: `*` (all), `-` (none), or digits and ranges such as `0-5`, `058`, `0-26`. Throws `RangeException`
   /// otherwise.
   static TraceLevels parse( std::string_view text );

   constexpr bool has( U32 level ) const noexcept { return level < count && ( bits_ >> level & 1 ); }
   constexpr U32 bits() const noexcept { return bits_; }
   /// The shortest text that `parse` reads back.
   std::string str() const;

   constexpr TraceLevels operator|( TraceLevels other ) const noexcept { return TraceLevels( bits_ | other.bits_ ); }
   friend constexpr bool operator==( TraceLevels, TraceLevels ) noexcept = default;

 private:
   constexpr explicit TraceLevels( U32 bits ) noexcept : bits_( bits ) {}
   U32 bits_ = 0;
};

/// What a destination is given. The views live as long as the call; nothing is escaped.
struct TraceLine {
   U64 time = 0; ///< nanoseconds since 1970-01-01 UTC
   std::string_view facility;
   U32 level = 0;
   std::string_view source;
   std::string_view function;
   std::string_view text;

   /// One line for people, without a line end: `TIME FACILITY/LEVEL SOURCE: FUNCTION TEXT`, TIME in UTC to the microsecond,
   /// control bytes escaped. A text that begins with a space gets no second one.
   std::string str() const;
};

class TraceHandle;

/// The line under construction: false when the level is off. Whatever has a stream operator can be put in; strings and names
/// go in bare, 8-bit integers as numbers. The destructor hands the line to the destinations. Nothing that happens while a
/// value is printed or a line is delivered escapes from here.
class [[nodiscard]] TraceStream {
 public:
   TraceStream( const TraceStream& ) = delete;
   TraceStream& operator=( const TraceStream& ) = delete;
   ~TraceStream() {
      if( line_ ) emit();
   }
   explicit operator bool() const noexcept { return line_ != nullptr; }

   template< class T >
   TraceStream& operator<<( const T& value ) noexcept {
      if( !line_ ) return *this;
      if constexpr( std::is_convertible_v< const T&, const char* > ) {
         const char* text = value;
         append( text ? std::string_view( text ) : std::string_view( "(null)" ) );
      } else if constexpr( std::is_convertible_v< const T&, std::string_view > ) {
         append( value );
      } else if constexpr( requires { { value.view() } -> std::same_as< std::string_view >; } ) {
         append( value.view() );
      } else if constexpr( std::is_same_v< T, U8 > || std::is_same_v< T, S8 > ) {
         *this << static_cast< int >( value );
      } else {
         print( []( std::ostream& out, const void* v ) { out << *static_cast< const T* >( v ); }, std::addressof( value ) );
      }
      return *this;
   }

 private:
   friend TraceHandle;
   struct Line;

   constexpr TraceStream() noexcept = default;
   TraceStream( const TraceHandle& handle, U32 level, std::string_view source, std::string_view function ) noexcept;
   void append( std::string_view text ) noexcept;
   void print( void ( *printer )( std::ostream&, const void* ), const void* value ) noexcept;
   void emit() noexcept;

   Line* line_ = nullptr;
};

/// One trace facility of the process, made by `traceHandle()`. Safe from any thread; a level that is off costs one load and
/// one test:
///
///     if( auto t = handle.at( 8, "VlanDynIntfSm" ) ) t << " add config " << config;
class TraceHandle {
 public:
   TraceHandle( const TraceHandle& ) = delete;
   TraceHandle& operator=( const TraceHandle& ) = delete;

   const std::string& name() const noexcept { return name_; }
   bool enabled( U32 level ) const noexcept {
      return level < TraceLevels::count && bits_.load( std::memory_order_relaxed ) >> level & 1;
   }
   TraceLevels levels() const noexcept;
   /// For this handle alone, and now. `traceLevelIs` reaches handles by name, those that do not exist yet too.
   void levelsIs( TraceLevels levels ) noexcept;

   /// A line of `level` (0..9) from `source`, the component's name, and `function`, its signature; both must outlive the
   /// stream.
   TraceStream at( U32 level, std::string_view source, std::string_view function ) const noexcept {
      if( enabled( level ) ) [[unlikely]] return TraceStream( *this, level, source, function );
      return TraceStream();
   }
   /// The same from the function that calls it, whose signature is the compiler's own spelling.
   TraceStream at( U32 level, std::string_view source,
                   std::source_location where = std::source_location::current() ) const noexcept {
      if( enabled( level ) ) [[unlikely]] return TraceStream( *this, level, source, where.function_name() );
      return TraceStream();
   }

 private:
   friend struct TraceRegistry;
   explicit TraceHandle( std::string_view name ) : name_( name ) {}

   std::atomic< U32 > bits_{ 0 };
   bool destroyed_ = false;
   std::string name_;
};

/// The handle of the facility `name`: made on the first call, the same one ever after. Its destruction is registered to run
/// at process exit; a line traced after that goes nowhere, and the reference stays good. Level 0 is on unless a setting says
/// otherwise.
///
///     Kel::TraceHandle& _defaultTraceHandle() {
///        static Kel::TraceHandle& handle = Kel::traceHandle( "FdbStatusSm" );
///        return handle;
///     }
TraceHandle& traceHandle( std::string_view name );

/// Sets the levels of every handle whose name matches `pattern` (`*` any run of characters, `?` any one), and of those that
/// are created later. The last setting that matches a name counts.
void traceLevelIs( std::string_view pattern, TraceLevels levels );
/// The same as one text, such as `FdbStatusSm/0-5,Counter/*`: `PATTERN/LEVELS` joined by commas, the levels as
/// `TraceLevels::parse` reads them; a pattern alone means all levels. Throws `RangeException`, and then changes nothing.
void traceSettingIs( std::string_view setting );
/// Forgets all settings: level 0 alone, for every handle.
void traceSettingReset();

/// Keeps a destination in place; its end removes it. After that its callback does not run any more and its file is closed.
/// The destination of a moved-from or default one is nothing.
class [[nodiscard]] TraceDestination {
 public:
   class Sink;

   TraceDestination() noexcept = default;
   explicit TraceDestination( std::shared_ptr< Sink > sink ) noexcept : sink_( std::move( sink ) ) {}
   TraceDestination( TraceDestination&& ) noexcept = default;
   TraceDestination& operator=( TraceDestination&& other ) noexcept;
   ~TraceDestination() { close(); }
   void close() noexcept;

 private:
   std::shared_ptr< Sink > sink_;
};

/// Standard error, the destination that is there from the start.
void traceToStandardErrorIs( bool on );
bool traceToStandardError() noexcept;
/// Lines are appended to `path`, which is created with mode 0640 if need be; each line is one write. Throws `Exception` when
/// it can't be opened.
TraceDestination traceToFile( const std::string& path );
/// `callback` is given each line, from the thread that traced it but never from two threads at once. It may trace (such lines
/// go nowhere) and may add and remove destinations, its own too. What it throws is dropped.
TraceDestination traceToCallback( std::function< void( const TraceLine& ) > callback );

/// Appends `text` with its control bytes as `\n`, `\t`, `\r` or `\xHH`, so that it stays on its line and can't steer a
/// terminal.
void appendPrintable( std::string& to, std::string_view text );
/// Nanoseconds since 1970-01-01 UTC, good beyond 2038 in both word sizes; no system call.
U64 wallClock() noexcept;
/// Appends that time as `2031-05-06T07:08:09.123456Z`.
void appendTime( std::string& to, U64 time );

}
