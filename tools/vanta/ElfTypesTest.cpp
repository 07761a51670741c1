#include "ElfTypes.h"

#include "Cli.h"

#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

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
   ElfTypes() {
      char name[] = "/dev/shm/vanta-elf-XXXXXX";
      close( mkstemp( name ) );
      path_ = name;
   }
   ~ElfTypes() override { unlink( path_.c_str() ); }

   Names read( const std::string& bytes ) {
      std::ofstream( path_, std::ios::binary | std::ios::trunc ) << bytes;
      return typeNamesOf( path_ );
   }
   /// What the reader says instead of names, without the file's name.
   std::string refusal( const std::string& bytes, ExitCode expected = exitUsage ) {
      try {
         read( bytes );
      } catch( const Failure& e ) {
         EXPECT_EQ( e.code(), expected );
         std::string text = e.what();
         if( const auto at = text.find( path_ ); at != text.npos ) text.replace( at, path_.size(), "F" );
         return text;
      }
      return "names";
   }

   std::string path_;
};

TEST_F( ElfTypes, ReadsBothWordSizesAndStepsOverPadding ) {
   const Names expected{ "Bridging::HostKey", "Bridging::Fid", "Quor::SubIntfId" };
   EXPECT_EQ( read( Image64().bytes() ), expected );
   EXPECT_EQ( read( Image32().bytes() ), expected );
}

TEST_F( ElfTypes, SaysWhatIsWrongWithAFile ) {
   const std::string cannot = "cannot read 'F': ";
   struct Case {
      const char* text;
      std::function< void( Image64& ) > change;
   };
   const Case cases[] = {
      { "it is not an ELF file", []( auto& i ) { i.header.e_ident[ 1 ] = 'L'; } },
      { "it is not a little-endian ELF file", []( auto& i ) { i.header.e_ident[ EI_DATA ] = ELFDATA2MSB; } },
      { "its word size is neither 32 nor 64 bits", []( auto& i ) { i.header.e_ident[ EI_CLASS ] = 3; } },
      { "the section table lies beyond the end of the file", []( auto& i ) { i.header.e_shoff = ~0ull - 8; } },
      { "the section table lies beyond the end of the file", []( auto& i ) { i.header.e_shnum = 4; } },
      { "the section table is larger than any library's",
        []( auto& i ) { i.header.e_shnum = 0, i.sections[ 0 ].sh_size = ~0ull / sizeof( Elf64_Shdr ); } },
      { "its section headers have an unknown size", []( auto& i ) { i.header.e_shentsize = 0; } },
      { "its section names are in no section", []( auto& i ) { i.header.e_shstrndx = 3; } },
      { "its section names are not a string table", []( auto& i ) { i.header.e_shstrndx = 2; } },
      { "the table of section names lies beyond the end of the file", []( auto& i ) { i.sections[ 1 ].sh_size = ~0ull; } },
      { "the section .kel.type lies beyond the end of the file", []( auto& i ) { i.sections[ 2 ].sh_offset = 1u << 20; } },
      { "its section .kel.type holds no plain bytes", []( auto& i ) { i.sections[ 2 ].sh_type = SHT_NOBITS; } },
      { "its section .kel.type holds no plain bytes", []( auto& i ) { i.sections[ 2 ].sh_flags = SHF_COMPRESSED; } },
      { "its section .kel.type ends inside a name", []( auto& i ) { i.sections[ 2 ].sh_size -= 1; } },
   };
   for( const Case& c : cases ) EXPECT_EQ( refusal( Image64().bytes( c.change ) ), cannot + c.text );
   EXPECT_EQ( refusal( "" ), cannot + "the ELF header lies beyond the end of the file" );
}

TEST_F( ElfTypes, ALibraryWithoutTheSectionDeclaresNoTypes ) {
   const std::string expected = "'F' has no section .kel.type, so it declares no types";
   EXPECT_EQ( refusal( Image64().bytes( []( auto& i ) { i.sections[ 2 ].sh_name = 12; } ), exitFalse ), expected );
   EXPECT_EQ( refusal( Image64().bytes( []( auto& i ) { i.sections[ 2 ].sh_name = ~0u; } ), exitFalse ), expected );
   EXPECT_EQ( refusal( Image64().bytes( []( auto& i ) { i.header.e_shoff = 0; } ), exitFalse ), expected );
}

TEST_F( ElfTypes, SectionNumbersBeyondTheHeadersFieldsAreFollowed ) {
   EXPECT_EQ( read( Image64().bytes( []( auto& i ) {
                 i.header.e_shnum = 0;
                 i.header.e_shstrndx = SHN_XINDEX;
                 i.sections[ 0 ].sh_size = 3;
                 i.sections[ 0 ].sh_link = 1;
              } ) ).size(),
              3u );
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

TEST_F( ElfTypes, OnlyRegularFilesAreRead ) {
   EXPECT_THROW( typeNamesOf( "/tmp" ), Failure );
   EXPECT_THROW( typeNamesOf( "/dev/zero" ), Failure );
   EXPECT_THROW( typeNamesOf( path_ + ".none" ), Failure );
   const std::string pipe = path_ + ".pipe";
   ASSERT_EQ( mkfifo( pipe.c_str(), 0600 ), 0 );
   EXPECT_THROW( typeNamesOf( pipe ), Failure ); // and does not wait for a writer
   unlink( pipe.c_str() );
}

}
}
