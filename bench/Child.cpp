#include "Child.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char** environ;

namespace Bench {

using Kel::U64;

namespace {

[[noreturn]] void failed( const std::string& what, int error = errno ) { throw std::runtime_error( what + ": " + std::strerror( error ) ); }

}

U64 now() {
   timespec t;
   clock_gettime( CLOCK_MONOTONIC, &t );
   return static_cast< U64 >( t.tv_sec ) * 1000000000 + static_cast< U64 >( t.tv_nsec );
}

Child::Child( const std::vector< std::string >& arguments ) : name_( arguments[ 0 ] ) {
   int in[ 2 ], out[ 2 ];
   if( pipe2( in, O_CLOEXEC ) || pipe2( out, O_CLOEXEC ) ) failed( "pipe" );
   std::vector< char* > argv;
   for( const std::string& a : arguments ) argv.push_back( const_cast< char* >( a.c_str() ) );
   argv.push_back( nullptr );
   posix_spawn_file_actions_t actions;
   posix_spawn_file_actions_init( &actions );
   posix_spawn_file_actions_adddup2( &actions, in[ 0 ], 0 );
   posix_spawn_file_actions_adddup2( &actions, out[ 1 ], 1 );
   const int error = posix_spawnp( &pid_, argv[ 0 ], &actions, nullptr, argv.data(), environ );
   posix_spawn_file_actions_destroy( &actions );
   close( in[ 0 ] );
   close( out[ 1 ] );
   to_ = in[ 1 ];
   from_ = out[ 0 ];
   if( error ) failed( name_, error );
}

Child::~Child() {
   close( to_ );
   close( from_ );
   kill( pid_, SIGTERM );
   waitpid( pid_, nullptr, 0 );
}

Report Child::next() {
   Report report;
   pollfd ready{ from_, POLLIN, 0 };
   if( poll( &ready, 1, 10000 ) != 1 ) throw std::runtime_error( name_ + " says nothing" );
   if( read( from_, &report, sizeof report ) != sizeof report ) throw std::runtime_error( name_ + " has ended" );
   return report;
}

std::string programPath( const std::string& name ) {
   return ( std::filesystem::read_symlink( "/proc/self/exe" ).parent_path() / name ).string();
}

TemporaryDirectory::TemporaryDirectory( const std::string& parent ) : path_( parent + "/vanta-bench-XXXXXX" ) {
   if( !mkdtemp( path_.data() ) ) failed( path_ );
}

TemporaryDirectory::~TemporaryDirectory() {
   std::error_code ignored;
   std::filesystem::remove_all( path_, ignored );
}

}
