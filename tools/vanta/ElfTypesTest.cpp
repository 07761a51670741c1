#include "ElfTypes.h"

#include "Cli.h"

#include <cstring>
#include <elf.h>
#include <fstream>
#include <functional>
#include <plexo/TestFiles.h>

namespace Tool {
namespace {

using Names = std::vector< std::string >;

using namespace std::string_view_literals;
constexpr std::string_view twoGroups = "Bridging::HostKey\0Bridging::Fid\0\0\0\0\0\0\0Quor::SubIntfId\0"sv;

/// A library file made by hand: the ELF header, then the bytes of two sections, then three section headers.
template< class Ehdr, class Shdr >
struct Image {
   Ehdr header{};
   Shdr sections[ 3 ]{};
   std::string names{ "\0.shstrtab\0.kel.type\0"sv };
   std::string types{ twoGroups };

   Image() {
      std::memcpy( header.e_ident, ELFMAG, SELFMAG );
      header.e_ident[ EI_CLASS ] = sizeof( Ehdr ) == sizeof( Elf64_Ehdr ) ? ELFCLASS64 : ELFCLASS32;
      header.e_ident[ EI_DATA ] = ELFDATA2LSB;
      header.e_shentsize = sizeof( Shdr );
      header.e_shnum = 3;
      header.e_shstrndx = 1;
      sections[ 1 ].sh_name = 1;
      sections[ 1 ].sh_type = SHT_STRTAB;
      sections[ 2 ].sh_name = 11;
      sections[ 2 ].sh_type = SHT_PROGBITS;
   }

   std::string bytes( const std::function< void( Image& ) >& change = []( Image& ) {} ) {
      place( sections[ 1 ], sizeof header, names );
      place( sections[ 2 ], sizeof header + names.size(), types );
      header.e_shoff = static_cast< decltype( header.e_shoff ) >( sizeof header + names.size() + types.size() );
      change( *this );
      return std::string( reinterpret_cast< const char* >( &header ), sizeof header ) + names + types +
             std::string( reinterpret_cast< const char* >( sections ), sizeof sections );
   }

 private:
   void place( Shdr& section, std::size_t offset, const std::string& content ) {
      section.sh_offset = static_cast< decltype( section.sh_offset ) >( offset );
      section.sh_size = static_cast< decltype( section.sh_size ) >( content.size() );
   }
};
using Image64 = Image< Elf64_Ehdr, Elf64_Shdr >;
using Image32 = Image< Elf32_Ehdr, Elf32_Shdr >;

class ElfTypes : public testing::Test {
 protected:
   Names read( const std::string& bytes ) {
      std::ofstream( path_, std::ios::binary | std::ios::trunc ) << bytes;
      return typeNamesOf( path_ );
   }

   const Plexo::TestDirectory home_;
   const std::string path_ = home_.path + "/F";
};

TEST_F( ElfTypes, ReadsBothWordSizesAndStepsOverPadding ) {
   const Names expected{ "Bridging::HostKey", "Bridging::Fid", "Quor::SubIntfId" };
   const auto countedElsewhere = []( Image64& i ) { // as for more sections than the header's fields can count
      i.header.e_shnum = 0;
      i.header.e_shstrndx = SHN_XINDEX;
      i.sections[ 0 ].sh_size = 3;
      i.sections[ 0 ].sh_link = 1;
   };
   for( const std::string& bytes : { Image64().bytes(), Image32().bytes(), Image64().bytes( countedElsewhere ) } )
      EXPECT_EQ( read( bytes ), expected );
}

TEST_F( ElfTypes, SaysWhatIsWrongWithAFile ) {
   const std::string cannot = "cannot read '" + path_ + "': ",
      none = "'" + path_ + "' has no section .kel.type, so it declares no types";
   struct Case {
      std::string text;
      std::function< void( Image64& ) > change;
   };
   const Case cases[] = {
      { cannot + "it is not an ELF file", []( auto& i ) { i.header.e_ident[ 1 ] = 'L'; } },
      { cannot + "it is not a little-endian ELF file", []( auto& i ) { i.header.e_ident[ EI_DATA ] = ELFDATA2MSB; } },
      { cannot + "its word size is neither 32 nor 64 bits", []( auto& i ) { i.header.e_ident[ EI_CLASS ] = 3; } },
      { cannot + "the section table lies beyond the end of the file", []( auto& i ) { i.header.e_shoff = ~0ull - 8; } },
      { cannot + "the section table lies beyond the end of the file", []( auto& i ) { i.header.e_shnum = 4; } },
      { cannot + "the section table is larger than any library's",
        []( auto& i ) { i.header.e_shnum = 0, i.sections[ 0 ].sh_size = ~0ull / sizeof( Elf64_Shdr ); } },
      { cannot + "its section headers have an unknown size", []( auto& i ) { i.header.e_shentsize = 0; } },
      { cannot + "its section names are in no section", []( auto& i ) { i.header.e_shstrndx = 3; } },
      { cannot + "its section names are not a string table", []( auto& i ) { i.header.e_shstrndx = 2; } },
      { cannot + "the table of section names lies beyond the end of the file",
        []( auto& i ) { i.sections[ 1 ].sh_size = ~0ull; } },
      { cannot + "the section .kel.type lies beyond the end of the file",
        []( auto& i ) { i.sections[ 2 ].sh_offset = 1u << 20; } },
      { cannot + "its section .kel.type holds no plain bytes", []( auto& i ) { i.sections[ 2 ].sh_type = SHT_NOBITS; } },
      { cannot + "its section .kel.type holds no plain bytes", []( auto& i ) { i.sections[ 2 ].sh_flags = SHF_COMPRESSED; } },
      { cannot + "its section .kel.type ends inside a name", []( auto& i ) { i.sections[ 2 ].sh_size -= 1; } },
      { none, []( auto& i ) { i.sections[ 2 ].sh_name = 12; } },
      { none, []( auto& i ) { i.sections[ 2 ].sh_name = ~0u; } },
      { none, []( auto& i ) { i.header.e_shoff = 0; } },
   };
   for( const Case& c : cases ) {
      const auto reading = [ & ] { read( Image64().bytes( c.change ) ); };
      EXPECT_EQ( Plexo::thrown< Failure >( reading ), c.text );
      try {
         reading();
      } catch( const Failure& e ) {
         EXPECT_EQ( e.code(), c.text == none ? exitFalse : exitNotConnected ) << c.text;
      }
   }
   EXPECT_EQ( Plexo::thrown< Failure >( [ & ] { read( "" ); } ), cannot + "the ELF header lies beyond the end of the file" );
}

TEST_F( ElfTypes, NoCutOrChangedByteLeadsOutOfBounds ) {
   for( const std::string& whole : { Image64().bytes(), Image32().bytes() } ) {
      for( std::size_t size = 0; size < whole.size(); ++size ) EXPECT_THROW( read( whole.substr( 0, size ) ), Failure ) << size;
      for( std::size_t at = 0; at < whole.size(); ++at ) {
         for( const char value : { '\x00', '\x01', '\x7f', '\xff' } ) {
            std::string changed = whole;
            changed[ at ] = value;
            try {
               EXPECT_LE( read( changed ).size(), twoGroups.size() );
            } catch( const Failure& ) {
            }
         }
      }
   }
}

}
}
