#include <kel/Trace.h>

#include <chrono>
#include <cstdio>
#include <kel/Exception.h>
#include <time.h>

// What traces look like to people: levels, lines, times.

namespace Kel {

namespace {

[[noreturn]] void badLevels( std::string_view text, std::size_t column ) {
   throw RangeException( "trace levels \"" + std::string( text ) + "\" not understood at column " + std::to_string( column ) +
                         ": expected digits and ranges such as 0-5, * for all or - for none" );
}

}

TraceLevels TraceLevels::parse( std::string_view text ) {
   if( text == "*" ) return all();
   if( text == "-" ) return none();
   const auto digit = [ & ]( std::size_t at ) {
      if( at >= text.size() || text[ at ] < '0' || text[ at ] > '9' ) badLevels( text, at );
      return static_cast< U32 >( text[ at ] - '0' );
   };
   U32 bits = 0;
   std::size_t at = 0;
   do {
      const U32 first = digit( at++ );
      U32 last = first;
      if( at < text.size() && text[ at ] == '-' ) {
         last = digit( at + 1 );
         if( last < first ) badLevels( text, at + 1 );
         at += 2;
      }
      for( U32 level = first; level <= last; ++level ) bits |= 1u << level;
   } while( at < text.size() );
   return TraceLevels( bits );
}

std::string TraceLevels::str() const {
   if( *this == all() ) return "*";
   if( *this == none() ) return "-";
   std::string text;
   for( U32 first = 0; first < count; ++first ) {
      if( !has( first ) ) continue;
      U32 last = first;
      while( has( last + 1 ) ) ++last;
      text += static_cast< char >( '0' + first );
      if( last > first + 1 ) text += '-';
      if( last > first ) text += static_cast< char >( '0' + last );
      first = last;
   }
   return text;
}

std::string TraceLine::str() const {
   std::string line;
   line.reserve( 64 + source.size() + function.size() + text.size() );
   appendTime( line, time );
   line += ' ';
   appendPrintable( line, facility );
   line += '/';
   line += std::to_string( level );
   line += ' ';
   appendPrintable( line, source );
   line += ": ";
   appendPrintable( line, function );
   if( !text.empty() && text.front() != ' ' ) line += ' ';
   appendPrintable( line, text );
   return line;
}

void appendPrintable( std::string& to, std::string_view text ) {
   static constexpr char hex[] = "0123456789abcdef";
   for( const char c : text ) {
      const auto byte = static_cast< unsigned char >( c );
      if( byte >= 0x20 && byte != 0x7f ) to += c;
      else if( c == '\n' ) to += "\\n";
      else if( c == '\t' ) to += "\\t";
      else if( c == '\r' ) to += "\\r";
      else ( to += "\\x" ).append( { hex[ byte >> 4 ], hex[ byte & 15 ] } );
   }
}

U64 wallClock() noexcept {
   timespec now;
   ::clock_gettime( CLOCK_REALTIME, &now );
   return static_cast< U64 >( now.tv_sec ) * 1000000000u + static_cast< U64 >( now.tv_nsec );
}

void appendTime( std::string& to, U64 time ) {
   using namespace std::chrono;
   const U64 micros = time / 1000;
   const U64 seconds = micros / 1000000;
   const year_month_day date( sys_days( days( seconds / 86400 ) ) );
   const U32 ofDay = static_cast< U32 >( seconds % 86400 );
   char text[ 40 ];
   const int n =
      std::snprintf( text, sizeof text, "%04d-%02u-%02uT%02u:%02u:%02u.%06uZ", int( date.year() ), unsigned( date.month() ),
                     unsigned( date.day() ), ofDay / 3600, ofDay / 60 % 60, ofDay % 60, U32( micros % 1000000 ) );
   to.append( text, static_cast< std::size_t >( n ) );
}

}
