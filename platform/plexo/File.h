#pragma once

#include <kel/UniqueFd.h>
#include <plexo/Exceptions.h>
#include <string>
#include <sys/types.h>
#include <utility>

namespace Plexo {

/// A shared mapping of a file, or private zeroed memory.
class Mapping {
 public:
   enum class Access { read, write };

   Mapping() = default;
   /// Null on failure, with the reason in `errno`. A writable mapping is not inherited by children of fork.
   static Mapping ofFile( int fd, U64 bytes, Access access ) noexcept;
   /// Zeroed memory that takes room only where it is touched. Throws `SystemException`.
   static Mapping anonymous( U64 bytes );
   Mapping( Mapping&& other ) noexcept : base_( std::exchange( other.base_, nullptr ) ), bytes_( other.bytes_ ) {}
   Mapping& operator=( Mapping&& other ) noexcept;
   ~Mapping() { reset(); }

   std::byte* base() const noexcept { return base_; }
   explicit operator bool() const noexcept { return base_ != nullptr; }
   void reset() noexcept;
   /// Gives the memory up without unmapping it.
   void forget() noexcept { base_ = nullptr; }

 private:
   Mapping( std::byte* base, std::size_t bytes ) noexcept : base_( base ), bytes_( bytes ) {}

   std::byte* base_ = nullptr;
   std::size_t bytes_ = 0;
};

/// Which file a descriptor or a name leads to.
struct FileIdentity {
   U64 device = 0, inode = 0, bytes = 0, blocks = 0;
   uid_t owner = 0;
   bool regular = false;

   bool sameFile( const FileIdentity& other ) const noexcept { return device == other.device && inode == other.inode; }
   /// False when it cannot be read; `errno` tells why.
   static bool of( int fd, FileIdentity& out ) noexcept;
   static bool of( int directory, const std::string& file, FileIdentity& out ) noexcept;
};

/// The directory that holds tables, and the names in it.
class Directory {
 public:
   enum class Access { read, write };

   /// Opens `path`; with write access creates it where it is missing and requires that this user or root owns it. Throws
   /// `SystemException`.
   Directory( std::string path, Access access );
   /// As the constructor for reading; an unopened directory, with the reason in `errno`, instead of the exception.
   static Directory tryOpen( std::string path );

   int fd() const noexcept { return fd_.get(); }
   const std::string& path() const noexcept { return path_; }
   uid_t owner() const noexcept { return owner_; }
   std::string of( const std::string& file ) const { return path_ + "/" + file; }
   /// True for files of this user, of root and of the directory's owner: the ones whose tables a reader believes.
   bool trusts( const FileIdentity& file ) const noexcept;

 private:
   Directory() = default;

   std::string path_;
   Kel::UniqueFd fd_;
   uid_t owner_ = 0;
};

/// Names of the files of one table. Throws as `checkTableName` does.
struct FileNames {
   explicit FileNames( const std::string& table );
   std::string table, bell, fresh;
};
inline constexpr const char* tableSuffix = ".plexo";

/// "what PATH: REASON" from `errno`.
[[noreturn]] void systemFailure( const std::string& what, const std::string& path );
[[noreturn]] void systemFailure( const std::string& what, const std::string& path, int error );

/// The writer's lock: on the open file description, freed by the kernel when the last descriptor and mapping of that are gone.
bool lockTry( int fd ) noexcept;
/// Gives the lock up, whoever still has a copy of the descriptor (a program that is just being started, say).
void unlock( int fd ) noexcept;
/// True while any process holds the writer's lock of this file.
bool lockedByWriter( int fd ) noexcept;

/// 64 bits from the kernel.
U64 randomNumber();

}
