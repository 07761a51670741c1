#include <kel/Rilo.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <kel/Exception.h>
#include <kel/RiloLayout.h>
#include <kel/RiloReader.h>
#include <kel/Trace.h>
#include <kel/UniqueFd.h>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

// A writer takes the next sequence number from a counter in its own memory, which gives it a slot, and claims the slot by
// making its word busy with one compare-and-swap. It gives the message up, never waits, when the slot is still busy (a thread
// stopped in mid-message while the others went round the ring) or already holds a newer message. Then it fills the slot and
// stores the final word with release order. A death in mid-message leaves one busy slot, which readers pass over.
//
// The mapping stays for the life of the process. The fork handler of the child unmaps it, as the only thread there, so that
// the child can't speak in its parent's name; the handlers hold the mutex across the fork, so that it is never inherited
// locked.

namespace Kel {

using namespace RiloLayout;

namespace {

struct Ring {
   Slot* slots;
   U32 mask;
   void* mapping;
   std::size_t bytes;
};

struct State {
   std::atomic< Ring* > ring{ nullptr };
   std::atomic< U64 > lastSequence{ 0 };
   std::atomic< U64 > dropped{ 0 };
   std::atomic< bool > failed{ false };
   std::mutex mutex; // guards what follows, and making the ring
   bool forkHandled = false;
   std::string program;
   U32 wantedBytes = Rilo::defaultBytes;
   std::string path;
   std::string problem;
};

State& state() {
   static State& s = *new State;
   return s;
}

thread_local U32 threadNumber = 0;

/// Opens the folder, made like /tmp if it is missing, so that every user's processes can put rings there and none can remove
/// another's.
UniqueFd openDirectory( const std::string& path ) {
   const bool made = ::mkdir( path.c_str(), 01777 ) == 0;
   UniqueFd fd( ::open( path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC ) );
   if( !fd ) throwErrno( "folder " + path + " can't be opened" );
   if( made ) ::fchmod( fd.get(), 01777 ); // whatever the umask took
   return fd;
}

struct DeadRing {
   std::string path;
   U64 openedAt;
};

/// Removes this user's rings of dead processes of `program`, but for the newest ones. The folder may be full of anything.
void cleanUp( const std::string& directory, const std::string& program ) {
   std::vector< DeadRing > dead;
   for( const std::string& path : riloFiles( directory ) ) {
      const std::string_view file = std::string_view( path ).substr( directory.size() + 1 );
      if( file.substr( 0, file.rfind( '.' ) ) != program ) continue;
      struct stat status;
      if( ::lstat( path.c_str(), &status ) != 0 || !S_ISREG( status.st_mode ) || status.st_uid != ::geteuid() ) continue;
      try {
         const RiloReader reader( path );
         if( !reader.alive() ) dead.push_back( { path, reader.openedAt() } );
      } catch( const Exception& ) { // foreign, or being made: not ours to remove
      }
   }
   if( dead.size() <= Rilo::deadRingsKept ) return;
   std::ranges::sort( dead, std::ranges::greater(), &DeadRing::openedAt );
   for( std::size_t i = Rilo::deadRingsKept; i < dead.size(); ++i ) ::unlink( dead[ i ].path.c_str() );
}

std::string cleanName( std::string_view program ) {
   std::string name( program.substr( 0, maxProgramBytes ) );
   for( char& c : name )
      if( c == '/' || static_cast< unsigned char >( c ) < 0x20 || c == 0x7f ) c = '_';
   if( name.empty() || name.front() == '.' ) name.insert( 0, "_" ).resize( std::min( name.size(), maxProgramBytes ) );
   return name;
}

std::string executableName() {
   std::array< char, 512 > target;
   const ssize_t n = ::readlink( "/proc/self/exe", target.data(), target.size() );
   const std::string_view path( target.data(), n > 0 ? static_cast< std::size_t >( n ) : 0 );
   return std::string( path.substr( path.rfind( '/' ) + 1 ) );
}

U32 slotsFor( U32 bytes ) { return std::bit_floor( std::clamp( bytes, Rilo::minBytes, Rilo::maxBytes ) / slotBytes ); }

/// The magic is stored last: a reader refuses a ring that is not ready.
void fillHeader( Header& h, const std::string& program, U32 slots ) {
   h.formatVersion = formatVersion;
   h.headerBytes = headerBytes;
   h.slotBytes = slotBytes;
   h.slots = slots;
   h.pid = static_cast< U32 >( ::getpid() );
   h.uid = ::geteuid();
   h.processStart = processStart( h.pid ).ticks;
   h.openedAt = wallClock();
   std::memcpy( h.program, program.data(), program.size() );
   std::atomic_ref( h.magic ).store( magic, std::memory_order_release );
}

std::unique_ptr< Ring > makeRing( const std::string& path, const std::string& program, U32 slots,
                                  const UniqueFd& directory ) {
   const std::string file = path.substr( path.rfind( '/' ) + 1 );
   // A file of this name is left from a dead process of the same number, or from this one before it executed itself anew.
   if( ::unlinkat( directory.get(), file.c_str(), 0 ) != 0 && errno != ENOENT )
      throwErrno( "old ring " + path + " can't be removed" );
   const UniqueFd fd( ::openat( directory.get(), file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0640 ) );
   if( !fd ) throwErrno( "ring " + path + " can't be made" );
   const std::size_t bytes = headerBytes + std::size_t( slots ) * slotBytes;
   void* mapping = MAP_FAILED;
   // Pages are taken now: a full file system is an error here and no SIGBUS later.
   if( const int error = ::posix_fallocate( fd.get(), 0, static_cast< off_t >( bytes ) ) ) errno = error;
   else mapping = ::mmap( nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fd.get(), 0 );
   if( mapping == MAP_FAILED ) {
      const int error = errno;
      ::unlinkat( directory.get(), file.c_str(), 0 );
      errno = error;
      throwErrno( "ring " + path + " of " + std::to_string( bytes ) + " bytes can't be allocated" );
   }
   auto* header = static_cast< Header* >( mapping );
   fillHeader( *header, program, slots );
   auto* first = reinterpret_cast< Slot* >( static_cast< char* >( mapping ) + headerBytes );
   return std::make_unique< Ring >( Ring{ first, slots - 1, mapping, bytes } );
}

// Fork: the child starts without a ring, but knows the name and size it would have.

void beforeFork() { state().mutex.lock(); }
void afterForkInParent() { state().mutex.unlock(); }
void afterForkInChild() {
   State& s = state();
   if( Ring* ring = s.ring.exchange( nullptr ) ) {
      ::munmap( ring->mapping, ring->bytes );
      delete ring;
   }
   s.lastSequence = 0;
   s.dropped = 0;
   s.failed = false;
   s.path.clear();
   s.problem.clear();
   threadNumber = 0;
   s.mutex.unlock();
}

void makeRingOnce( State& s ) {
   if( !std::exchange( s.forkHandled, true ) ) ::pthread_atfork( beforeFork, afterForkInParent, afterForkInChild );
   const std::string directoryPath = riloDirectory();
   const UniqueFd directory = openDirectory( directoryPath );
   cleanUp( directoryPath, s.program );
   s.path = directoryPath + '/' + s.program + '.' + std::to_string( ::getpid() );
   s.ring.store( makeRing( s.path, s.program, slotsFor( s.wantedBytes ), directory ).release(), std::memory_order_release );
   s.problem.clear();
   s.failed = false;
}

/// With the mutex held. A failure is remembered, so that messages do not try again and again; `Rilo::open` does.
bool tryRing( State& s ) noexcept {
   try {
      makeRingOnce( s );
      return true;
   } catch( const std::exception& e ) {
      s.path.clear();
      s.failed = true;
      try {
         s.problem = e.what();
      } catch( const std::exception& ) { // out of memory: the reason stays as it was
      }
      return false;
   }
}

[[gnu::cold]] Ring* lazyRing( State& s ) noexcept {
   if( s.failed.load( std::memory_order_relaxed ) ) return nullptr;
   try {
      std::lock_guard lock( s.mutex );
      if( !s.ring.load() && !s.failed ) {
         if( s.program.empty() ) s.program = cleanName( executableName() );
         tryRing( s );
      }
   } catch( const std::exception& ) { // out of memory: as without a ring
   }
   return s.ring.load( std::memory_order_acquire );
}

U32 thisThread() noexcept {
   if( threadNumber == 0 ) [[unlikely]] threadNumber = static_cast< U32 >( ::gettid() );
   return threadNumber;
}

/// Makes the slot busy for message `sequence`; false if it is busy or holds a newer one.
bool claim( Slot& slot, U64 sequence ) noexcept {
   std::atomic_ref word( slot.word );
   U32 old = word.load( std::memory_order_relaxed );
   const U32 mine = wordOf( sequence );
   if( old & busy ) return false;
   if( old != emptyWord && static_cast< S32 >( mine - old ) <= 0 ) return false;
   return word.compare_exchange_strong( old, mine | busy, std::memory_order_acq_rel );
}

void fill( Slot& slot, U64 sequence, U64 time, std::string_view source, std::string_view text ) noexcept {
   const std::size_t sourceBytes = std::min( source.size(), payloadBytes );
   const std::size_t textBytes = std::min( text.size(), payloadBytes - sourceBytes );
   slot.thread = thisThread();
   slot.sequence = sequence;
   slot.time = time;
   slot.sourceBytes = static_cast< U16 >( sourceBytes );
   slot.textBytes = static_cast< U16 >( textBytes );
   slot.cut = sourceBytes < source.size() || textBytes < text.size();
   if( sourceBytes ) std::memcpy( slot.payload, source.data(), sourceBytes );
   if( textBytes ) std::memcpy( slot.payload + sourceBytes, text.data(), textBytes );
   std::atomic_ref( slot.word ).store( wordOf( sequence ), std::memory_order_release );
}

}

bool Rilo::open( std::string_view program, U32 bytes ) noexcept {
   try {
      State& s = state();
      std::lock_guard lock( s.mutex );
      if( s.ring.load() ) return true;
      s.program = cleanName( program );
      s.wantedBytes = bytes;
      return tryRing( s );
   } catch( const std::exception& ) {
      return false;
   }
}

void Rilo::message( std::string_view source, std::string_view text ) noexcept {
   State& s = state();
   Ring* ring = s.ring.load( std::memory_order_acquire );
   if( !ring ) [[unlikely]] ring = lazyRing( s );
   if( ring ) [[likely]] {
      const U64 sequence = s.lastSequence.fetch_add( 1, std::memory_order_relaxed ) + 1;
      const U64 time = wallClock();
      Slot& slot = ring->slots[ static_cast< U32 >( sequence - 1 ) & ring->mask ];
      if( claim( slot, sequence ) ) [[likely]]
         return fill( slot, sequence, time, source, text );
   }
   s.dropped.fetch_add( 1, std::memory_order_relaxed );
}

std::string Rilo::path() noexcept {
   State& s = state();
   try {
      std::lock_guard lock( s.mutex );
      return s.path;
   } catch( const std::exception& ) {
      return {};
   }
}

U64 Rilo::dropped() noexcept { return state().dropped.load( std::memory_order_relaxed ); }

std::string Rilo::problem() noexcept {
   State& s = state();
   try {
      std::lock_guard lock( s.mutex );
      return s.problem;
   } catch( const std::exception& ) {
      return "out of memory";
   }
}

}
