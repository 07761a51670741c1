#include "IdsTest.h"

#include <Vanta/VlanId.h>
#include <gtest/gtest.h>

namespace Bridging {
namespace {

using Kel::strepToValue;
using Kel::U16;
using Kel::U32;

/// Each number is taken or refused, with one text, by the constructor, the parser and the attribute log alike.
template< class T >
void takesExactly( U32 min, U32 max, const char* text ) {
   for( U32 v = 0; v <= 0xffff; v += v < 4200 ? 1 : 251 ) {
      const auto number = static_cast< U16 >( v );
      const bool good = v >= min && v <= max;
      ASSERT_EQ( refusal( [ & ] { ASSERT_EQ( T( number ).value(), number ); } ), good ? "nothing" : text ) << v;
      ASSERT_EQ( refusal( [ & ] { ASSERT_EQ( strepToValue< T >( std::to_string( v ) ), T( number ) ); } ), good ? "nothing" : text ) << v;
      const Kel::U8 wire[] = { static_cast< Kel::U8 >( v >> 8 ), static_cast< Kel::U8 >( v ) };
      Kel::LogIn in( wire );
      ASSERT_EQ( refusal( [ & ] { ASSERT_EQ( T( in ).value(), number ); } ), good ? "nothing" : text ) << v;
      if( !good ) continue;
      ASSERT_EQ( logged( T( number ) ), std::string( reinterpret_cast< const char* >( wire ), 2 ) );
   }
   // A number that is too wide for 16 bits is not cut to one that fits.
   for( const char* wide : { "65536", "65537", "69631", "4294967297", "18446744073709551617" } )
      EXPECT_NE( refusal( [ & ] { strepToValue< T >( wide ); } ), "nothing" ) << wide;
}

template< class T >
constexpr bool isOrdered = requires( T v ) { v < v; };

TEST( VlanId, Ranges ) {
   takesExactly< VlanId >( 1, 4094, "VlanId::value < 1 or > 4094 not allowed" );
   takesExactly< VlanIdOrNone >( 0, 4094, "VlanIdOrNone::value > 4094 not allowed" );
   takesExactly< VlanIdOrAny >( 1, 4095, "VlanIdOrAny::value < 1 or > 4095 not allowed" );
   takesExactly< VlanIdOrAnyOrNone >( 0, 4095, "VlanIdOrAnyOrNone::value > 4095 not allowed" );
}

TEST( VlanId, DefaultsAndConstants ) {
   EXPECT_EQ( VlanId().value(), 1 );
   EXPECT_EQ( VlanIdOrNone().value(), 0 );
   EXPECT_EQ( VlanIdOrAny().value(), 4095 );
   EXPECT_EQ( VlanIdOrAnyOrNone().value(), 0 );
   EXPECT_EQ( VlanId::min(), 1 );
   EXPECT_EQ( VlanId::max(), 4094 );
   EXPECT_EQ( VlanId::invalid(), 0 );
}

TEST( VlanId, Hash ) {
   EXPECT_EQ( VlanId( 0x123 ).hash(), Kel::murmur3( "\x23\x01", 2 ) );
   const U32 parts[] = { VlanId( 10 ).hash(), VlanIdOrNone( 5 ).hash() };
   EXPECT_EQ( VlanXlateKey( 10, 5 ).hash(), Kel::murmur3( parts, 8 ) );
}

TEST( VlanXlateKey, TextForm ) {
   EXPECT_EQ( Bridging::valueToStrep( VlanXlateKey( 100, 0 ) ), "Value('Bridging::VlanXlateKey', ** {'outerVid': 100, 'innerVid': 0})" );
   struct {
      const char* text;
      VlanXlateKey key;
   } const good[] = {
      { "Value('Bridging::VlanXlateKey', ** {})", { 1, 0 } },
      { "Value('Bridging::VlanXlateKey', ** {'innerVid': 5})", { 1, 5 } },
      { "Value('Bridging::VlanXlateKey', ** {'innerVid': 5, 'outerVid': 4094})", { 4094, 5 } },
      { " Value ( 'Bridging::VlanXlateKey' , ** { 'outerVid' : 7 } )", { 7, 0 } },
   };
   for( const auto& row : good ) EXPECT_EQ( strepToValue< VlanXlateKey >( row.text ), row.key ) << row.text;
   struct {
      const char* text;
      const char* refused;
   } const bad[] = {
      { "Value('Bridging::VlanXlateKey', ** {'outerVid': 0})", "VlanXlateKey::outerVid: VlanId::value < 1 or > 4094 not allowed" },
      { "Value('Bridging::VlanXlateKey', ** {'innerVid': 4095})", "VlanXlateKey::innerVid: VlanIdOrNone::value > 4094 not allowed" },
      { "Value('Bridging::VlanXlateKey', ** {'vid': 1})", "VlanXlateKey has no such attribute: vid" },
      { "Value('Bridging::VlanXlateKey', ** {'outerVid': 1", "premature end of value type VlanXlateKey" },
      { "Value('Bridging::VlanXlateKey', ** {}) x", "junk at column 38 deserializing Bridging::VlanXlateKey" },
      { "", "premature end of value type VlanXlateKey" },
   };
   for( const auto& row : bad ) EXPECT_EQ( refusal( [ & ] { strepToValue< VlanXlateKey >( row.text ); } ), row.refused ) << row.text;
}

TEST( VlanXlateKey, OrderAndLog ) {
   const VlanXlateKey ascending[] = { { 1, 4094 }, { 10, 0 }, { 10, 5 }, { 11, 0 } };
   for( std::size_t i = 1; i < std::size( ascending ); ++i ) {
      EXPECT_TRUE( ascending[ i - 1 ] < ascending[ i ] && ascending[ i - 1 ] <= ascending[ i ] && ascending[ i - 1 ] != ascending[ i ] );
      EXPECT_TRUE( ascending[ i ] > ascending[ i - 1 ] && ascending[ i ] >= ascending[ i - 1 ] );
   }
   EXPECT_EQ( logged( VlanXlateKey( 0x102, 0x304 ) ), bytes( { 1, 2, 3, 4 } ) );
   static_assert( sizeof( VlanXlateKey ) == 4 );
}

TEST( VlanXlateMapping, TextHashAndLog ) {
   EXPECT_EQ( Bridging::valueToStrep( VlanXlateMapping() ), "Value('Bridging::VlanXlateMapping', ** {'vlanId': 0, 'innerVid': 0, 'tunnel': False})" );
   const VlanXlateMapping mapping( 0x102, 0x304, true );
   EXPECT_EQ( strepToValue< VlanXlateMapping >( "Value('Bridging::VlanXlateMapping', ** {'vlanId': 258, 'tunnel': True, 'innerVid': 772})" ), mapping );
   EXPECT_EQ( refusal( [] { strepToValue< VlanXlateMapping >( "Value('Bridging::VlanXlateMapping', ** {'tunel': True})" ); } ),
              "VlanXlateMapping has no such attribute: tunel" );
   EXPECT_EQ( logged( mapping ), bytes( { 1, 2, 3, 4, 1 } ) );
   char stream[ 9 ];
   const U32 parts[] = { VlanIdOrNone( 0x102 ).hash(), VlanIdOrNone( 0x304 ).hash() };
   std::memcpy( stream, parts, 8 );
   stream[ 8 ] = 1;
   EXPECT_EQ( mapping.hash(), Kel::murmur3( stream, 9 ) );
   const VlanXlateMapping others[] = { { 0x103, 0x304, true }, { 0x102, 0x305, true }, { 0x102, 0x304, false } };
   for( const VlanXlateMapping& other : others ) EXPECT_NE( mapping, other );
   static_assert( !isOrdered< VlanXlateMapping > && isOrdered< VlanXlateKey > );
}

}
}
