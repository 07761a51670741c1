#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// The `vanta` command.
namespace Tool {

/// What the command's exit code says.
enum ExitCode {
   exitOk = 0,
   exitFalse = 1,        ///< What was asked for is not there, though everything could be read.
   exitUsage = 2,        ///< The command line itself can't be used.
   exitNotConnected = 3, ///< A file, table, ring or schema is not there, is none or can't be read; or the output can't be written.
};

/// Ends the command: one line on standard error, then the exit code.
class Failure : public std::runtime_error {
 public:
   Failure( ExitCode code, const std::string& text ) : std::runtime_error( text ), code_( code ) {}
   ExitCode code() const noexcept { return code_; }

 private:
   ExitCode code_;
};

/// A command line that can't be used; the message is followed by a pointer to `--help`.
class UsageError : public Failure {
 public:
   explicit UsageError( const std::string& text ) : Failure( exitUsage, text ) {}
};

/// One long option of a command.
struct Option {
   const char* name;     ///< Without its dashes.
   const char* argument; ///< What its argument is called in the help; null when it takes none.
   const char* help;
   std::function< void( const char* ) > set; ///< Called with the argument, or with null.
};

/// What a command tells about itself, and how it reads its options.
struct CommandLine {
   std::string name;                   ///< As typed: "vanta fdb show".
   std::string operands = {};          ///< As the usage line shows them; empty when there are none.
   std::string description;            ///< Lines for the help.
   std::vector< Option > options = {}; ///< `--help` is added by itself.
   std::size_t mostOperands = 0;

   /// Calls the options' setters in order and returns the operands, or nothing when the help was asked for and printed.
   /// `argv[ 0 ]` is the command itself. Throws `UsageError`.
   std::optional< std::vector< std::string > > parse( int argc, char** argv ) const;
   std::string help() const;
};

/// A command or a group's member.
struct Command {
   const char* name;
   const char* summary;
   int ( *run )( int argc, char** argv ); ///< `argv[ 0 ]` is the command's own word.
};

/// Runs the command that `argv[ 1 ]` names; `group` is the words before it ("vanta fdb").
int runCommand( const std::string& group, const char* description, std::span< const Command > commands, int argc, char** argv );

/// A decimal number within `least` and `most`; `what` begins the message of the `UsageError`.
std::uint64_t numberOf( std::string_view what, std::string_view text, std::uint64_t least, std::uint64_t most );
/// A time span in seconds, such as "2" or "0.5", at most a day.
double secondsOf( std::string_view what, std::string_view text );

int fdbCommand( int argc, char** argv );
int tablesCommand( int argc, char** argv );
int traceCommand( int argc, char** argv );
int typesCommand( int argc, char** argv );

}
