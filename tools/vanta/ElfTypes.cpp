#include "ElfTypes.h"

#include "Cli.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

// The file is never mapped: another process may truncate it, and a mapping would turn that into a signal. Every read goes
// through `bytesAt`, which refuses what lies outside the file's size and what is larger than any honest library needs, so that
// neither an offset nor a size of the file can lead out of bounds or make us allocate without limit. Section headers of both
// word sizes are read into one form (System V gABI, chapter 4).

namespace Tool {

namespace {

constexpr std::uint64_t mostBytes = 64u << 20;
constexpr const char* sectionName = ".kel.type";

struct Descriptor {
   Descriptor() = default;
   Descriptor( const Descriptor& ) = delete;
   ~Descriptor() {
      if( number >= 0 ) close( number );
   }
   int number = -1;
};

class File {
 public:
   explicit File( const std::string& path ) : path_( path ) {
      // Without O_NONBLOCK the open of a named pipe would wait for its writer.
      fd_.number = open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK );
      struct stat status;
      if( fd_.number < 0 || fstat( fd_.number, &status ) < 0 ) fail( std::strerror( errno ) );
      if( !S_ISREG( status.st_mode ) ) fail( "it is not a regular file" );
      size_ = std::uint64_t( status.st_size );
   }

   [[noreturn]] void fail( const std::string& reason ) const {
      throw Failure( exitUsage, "cannot read '" + path_ + "': " + reason );
   }

   std::string bytesAt( std::uint64_t offset, std::uint64_t count, const char* what ) {
      if( offset > size_ || count > size_ - offset ) fail( std::string( what ) + " lies beyond the end of the file" );
      if( count > mostBytes ) fail( std::string( what ) + " is larger than any library's" );
      std::string bytes( std::size_t( count ), '\0' );
      std::size_t done = 0;
      while( done < bytes.size() ) {
         const ssize_t got = pread( fd_.number, bytes.data() + done, bytes.size() - done, off_t( offset + done ) );
         if( got < 0 && errno == EINTR ) continue;
         if( got < 0 ) fail( std::strerror( errno ) );
         if( got == 0 ) fail( std::string( what ) + " was cut off while it was read" );
         done += std::size_t( got );
      }
      return bytes;
   }

   template< class T >
   T structAt( std::uint64_t offset, const char* what ) {
      T value;
      std::memcpy( &value, bytesAt( offset, sizeof( T ), what ).data(), sizeof( T ) );
      return value;
   }

 private:
   std::string path_;
   Descriptor fd_;
   std::uint64_t size_ = 0;
};

/// The name that starts at `at` in a string table; one that has no end, or starts outside, is no name.
std::string_view stringAt( std::string_view table, std::uint64_t at ) {
   if( at >= table.size() ) return {};
   table.remove_prefix( std::size_t( at ) );
   const auto end = table.find( '\0' );
   return end == table.npos ? std::string_view() : table.substr( 0, end );
}

template< class Ehdr, class Shdr >
std::optional< std::string > sectionOf( File& file ) {
   const auto header = file.structAt< Ehdr >( 0, "the ELF header" );
   if( header.e_shoff == 0 ) return std::nullopt;
   if( header.e_shentsize != sizeof( Shdr ) ) file.fail( "its section headers have an unknown size" );

   // A file of 65280 sections or more keeps its numbers in the first section header.
   const auto first = file.structAt< Shdr >( header.e_shoff, "the section table" );
   const std::uint64_t count = header.e_shnum != 0 ? header.e_shnum : first.sh_size;
   const std::uint64_t nameIndex = header.e_shstrndx != SHN_XINDEX ? header.e_shstrndx : first.sh_link;
   if( count > mostBytes / sizeof( Shdr ) ) file.fail( "the section table is larger than any library's" );
   if( nameIndex >= count ) file.fail( "its section names are in no section" );

   const std::string headers = file.bytesAt( header.e_shoff, count * sizeof( Shdr ), "the section table" );
   const auto section = [ & ]( std::uint64_t index ) {
      Shdr value;
      std::memcpy( &value, headers.data() + index * sizeof( Shdr ), sizeof( Shdr ) );
      return value;
   };
   const auto names = section( nameIndex );
   if( names.sh_type != SHT_STRTAB ) file.fail( "its section names are not a string table" );
   const std::string nameTable = file.bytesAt( names.sh_offset, names.sh_size, "the table of section names" );
   for( std::uint64_t i = 0; i < count; ++i ) {
      const auto found = section( i );
      if( stringAt( nameTable, found.sh_name ) != sectionName ) continue;
      if( found.sh_type == SHT_NOBITS || ( found.sh_flags & SHF_COMPRESSED ) )
         file.fail( "its section .kel.type holds no plain bytes" );
      return file.bytesAt( found.sh_offset, found.sh_size, "the section .kel.type" );
   }
   return std::nullopt;
}

}

std::vector< std::string > typeNamesOf( const std::string& path ) {
   File file( path );
   const std::string ident = file.bytesAt( 0, EI_NIDENT, "the ELF header" );
   if( ident.compare( 0, SELFMAG, ELFMAG ) != 0 ) file.fail( "it is not an ELF file" );
   if( ident[ EI_DATA ] != ELFDATA2LSB ) file.fail( "it is not a little-endian ELF file" );

   std::optional< std::string > section;
   if( ident[ EI_CLASS ] == ELFCLASS64 ) section = sectionOf< Elf64_Ehdr, Elf64_Shdr >( file );
   else if( ident[ EI_CLASS ] == ELFCLASS32 ) section = sectionOf< Elf32_Ehdr, Elf32_Shdr >( file );
   else file.fail( "its word size is neither 32 nor 64 bits" );
   if( !section ) throw Failure( exitFalse, "'" + path + "' has no section .kel.type, so it declares no types" );
   return typeNamesIn( *section, path );
}

std::vector< std::string > typeNamesIn( std::string_view section, const std::string& path ) {
   std::vector< std::string > names;
   while( !section.empty() ) {
      const auto end = section.find( '\0' );
      if( end == section.npos )
         throw Failure( exitUsage, "cannot read '" + path + "': its section .kel.type ends inside a name" );
      if( end > 0 ) names.emplace_back( section.substr( 0, end ) );
      section.remove_prefix( end + 1 );
   }
   return names;
}

std::string loadedVantaLibrary() {
   std::string found;
   dl_iterate_phdr(
      []( dl_phdr_info* info, std::size_t, void* to ) {
         const std::string_view path = info->dlpi_name ? info->dlpi_name : "";
         const auto name = path.substr( path.rfind( '/' ) + 1 );
         if( !name.starts_with( "libVanta.so" ) ) return 0;
         *static_cast< std::string* >( to ) = path;
         return 1;
      },
      &found );
   return found;
}

}
