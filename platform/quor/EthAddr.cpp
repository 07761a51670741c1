#include <array>
#include <quor/EthAddr.h>
#include <quor/TextForm.h>

namespace Quor {

namespace {

constexpr auto hexTable = [] {
   std::array< signed char, 256 > table{};
   for( std::size_t c = 0; c < table.size(); ++c )
      table[ c ] = static_cast< signed char >( Detail::hexValue( static_cast< char >( c ) ) );
   return table;
}();

/// The byte that two hexadecimal digits spell, or a negative number.
int hexByte( const char* at ) noexcept {
   return hexTable[ static_cast< unsigned char >( at[ 0 ] ) ] * 16 | hexTable[ static_cast< unsigned char >( at[ 1 ] ) ];
}

/// Six bytes in groups of `Group`, with `separator` between the groups.
template< int Group >
bool readGroups( const char* at, char separator, Kel::U8* bytes ) noexcept {
   int bad = 0;
   for( int i = 0; i < 6; ++i, at += 2 ) {
      if( i > 0 && i % Group == 0 && *at++ != separator ) return false;
      const int byte = hexByte( at );
      bad |= byte;
      bytes[ i ] = static_cast< Kel::U8 >( byte );
   }
   return bad >= 0;
}

}

EthAddr::EthAddr( std::string_view text ) {
   if( !Detail::parseWhole( text, *this ) )
      Detail::refuseText( "Ethernet address", text, "a form like 02:00:00:00:00:01, 02-00-00-00-00-01 or 0200.0000.0001" );
}

bool EthAddr::parse( const char*& from, const char* to, EthAddr& out ) noexcept {
   constexpr std::ptrdiff_t byBytes = 17;
   constexpr std::ptrdiff_t byWords = 14;
   if( to - from < byWords ) return false;
   Kel::U8 bytes[ size ];
   std::ptrdiff_t length = byBytes;
   if( from[ 2 ] == ':' || from[ 2 ] == '-' ) {
      if( to - from < byBytes || !readGroups< 1 >( from, from[ 2 ], bytes ) ) return false;
   } else {
      length = byWords;
      if( !readGroups< 2 >( from, '.', bytes ) ) return false;
   }
   out = EthAddr( bytes );
   from += length;
   return true;
}

char* EthAddr::print( char* to ) const noexcept {
   for( std::size_t i = 0; i < size; ++i ) {
      if( i > 0 ) *to++ = ':';
      *to++ = Detail::hexDigits[ bytes_[ i ] >> 4 ];
      *to++ = Detail::hexDigits[ bytes_[ i ] & 15 ];
   }
   return to;
}

Kel::String8 EthAddr::stringValue() const { return Detail::displayForm( *this ); }

std::ostream& operator<<( std::ostream& out, const EthAddr& a ) { return Detail::writeQuoted( out, a ); }

}
