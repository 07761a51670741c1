#pragma once

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace Tool {

struct Outcome {
   int code;
   std::string out;
   std::string err;
};

/// The command under test; the environment may name another build's.
inline std::string program() {
   const char* named = std::getenv( "VANTA_PROGRAM" );
   return named ? named : VANTA_PROGRAM;
}

inline std::string contentOf( const std::string& path ) {
   std::ostringstream text;
   text << std::ifstream( path, std::ios::binary ).rdbuf();
   return text.str();
}

/// Runs the real command as a person or a script would, with a folder of its own for tables and traces.
class VantaCommand : public testing::Test {
 protected:
   VantaCommand() {
      char name[] = "/tmp/vanta-test-XXXXXX";
      directory_ = mkdtemp( name );
      setenv( "PLEXO_DIR", directory_.c_str(), 1 );
      setenv( "RILO_DIR", directory_.c_str(), 1 );
      setenv( "TZ", "UTC", 1 );
   }
   ~VantaCommand() override { std::filesystem::remove_all( directory_ ); }

   /// `arguments` as a shell reads them; `before` and `after` stand around the command.
   Outcome run( const std::string& arguments, const std::string& after = "", const std::string& before = "" ) {
      const std::string out = directory_ + "/out", err = directory_ + "/err";
      const std::string line = before + " '" + program() + "' " + arguments + " 2>'" + err + "' " + after + " >'" + out + "'";
      return { exitCode( std::system( line.c_str() ) ), contentOf( out ), contentOf( err ) };
   }

   static int exitCode( int status ) { return WIFEXITED( status ) ? WEXITSTATUS( status ) : 128 + WTERMSIG( status ); }

   static rapidjson::Document parsed( const std::string& text ) {
      rapidjson::Document json;
      EXPECT_FALSE( json.Parse( text.c_str() ).HasParseError() ) << text;
      return json;
   }

   std::string directory_;
};

}
