#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/futex.h>
#include <plexo/Bell.h>
#include <plexo/Format.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

// Sleeping reader: set `armed`, fence, look at the table's head again, sleep on the word. Writer: publish the head, fence, look
// at `armed`. One of the two sees the other. The writer clears the flag before it wakes, so a burst of changes costs one system
// call until a reader has caught up and armed again; it wakes one sleeper, and each woken one wakes the next, so that its cost
// does not grow with the readers. Should a wake-up be lost (a writer dies between its store and its call), the sleepers' time
// limit ends the sleep.

namespace Plexo {

namespace {

constexpr U64 bellMagic = 0x4c4542'4f58454c50;                          // the bytes "PLEXOBEL"
constexpr U64 bellBytes = Format::pageBytes;

}

Bell Bell::forWriter( const Directory& directory, const FileNames& names ) {
   const std::string path = directory.of( names.bell );
   Bell bell;
   bell.file_.reset( ::openat( directory.fd(), names.bell.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                               0660 ) );
   if( !bell.file_ ) systemFailure( "cannot open the doorbell", path );
   FileIdentity self;
   if( !FileIdentity::of( bell.file_.get(), self ) ) systemFailure( "cannot examine the doorbell", path );
   if( !self.regular || self.owner != ::geteuid() ) {
      systemFailure( "refusing a doorbell that is no file of this user,", path, EPERM );
   }
   if( ::fchmod( bell.file_.get(), 0660 ) != 0 || ::ftruncate( bell.file_.get(), off_t( bellBytes ) ) != 0 ) {
      systemFailure( "cannot set up the doorbell", path );
   }
   if( const int error = ::posix_fallocate( bell.file_.get(), 0, off_t( bellBytes ) ) ) {
      systemFailure( "cannot set up the doorbell", path, error );
   }
   bell.page_ = Mapping::ofFile( bell.file_.get(), bellBytes, Mapping::Access::write );
   if( !bell.page_ ) systemFailure( "cannot map the doorbell", path );
   SharedStore::word64( bell.page_.base(), bellMagic );
   return bell;
}

Bell Bell::forReader( const Directory& directory, const FileNames& names ) noexcept {
   Bell bell;
   bell.file_.reset( ::openat( directory.fd(), names.bell.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC ) );
   FileIdentity self;
   if( bell.file_ && FileIdentity::of( bell.file_.get(), self ) && self.regular && directory.trusts( self ) &&
       self.bytes >= bellBytes ) {
      bell.page_ = Mapping::ofFile( bell.file_.get(), bellBytes, Mapping::Access::write );
   }
   return bell;
}

void Bell::ring() noexcept {
   SharedStore::fullFence();
   if( SharedLoad::word32( page_.base() + armedOffset ) == 0 ) [[likely]] return;
   std::byte* word = page_.base() + wordOffset;
   SharedStore::word32( page_.base() + armedOffset, 0 );
   SharedStore::release32( word, SharedLoad::word32( word ) + 1 );
   wakeOne( word );
}

void Bell::arm() noexcept {
   SharedStore::word32( page_.base() + armedOffset, 1 );
   SharedStore::fullFence();
}

bool Bell::intact( const Directory& directory, const FileNames& names ) const noexcept {
   FileIdentity mine;
   FileIdentity now;
   return FileIdentity::of( file_.get(), mine ) && mine.bytes >= bellBytes &&
          FileIdentity::of( directory.fd(), names.bell, now ) && mine.sameFile( now );
}

void Bell::forget() noexcept {
   file_.reset();
   page_.forget();
}

void Bell::wakeOne( const std::byte* word ) noexcept { ::syscall( SYS_futex, word, FUTEX_WAKE, 1, nullptr, nullptr, 0 ); }

}
