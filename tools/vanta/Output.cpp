#include "Output.h"

#include "Cli.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <numeric>
#include <sys/ioctl.h>
#include <unistd.h>

namespace Tool {

namespace {

constexpr std::string_view whiteSpace = " \t\r\n";

void checkOutput( bool written ) {
   if( written ) return;
   const int reason = errno;
   if( reason != EPIPE ) std::fprintf( stderr, "vanta: cannot write the output: %s\n", std::strerror( reason ) );
   _exit( exitNotConnected ); // no flush at exit: it would fail again
}

std::string coloured( const char* code, std::string_view text ) {
   return colours() ? "\033[" + std::string( code ) + "m" + std::string( text ) + "\033[0m" : std::string( text );
}

/// The length of the well-formed UTF-8 sequence that `text` begins with, or 0 (Unicode 15, table 3-7).
std::size_t utf8Length( std::string_view text ) {
   const auto at = [ & ]( std::size_t i ) { return i < text.size() ? static_cast< unsigned char >( text[ i ] ) : 0u; };
   const unsigned first = at( 0 );
   if( first < 0x80 ) return 1;
   const std::size_t length = first < 0xc2 ? 0 : first < 0xe0 ? 2 : first < 0xf0 ? 3 : first < 0xf5 ? 4 : 0;
   for( std::size_t i = 1; i < length; ++i ) {
      if( ( at( i ) & 0xc0 ) != 0x80 ) return 0;
   }
   const unsigned second = at( 1 );
   const bool bad = ( first == 0xe0 && second < 0xa0 ) || ( first == 0xed && second > 0x9f ) ||
      ( first == 0xf0 && second < 0x90 ) ||
                    ( first == 0xf4 && second > 0x8f );
   return bad ? 0 : length;
}

std::size_t longestWord( std::string_view text ) {
   std::size_t longest = 0, length = 0;
   for( const char c : text ) {
      length = whiteSpace.find( c ) != whiteSpace.npos ? 0 : length + printable( { &c, 1 } ).size();
      longest = std::max( longest, length );
   }
   return longest;
}

}

void print( std::string_view text ) {
   checkOutput( std::fwrite( text.data(), 1, text.size(), stdout ) == text.size() );
}

void flushOutput() { checkOutput( std::fflush( stdout ) == 0 ); }

std::string printable( std::string_view text ) {
   std::string out;
   for( const char c : text ) {
      if( c >= ' ' && c <= '~' ) {
         out += c;
      } else {
         char escape[ 5 ];
         std::snprintf( escape, sizeof escape, "\\x%02x", static_cast< unsigned char >( c ) );
         out += escape;
      }
   }
   return out;
}

bool colours() {
   static const bool on = isatty( STDOUT_FILENO ) && !std::getenv( "NO_COLOR" ) &&
                          std::string_view( std::getenv( "TERM" ) ? std::getenv( "TERM" ) : "dumb" ) != "dumb";
   return on;
}

std::string bold( std::string_view text ) { return coloured( "1", text ); }
std::string red( std::string_view text ) { return coloured( "31", text ); }
std::string green( std::string_view text ) { return coloured( "32", text ); }

std::size_t outputWidth() {
   static const std::size_t width = [] {
      if( !isatty( STDOUT_FILENO ) ) return std::size_t( std::numeric_limits< int >::max() );
      winsize size{};
      const bool known = ioctl( STDOUT_FILENO, TIOCGWINSZ, &size ) == 0 && size.ws_col > 0;
      return std::size_t( known ? size.ws_col : 80 );
   }();
   return width;
}

std::vector< std::string > wrapped( std::string_view text, std::size_t width ) {
   width = std::max< std::size_t >( width, 1 );
   std::vector< std::string > lines( 1 );
   for( bool isFirst = true;; isFirst = false ) {
      const auto begin = std::min( text.find_first_not_of( whiteSpace ), text.size() );
      const auto gap = text.substr( 0, begin );
      text.remove_prefix( begin );
      if( text.empty() ) break;
      if( !isFirst && std::count( gap.begin(), gap.end(), '\n' ) > 1 ) lines.insert( lines.end(), 2, "" );
      std::string word = printable( text.substr( 0, text.find_first_of( whiteSpace ) ) );
      text.remove_prefix( std::min( text.find_first_of( whiteSpace ), text.size() ) );
      if( !lines.back().empty() && lines.back().size() + 1 + word.size() > width ) lines.emplace_back();
      for( ; word.size() > width; word.erase( 0, width ) ) lines.back() = word.substr( 0, width ), lines.emplace_back();
      lines.back() += ( lines.back().empty() ? "" : " " ) + word;
   }
   return lines;
}

std::string dateTime( double secondsSinceEpoch, bool withMilliseconds ) {
   // The range of years 1970 to 9999: any other double can't be a date that a person would read.
   if( secondsSinceEpoch == 0 || !( secondsSinceEpoch > 0 && secondsSinceEpoch < 253402214400.0 ) ) {
      return secondsSinceEpoch == 0 ? "-" : "?";
   }
   const auto whole = std::time_t( std::floor( secondsSinceEpoch ) );
   std::tm local;
   char text[ 64 ];
   if( double( whole ) != std::floor( secondsSinceEpoch ) || !localtime_r( &whole, &local ) ) return "?";
   std::size_t size = std::strftime( text, sizeof text, "%Y-%m-%d %H:%M:%S", &local );
   if( withMilliseconds ) {
      const int milliseconds = int( ( secondsSinceEpoch - double( whole ) ) * 1000 );
      size += std::size_t( std::snprintf( text + size, sizeof text - size, ".%03d", milliseconds ) );
   }
   return std::string( text, size );
}

Table::Table( std::vector< Column > columns ) : columns_( std::move( columns ) ) {
   for( const Column& column : columns_ ) widths_.push_back( column.heading.size() );
}

void Table::row( const std::vector< std::string >& cells ) {
   for( std::size_t i = 0; i < columns_.size(); ++i ) {
      const char* cell = i < cells.size() ? cells[ i ].c_str() : "";
      widths_[ i ] = std::max( widths_[ i ], std::strlen( cell ) );
      cells_.append( cell ).push_back( '\0' );
   }
}

std::string Table::line( std::string_view packed ) const {
   std::string text;
   for( std::size_t i = 0; i < columns_.size(); ++i ) {
      const auto cell = packed.substr( 0, packed.find( '\0' ) );
      packed.remove_prefix( cell.size() + 1 );
      const std::string padding( widths_[ i ] - cell.size(), ' ' );
      if( i > 0 ) text += "  ";
      text += columns_[ i ].align == right ? padding + std::string( cell ) : std::string( cell ) + padding;
   }
   text.resize( text.find_last_not_of( ' ' ) + 1 );
   return text;
}

void Table::print() const {
   std::string heading;
   for( const Column& column : columns_ ) heading.append( column.heading ).push_back( '\0' );
   Tool::print( bold( line( heading ) ) + "\n" );
   std::size_t from = 0;
   while( from < cells_.size() ) {
      std::size_t to = from;
      for( std::size_t i = 0; i < columns_.size(); ++i ) to = cells_.find( '\0', to ) + 1;
      Tool::print( line( std::string_view( cells_ ).substr( from, to - from ) ) + "\n" );
      from = to;
   }
   flushOutput();
}

// As wide as the widest cells; where that is too much, the widest column gives way first, between words as long as that is
// enough.
std::vector< std::size_t > WrappedTable::widths() const {
   constexpr std::size_t gap = 2, least = 8;
   const std::size_t columns = rows_.front().size();
   std::vector< std::size_t > out( columns ), words( columns, least );
   for( const auto& row : rows_ ) {
      for( std::size_t i = 0; i < columns; ++i ) {
         for( const std::string& line : wrapped( row[ i ], outputWidth() ) ) out[ i ] = std::max( out[ i ], line.size() );
         words[ i ] = std::max( words[ i ], longestWord( row[ i ] ) );
      }
   }
   std::size_t room = outputWidth();
   room -= std::min( room, ( columns - 1 ) * gap );
   for( const auto& floor : { words, std::vector< std::size_t >( columns, least ) } ) {
      while( std::accumulate( out.begin(), out.end(), std::size_t( 0 ) ) > room ) {
         std::size_t widest = columns;
         for( std::size_t i = 0; i < columns; ++i ) {
            if( out[ i ] > floor[ i ] && ( widest == columns || out[ i ] > out[ widest ] ) ) widest = i;
         }
         if( widest == columns ) break;
         --out[ widest ];
      }
   }
   return out;
}

void WrappedTable::print() const {
   const auto width = widths();
   for( const auto& row : rows_ ) {
      std::vector< std::vector< std::string > > cells;
      std::size_t height = 0;
      for( std::size_t i = 0; i < row.size(); ++i )
         height = std::max( height, cells.emplace_back( wrapped( row[ i ], width[ i ] ) ).size() );
      for( std::size_t at = 0; at < height; ++at ) {
         std::string line;
         for( std::size_t i = 0; i < cells.size(); ++i ) {
            const std::string text = at < cells[ i ].size() ? cells[ i ][ at ] : "";
            line += ( i ? "  " : "" ) + text + std::string( width[ i ] - std::min( width[ i ], text.size() ), ' ' );
         }
         line.resize( line.find_last_not_of( ' ' ) + 1 );
         Tool::print( ( &row == &rows_.front() ? bold( line ) : line ) + "\n" );
      }
   }
}

Json& Json::value( std::string_view text ) {
   std::string clean;
   for( std::string_view rest = text; !rest.empty(); ) {
      const std::size_t length = utf8Length( rest );
      clean += length ? rest.substr( 0, length ) : std::string_view( "\xef\xbf\xbd" );
      rest.remove_prefix( length ? length : 1 );
   }
   return also( writer_.String( clean.data(), rapidjson::SizeType( clean.size() ) ) );
}

Json& Json::value( double number ) { return also( std::isfinite( number ) ? writer_.Double( number ) : writer_.Null() ); }

void Json::printLine() {
   print( text() );
   print( "\n" );
   buffer_.Clear();
   writer_.Reset( buffer_ );
}

}
