#include "FacetsTest.h"

#include <kel/Seqno32.h>
#include <random>
#include <sstream>

// The canonical text form: exact texts, what the parser takes and refuses, and that everything printed reads back.

namespace {

using namespace Facets;

TEST( TextTest, ExactForms ) {
   EXPECT_EQ( Facets::valueToStrep( Pair( 10, 0 ) ), "Value('Facets::Pair', ** {'outer': 10, 'inner': 0})" );
   std::ostringstream out;
   out << Pair( 10, 0 ) << ' ' << Colour::green << ' ' << Vid( 7 );
   EXPECT_EQ( out.str(), "Value('Facets::Pair', ** {'outer': 10, 'inner': 0}) green 7" );
   EXPECT_EQ( Facets::valueToStrep( Colour::green ), "'green'" );
   EXPECT_EQ( Facets::stringValue( static_cast< Colour >( 9 ) ), "Colour(9)" );
   EXPECT_EQ( Facets::valueToStrep( static_cast< Colour >( 0xffffffffu ) ), "'Colour(-1)'" );
   EXPECT_EQ( Facets::ColourInstance( "red" ), Colour::red );
   EXPECT_EQ( thrown( [] { Facets::ColourInstance( 1 ); } ), "Colour" );
   EXPECT_EQ( Kel::valueToStrep( Kel::String8( std::string_view( "it's\n\\\0\xff", 8 ) ) ), "'it\\'s\\n\\\\\\x00\\xff'" );
   const std::pair< double, const char* > doubles[] = {
      { 0.1, "0.1" }, { 300, "300" }, { 1e300, "1e+300" }, { -0.0, "-0" }, { 1.0 / 3, "0.3333333333333333" }
   };
   for( const auto& [ v, text ] : doubles ) EXPECT_EQ( Kel::valueToStrep( v ), text );
   EXPECT_EQ( Kel::valueToStrep( Oru::Seqno32( 5 ) ), "5" );
   Everything e;
   EXPECT_TRUE( !e );
   e.flagIs( true );
   EXPECT_FALSE( !e );
   EXPECT_EQ( Facets::valueToStrep( e ), "Value('Facets::Everything', ** {'flag': True, 'u8': 0, 'u16': 0, 'u32': 0, 'u64': 0, "
                                         "'s8': 0, 's16': 0, 's32': 0, 's64': 0, 'real': 0, "
                                         "'text': '', 'name': '', 'colour': 'red', 'small': 0, 'level': 1, 'label': '', 'pair': "
                                         "Value('Facets::Pair', ** {'outer': 1, 'inner': 0})})" );
}

TEST( TextTest, ParserTakesAnyOrderOmissionsAndWhiteSpace ) {
   const std::pair< const char*, Pair > cases[] = {
      { "Value('Facets::Pair', ** {})", Pair() },
      { "Value('Facets::Pair', ** {'inner': 5})", Pair( 1, 5 ) },
      { " Value ( 'Facets::Pair'\t,\n** { 'inner' :5,'outer': 010 } )", Pair( 10, 5 ) },
   };
   for( const auto& [ text, value ] : cases ) EXPECT_EQ( Kel::strepToValue< Pair >( text ), value ) << text;
   EXPECT_EQ( Kel::strepToValue< Kel::String8 >( "'a\\x41\\'\\t'" ), "aA'\t" );
   const std::string text = "Value('Facets::Pair', ** {'outer': 3}) rest";
   Kel::TextIter from( text.data() );
   EXPECT_EQ( Pair( from, Kel::TextIter( text.data() + text.size() ) ), Pair( 3, 0 ) );
   EXPECT_EQ( std::string( from.ptr() ), " rest" );
}

TEST( TextTest, FirstFaultIsToldInFull ) {
   const std::string open = "Value('Facets::Pair', ** {";
   const std::pair< std::string, std::string > cases[] = {
      { "", "premature end of value type Pair" },
      { open, "premature end of value type Pair" },
      { open + "'outer': 1", "premature end of value type Pair" },
      { open + "'outer': 1}", "premature end of value type Pair" },
      { open + "'outer", "premature end of value type Pair" },
      { open + "'colour': 1})", "Pair has no such attribute: colour" },
      { open + "'co\tlour\x1b[2J': 1})", "Pair has no such attribute: co\\tlour\\x1b[2J" },
      { open + "'outer': 0})", "Pair::outer: Vid::value < 1 or > 4094 not allowed" },
      { open + "'outer': -3})", "Pair::outer: Vid::value < 1 or > 4094 not allowed" },
      { open + "'outer': 99999999999999999999999})", "Pair::outer: Vid::value < 1 or > 4094 not allowed" },
      { open + "'inner': 4095})", "Pair::inner: VidOrNone::value > 4094 not allowed" },
      { open + "'outer': True})", "expected a number at column 35 deserializing Facets::Vid" },
      { open + "'outer': 1 'inner': 2})", "expected \",\" at column 37 deserializing Facets::Pair" },
      { "Value('Facets::Host', ** {})", "expected 'Facets::Pair' at column 6 deserializing Facets::Pair" },
      { open + "})x", "junk at column 28 deserializing Facets::Pair" },
   };
   for( const auto& [ text, fault ] : cases ) EXPECT_EQ( thrown( [ & ] { Kel::strepToValue< Pair >( text ); } ), fault ) << text;
   EXPECT_EQ( thrown( [] { Kel::strepToValue< Kel::U8 >( "256" ); } ), "U8::value > 255 not allowed" );
   EXPECT_EQ( thrown( [] { Kel::strepToValue< Label >( "'longer than ten'" ); } ), "Label::bytes > 10 not allowed" );
   EXPECT_EQ( thrown( [] { Kel::strepToValue< Colour >( "'puce'" ); } ), "Colour has no such value: puce" );
}

TEST( TextTest, RangesAreCheckedOnConstruction ) {
   EXPECT_EQ( thrown( [] { Small( 201 ); } ), "Small::value > 200 not allowed" );
   EXPECT_EQ( thrown( [] { Level( -6 ); } ), "Level::value < -5 or > 5 not allowed" );
   EXPECT_EQ( thrown( [] { Label( "elevenbytes" ); } ), "Label::bytes > 10 not allowed" );
   EXPECT_EQ( Label( "exactly10." ).value(), "exactly10." );
   EXPECT_EQ( Pair( 3, 4 ).hash(), Kel::murmur3Of8( Vid( 3 ).hash(), VidOrNone( 4 ).hash() ) );
}

/// A random value; every number is often at an edge of its range.
Everything randomEverything( std::mt19937_64& random ) {
   const auto bits = [ & ] { return random() % 4 ? random() >> random() % 64 : random() % 2 ? ~0ull : 1ull << random() % 64; };
   const auto text = [ & ] {
      std::string s( static_cast< std::size_t >( random() % 12 ), ' ' );
      for( char& c : s ) c = static_cast< char >( random() % 3 ? random() : "'\\\n,}"[ random() % 5 ] );
      return s;
   };
   double real;
   do {
      const std::uint64_t b = bits();
      std::memcpy( &real, &b, 8 );
   } while( real != real );
   return Everything(
      random() % 2, static_cast< Kel::U8 >( bits() ), static_cast< Kel::U16 >( bits() ), static_cast< Kel::U32 >( bits() ),
      bits(), static_cast< Kel::S8 >( bits() ), static_cast< Kel::S16 >( bits() ), static_cast< Kel::S32 >( bits() ),
      static_cast< Kel::S64 >( bits() ), real, Kel::String8( text() ), Kel::Name( text() ),
      static_cast< Colour >( random() % 3 ? random() % 4 : bits() ), Small( static_cast< Kel::U8 >( random() % 201 ) ),
      Level( static_cast< Kel::S32 >( random() % 11 ) - 5 ), Label( text().substr( 0, 10 ) ),
      Pair( static_cast< Kel::U16 >( 1 + random() % 4094 ), static_cast< Kel::U16 >( random() % 4095 ) ) );
}

TEST( TextTest, WhateverIsPrintedOrLoggedReadsBack ) {
   std::mt19937_64 random( 1 );
   for( int i = 0; i < 3000; ++i ) {
      const Everything value = randomEverything( random );
      const Kel::String8 text = Kel::valueToStrep( value );
      ASSERT_EQ( Kel::strepToValue< Everything >( text ), value ) << text.view();
      Kel::LogOut out;
      out << value;
      Kel::LogIn in( out.bytes() );
      ASSERT_EQ( Everything( in ), value );
      ASSERT_TRUE( in.atEnd() );
      ASSERT_EQ( value.hash(), Everything( value ).hash() );
   }
}

TEST( TextTest, HostileTextIsRefusedOrReadsBack ) {
   std::mt19937_64 random( 2 );
   for( int i = 0; i < 20000; ++i ) {
      std::string text = Kel::valueToStrep( randomEverything( random ) ).str();
      for( int k = static_cast< int >( random() % 4 ); k >= 0; --k ) {
         if( random() % 3 == 0 ) text.resize( static_cast< std::size_t >( random() % ( text.size() + 1 ) ) );
         else if( !text.empty() )
            text[ static_cast< std::size_t >( random() % text.size() ) ] =
               static_cast< char >( random() % 2 ? random() : "'\\{},:0 "[ random() % 8 ] );
      }
      try {
         const auto value = Kel::strepToValue< Everything >( text );
         // A NaN equals nothing.
         if( value != value ) continue;
         ASSERT_EQ( Kel::strepToValue< Everything >( Kel::valueToStrep( value ) ), value );
      } catch( const Kel::RangeException& ) {
      }
   }
}

}
