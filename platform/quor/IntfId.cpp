#include <algorithm>
#include <charconv>
#include <iterator>
#include <quor/IntfId.h>
#include <quor/TextForm.h>

// Names of interfaces. Every identifier has exactly one full name, and every name gives back its identifier:
//
//    name        = [ regular | pseudowire | other ]                  the empty text is the empty identifier
//    regular     = FAMILY numbers                                    FAMILY from the table below, by kind and sub-type
//    numbers     = [ module "/" ] port [ "/" lane ] [ "." sub ]      Ethernet; three numbers when there is a module, so that
//                                                                    two are always a port and its lane
//                | number [ "." sub ]                                channels
//                | vlan                                              VLAN interfaces, 1..4094
//                |                                                   the CPU
//    pseudowire  = "Pseudowire-" FAMILY numbers-without-sub [ "." vlan ]      vlan 1..4094; without it, on the whole port
//    other       = "Intf-" 16 hexadecimal digits, high word first
//
// Numbers are decimal without leading zeros; "module", "lane" and "sub" are left out exactly when they are 0 (a lane 0 stays
// behind a module). A pseudowire keeps neither the sub-interface nor the sub-type of its parent, so what follows the dot is
// always its VLAN. "other" is for identifiers that nothing else names: unknown kinds, stray bits, a VLAN out of range. It is
// refused for identifiers that have a better name, so that no interface has two. A family's short name is read wherever its full
// one is.

namespace Quor {

namespace {

enum class Shape { ethernet, channel, vlan, single };

constexpr char ethernetForm[] =
   "a port like 3, 3/2 (port/lane) or 1/3/2 (module/port/lane), perhaps with a sub-interface like .100; "
   "modules go to 31, ports to 16383, lanes to 63";
constexpr char channelForm[] = "a number up to 33554431, perhaps with a sub-interface like .5, up to 268435455";
constexpr char vlanForm[] = "a VLAN from 1 to 4094";
constexpr char singleForm[] = "nothing";

struct Family {
   std::string_view full;
   std::string_view brief;
   Kel::U32 typeId;
   Kel::U32 subType;
   Shape shape;
   const char* form;
};

constexpr Family families[] = {
   { "Ethernet", "Et", IntfTypeId::ethernet, 0, Shape::ethernet, ethernetForm },
   { "Vlan", "Vl", IntfTypeId::vlan, 0, Shape::vlan, vlanForm },
   { "Port-Channel", "Po", IntfTypeId::portChannel, 0, Shape::channel, channelForm },
   { "Recirculation", "Re", IntfTypeId::portChannel, 1, Shape::channel, channelForm },
   { "Ecmp", "Ecmp", IntfTypeId::portChannel, 2, Shape::channel, channelForm },
   { "Cpu", "Cpu", IntfTypeId::cpu, 0, Shape::single, singleForm },
   { "PeerEthernet", "PEt", IntfTypeId::peerEthernet, 0, Shape::ethernet, ethernetForm },
   { "PeerPort-Channel", "PPo", IntfTypeId::peerPortChannel, 0, Shape::channel, channelForm },
   { "PeerRecirculation", "PRe", IntfTypeId::peerPortChannel, 1, Shape::channel, channelForm },
   { "PeerEcmp", "PEcmp", IntfTypeId::peerPortChannel, 2, Shape::channel, channelForm },
};

constexpr std::string_view pseudowirePrefix = "Pseudowire-";
constexpr std::string_view pseudowireBrief = "Pw-";
constexpr std::string_view otherPrefix = "Intf-";

constexpr Kel::U32 maxSubIntf = 0xfffffff;   // of a channel: its sub-type has the four bits above
constexpr unsigned subTypeShift = 28;
constexpr Kel::U32 maxVlan = 4094;
constexpr Kel::U32 wholePort = 4095;

constexpr IntfId fromIndex( Kel::U32 type, Kel::U32 index, Kel::U32 high ) {
   return { type << GenericIntfId::typeIdShift | index, high };
}

// --- printing ----------------------------------------------------------------------------------------------------------------

char* put( char* to, std::string_view text ) noexcept { return std::copy( text.begin(), text.end(), to ); }
char* put( char* to, Kel::U32 number ) noexcept { return std::to_chars( to, to + 10, number ).ptr; }
char* put( char* to, char before, Kel::U32 number ) noexcept {
   *to++ = before;
   return put( to, number );
}
char* putSub( char* to, Kel::U32 sub ) noexcept { return sub ? put( to, '.', sub ) : to; }

char* putHex( char* to, Kel::U32 word ) noexcept {
   for( int shift = 28; shift >= 0; shift -= 4 ) *to++ = Detail::hexDigits[ word >> shift & 15 ];
   return to;
}

char* printEthernet( char* to, IntfId id ) noexcept {
   const Kel::U32 index = part( id, 1 );
   const Kel::U32 module = index >> 20;
   const Kel::U32 lane = index & 63;
   if( module ) *( to = put( to, module ) )++ = '/';
   to = put( to, index >> 6 & 16383 );
   if( module || lane ) to = put( to, '/', lane );
   return putSub( to, part( id, 0 ) );
}

const Family* familyOf( IntfId id ) noexcept {
   const auto same = [ id ]( const Family& f ) {
      return f.typeId == typeId( id ) && ( f.shape != Shape::channel || f.subType == subType( id ) );
   };
   const auto* const f = std::find_if( std::begin( families ), std::end( families ), same );
   return f == std::end( families ) ? nullptr : f;
}

/// The name of an identifier that belongs to a family, or null when it doesn't.
char* printRegular( char* to, IntfId id, bool brief ) noexcept {
   const Family* const family = familyOf( id );
   if( !family || id.isEmpty() ) return nullptr;
   const Kel::U32 index = part( id, 1 );
   to = put( to, brief ? family->brief : family->full );
   switch( family->shape ) {
   case Shape::ethernet: return printEthernet( to, id );
   case Shape::channel: return putSub( put( to, index ), part( id, 0 ) & maxSubIntf );
   case Shape::vlan: return id.high() == 0 && index >= 1 && index <= maxVlan ? put( to, index ) : nullptr;
   case Shape::single: return id.high() == 0 && index == 0 ? to : nullptr;
   }
   return nullptr;
}

char* printPseudowire( char* to, IntfId id, bool brief ) noexcept {
   const Kel::U32 vlan = part( id, 0 ) >> 8;
   const Kel::U32 parentType = part( id, 0 ) & 0xff;
   if( typeId( id ) != IntfTypeId::pseudowire || vlan < 1 || vlan > wholePort || parentType > 127 ) return nullptr;
   to = put( to, brief ? pseudowireBrief : pseudowirePrefix );
   to = printRegular( to, fromIndex( parentType, part( id, 1 ), 0 ), brief );
   return to && vlan != wholePort ? put( to, '.', vlan ) : to;
}

/// The name of an identifier that has one of its own, or null.
char* printNamed( char* to, IntfId id, bool brief ) noexcept {
   if( char* const end = printRegular( to, id, brief ) ) return end;
   return printPseudowire( to, id, brief );
}

char* printAny( char* to, IntfId id, bool brief ) noexcept {
   if( id.isEmpty() ) return to;
   if( char* const end = printNamed( to, id, brief ) ) return end;
   return putHex( putHex( put( to, otherPrefix ), id.high() ), id.low() );
}

// --- parsing -----------------------------------------------------------------------------------------------------------------

constexpr bool isLetter( char c ) { return ( c >= 'a' && c <= 'z' ) || ( c >= 'A' && c <= 'Z' ); }
constexpr bool isDigit( char c ) { return c >= '0' && c <= '9'; }
constexpr bool inName( char c ) { return isLetter( c ) || isDigit( c ) || c == '/' || c == '.' || c == '-'; }

/// The rest of a name. Each function takes what it is named after from the front, or leaves it and says false.
struct Rest {
   std::string_view text;

   bool prefix( std::string_view p ) noexcept {
      if( !text.starts_with( p ) ) return false;
      text.remove_prefix( p.size() );
      return true;
   }
   bool number( Kel::U32 min, Kel::U32 max, Kel::U32& out ) noexcept {
      if( text.size() > 1 && text[ 0 ] == '0' && isDigit( text[ 1 ] ) ) return false;
      const auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), out );
      if( error != std::errc() || out < min || out > max ) return false;
      text.remove_prefix( static_cast< std::size_t >( end - text.data() ) );
      return true;
   }
   bool hexWord( Kel::U32& out ) noexcept {
      if( text.size() < 8 ) return false;
      out = 0;
      for( char c : text.substr( 0, 8 ) ) {
         if( Detail::hexValue( c ) < 0 || ( isLetter( c ) && c < 'a' ) ) return false;
         out = out << 4 | static_cast< Kel::U32 >( Detail::hexValue( c ) );
      }
      text.remove_prefix( 8 );
      return true;
   }
   /// ".100", or nothing, which is 0.
   bool sub( Kel::U32 max, Kel::U32& out ) noexcept {
      out = 0;
      return !prefix( "." ) || number( 1, max, out );
   }
   const Family* family() noexcept {
      std::size_t size = 0;
      while( size < text.size() && ( isLetter( text[ size ] ) || text[ size ] == '-' ) ) ++size;
      const std::string_view name = text.substr( 0, size );
      for( const Family& f : families ) {
         if( ( name == f.full || name == f.brief ) && prefix( name ) ) return &f;
      }
      return nullptr;
   }
};

bool parseEthernetIndex( Rest& rest, Kel::U32& index ) noexcept {
   Kel::U32 number[ 3 ] = {};
   int count = 0;
   do {
      if( count == 3 || !rest.number( 0, 16383, number[ count++ ] ) ) return false;
   } while( rest.prefix( "/" ) );
   if( count == 3 ) {
      index = number[ 0 ] << 20 | number[ 1 ] << 6 | number[ 2 ];
      return number[ 0 ] >= 1 && number[ 0 ] <= 31 && number[ 2 ] <= 63;
   }
   index = number[ 0 ] << 6 | number[ 1 ];
   return number[ 1 ] <= 63 && ( count == 1 || number[ 1 ] >= 1 );
}

/// A family's name and its numbers; a sub-interface number only when it may have one.
bool parseRegular( Rest& rest, bool maySub, IntfId& out ) noexcept {
   const Family* const family = rest.family();
   if( !family ) return false;
   Kel::U32 index = 0;
   Kel::U32 sub = 0;
   bool good = true;
   switch( family->shape ) {
   case Shape::ethernet: good = parseEthernetIndex( rest, index ) && ( !maySub || rest.sub( 0xffffffff, sub ) ); break;
   case Shape::channel:
      good = rest.number( 0, GenericIntfId::indexMask, index ) && ( !maySub || rest.sub( maxSubIntf, sub ) );
      break;
   case Shape::vlan: good = rest.number( 1, maxVlan, index ); break;
   case Shape::single: break;
   }
   out = fromIndex( family->typeId, index, family->subType << subTypeShift | sub );
   return good && !out.isEmpty();
}

bool parsePseudowire( Rest& rest, IntfId& out ) noexcept {
   IntfId parent;
   Kel::U32 vlan;
   if( !parseRegular( rest, false, parent ) || parent.high() != 0 || !rest.sub( maxVlan, vlan ) ) return false;
   out = fromIndex( IntfTypeId::pseudowire, part( parent, 1 ), ( vlan ? vlan : wholePort ) << 8 | typeId( parent ) );
   return true;
}

bool parseOther( Rest& rest, IntfId& out ) noexcept {
   Kel::U32 low;
   Kel::U32 high;
   if( !rest.hexWord( high ) || !rest.hexWord( low ) ) return false;
   out = IntfId( low, high );
   char better[ IntfId::maxText ];
   return !out.isEmpty() && !printNamed( better, out, false );
}

bool parseName( std::string_view name, IntfId& out ) noexcept {
   out = IntfId();
   if( name.empty() ) return true;
   Rest rest{ name };
   const bool good = rest.prefix( otherPrefix )                                               ? parseOther( rest, out )
                     : rest.prefix( pseudowirePrefix ) || rest.prefix( pseudowireBrief ) ? parsePseudowire( rest, out )
                                                                                         : parseRegular( rest, true, out );
   return good && rest.text.empty();
}

/// What should have stood in place of a bad name.
std::string expected( std::string_view name ) {
   Rest rest{ name };
   if( rest.prefix( otherPrefix ) ) return "16 hexadecimal digits, in lower case, of an identifier that has no other name";
   if( rest.prefix( pseudowirePrefix ) || rest.prefix( pseudowireBrief ) )
      return "an interface without a sub-interface, perhaps with a VLAN like .100, up to 4094";
   if( const Family* const family = rest.family() ) return std::string( family->full ) + " and then " + family->form;
   return "a name like Ethernet3, Ethernet3/2.100, Port-Channel7, Vlan10 or Cpu";
}

}

IntfId::IntfId( std::string_view name ) {
   if( !Detail::parseWhole( name, *this ) ) Detail::refuseText( "interface name", name, expected( name ) );
}

bool IntfId::parse( const char*& from, const char* to, IntfId& out ) noexcept {
   const char* const end = std::find_if_not( from, to, inName );
   IntfId id;
   if( !parseName( { from, static_cast< std::size_t >( end - from ) }, id ) ) return false;
   out = id;
   from = end;
   return true;
}

char* IntfId::print( char* to ) const noexcept { return printAny( to, *this, false ); }
char* IntfId::printShort( char* to ) const noexcept { return printAny( to, *this, true ); }

Kel::String8 IntfId::stringValue() const { return Detail::displayForm( *this ); }

Kel::String8 IntfId::shortName() const {
   char buffer[ maxText ];
   return std::string_view( buffer, printShort( buffer ) - buffer );
}

std::ostream& operator<<( std::ostream& out, const IntfId& id ) { return Detail::writeQuoted( out, id ); }

}
