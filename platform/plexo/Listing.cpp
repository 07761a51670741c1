#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <plexo/Listing.h>
#include <plexo/TableFile.h>
#include <unistd.h>

namespace Plexo {

namespace {

void headerIs( TableInfo& info, const Format::Header& header ) {
   info.writerPid = header.writerPid;
   info.records = header.liveRecords;
   info.maxRecords = header.geometry.maxRecords;
   info.recordBytes = header.geometry.recordBytes;
   info.changes = header.head ? header.head - 1 : 0;
   info.layout = header.text;
}

TableInfo examine( const Directory& directory, const std::string& file ) {
   TableInfo info;
   info.name = file.substr( 0, file.size() - std::strlen( tableSuffix ) );
   info.path = directory.of( file );
   const Kel::UniqueFd opened = openForReading( directory, file );
   if( !opened ) {
      info.reason = std::string( "it cannot be opened: " ) + std::strerror( errno );
      return info;
   }
   FileIdentity self;
   Format::Header header;
   if( !FileIdentity::of( opened.get(), self ) || !self.regular ) {
      info.reason = "it is no regular file";
      return info;
   }
   info.bytesUsed = self.blocks;
   if( !directory.trusts( self ) ) {
      info.reason = "it belongs to user " + std::to_string( self.owner ) + ", who does not own the directory";
   } else if( !readHeader( opened.get(), header ) ) {
      info.reason = "it is shorter than a table's header";
   } else {
      info.reason = header.fault( self.bytes );
      if( info.reason.empty() ) headerIs( info, header );
   }
   if( info.reason.empty() ) info.state = lockedByWriter( opened.get() ) ? TableState::live : TableState::stale;
   return info;
}

}

std::vector< TableInfo > listTables( const std::string& path ) {
   std::vector< TableInfo > tables;
   const Directory directory = Directory::tryOpen( path );
   if( directory.fd() < 0 && errno == ENOENT ) return tables;
   using Entries = std::unique_ptr< DIR, int ( * )( DIR* ) >;
   const Entries entries( directory.fd() < 0 ? nullptr : ::opendir( path.c_str() ), ::closedir );
   if( !entries ) systemFailure( "cannot read the table directory", path );
   while( const dirent* entry = ::readdir( entries.get() ) ) {
      const std::string file = entry->d_name;
      if( file.size() > std::strlen( tableSuffix ) && file[ 0 ] != '.' && file.ends_with( tableSuffix ) ) {
         tables.push_back( examine( directory, file ) );
      }
   }
   std::sort( tables.begin(), tables.end(), []( const TableInfo& a, const TableInfo& b ) { return a.name < b.name; } );
   return tables;
}

}
