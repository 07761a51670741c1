#include "Output.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace Kelc {

namespace {

bool holds( const std::string& path, const std::string& text ) {
   std::error_code error;
   if( !std::filesystem::is_regular_file( path, error ) || std::filesystem::file_size( path, error ) != text.size() )
      return false;
   std::ifstream in( path, std::ios::binary );
   return in && std::string( std::istreambuf_iterator< char >( in ), {} ) == text;
}

bool writeAll( const std::string& path, const std::string& text ) {
   std::ofstream out( path, std::ios::binary | std::ios::trunc );
   out.write( text.data(), static_cast< std::streamsize >( text.size() ) );
   out.close();
   return !out.fail();
}

// Make reads a blank, a hash and a dollar as its own.
std::string escaped( const std::string& path ) {
   std::string out;
   for( const char c : path ) {
      if( c == ' ' || c == '#' ) out += '\\';
      if( c == '$' ) out += '$';
      out += c;
   }
   return out;
}

}

bool writeIfChanged( const std::string& path, const std::string& text, std::string& why ) {
   if( holds( path, text ) ) return true;
   // A pipe or a terminal is written to; a link is kept and what it leads to is replaced.
   std::error_code error;
   const auto status = std::filesystem::status( path, error );
   const bool isSpecial = std::filesystem::exists( status ) && !std::filesystem::is_regular_file( status );
   const std::string target =
      std::filesystem::is_symlink( path, error ) ? std::filesystem::weakly_canonical( path, error ).string() : path;
   const std::string fresh = target + ".new." + std::to_string( ::getpid() );
   errno = 0;
   if( isSpecial ? writeAll( path, text ) : writeAll( fresh, text ) && std::rename( fresh.c_str(), target.c_str() ) == 0 )
      return true;
   why = errno ? std::strerror( errno ) : "write error";
   std::remove( fresh.c_str() );
   return false;
}

std::string depfile( const std::vector< std::string >& outputs, const std::vector< std::string >& inputs ) {
   std::string out;
   for( const auto& path : outputs ) out += ( out.empty() ? "" : " " ) + escaped( path );
   out += ':';
   for( const auto& path : inputs ) out += " \\\n  " + escaped( path );
   return out + "\n";
}

}
