#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kel/ThrownTest.h>
#include <quor/EthIntfId.h>
#include <quor/VlanIntfId.h>
#include <random>
#include <sstream>

namespace Quor {
namespace {

using Kel::U32;
using testing::HasSubstr;
using testing::StartsWith;

static_assert( std::is_trivially_copyable_v< IntfId > && std::is_standard_layout_v< IntfId > );

constexpr IntfId make( U32 type, U32 index, U32 high = 0 ) { return { type << 25 | index, high }; }

struct Row {
   const char* name;
   const char* shortName;
   IntfId id;
};

const Row named[] = {
   { "", "", IntfId() },
   { "Ethernet3", "Et3", EthIntfId::make( 0, 3, 0 ) },
   { "Ethernet1/3/0", "Et1/3/0", EthIntfId::make( 1, 3, 0 ) },
   { "Ethernet3/2.100", "Et3/2.100", EthIntfId::make( 0, 3, 2, 100 ) },
   { "Ethernet31/16383/63.4294967295", "Et31/16383/63.4294967295", EthIntfId::make( 31, 16383, 63, 4294967295u ) },
   { "Ethernet0/1", "Et0/1", EthIntfId::make( 0, 0, 1 ) },
   { "Ethernet0.5", "Et0.5", EthIntfId::make( 0, 0, 0, 5 ) },
   { "Ethernet1/0/0", "Et1/0/0", EthIntfId::make( 1, 0, 0 ) },
   { "Vlan4094", "Vl4094", VlanIntfId::make( 4094 ) },
   { "Cpu", "Cpu", make( 6, 0 ) },
   { "Port-Channel7", "Po7", make( 7, 7 ) },
   { "Port-Channel7.5", "Po7.5", make( 7, 7, 5 ) },
   { "Port-Channel33554431.268435455", "Po33554431.268435455", make( 7, 0x1ffffff, 0x0fffffff ) },
   { "Recirculation1", "Re1", make( 7, 1, 1u << 28 ) },
   { "Ecmp3.9", "Ecmp3.9", make( 7, 3, 2u << 28 | 9 ) },
   { "PeerEthernet3", "PEt3", make( 8, 3 << 6 ) },
   { "PeerPort-Channel7", "PPo7", make( 9, 7 ) },
   { "PeerRecirculation33554431.268435455", "PRe33554431.268435455", make( 9, 0x1ffffff, 0x1fffffff ) },
   { "Pseudowire-Ethernet3.100", "Pw-Et3.100", make( 59, 3 << 6, 100 << 8 ) },
   { "Pseudowire-Ethernet3/2", "Pw-Et3/2", make( 59, 3 << 6 | 2, 4095 << 8 ) },
   { "Pseudowire-Cpu.1", "Pw-Cpu.1", make( 59, 0, 1 << 8 | 6 ) },
   { "Pseudowire-PeerPort-Channel33554431.4094", "Pw-PPo33554431.4094", make( 59, 0x1ffffff, 4094 << 8 | 9 ) },
   // What no family names: stray bits, numbers out of range, unknown kinds and sub-types, pseudowires without a parent that has a
   // name.
   { "Intf-0000000102000001", "Intf-0000000102000001", make( 1, 1, 1 ) },
   { "Intf-0000000002000fff", "Intf-0000000002000fff", make( 1, 4095 ) },
   { "Intf-300000000e000007", "Intf-300000000e000007", make( 7, 7, 3u << 28 ) },
   { "Intf-ffffffffffffffff", "Intf-ffffffffffffffff", make( 127, 0x1ffffff, 0xffffffff ) },
   { "Intf-00000000760000c0", "Intf-00000000760000c0", make( 59, 3 << 6 ) },              // VLAN 0
   { "Intf-00100000760000c0", "Intf-00100000760000c0", make( 59, 3 << 6, 4096 << 8 ) },   // VLAN 4096
   { "Intf-0000648076000007", "Intf-0000648076000007", make( 59, 7, 100 << 8 | 128 ) },   // a parent type of 8 bits
   { "Intf-0000640076000000", "Intf-0000640076000000", make( 59, 0, 100 << 8 ) },         // the empty parent
   { "Intf-0000643b76000007", "Intf-0000643b76000007", make( 59, 7, 100 << 8 | 59 ) },    // a pseudowire's pseudowire
};

TEST( IntfId, NamesBothWays ) {
   for( const Row& row : named ) {
      EXPECT_EQ( row.id.stringValue(), row.name );
      EXPECT_EQ( row.id.shortName(), row.shortName );
      EXPECT_EQ( IntfId( row.name ), row.id ) << row.name;
      EXPECT_EQ( IntfId( row.shortName ), row.id ) << row.shortName;
      std::ostringstream out;
      out << row.id;
      EXPECT_EQ( out.str(), "'" + std::string( row.name ) + "'" );
   }
}

TEST( IntfId, RefusesWhatIsNoName ) {
   const char* const bad[] = {
      "Ethernet", "Ethernet0", "Ethernet03", "Ethernet3/", "Ethernet3/0", "Ethernet3/02", "Ethernet0/3/2", "Ethernet3/2/",
      "Ethernet1/3/2/4", "Ethernet16384", "Ethernet3/64", "Ethernet32/1/1", "Ethernet1/2/64", "Ethernet3.", "Ethernet3.0",
      "Ethernet3.01", "Ethernet3.4294967296", "Ethernet3.1.2", "Ethernet-3", "Ethernet+3", "Ethernet 3", " Ethernet3",
      "Ethernet3 ", "ethernet3", "Eth3", "E3", "3", "/", ".", "-", "Ethernet18446744073709551619", "Ethernet3x", "Ethernet3'",
      "Vlan", "Vlan0", "Vlan4095", "Vlan5000", "Vlan10.5", "Vlan010", "Cpu0", "Cpu.5", "Port-Channel", "Port-Channel33554432",
      "Port-Channel7.268435456", "Port-Channel7.0", "Port-Channel07", "Port-Channel7/1", "PortChannel7", "Port7", "Pseudowire-",
      "Pseudowire-Ethernet3.4095", "Pseudowire-Ethernet3.0", "Pseudowire-Ethernet0", "Pseudowire-Ethernet3.100.5",
      "Pseudowire-Recirculation1.5", "Pseudowire-Pseudowire-Ethernet3.5", "Pseudowire-Intf-0000000004000001", "Intf-",
      "Intf-0000000000000000", "Intf-00000000000000c0", "Intf-000000000c000000", "Intf-00006400760000c0",
      "Intf-000000000C000001", "Intf-000000000c00001", "Intf-000000000c0000001", "Intf-0x00000004000001"
   };
   for( const char* text : bad )
      EXPECT_THAT( thrown( [ & ] { IntfId id{ std::string_view( text ) }; } ), HasSubstr( "'" + std::string( text ) + "'" ) );
}

TEST( IntfId, SaysWhatWasExpected ) {
   struct {
      std::string text;
      std::string message;
   } const rows[] = {
      { "Etherne3",
        "interface name 'Etherne3' is not valid: expected a name like Ethernet3, Ethernet3/2.100, Port-Channel7, Vlan10 or Cpu" },
      { "Vlan5000", "interface name 'Vlan5000' is not valid: expected Vlan and then a VLAN from 1 to 4094" },
      { "Cpu1", "interface name 'Cpu1' is not valid: expected Cpu and then nothing" },
      { "Po7.0", "interface name 'Po7.0' is not valid: expected Port-Channel and then a number up to 33554431, perhaps with a "
                 "sub-interface like .5, "
                 "up to 268435455" },
      { "Pw-Et3.5000",
        "interface name 'Pw-Et3.5000' is not valid: expected an interface without a sub-interface, perhaps with a VLAN like "
        ".100, up to 4094" },
      { "Intf-5", "interface name 'Intf-5' is not valid: expected 16 hexadecimal digits" },
      { "Et\x01\xff\n", "interface name 'Et\\x01\\xff\\x0a' is not valid: expected Ethernet and then a port like 3" },
      { std::string( 1 << 20, 'x' ), "interface name '" + std::string( 64, 'x' ) + "...' is not valid" },
   };
   for( const auto& row : rows ) EXPECT_THAT( thrown( [ & ] { IntfId id( row.text ); } ), StartsWith( row.message ) );
}

/// A 64-bit pattern of the kind that bugs like: kinds, sub-types and fields near their limits, else any bits.
IntfId someId( std::mt19937& random ) {
   const auto pick = [ & ]( std::initializer_list< U32 > of ) { return of.begin()[ random() % of.size() ]; };
   const auto any = [ & ] { return static_cast< U32 >( random() >> random() % 32 ); };
   const U32 type = random() % 8 ? pick( { 0, 1, 6, 7, 8, 9, 59, 59 } ) : any() & 127;
   const U32 index = random() % 3 ? any() & 0x1ffffff : pick( { 0, 1, 63, 64, 0x100000, 4094, 4095, 0x1ffffff } );
   U32 high = random() % 3 ? pick( { 0, 0, 1, 5, 0x0fffffff, 0x10000000, 0x20000001, 0x30000000, 0xffffffff } ) : any();
   if( type == 59 && random() % 4 )
      high = pick( { 0, 1, 100, 4094, 4095, 4096, 0xffffff } ) << 8 | pick( { 0, 1, 6, 7, 8, 9, 10, 59, 127, 128, 255 } );
   return make( type, index, high );
}

TEST( IntfId, EveryPatternHasANameThatGivesItBack ) {
   std::mt19937 random( 3 );
   for( int i = 0; i < 400000; ++i ) {
      const IntfId id = someId( random );
      for( bool brief : { false, true } ) {
         char text[ IntfId::maxText ];
         char* const end = brief ? id.printShort( text ) : id.print( text );
         ASSERT_LE( end - text, static_cast< std::ptrdiff_t >( IntfId::maxText ) );
         const std::string name( text, end );
         const char* from = name.data();
         IntfId back;
         ASSERT_TRUE( IntfId::parse( from, name.data() + name.size(), back ) ) << name;
         ASSERT_EQ( from, name.data() + name.size() ) << name;
         ASSERT_EQ( back, id ) << name;
      }
   }
}

// Damaged names are either refused or are themselves the one name, full or short, of what they are read as.
TEST( IntfId, ReadTextIsCanonical ) {
   std::mt19937 random( 4 );
   const std::string_view letters = "0123456789/./.-aEtPoVlc";
   int good = 0;
   for( int i = 0; i < 400000; ++i ) {
      std::string name = ( i % 2 ? someId( random ).stringValue() : someId( random ).shortName() ).str();
      for( auto n = random() % 3; n > 0 && !name.empty(); --n ) {
         const std::size_t at = random() % name.size();
         switch( random() % 4 ) {
         case 0: name.erase( at, 1 ); break;
         case 1: name.insert( at, 1, letters[ random() % letters.size() ] ); break;
         case 2: name.resize( at ); break;
         default: name[ at ] = letters[ random() % letters.size() ];
         }
      }
      const std::vector< char > exact( name.begin(), name.end() );
      const char* from = exact.data();
      const char* const to = from + exact.size();
      IntfId id;
      if( !IntfId::parse( from, to, id ) || from != to ) continue;
      ++good;
      // A pseudowire may mix: a full name with its parent's short one.
      const bool mixed = typeId( id ) == IntfTypeId::pseudowire && !name.starts_with( "Intf-" );
      const auto numbers = []( std::string_view text ) {
         return text.substr( std::min( text.size(), text.find_first_of( "0123456789." ) ) );
      };
      const Kel::String8 full = id.stringValue();
      ASSERT_TRUE( name == full.view() || name == id.shortName().view() || ( mixed && numbers( name ) == numbers( full ) ) )
         << name << " " << id;
   }
   EXPECT_GT( good, 100000 );
}

TEST( IntfId, ParseStopsBehindTheName ) {
   const std::string_view text = "Ethernet3/2.100', 'intf': ''";
   const char* from = text.data();
   const char* const to = from + text.size();
   IntfId id;
   ASSERT_TRUE( IntfId::parse( from, to, id ) );
   EXPECT_EQ( from, text.data() + 15 );
   EXPECT_EQ( id, EthIntfId::make( 0, 3, 2, 100 ) );
   from = to - 1;
   ASSERT_TRUE( IntfId::parse( from, to, id ) ) << "nothing is the empty identifier";
   EXPECT_TRUE( id.isEmpty() );
   const char bad[] = "Ethernet3.x";
   from = bad;
   id = make( 6, 0 );
   EXPECT_FALSE( IntfId::parse( from, bad + 11, id ) );
   EXPECT_EQ( from, bad );
   EXPECT_EQ( id, make( 6, 0 ) );
}

TEST( IntfId, PartsHashAndOrder ) {
   const IntfId id( 0x76000001, 0xa0064507 );
   EXPECT_EQ( typeId( id ), 59u );
   EXPECT_EQ( subType( id ), 10u );
   EXPECT_EQ( part( id, 0 ), 0xa0064507u );
   EXPECT_EQ( part( id, 1 ), 1u );
   EXPECT_EQ( id.handle(), 0x76000001u );
   EXPECT_EQ( typeIdIs( id, 7 ), IntfId( 0x0e000001, 0xa0064507 ) );
   EXPECT_DEATH( part( id, 2 ), "IntfId: part: assertion \"n <= 1\" failed" );
   EXPECT_DEATH( typeIdIs( id, 128 ), "t <= 127" );
   EXPECT_EQ( id.hash(), Kel::murmur3( &id, 8 ) );
   EXPECT_EQ( std::memcmp( &id, "\x01\0\0\x76\x07\x45\x06\xa0", 8 ), 0 );
   const char* const ascending[] = {
      "", "Ethernet3", "Ethernet3.100", "Ethernet3/1", "Ethernet4", "Ethernet1/1/1", "Vlan10", "Cpu", "Port-Channel7",
      "PeerEthernet1"
   };
   for( std::size_t i = 1; i < std::size( ascending ); ++i )
      EXPECT_LT( IntfId( ascending[ i - 1 ] ), IntfId( ascending[ i ] ) ) << ascending[ i ];
}

}
}
