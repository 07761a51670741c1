#pragma once

#include <csignal>
#include <fstream>
#include <plexo/TestFiles.h>
#include <rapidjson/document.h>
#include <sstream>
#include <sys/wait.h>

namespace Tool {

using Plexo::contentOf;

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

/// Runs the real command as a person or a script would, with a folder of its own for tables and traces.
class VantaCommand : public testing::Test {
 protected:
   VantaCommand() { setenv( "TZ", "UTC", 1 ); }

   /// `arguments` as a shell reads them; `before` and `after` stand around the command, which is ended when it hangs.
   Outcome run( const std::string& arguments, const std::string& after = "", const std::string& before = "" ) {
      const std::string out = directory_ + "/out", err = directory_ + "/err";
      const std::string line = before + " timeout " + std::to_string( Plexo::longestTest ) + " '" + program() + "' " + arguments +
         " 2>'" + err + "' " + after + " >'" + out + "'";
      return { exitCode( std::system( line.c_str() ) ), contentOf( out ), contentOf( err ) };
   }

   static int exitCode( int status ) { return WIFEXITED( status ) ? WEXITSTATUS( status ) : 128 + WTERMSIG( status ); }

   static rapidjson::Document parsed( const std::string& text ) {
      rapidjson::Document json;
      EXPECT_FALSE( json.Parse( text.c_str() ).HasParseError() ) << text;
      return json;
   }

   const Plexo::TestDirectory home_{ { "PLEXO_DIR", "RILO_DIR" } };
   const std::string& directory_ = home_.path;
};

}
