#pragma once

#include "TestFdb.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <plexo/Exceptions.h>
#include <plexo/Format.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

// Helpers of the tests of this room: a directory of tables per test, hosts from a few numbers, and a table's bytes to spoil.
namespace Bridging {

using Kel::Ptr;
using Kel::U16;
using Kel::U32;
using Plexo::TableMode;
using Plexo::Bridging::PlexoFdbStatus;
using Strings = std::vector< std::string >;

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

inline Quor::EthAddr mac( U32 n ) {
   return { 2, 0, Kel::U8( n >> 24 ), Kel::U8( n >> 16 ), Kel::U8( n >> 8 ), Kel::U8( n ) };
}

/// Host `n` on port Ethernet `port`.
inline LearnedHost host( U32 n, U32 port, U32 moves = 0 ) {
   return { mac( n ), Quor::IntfId( "Ethernet" + std::to_string( port ) ), moves, double( moves ) / 4, EntryType::learnedDynamicMac };
}

inline PlexoFdbStatus record( U16 fid, U32 n, U32 port = 1 ) {
   const LearnedHost h = host( n, port );
   return { { fid, h.address() }, h.intf(), h.moves(), h.lastMoveTime(), h.entryType() };
}

/// "1/5": the filtering database and the number of a host.
inline std::string nameOf( const HostKey& key ) {
   return std::to_string( key.fid().value() ) + "/" + std::to_string( key.addr().number() & 0xffffffff );
}

/// A directory that is named by an environment variable, for this process and those that it starts.
struct TestDirectory {
   explicit TestDirectory( const char* variable ) {
      char name[] = "/dev/shm/fdb-test-XXXXXX";
      if( mkdtemp( name ) ) path = name;
      setenv( variable, name, 1 );
   }
   TestDirectory( const TestDirectory& ) = delete;
   TestDirectory& operator=( const TestDirectory& ) = delete;
   ~TestDirectory() { std::filesystem::remove_all( path ); }
   std::string path;
};

struct ShmTest : testing::Test {
   ShmTest() { static const TestDirectory rings( "RILO_DIR" ); }

   void learn( U16 fid, U32 n, U32 port, U32 moves = 0 ) { source->fdbStatusIs( fid )->learnedHostIs( host( n, port, moves ) ); }
   void forget( U16 fid, U32 n ) { source->fdbStatus( fid )->learnedHostDel( mac( n ) ); }

   const TestDirectory tables{ "PLEXO_DIR" };
   const std::string& directory = tables.path;
   Ptr< Status > source = statusFactory( "source" );
};

/// Takes over what a reader's table has to tell.
inline void drain( const Ptr< Plexo::Bridging::Status >& table ) {
   while( table->plexoFdbStatusControl().dispatch( std::chrono::seconds( 10 ) ) ) {
   }
}

/// Waits on the reader's descriptor until `done`, for at most some seconds.
inline bool drainUntil( const Ptr< Plexo::Bridging::Status >& table, const std::function< bool() >& done ) {
   const auto end = std::chrono::steady_clock::now() + std::chrono::seconds( 20 );
   for( ;; ) {
      drain( table );
      if( done() ) return true;
      if( std::chrono::steady_clock::now() > end ) return false;
      pollfd ready{ table->plexoFdbStatusControl().fd(), POLLIN, 0 };
      poll( &ready, 1, 1000 );
   }
}

/// The bytes of a table's file, to spoil.
class TableBytes {
 public:
   explicit TableBytes( const std::string& path )
      : fd_( open( path.c_str(), O_RDWR | O_CLOEXEC ) ), size_( std::size_t( std::filesystem::file_size( path ) ) ) {
      base_ = static_cast< char* >( mmap( nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0 ) );
   }
   TableBytes( const TableBytes& ) = delete;
   TableBytes& operator=( const TableBytes& ) = delete;
   ~TableBytes() {
      munmap( base_, size_ );
      close( fd_ );
   }
   U32 get( std::size_t at ) const {
      U32 v;
      std::memcpy( &v, base_ + at, sizeof v );
      return v;
   }
   void put( std::size_t at, U32 v ) { std::memcpy( base_ + at, &v, sizeof v ); }

   /// No look-up and no walk gets any further.
   void spoilMagic() { put( Plexo::Format::At::magic, 0x21646162 ); }
   /// A walk fails at its first step, look-ups go on.
   void spoilHighWater() { put( Plexo::Format::At::highWater, 0xffffffff ); }
   /// A walk fails when it comes to this slot, and so does the look-up of its record: it says that it is being changed, yet the
   /// undo cell belongs to another.
   void spoilSlot( U32 slot ) {
      namespace At = Plexo::Format::At;
      const std::size_t at = get( At::slabOffset ) + std::size_t( slot ) * get( At::slotBytes );
      put( at, get( at ) | Plexo::Format::Sequence::busy );
      put( At::undo, 0 );
   }

 private:
   int fd_;
   std::size_t size_;
   char* base_ = nullptr;
};

}
