#pragma once

#include "Compile.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace Kelc {

/// A directory of its own for each test, made the current one, so that messages name files without a path.
class TestTree : public testing::Test {
 protected:
   struct Result {
      int status;
      std::string out;
      std::string err;
   };

   TestTree() : before_( std::filesystem::current_path() ) {
      std::string name = ( std::filesystem::temp_directory_path() / "kelc-test-XXXXXX" ).string();
      if( !::mkdtemp( name.data() ) ) throw std::runtime_error( "mkdtemp failed" );
      dir_ = name;
      std::filesystem::current_path( dir_ );
   }
   ~TestTree() override {
      std::filesystem::current_path( before_ );
      std::filesystem::remove_all( dir_ );
   }

   static void write( const std::string& path, const std::string& text ) {
      const auto parent = std::filesystem::path( path ).parent_path();
      if( !parent.empty() ) std::filesystem::create_directories( parent );
      std::ofstream( path, std::ios::binary ) << text;
   }
   static std::string read( const std::string& path ) {
      std::ifstream in( path, std::ios::binary );
      return std::string( std::istreambuf_iterator< char >( in ), {} );
   }
   static Result kelc( const std::vector< std::string >& arguments ) {
      std::ostringstream out, err;
      const int status = compile( arguments, out, err );
      return { status, out.str(), err.str() };
   }
   /// Compiles definitions with the built-in types at hand; `body` is what follows the module's first lines.
   static Result define( const std::string& body ) {
      write( "t.kel", "module T; import \"kel/Kel.kel\"; import \"quor/Quor.kel\"; namespace A;\n" + body );
      return kelc( { "-I", KELC_PLATFORM, "-I.", "t.kel" } );
   }

 private:
   std::filesystem::path before_;
   std::filesystem::path dir_;
};

}
