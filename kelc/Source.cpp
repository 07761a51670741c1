#include "Source.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace Kelc {

Source::Place Source::place( std::uint32_t offset ) const {
   const std::string_view all = text_;
   const auto at = std::min< std::size_t >( offset, all.size() );
   const auto before = all.substr( 0, at );
   const auto newline = before.rfind( '\n' );
   const auto start = newline == std::string_view::npos ? 0 : newline + 1;
   auto line = all.substr( start );
   line = line.substr( 0, line.find( '\n' ) );
   if( !line.empty() && line.back() == '\r' ) line.remove_suffix( 1 );
   return { static_cast< std::uint32_t >( std::count( before.begin(), before.end(), '\n' ) + 1 ),
            static_cast< std::uint32_t >( at - start + 1 ), line };
}

bool readFile( const std::string& path, std::string& text, std::string& why ) {
   constexpr std::uintmax_t limit = 1u << 20;
   std::error_code error;
   const auto status = std::filesystem::status( path, error );
   if( !std::filesystem::exists( status ) ) return why = "no such file", false;
   if( !std::filesystem::is_regular_file( status ) ) return why = "not a regular file", false;
   if( std::filesystem::file_size( path, error ) > limit || error ) return why = "larger than 1 MiB", false;
   std::ifstream in( path, std::ios::binary );
   if( !in ) return why = std::strerror( errno ), false;
   text.assign( std::istreambuf_iterator< char >( in ), {} );
   if( in.bad() ) return why = "read error", false;
   return true;
}

}
