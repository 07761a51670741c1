#include <arpa/inet.h>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kel/Hash.h>
#include <kel/ThrownTest.h>
#include <quor/IpAddr.h>
#include <random>
#include <sstream>

namespace Quor {
namespace {

using Kel::U8;
using testing::HasSubstr;

static_assert( std::is_trivially_copyable_v< IpAddr > && std::is_standard_layout_v< IpAddr > );
static_assert( IpAddr() < IpAddr( 1u ) && IpAddr( 0xffffffffu ) < IpAddr( std::array< U8, 16 >{} ) );

TEST( IpAddr, Texts ) {
   struct {
      const char* in;
      const char* out;
   } const rows[] = {
      { "", "" },
      { "0.0.0.0", "0.0.0.0" },
      { "192.0.2.1", "192.0.2.1" },
      { "255.255.255.255", "255.255.255.255" },
      { "::", "::" },
      { "::1", "::1" },
      { "1::", "1::" },
      { "2001:DB8::1", "2001:db8::1" },
      { "2001:0db8:0000:0000:0000:0000:0002:0001", "2001:db8::2:1" },
      { "2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1" },   // one zero group is not shortened
      { "2001:db8::1:1:1:1:1", "2001:db8:0:1:1:1:1:1" },
      { "2001:0:0:1:0:0:0:1", "2001:0:0:1::1" },             // the longer run
      { "2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1" },       // the first of equal runs
      { "::2:3:4:5:6:7:8", "0:2:3:4:5:6:7:8" },
      { "1:2:3:4:5:6:7::", "1:2:3:4:5:6:7:0" },
      { "0:0:1::", "0:0:1::" },
      { "1:0:0:2:3:4:0:0", "1::2:3:4:0:0" },
      { "::ffff:192.0.2.1", "::ffff:192.0.2.1" },
      { "::ffff:c000:201", "::ffff:192.0.2.1" },
      { "::192.0.2.1", "::c000:201" },
      { "64:ff9b::192.0.2.33", "64:ff9b::c000:221" },
      { "1:2:3:4:5:6:1.2.3.4", "1:2:3:4:5:6:102:304" },
      { "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff" },
   };
   for( const auto& row : rows ) {
      EXPECT_EQ( IpAddr( row.in ).stringValue(), row.out ) << row.in;
      std::ostringstream out;
      out << IpAddr( row.in );
      EXPECT_EQ( out.str(), "'" + std::string( row.out ) + "'" );
   }
}

TEST( IpAddr, RefusesJunk ) {
   const char* const bad[] = {
      " ", "1", "1.2.3", "1.2.3.4.5", "1.2.3.", ".1.2.3", "1..2.3", "256.1.1.1", "01.2.3.4", "1.2.3.04", "1.2.3.1000",
      "1.2.3.4 ", ":", ":::", "1", "1:", ":1", ":1:2:3:4:5:6:7", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1::2::3",
      "1:2:3:4::5:6:7:8", "12345::", "g::", "::1%eth0", "::1/64", "1.2.3.4::", "::1.2.3", "::1.2.3.4.5", "::1.2.3.4:5",
      "1:2:3:4:5:6:7:1.2.3.4", "::1.2:3", "1:2:3:4:5:6:7:8:", "[::1]", "::ffff:1.2.3.256", "-1.2.3.4"
   };
   for( const char* text : bad )
      EXPECT_THAT( thrown( [ & ] { IpAddr a{ std::string_view( text ) }; } ), HasSubstr( std::string( text ).substr( 0, 20 ) ) );
}

// The C library reads the same texts; where the two print differently, it reads ours as the same address.
TEST( IpAddr, AgreesWithTheSystem ) {
   std::mt19937 random( 2 );
   const std::string_view letters = "0123456789abcdefF::::....0011";
   int good = 0;
   for( int i = 0; i < 300000; ++i ) {
      std::string text;
      const std::size_t size = random() % 20;
      for( std::size_t k = 0; k < size; ++k ) text += letters[ random() % letters.size() ];
      if( text.empty() ) continue;
      U8 v6[ 16 ], v4[ 4 ];
      const bool is6 = inet_pton( AF_INET6, text.c_str(), v6 ) == 1;
      const bool is4 = inet_pton( AF_INET, text.c_str(), v4 ) == 1;
      const char* from = text.data();
      IpAddr a;
      ASSERT_EQ( IpAddr::parse( from, from + text.size(), a ), is6 || is4 ) << text;
      if( !is6 && !is4 ) continue;
      ++good;
      ASSERT_EQ( a, is6 ? IpAddr( std::span< const U8, 16 >( v6 ) ) : IpAddr( std::span< const U8, 4 >( v4 ) ) ) << text;
   }
   EXPECT_GT( good, 100 );
   for( int i = 0; i < 50000; ++i ) {
      std::array< U8, 16 > bytes{};
      for( std::size_t k = 0; k < 16; k += 2 ) {
         const auto group = random() % 3 ? 0 : random() >> random() % 16;
         bytes[ k ] = static_cast< U8 >( group >> 8 );
         bytes[ k + 1 ] = static_cast< U8 >( group );
      }
      const IpAddr a( bytes );
      const std::string text = a.stringValue().str();
      ASSERT_LE( text.size(), IpAddr::maxText );
      U8 back[ 16 ];
      ASSERT_EQ( inet_pton( AF_INET6, text.c_str(), back ), 1 ) << text;
      ASSERT_EQ( IpAddr( std::span< const U8, 16 >( back ) ), a ) << text;
      ASSERT_EQ( IpAddr( text ), a );
   }
}

TEST( IpAddr, LayoutHashAndOrder ) {
   const IpAddr v4( 0xc0000201u );
   const U8 expected[ 20 ] = { 4, 0, 0, 0, 192, 0, 2, 1 };
   EXPECT_EQ( std::memcmp( &v4, expected, 20 ), 0 );
   EXPECT_EQ( v4.hash(), Kel::murmur3( expected + 4, 4 ) );
   EXPECT_EQ( IpAddr().hash(), Kel::murmur3( "", 0 ) );
   EXPECT_TRUE( IpAddr( "::1" ) < IpAddr( "::2" ) && IpAddr( "9.0.0.0" ) < IpAddr( "10.0.0.0" ) &&
                IpAddr( "255.0.0.0" ) < IpAddr( "::" ) );
   EXPECT_NE( IpAddr( "::" ), IpAddr() );
   EXPECT_NE( IpAddr( "0.0.0.0" ), IpAddr() );
}

}
}
