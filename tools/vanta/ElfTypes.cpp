#include "ElfTypes.h"

#include "Cli.h"
#include "InputFile.h"

#include <cstdint>
#include <cstring>
#include <elf.h>
#include <link.h>
#include <optional>

// Every read goes through `InputFile::bytesAt`, so that neither an offset nor a size of the file can lead out of bounds or make
// us allocate without limit. Section headers of both word sizes are read into one form (System V gABI, chapter 4).

namespace Tool {

namespace {

constexpr const char* sectionName = ".kel.type";

/// The name that starts at `at` in a string table; one that has no end, or starts outside, is no name.
std::string_view stringAt( std::string_view table, std::uint64_t at ) {
   if( at >= table.size() ) return {};
   table.remove_prefix( std::size_t( at ) );
   const auto end = table.find( '\0' );
   return end == table.npos ? std::string_view() : table.substr( 0, end );
}

template< class Ehdr, class Shdr >
std::optional< std::string > sectionOf( InputFile& file ) {
   const auto header = file.structAt< Ehdr >( 0, "the ELF header" );
   if( header.e_shoff == 0 ) return std::nullopt;
   if( header.e_shentsize != sizeof( Shdr ) ) file.fail( "its section headers have an unknown size" );

   // A file of 65280 sections or more keeps its numbers in the first section header.
   const auto first = file.structAt< Shdr >( header.e_shoff, "the section table" );
   const std::uint64_t count = header.e_shnum != 0 ? header.e_shnum : first.sh_size;
   const std::uint64_t nameIndex = header.e_shstrndx != SHN_XINDEX ? header.e_shstrndx : first.sh_link;
   if( count > InputFile::mostBytes / sizeof( Shdr ) ) file.fail( "the section table is larger than any library's" );
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
   InputFile file( path );
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
         throw Failure( exitNotConnected, "cannot read '" + path + "': its section .kel.type ends inside a name" );
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
