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
      ASSERT_EQ( thrown( [ & ] { ASSERT_EQ( T( number ).value(), number ); } ), good ? "nothing" : text ) << v;
      ASSERT_EQ( thrown( [ & ] { ASSERT_EQ( strepToValue< T >( std::to_string( v ) ), T( number ) ); } ),
                 good ? "nothing" : text );
      const Kel::U8 wire[] = { static_cast< Kel::U8 >( v >> 8 ), static_cast< Kel::U8 >( v ) };
      Kel::LogIn in( wire );
      ASSERT_EQ( thrown( [ & ] { ASSERT_EQ( T( in ).value(), number ); } ), good ? "nothing" : text ) << v;
      if( !good ) continue;
      ASSERT_EQ( logged( T( number ) ), std::string( reinterpret_cast< const char* >( wire ), 2 ) );
   }
   // A number that is too wide for 16 bits is not cut to one that fits.
   for( const char* wide : { "65536", "65537", "69631", "4294967297", "18446744073709551617" } )
      EXPECT_NE( thrown( [ & ] { strepToValue< T >( wide ); } ), "nothing" ) << wide;
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

TEST( VlanXlateKey, TextOrderHashAndLog ) {
   const VlanXlateKey key( 0x102, 0x304 );
   EXPECT_EQ( Bridging::valueToStrep( key ), "Value('Bridging::VlanXlateKey', ** {'outerVid': 258, 'innerVid': 772})" );
   EXPECT_EQ( thrown( [] { strepToValue< VlanXlateKey >( "Value('Bridging::VlanXlateKey', ** {'innerVid': 4095})" ); } ),
              "VlanXlateKey::innerVid: VlanIdOrNone::value > 4094 not allowed" );
   EXPECT_TRUE( VlanXlateKey( 1, 4094 ) < VlanXlateKey( 10, 0 ) && VlanXlateKey( 10, 0 ) < VlanXlateKey( 10, 5 ) );
   EXPECT_EQ( VlanId( 0x123 ).hash(), Kel::murmur3( "\x23\x01", 2 ) );
   const U32 parts[] = { VlanId( 0x102 ).hash(), VlanIdOrNone( 0x304 ).hash() };
   EXPECT_EQ( key.hash(), Kel::murmur3( parts, 8 ) );
   EXPECT_EQ( logged( key ), bytes( { 1, 2, 3, 4 } ) );
   static_assert( sizeof( VlanXlateKey ) == 4 );
}

TEST( VlanXlateMapping, TextHashAndLog ) {
   const VlanXlateMapping mapping( 0x102, 0x304, true );
   EXPECT_EQ( Bridging::valueToStrep( mapping ),
              "Value('Bridging::VlanXlateMapping', ** {'vlanId': 258, 'innerVid': 772, 'tunnel': True})" );
   EXPECT_EQ( logged( mapping ), bytes( { 1, 2, 3, 4, 1 } ) );
   static_assert( !isOrdered< VlanXlateMapping > && isOrdered< VlanXlateKey > );
}

}
}
