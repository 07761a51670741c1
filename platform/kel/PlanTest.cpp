#include "FacetsTest.h"

#include <optional>

// A composite is read along its type's plan as long as the text is what would be printed, and by the grammar from the first other
// character on. A space before the end makes the grammar read the same text; both ways must judge every text alike.

namespace {

using Facets::Everything;

std::optional< Everything > parsed( const std::string& text ) {
   Everything value;
   try {
      Kel::parseWhole( Everything::_Type, &value, text );
   } catch( const Kel::RangeException& ) {
      return std::nullopt;
   }
   return value;
}

std::string sample() {
   Everything e;
   e.u64Is( 9999999999999999999u );   // 19 digits, the most that the plan reads itself
   e.s64Is( -9223372036854775807 - 1 );
   e.u32Is( 4294967295 );
   e.realIs( -0.5 );
   e.textIs( "it's\n" );
   e.colourIs( Facets::Colour::blue );
   e.smallIs( 200 );
   e.pairIs( Facets::Pair( 4094, 9 ) );
   return Facets::valueToStrep( e ).str();
}

TEST( PlanTest, EveryChangedCharacterIsJudgedAsByTheGrammar ) {
   const std::string canonical = sample();
   ASSERT_EQ( Facets::valueToStrep( *parsed( canonical ) ).str(), canonical );
   int taken = 0;
   for( std::size_t i = 0; i + 1 < canonical.size(); ++i ) {
      for( const char c : { '0', '9', ':', ' ', '-', '\'', '\\', 'x', ',', '}' } ) {
         std::string changed = canonical;
         changed[ i ] = c;
         const auto direct = parsed( changed );
         const auto byGrammar = parsed( std::string( changed ).insert( changed.size() - 1, " " ) );
         EXPECT_EQ( direct, byGrammar ) << changed;
         taken += direct.has_value();
      }
   }
   EXPECT_GT( taken, 100 );   // digits may be other digits, characters of a string other characters
}

TEST( PlanTest, NumbersAtTheEdgesOfTheirTypes ) {
   const std::pair< const char*, bool > cases[] = {
      { "'u64': 18446744073709551615", true }, { "'u64': 18446744073709551616", false },
      { "'u64': 00000000000000000000001", true }, { "'u32': 4294967295", true },           { "'u32': 4294967296", false },           { "'u16': 65536", false },
      { "'u8': 255", true },                   { "'u8': 256", false },                   { "'small': 200", true },
      { "'small': 201", false },               { "'small': -0", true },                  { "'u8': ", false },
   };
   const std::string canonical = sample();
   for( const auto& [ attribute, taken ] : cases ) {
      const std::string_view name( attribute, std::string_view( attribute ).find( ':' ) + 2 );
      const std::size_t begin = canonical.find( name );
      ASSERT_NE( begin, std::string::npos ) << name;
      std::string text = canonical;
      text.replace( begin, text.find_first_of( ",}", begin ) - begin, attribute );
      EXPECT_EQ( parsed( text ).has_value(), taken ) << attribute;
   }
}

}
