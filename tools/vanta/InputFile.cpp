#include "InputFile.h"

#include "Cli.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tool {

InputFile::InputFile( const std::string& path ) : path_( path ) {
   // Without O_NONBLOCK the open of a named pipe would wait for its writer.
   fd_ = open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK );
   if( fd_ < 0 ) fail( std::strerror( errno ) );
   struct stat status;
   const int reason = fstat( fd_, &status ) < 0 ? errno : 0;
   if( reason == 0 && S_ISREG( status.st_mode ) ) {
      size_ = std::uint64_t( status.st_size );
      return;
   }
   close( fd_ );
   fail( reason ? std::strerror( reason ) : "it is not a regular file" );
}

InputFile::~InputFile() { close( fd_ ); }

void InputFile::fail( const std::string& reason ) const { throw Failure( exitNotConnected, "cannot read '" + path_ + "': " + reason ); }

std::string InputFile::bytesAt( std::uint64_t offset, std::uint64_t count, const char* what ) {
   if( offset > size_ || count > size_ - offset ) fail( std::string( what ) + " lies beyond the end of the file" );
   if( count > mostBytes ) fail( std::string( what ) + " is larger than any library's" );
   std::string bytes( std::size_t( count ), '\0' );
   std::size_t done = 0;
   while( done < bytes.size() ) {
      const ssize_t got = pread( fd_, bytes.data() + done, bytes.size() - done, off_t( offset + done ) );
      if( got < 0 && errno == EINTR ) continue;
      if( got < 0 ) fail( std::strerror( errno ) );
      if( got == 0 ) fail( std::string( what ) + " was cut off while it was read" );
      done += std::size_t( got );
   }
   return bytes;
}

}
