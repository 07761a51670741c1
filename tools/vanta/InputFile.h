#pragma once

#include <cstdint>
#include <cstring>
#include <string>

namespace Tool {

/// A regular file whose every byte may be wrong. It is never mapped: another process may truncate it, and a mapping would turn
/// that into a signal.
class InputFile {
 public:
   /// The most bytes that one read may ask for.
   static constexpr std::uint64_t mostBytes = 64u << 20;

   /// Opens the file. Throws `Failure` with `exitNotConnected` when it can't be read or is no regular file.
   explicit InputFile( const std::string& path );
   ~InputFile();
   InputFile( const InputFile& ) = delete;
   InputFile& operator=( const InputFile& ) = delete;

   std::uint64_t size() const { return size_; }
   /// Throws `Failure`: "cannot read 'PATH': REASON".
   [[noreturn]] void fail( const std::string& reason ) const;
   /// `what` is the subject of the message when the bytes lie outside of the file, or are more than `mostBytes`.
   std::string bytesAt( std::uint64_t offset, std::uint64_t count, const char* what );

   template< class T >
   T structAt( std::uint64_t offset, const char* what ) {
      T value;
      std::memcpy( &value, bytesAt( offset, sizeof( T ), what ).data(), sizeof( T ) );
      return value;
   }

 private:
   std::string path_;
   int fd_ = -1;
   std::uint64_t size_ = 0;
};

}
