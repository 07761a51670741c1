#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kel/ThrownTest.h>
#include <quor/EthAddr.h>
#include <random>
#include <set>
#include <sstream>

namespace Quor {
namespace {

using Kel::U16;
using Kel::U8;
using testing::HasSubstr;

// A record as the model has it: a 16-bit number and an address without a gap.
struct Key {
   U16 fid;
   EthAddr addr;
};
static_assert( sizeof( Key ) == 8 && std::is_trivially_copyable_v< EthAddr > && std::is_standard_layout_v< EthAddr > );
static_assert( EthAddr::fromNumber( 0x0102030405'06 ).number() == 0x0102030405'06 );
static_assert( EthAddr( 1, 2, 3, 4, 5, 6 ) < EthAddr( 1, 2, 3, 4, 6, 0 ) );

TEST( EthAddr, ReadsItsForms ) {
   const EthAddr expected( 0x02, 0x1a, 0xbc, 0xde, 0xf0, 0x09 );
   for( const char* text : { "02:1a:bc:de:f0:09", "02:1A:BC:DE:F0:09", "02-1a-bc-de-f0-09", "021a.bcde.f009", "021A.BCDE.F009" } )
      EXPECT_EQ( EthAddr( text ), expected ) << text;
   EXPECT_EQ( expected.stringValue(), "02:1a:bc:de:f0:09" );
   EXPECT_EQ( expected.number(), 0x021abcdef009u );
   std::ostringstream out;
   out << expected;
   EXPECT_EQ( out.str(), "'02:1a:bc:de:f0:09'" );
}

TEST( EthAddr, RefusesOtherText ) {
   struct {
      const char* text;
      const char* quoted;
   } const rows[] = { { "02:00:00:00:00:\xff\xff", "'02:00:00:00:00:\\xff\\xff'" },
                      { "0g:00:00:00:00:01", "'0g:00:00:00:00:01'" },
                      { "", "''" } };
   for( const auto& row : rows )
      EXPECT_THAT( thrown( [ & ] { EthAddr a{ std::string_view( row.text ) }; } ), HasSubstr( row.quoted ) );
   const char* const bad[] = {
      "0", "02:00:00:00:00", "02:00:00:00:00:0", "02:00:00:00:00:01:", "02:00:00:00:00:01:02", " 02:00:00:00:00:01",
      "02:00:00:00:00:01 ", "02:00-00:00:00:01", "2:0:0:0:0:1", "0200:0000:0001", "0200.0000.00", "020.00000.0001",
      "020000000001", "0200-0000-0001", "02:00:00:00:00:+1", "g2:00:00:00:00:01", "02:00:00:00:00:0g", "g200.0000.0001"
   };
   for( const char* text : bad ) EXPECT_THROW( EthAddr{ std::string_view( text ) }, Kel::RangeException ) << text;
}

TEST( EthAddr, ParseLeavesWhatFollowsAndChangesNothingOnFailure ) {
   const std::string_view text = "02:00:00:00:00:01', 1";
   const char* at = text.data();
   EthAddr a;
   ASSERT_TRUE( EthAddr::parse( at, text.data() + text.size(), a ) );
   EXPECT_EQ( at, text.data() + 17 );
   const char* const before = at;
   EXPECT_FALSE( EthAddr::parse( at, text.data() + text.size(), a ) );
   EXPECT_EQ( at, before );
   EXPECT_EQ( a.number(), 0x020000000001u );
   // Every shorter piece of it stands in a block of its own size, so that a sanitizer sees a read past its end.
   for( std::size_t size = 0; size < 17; ++size ) {
      const std::vector< char > piece( text.begin(), text.begin() + static_cast< std::ptrdiff_t >( size ) );
      const char* from = piece.data();
      EXPECT_FALSE( EthAddr::parse( from, from + piece.size(), a ) );
   }
}

TEST( EthAddr, Kinds ) {
   struct {
      const char* text;
      bool multicast, broadcast, zero;
   } const rows[] = { { "00:00:00:00:00:00", false, false, true },  { "02:00:00:00:00:01", false, false, false },
                      { "01:00:5e:00:00:01", true, false, false },  { "33:33:00:00:00:01", true, false, false },
                      { "ff:ff:ff:ff:ff:ff", true, true, false },   { "fe:ff:ff:ff:ff:ff", false, false, false },
                      { "ff:ff:ff:ff:ff:fe", true, false, false } };
   for( const auto& row : rows ) {
      const EthAddr a( row.text );
      EXPECT_EQ( a.isMulticast(), row.multicast ) << row.text;
      EXPECT_EQ( a.isUnicast(), !row.multicast ) << row.text;
      EXPECT_EQ( a.isBroadcast(), row.broadcast ) << row.text;
      EXPECT_EQ( a.isZero(), row.zero ) << row.text;
   }
}

TEST( EthAddr, OrderHashAndTextAgreeWithTheBytes ) {
   std::mt19937_64 random( 1 );
   EthAddr last;
   for( int i = 0; i < 20000; ++i ) {
      // Neighbours that share their first bytes as well as far ones.
      const EthAddr a = EthAddr::fromNumber( i % 2 ? random() : last.number() ^ ( random() & 0xff ) << 8 * ( random() % 6 ) );
      ASSERT_EQ( a < last, std::memcmp( a.bytes().data(), last.bytes().data(), 6 ) < 0 );
      ASSERT_EQ( a == last, std::memcmp( a.bytes().data(), last.bytes().data(), 6 ) == 0 );
      ASSERT_EQ( a.hash(), Kel::murmur3( a.bytes().data(), 6 ) );
      ASSERT_EQ( EthAddr( a.stringValue() ), a );
      ASSERT_EQ( EthAddr::fromNumber( a.number() ), a );
      last = a;
   }
   constexpr auto atCompileTime = EthAddr( 1, 2, 3, 4, 5, 6 ).hash();
   EXPECT_EQ( atCompileTime, EthAddr( "01:02:03:04:05:06" ).hash() );
}

}
}
