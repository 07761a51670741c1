#pragma once

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <initializer_list>
#include <kel/Types.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

// What tests of tables have in common in all rooms: directories that go with their test, and the bytes of a file to spoil.
namespace Plexo {

/// After so many seconds a process, or a wait for one, is taken to hang.
constexpr int longestTest = 25;

/// A program of the build for the other word size, which the environment names (VANTA_OTHER_BUILD); empty when it names none.
inline std::string otherProgram( const std::string& name ) {
   const char* const build = std::getenv( "VANTA_OTHER_BUILD" );
   return build && *build ? std::string( build ) + "/bin/" + name : "";
}

/// Has `drain` take what there is, whenever the descriptor is readable, until `done`; false when that takes too long.
inline bool drainUntil( const std::function< int() >& fd, const std::function< void() >& drain,
                        const std::function< bool() >& done ) {
   const auto end = std::chrono::steady_clock::now() + std::chrono::seconds( longestTest - 5 );
   for( ;; ) {
      drain();
      if( done() ) return true;
      if( std::chrono::steady_clock::now() > end ) return false;
      pollfd ready{ fd(), POLLIN, 0 };
      poll( &ready, 1, 1000 );
   }
}

inline std::string contentOf( const std::string& path ) {
   std::ifstream in( path, std::ios::binary );
   return { std::istreambuf_iterator< char >( in ), {} };
}

/// The text of the exception that `action` throws; "nothing" when it throws none.
template< class Exception, class Action >
std::string thrown( const Action& action ) {
   try {
      action();
   } catch( const Exception& e ) {
      return e.what();
   }
   return "nothing";
}

/// A directory of a test's own, which environment variables name for this process and those that it starts.
struct TestDirectory {
   explicit TestDirectory( std::initializer_list< const char* > variables = {} ) {
      char name[] = "/dev/shm/vanta-test-XXXXXX";
      if( mkdtemp( name ) ) path = name;
      for( const char* variable : variables ) setenv( variable, name, 1 );
   }
   TestDirectory( const TestDirectory& ) = delete;
   TestDirectory& operator=( const TestDirectory& ) = delete;
   ~TestDirectory() { std::filesystem::remove_all( path ); }
   std::string path;
};

/// The bytes of a file, shared with whoever has it mapped.
class FileBytes {
 public:
   explicit FileBytes( const std::string& path )
         : size( std::size_t( std::filesystem::file_size( path ) ) ), base( mapped( path, size ) ) {}
   FileBytes( const FileBytes& ) = delete;
   FileBytes& operator=( const FileBytes& ) = delete;
   ~FileBytes() { munmap( base, size ); }

   void put( std::size_t at, Kel::U32 v ) { std::memcpy( base + at, &v, 4 ); }
   Kel::U32 get( std::size_t at ) const { return value< Kel::U32 >( at ); }
   Kel::U64 get64( std::size_t at ) const { return value< Kel::U64 >( at ); }
   /// All of them, as they are now.
   std::string copy() const { return { reinterpret_cast< const char* >( base ), size }; }

   const std::size_t size;
   std::byte* const base;

 private:
   static std::byte* mapped( const std::string& path, std::size_t size ) {
      const int fd = open( path.c_str(), O_RDWR | O_CLOEXEC );
      void* const at = mmap( nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0 );
      close( fd );
      return static_cast< std::byte* >( at );
   }
   template< class T >
   T value( std::size_t at ) const {
      T v;
      std::memcpy( &v, base + at, sizeof v );
      return v;
   }
};

}
