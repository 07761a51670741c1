#pragma once

#include <unistd.h>
#include <utility>

namespace [[gnu::visibility("default")]] Kel {

/// Owns a file descriptor and closes it; -1 owns none.
class UniqueFd {
 public:
   UniqueFd() noexcept = default;
   explicit UniqueFd( int fd ) noexcept : fd_( fd ) {}
   UniqueFd( UniqueFd&& other ) noexcept : fd_( other.release() ) {}
   UniqueFd& operator=( UniqueFd&& other ) noexcept {
      if( this != &other ) reset( other.release() );
      return *this;
   }
   ~UniqueFd() { reset(); }

   int get() const noexcept { return fd_; }
   explicit operator bool() const noexcept { return fd_ >= 0; }
   int release() noexcept { return std::exchange( fd_, -1 ); }
   void reset( int fd = -1 ) noexcept {
      if( fd_ >= 0 ) ::close( fd_ );
      fd_ = fd;
   }

 private:
   int fd_ = -1;
};

}
