#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <plexo/TableFile.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

// A table's file comes into being complete: it is made under a hidden name, locked, filled, and only then given the table's
// name. Whoever opens the name sees a whole table. A file in the table's place that this writer can continue is taken over;
// one with the same type of records in another layout, or corrupted, is replaced by a new file, never rewritten, since readers
// may have it mapped; anything else is somebody's, and stays. The role is the lock on the file that the name leads to: a lock
// on a file that was replaced meanwhile is worth nothing, so it is checked after locking.

namespace Plexo {

using namespace Format;

namespace {

constexpr int maxAttempts = 16;

TableCore::Allocate allocator( int fd, std::string path ) {
   return [ fd, path = std::move( path ) ]( U64 offset, U64 bytes ) {
      int error;
      do {
         error = ::posix_fallocate( fd, off_t( offset ), off_t( bytes ) );
      } while( error == EINTR );
      if( error == ENOSPC || error == EDQUOT ) {
         throw TableFullException( "table " + path + " cannot grow: the file system has no room for " + std::to_string( bytes ) +
                                   " more bytes; make room there, or name another directory in PLEXO_DIR" );
      }
      if( error ) systemFailure( "cannot give room to the table", path, error );
   };
}

/// Everything that stays the same while a table is opened.
class Opening {
 public:
   Opening( const Directory& directory, const FileNames& names, const std::string& name, const RecordLayout& layout,
            const Geometry& geometry )
         : directory_( directory ), names_( names ), name_( name ), layout_( layout ), geometry_( geometry ),
           path_( directory.of( names.table ) ), freshPath_( directory.of( names.fresh ) ) {}

   WrittenTable open();

 private:
   enum class Result { done, tryAgain };

   Result openExisting( Kel::UniqueFd file, WrittenTable& out );
   Result create( WrittenTable& out );
   void replace( Mapping& old, const Header& header, bool carryOver, WrittenTable& out );
   WrittenTable makeFresh();
   Kel::UniqueFd lockedFreshFile();
   bool takeOver( WrittenTable& table, const Header& header );
   void carry( const TableView& from, TableCore& to );
   [[noreturn]] void roleTaken( int fd );

   const Directory& directory_;
   const FileNames& names_;
   const std::string& name_;
   const RecordLayout& layout_;
   const Geometry& geometry_;
   std::string path_;
   std::string freshPath_;
};

WrittenTable Opening::open() {
   WrittenTable table;
   for( int attempt = 0; attempt < maxAttempts; ++attempt ) {
      Kel::UniqueFd file( ::openat( directory_.fd(), names_.table.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC ) );
      if( !file && errno != ENOENT ) systemFailure( "cannot open the table", path_ );
      const Result result = file ? openExisting( std::move( file ), table ) : create( table );
      if( result == Result::tryAgain ) continue;
      std::byte* base = table.memory.base();
      SharedStore::word32( base + At::writerPid, U32( ::getpid() ) );
      SharedStore::release64( base + At::writerInstance, randomNumber() );
      return table;
   }
   throw RoleException( "table " + path_ + " keeps being replaced by others; stop the other writers" );
}

Opening::Result Opening::create( WrittenTable& out ) {
   WrittenTable fresh = makeFresh();
   if( ::renameat2( directory_.fd(), names_.fresh.c_str(), directory_.fd(), names_.table.c_str(), RENAME_NOREPLACE ) != 0 ) {
      const int error = errno;
      ::unlinkat( directory_.fd(), names_.fresh.c_str(), 0 );
      if( error != EEXIST ) systemFailure( "cannot create the table", path_, error );
      return Result::tryAgain;
   }
   out = std::move( fresh );
   return Result::done;
}

Opening::Result Opening::openExisting( Kel::UniqueFd file, WrittenTable& out ) {
   FileIdentity self;
   FileIdentity named;
   if( !FileIdentity::of( file.get(), self ) ) systemFailure( "cannot examine the table", path_ );
   if( !self.regular || self.owner != ::geteuid() ) {
      systemFailure( "refusing a table that is no file of this user,", path_, EPERM );
   }
   if( !lockTry( file.get() ) ) roleTaken( file.get() );
   if( !FileIdentity::of( directory_.fd(), names_.table, named ) || !self.sameFile( named ) ) return Result::tryAgain;

   Header header;
   const bool whole = readHeader( file.get(), header );
   if( const std::string reason = header.foreign( layout_ ); !reason.empty() ) {
      throw ForeignFileException( "refusing to replace " + path_ + ": " + reason + "; remove the file or choose another name" );
   }
   const bool sound = whole && header.fault( self.bytes ).empty();
   const bool ours = sound && header.mismatch( layout_ ).empty();
   Mapping memory;
   if( sound ) {
      memory = Mapping::ofFile( file.get(), header.geometry.fileBytes, Mapping::Access::write );
      if( !memory ) systemFailure( "cannot map the table", path_ );
   }
   if( ours && header.geometry.maxRecords == geometry_.maxRecords ) {
      WrittenTable table{ std::move( file ), std::move( memory ), {} };
      if( takeOver( table, header ) ) {
         out = std::move( table );
         return Result::done;
      }
      replace( table.memory, header, false, out );
   } else {
      replace( memory, header, ours, out );
   }
   return Result::done;
}

/// False when the records of the old table cannot be believed.
bool Opening::takeOver( WrittenTable& table, const Header& header ) {
   table.core = TableCore( TableView( name_, table.memory.base(), header.geometry, layout_, header.hashSeed ),
                           allocator( table.file.get(), path_ ) );
   try {
      table.core.takeOver();
      return true;
   } catch( const CorruptionException& ) {
      return false;
   }
}

/// Puts a new file in the place of one whose lock we hold.
void Opening::replace( Mapping& old, const Header& header, bool carryOver, WrittenTable& out ) {
   WrittenTable fresh = makeFresh();
   if( carryOver ) {
      try {
         carry( TableView( name_, old.base(), header.geometry, layout_, header.hashSeed ), fresh.core );
      } catch( const TableFullException& ) {
         ::unlinkat( directory_.fd(), names_.fresh.c_str(), 0 );
         if( fresh.core.records() < geometry_.maxRecords ) throw;       // the file system is what is full
         throw Kel::RangeException( "table " + path_ + " holds more records than the maximum of " +
                                    std::to_string( geometry_.maxRecords ) + " that is asked for; raise it or remove the file" );
      }
   }
   if( ::renameat( directory_.fd(), names_.fresh.c_str(), directory_.fd(), names_.table.c_str() ) != 0 ) {
      systemFailure( "cannot replace the table", path_ );
   }
   if( old ) SharedStore::release32( old.base() + At::replaced, 1 );
   out = std::move( fresh );
}

/// What a corrupted table still yields is kept.
void Opening::carry( const TableView& from, TableCore& to ) {
   std::vector< std::byte > record( layout_.recordBytes );
   try {
      for( U32 at = 0; from.next( at, record.data() ); ) to.upsert( record.data() );
   } catch( const CorruptionException& ) {
   }
}

WrittenTable Opening::makeFresh() {
   WrittenTable table;
   table.file = lockedFreshFile();
   if( ::fchmod( table.file.get(), 0640 ) != 0 || ::ftruncate( table.file.get(), off_t( geometry_.fileBytes ) ) != 0 ) {
      systemFailure( "cannot size the table", freshPath_ );
   }
   table.memory = Mapping::ofFile( table.file.get(), geometry_.fileBytes, Mapping::Access::write );
   if( !table.memory ) systemFailure( "cannot map the table", freshPath_ );
   try {
      table.core = TableCore::format( name_, table.memory.base(), geometry_, layout_, randomNumber(), U32( randomNumber() ),
                                      allocator( table.file.get(), path_ ) );
   } catch( const TableFullException& ) {
      ::unlinkat( directory_.fd(), names_.fresh.c_str(), 0 );
      throw;
   }
   return table;
}

/// A file of that name that nobody has locked was left by a writer that died while it made it.
Kel::UniqueFd Opening::lockedFreshFile() {
   for( int attempt = 0; attempt < maxAttempts; ++attempt ) {
      const int flags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
      Kel::UniqueFd file( ::openat( directory_.fd(), names_.fresh.c_str(), flags | O_CREAT | O_EXCL, 0640 ) );
      if( file && lockTry( file.get() ) ) {
         FileIdentity self;
         FileIdentity named;
         if( FileIdentity::of( file.get(), self ) && FileIdentity::of( directory_.fd(), names_.fresh, named ) &&
             self.sameFile( named ) ) {
            return file;
         }
         continue;
      }
      if( !file && errno != EEXIST ) systemFailure( "cannot create the table", freshPath_ );
      if( !file ) file.reset( ::openat( directory_.fd(), names_.fresh.c_str(), flags ) );
      if( !file && errno != ENOENT ) systemFailure( "cannot remove the left-over file", freshPath_ );
      if( file && !lockTry( file.get() ) ) roleTaken( file.get() );
      if( file ) ::unlinkat( directory_.fd(), names_.fresh.c_str(), 0 );
   }
   throw RoleException( "table " + path_ + " is being created by another process" );
}

void Opening::roleTaken( int fd ) {
   Header header;
   const bool known = readHeader( fd, header ) && header.writerPid;
   throw RoleException( "table " + path_ + " has a writer already" +
                        ( known ? " (process " + std::to_string( header.writerPid ) + ")" : std::string() ) +
                        "; stop it or choose another name" );
}

}

WrittenTable openForWriting( const Directory& directory, const FileNames& names, const std::string& name,
                             const RecordLayout& layout, const Geometry& geometry ) {
   return Opening( directory, names, name, layout, geometry ).open();
}

Kel::UniqueFd openForReading( const Directory& directory, const std::string& file ) noexcept {
   return Kel::UniqueFd( ::openat( directory.fd(), file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC ) );
}

bool readHeader( int fd, Header& header ) {
   alignas( 8 ) std::byte page[ pageBytes ] = {};
   const bool whole = ::pread( fd, page, sizeof page, 0 ) == ssize_t( sizeof page );
   header = Header::decode( page );
   return whole;
}

}
