#include "Cli.h"

#include <charconv>
#include <cstdio>
#include <getopt.h>

namespace Tool {

namespace {

std::string leftColumn( const Option& option ) {
   std::string text = std::string( "--" ) + option.name;
   if( option.argument ) text.append( " " ).append( option.argument );
   return text;
}

void appendRow( std::string& text, std::string left, const char* right, std::size_t width ) {
   left.resize( std::max( left.size(), width ), ' ' );
   text.append( "  " ).append( left ).append( "  " ).append( right ).append( "\n" );
}

}

std::string CommandLine::help() const {
   std::string text = "Usage: " + name + ( options.empty() ? "" : " [OPTION]..." ) + ( operands.empty() ? "" : " " + operands );
   text += "\n\n" + description + "\n\nOptions:\n";
   std::size_t width = std::string_view( "--help" ).size();
   for( const Option& option : options ) width = std::max( width, leftColumn( option ).size() );
   for( const Option& option : options ) appendRow( text, leftColumn( option ), option.help, width );
   appendRow( text, "--help", "print this help", width );
   return text;
}

std::optional< std::vector< std::string > > CommandLine::parse( int argc, char** argv ) const {
   std::vector< option > longOptions;
   for( std::size_t i = 0; i < options.size(); ++i ) {
      longOptions.push_back( { options[ i ].name, options[ i ].argument ? required_argument : no_argument, nullptr,
                               int( 256 + i ) } );
   }
   longOptions.push_back( { "help", no_argument, nullptr, 'h' } );
   longOptions.push_back( { nullptr, 0, nullptr, 0 } );

   optind = 0; // a fresh scan: the words before this command's own have been taken off
   opterr = 0;
   for( int at; ( at = getopt_long( argc, argv, ":h", longOptions.data(), nullptr ) ) != -1; ) {
      const std::string word = argv[ optind > 0 ? optind - 1 : 0 ];
      if( at == 'h' ) {
         std::fputs( help().c_str(), stdout );
         return std::nullopt;
      }
      if( at == ':' ) throw UsageError( "option '" + word + "' needs an argument" );
      if( at == '?' ) throw UsageError( "no such option: '" + word + "'" );
      options[ std::size_t( at - 256 ) ].set( optarg );
   }
   std::vector< std::string > rest( argv + optind, argv + argc );
   if( rest.size() > mostOperands ) throw UsageError( "unexpected argument: '" + rest[ mostOperands ] + "'" );
   return rest;
}

int runCommand( const std::string& group, const char* description, std::span< const Command > commands, int argc, char** argv ) {
   const std::string_view word = argc > 1 ? argv[ 1 ] : "";
   for( const Command& command : commands ) {
      if( word != command.name ) continue;
      try {
         return command.run( argc - 1, argv + 1 );
      } catch( const UsageError& e ) {
         std::fprintf( stderr, "%s %s: %s; see '%s %s --help'\n", group.c_str(), command.name, e.what(), group.c_str(),
                       command.name );
         return e.code();
      } catch( const std::exception& e ) {
         const auto* failure = dynamic_cast< const Failure* >( &e );
         std::fprintf( stderr, "%s %s: %s\n", group.c_str(), command.name, e.what() );
         return failure ? failure->code() : exitNotConnected;
      }
   }
   const bool helped = word == "--help" || word == "-h" || word == "help";
   if( !helped && !word.empty() ) {
      std::fprintf( stderr, "%s: no such command: '%s'; see '%s --help'\n", group.c_str(), argv[ 1 ], group.c_str() );
      return exitUsage;
   }
   std::string text = "Usage: " + group + " COMMAND [OPTION]...\n\n" + description + "\n\nCommands:\n";
   std::size_t width = 0;
   for( const Command& command : commands ) width = std::max( width, std::string_view( command.name ).size() );
   for( const Command& command : commands ) appendRow( text, command.name, command.summary, width );
   text += "\n'" + group + " COMMAND --help' tells more.\n";
   std::fputs( text.c_str(), helped ? stdout : stderr );
   return helped ? exitOk : exitUsage;
}

std::uint64_t numberOf( std::string_view what, std::string_view text, std::uint64_t least, std::uint64_t most ) {
   std::uint64_t value = 0;
   const auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), value );
   if( error != std::errc() || end != text.data() + text.size() || value < least || value > most ) {
      throw UsageError( std::string( what ) + " is a number from " + std::to_string( least ) + " to " + std::to_string( most ) +
                        ", not '" + std::string( text ) + "'" );
   }
   return value;
}

double secondsOf( std::string_view what, std::string_view text ) {
   double value = -1;
   const auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), value, std::chars_format::fixed );
   if( error != std::errc() || end != text.data() + text.size() || !( value >= 0 && value <= 86400 ) ) {
      throw UsageError( std::string( what ) + " is a time in seconds, at most a day, not '" + std::string( text ) + "'" );
   }
   return value;
}

}
