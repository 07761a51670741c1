#include <algorithm>
#include <array>
#include <charconv>
#include <kel/Hash.h>
#include <quor/IpAddr.h>
#include <quor/TextForm.h>

// The texts of RFC 4291, section 2.2, printed as RFC 5952 recommends: hexadecimal in lower case without leading zeros, "::" for
// the longest run of at least two zero groups, the first of equal ones. Only an IPv4-mapped address (::ffff:0:0/96) shows its
// last 32 bits in dotted form, since only there does the address itself say that they are an IPv4 address. Numbers of a dotted
// form have no leading zeros: some programs read them as octal.

namespace Quor {

namespace {

using Groups = std::array< Kel::U16, 8 >;

bool inAddress( char c ) noexcept { return Detail::hexValue( c ) >= 0 || c == ':' || c == '.'; }

char* putNumber( char* to, unsigned v, int base ) noexcept { return std::to_chars( to, to + 5, v, base ).ptr; }

char* printV4( char* to, const Kel::U8* bytes ) noexcept {
   for( int i = 0; i < 4; ++i ) {
      if( i > 0 ) *to++ = '.';
      to = putNumber( to, bytes[ i ], 10 );
   }
   return to;
}

bool parseV4( const char* at, const char* to, Kel::U8* bytes ) noexcept {
   for( int i = 0; i < 4; ++i ) {
      if( i > 0 && ( at == to || *at++ != '.' ) ) return false;
      const char* const digits = at;
      unsigned value = 0;
      while( at != to && *at >= '0' && *at <= '9' && at - digits < 4 )
         value = value * 10 + static_cast< unsigned >( *at++ - '0' );
      if( at == digits || value > 255 || ( *digits == '0' && at - digits > 1 ) ) return false;
      bytes[ i ] = static_cast< Kel::U8 >( value );
   }
   return at == to;
}

/// The longest run of zero groups, from where to where; empty when none has two.
std::pair< int, int > longestZeroRun( const Groups& groups, int count ) noexcept {
   std::pair< int, int > best{ -1, -1 };
   for( int i = 0; i < count; ++i ) {
      int end = i;
      while( end < count && groups[ end ] == 0 ) ++end;
      if( end - i >= 2 && end - i > best.second - best.first ) best = { i, end };
   }
   return best;
}

char* printV6( char* to, const Kel::U8* bytes ) noexcept {
   Groups groups;
   for( std::size_t i = 0; i < groups.size(); ++i )
      groups[ i ] = static_cast< Kel::U16 >( bytes[ 2 * i ] << 8 | bytes[ 2 * i + 1 ] );
   const bool mapped =
      groups[ 5 ] == 0xffff && std::all_of( groups.begin(), groups.begin() + 5, []( Kel::U16 g ) { return g == 0; } );
   const int count = mapped ? 6 : 8;
   const auto [ zeros, zerosEnd ] = longestZeroRun( groups, count );
   for( int i = 0; i < count; ++i ) {
      if( i == zeros ) {
         *to++ = ':';
         *to++ = ':';
         i = zerosEnd - 1;
         continue;
      }
      if( i > 0 && i != zerosEnd ) *to++ = ':';
      to = putNumber( to, groups[ i ], 16 );
   }
   if( !mapped ) return to;
   *to++ = ':';
   return printV4( to, bytes + 12 );
}

/// The bytes of an IPv6 address as they are read: what stands before "::" and, behind it, what will move to the end.
struct V6Reader {
   Kel::U8 bytes[ 16 ] = {};
   int used = 0;
   int gap = -1;

   bool dotted( const char* at, const char* to ) noexcept {
      if( used > 12 || !parseV4( at, to, bytes + used ) ) return false;
      used += 4;
      return true;
   }

   bool group( const char*& at, const char* to ) noexcept {
      if( used == 16 ) return false;
      unsigned value = 0;
      int digits = 0;
      for( ; at != to && Detail::hexValue( *at ) >= 0; ++at, ++digits ) {
         if( digits == 4 ) return false;
         value = value << 4 | static_cast< unsigned >( Detail::hexValue( *at ) );
      }
      bytes[ used++ ] = static_cast< Kel::U8 >( value >> 8 );
      bytes[ used++ ] = static_cast< Kel::U8 >( value );
      return digits > 0;
   }

   /// "::" stands for at least one group.
   bool finish() noexcept {
      if( gap < 0 ) return used == 16;
      if( used > 14 ) return false;
      std::copy_backward( bytes + gap, bytes + used, bytes + 16 );
      std::fill( bytes + gap, bytes + gap + 16 - used, Kel::U8( 0 ) );
      return true;
   }
};

bool parseV6( const char* at, const char* to, V6Reader& reader ) noexcept {
   if( *at == ':' && ( to - at < 2 || at[ 1 ] != ':' ) ) return false;
   while( at != to ) {
      if( to - at >= 2 && at[ 0 ] == ':' && at[ 1 ] == ':' ) {
         if( reader.gap >= 0 ) return false;
         reader.gap = reader.used;
         at += 2;
         if( at == to ) break;
      } else if( reader.used > 0 && *at++ != ':' ) {
         return false;
      }
      const char* const end = std::find( at, to, ':' );
      if( end == to && std::find( at, end, '.' ) != end ) return reader.dotted( at, to ) && reader.finish();
      if( !reader.group( at, to ) ) return false;
   }
   return reader.finish();
}

}

IpAddr::IpAddr( std::string_view text ) {
   if( !Detail::parseWhole( text, *this ) ) Detail::refuseText( "IP address", text, "a form like 192.0.2.1 or 2001:db8::1" );
}

bool IpAddr::parse( const char*& from, const char* to, IpAddr& out ) noexcept {
   const char* const end = std::find_if_not( from, to, inAddress );
   if( from == end ) {
      out = IpAddr();
   } else if( std::find( from, end, ':' ) == end ) {
      Kel::U8 bytes[ 4 ];
      if( !parseV4( from, end, bytes ) ) return false;
      out = IpAddr( std::span< const Kel::U8, 4 >( bytes ) );
   } else {
      V6Reader reader;
      if( !parseV6( from, end, reader ) ) return false;
      out = IpAddr( std::span< const Kel::U8, 16 >( reader.bytes ) );
   }
   from = end;
   return true;
}

char* IpAddr::print( char* to ) const noexcept {
   if( isNone() ) return to;
   return isV4() ? printV4( to, bytes_ ) : printV6( to, bytes_ );
}

Kel::U32 IpAddr::hash() const noexcept { return Kel::murmur3( bytes_, bytes().size() ); }

Kel::String8 IpAddr::stringValue() const { return Detail::displayForm( *this ); }

std::ostream& operator<<( std::ostream& out, const IpAddr& a ) { return Detail::writeQuoted( out, a ); }

}
