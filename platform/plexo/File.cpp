#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <plexo/File.h>
#include <plexo/Writer.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Plexo {

// --- Mapping ---------------------------------------------------------------------------------------------------------------

Mapping Mapping::ofFile( int fd, U64 bytes, Access access ) noexcept {
   const int protection = access == Access::write ? PROT_READ | PROT_WRITE : PROT_READ;
   void* base = ::mmap( nullptr, std::size_t( bytes ), protection, MAP_SHARED, fd, 0 );
   if( base == MAP_FAILED ) return {};
   if( access == Access::write ) ::madvise( base, std::size_t( bytes ), MADV_DONTFORK );
   return Mapping( static_cast< std::byte* >( base ), std::size_t( bytes ) );
}

Mapping Mapping::anonymous( U64 bytes ) {
   void* base = ::mmap( nullptr, std::size_t( bytes ), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1,
                        0 );
   if( base == MAP_FAILED ) systemFailure( "cannot reserve memory for", "a table's local copy" );
   return Mapping( static_cast< std::byte* >( base ), std::size_t( bytes ) );
}

Mapping& Mapping::operator=( Mapping&& other ) noexcept {
   if( this != &other ) {
      reset();
      base_ = std::exchange( other.base_, nullptr );
      bytes_ = other.bytes_;
   }
   return *this;
}

void Mapping::reset() noexcept {
   if( base_ ) ::munmap( base_, bytes_ );
   base_ = nullptr;
}

// --- files -----------------------------------------------------------------------------------------------------------------

namespace {

void identityOf( const struct stat& from, FileIdentity& out ) noexcept {
   out.device = from.st_dev;
   out.inode = from.st_ino;
   out.bytes = U64( from.st_size );
   out.blocks = U64( from.st_blocks ) * 512;
   out.owner = from.st_uid;
   out.regular = S_ISREG( from.st_mode );
}

struct flock wholeFile( int type = F_WRLCK ) noexcept {
   struct flock range {};
   range.l_type = short( type );
   range.l_whence = SEEK_SET;
   return range;
}

}

bool FileIdentity::of( int fd, FileIdentity& out ) noexcept {
   struct stat found;
   if( ::fstat( fd, &found ) != 0 ) return false;
   identityOf( found, out );
   return true;
}

bool FileIdentity::of( int directory, const std::string& file, FileIdentity& out ) noexcept {
   struct stat found;
   if( ::fstatat( directory, file.c_str(), &found, AT_SYMLINK_NOFOLLOW ) != 0 ) return false;
   identityOf( found, out );
   return true;
}

Directory::Directory( std::string path, Access access ) {
   if( access == Access::write && ::mkdir( path.c_str(), 0755 ) != 0 && errno != EEXIST ) {
      systemFailure( "cannot create the table directory", path );
   }
   *this = tryOpen( std::move( path ) );
   if( !fd_ ) systemFailure( "cannot open the table directory", path_ );
   if( access == Access::write && owner_ != ::geteuid() && owner_ != 0 ) {
      systemFailure( "refusing to write tables in a directory that neither this user nor root owns,", path_, EPERM );
   }
}

Directory Directory::tryOpen( std::string path ) {
   Directory directory;
   directory.path_ = std::move( path );
   Kel::UniqueFd fd( ::open( directory.path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC ) );
   FileIdentity self;
   if( fd && FileIdentity::of( fd.get(), self ) ) {
      directory.owner_ = self.owner;
      directory.fd_ = std::move( fd );
   }
   return directory;
}

bool Directory::trusts( const FileIdentity& file ) const noexcept {
   return file.owner == ::geteuid() || file.owner == 0 || file.owner == owner_;
}

void checkTableName( const std::string& name ) {
   if( name.empty() || name.size() > longestTableName || name[ 0 ] == '.' || name.find( '/' ) != name.npos ||
       name.find( '\0' ) != name.npos ) {
      throw Kel::RangeException( "table name '" + name + "' must have 1 to " + std::to_string( longestTableName ) +
                                 " bytes, no '/' and no NUL, and not begin with a dot" );
   }
}

FileNames::FileNames( const std::string& name )
      : table( name + tableSuffix ), bell( name + ".bell" ), fresh( "." + name + ".new" ) {
   checkTableName( name );
}

void systemFailure( const std::string& what, const std::string& path, int error ) {
   throw SystemException( what + " " + path + ": " + std::strerror( error ) );
}

void systemFailure( const std::string& what, const std::string& path ) { systemFailure( what, path, errno ); }

// --- lock ------------------------------------------------------------------------------------------------------------------

bool lockTry( int fd ) noexcept {
   struct flock range = wholeFile();
   return ::fcntl( fd, F_OFD_SETLK, &range ) == 0;
}

void unlock( int fd ) noexcept {
   struct flock range = wholeFile( F_UNLCK );
   ::fcntl( fd, F_OFD_SETLK, &range );
}

bool lockedByWriter( int fd ) noexcept {
   struct flock range = wholeFile();
   return ::fcntl( fd, F_OFD_GETLK, &range ) == 0 && range.l_type != F_UNLCK;
}

U64 randomNumber() {
   U64 number;
   if( ::getrandom( &number, sizeof number, 0 ) != sizeof number ) systemFailure( "cannot read", "random numbers" );
   return number;
}

}
