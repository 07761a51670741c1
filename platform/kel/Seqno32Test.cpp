#include <kel/Seqno32.h>
#include <kel/ThrownTest.h>

#include <gtest/gtest.h>

using Kel::U32;
using Oru::Seqno32;

namespace {

TEST( Seqno32, ordersBySerialNumberArithmetic ) {
   const struct {
      U32 a, b;
      std::partial_ordering order;
   } rows[] = {
      { 1, 0, std::partial_ordering::greater },
      { 44, 44, std::partial_ordering::equivalent },
      { 0, 0xffffffff, std::partial_ordering::greater },
      { 100, 0xffffff00, std::partial_ordering::greater },
      { 0x7fffffff, 0, std::partial_ordering::greater },
      { 0x80000001, 0, std::partial_ordering::less },
      { 0x80000000, 0, std::partial_ordering::unordered },
      { 7, 0x80000007, std::partial_ordering::unordered },
   };
   for( const auto& row : rows ) {
      EXPECT_EQ( Seqno32( row.a ) <=> Seqno32( row.b ), row.order ) << row.a << " " << row.b;
      EXPECT_EQ( Seqno32( row.b ) <=> Seqno32( row.a ), 0 <=> row.order ) << row.b << " " << row.a;
   }
}

TEST( Seqno32, addsAndWraps ) {
   Seqno32 s( 0xffffffff );
   EXPECT_EQ( ( s++ ).value(), 0xffffffffu );
   EXPECT_EQ( s.value(), 0u );
   EXPECT_EQ( ( s + 0x7fffffff ).value(), 0x7fffffffu );
   EXPECT_GT( s + 0x7fffffff, s );
   EXPECT_EQ( thrown( [ & ] { s += 0x80000000; } ), "Seqno32::increment > 2147483647 not allowed" );
   EXPECT_EQ( s, Seqno32( 0 ) );
   EXPECT_EQ( Seqno32( 5 ).hash(), Kel::murmur3Of4( 5 ) );
}

}
