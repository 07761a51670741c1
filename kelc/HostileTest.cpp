// Whatever the input, the compiler ends, within bounds, with a report or without one. All random choices come from fixed seeds.
#include "TestTree.h"

#include <chrono>
#include <random>

namespace Kelc {

namespace {

class Hostile : public TestTree {
 protected:
   Hostile() : spellings_( read( std::string( KELC_TESTDATA ) + "/Spellings.kel" ) ) {
      std::filesystem::copy( KELC_TESTDATA, "testdata", std::filesystem::copy_options::recursive );
   }

   /// Compiles `text` to every output and returns the exit status; each report is well-formed.
   int survive( const std::string& text ) {
      write( "h.kel", text );
      const auto result =
         kelc( { "-I", KELC_PLATFORM, "-I.", "--header=h.h", "--source=h.cpp", "--json=h.json", "--markdown=h.md", "h.kel" } );
      EXPECT_TRUE( result.status == 0 || result.status == 1 ) << result.err;
      EXPECT_EQ( result.status == 0, result.err.empty() );
      if( result.status == 1 ) {
         EXPECT_NE( result.err.find( ": error: " ), std::string::npos );
      }
      return result.status;
   }

   std::string spellings_;
};

TEST_F( Hostile, RandomBytes ) {
   std::mt19937 random( 1 );
   for( int i = 0; i < 300; ++i ) {
      std::string text = "module H; ";
      for( std::size_t n = random() % 2000; n; --n ) text += static_cast< char >( random() );
      survive( text );
   }
}

TEST_F( Hostile, MutatedDefinitions ) {
   std::mt19937 random( 2 );
   ASSERT_EQ( survive( spellings_ ), 0 );
   for( int i = 0; i < 600; ++i ) {
      std::string text = spellings_;
      for( int n = 0; n < 1 + i % 4; ++n ) {
         const std::size_t at = random() % text.size(), size = random() % 30;
         switch( random() % 4 ) {
         case 0: text.erase( at, size ); break;
         case 1: text.insert( at, text.substr( random() % text.size(), size ) ); break;
         case 2: text[ at ] = static_cast< char >( random() ); break;
         default: text.resize( at + 1 ); break;
         }
      }
      survive( text );
   }
}

TEST_F( Hostile, RandomWordsOfTheLanguage ) {
   std::istringstream all( "value entity machine enum extern namespace V W a b U8 String8 { } ( ) ; : -> = .. , map set queue of "
                           "by child ref key param derived narrow watch on op virtual const from as 1 -5 \"x\" name ordered "
                           "optional table owner . ::" );
   const std::vector< std::string > words( std::istream_iterator< std::string >( all ), {} );
   std::mt19937 random( 3 );
   for( int i = 0; i < 400; ++i ) {
      std::string text = "module H; import \"kel/Kel.kel\";\n";
      for( std::size_t n = random() % 300; n; --n ) text += words[ random() % words.size() ] + ' ';
      survive( text );
   }
}

std::string repeated( const std::string& part, int n ) {
   std::string out;
   for( int i = 0; i < n; ++i ) out += part;
   return out;
}

TEST_F( Hostile, DepthIsBounded ) {
   const std::string begin = "module H; import \"kel/Kel.kel\"; namespace A; ";
   survive( begin + repeated( "entity E { ", 50000 ) );
   survive( begin + repeated( "value V { ", 50000 ) );
   survive( begin + "value V { a : U8 = " + repeated( "{", 100000 ) );
   survive( begin + "value V { a : " + repeated( "A::", 50000 ) + "B; }" );
   survive( begin + "namespace " + repeated( "A::", 50000 ) + "B; value V : U8;" );
   survive( begin + repeated( "(", 100000 ) + repeated( ")", 100000 ) );
   survive( begin + "machine M { " + repeated( "watch w : E { ", 50000 ) );
   EXPECT_EQ( survive( begin + repeated( "value W { ", 40 ) + " a : U8; " + repeated( " }", 40 ) ), 1 );
}

// Chains of types as long as a file can hold: of values in each other, of scalars over scalars, of bases, of references.
TEST_F( Hostile, LongChainsOfTypes ) {
   const std::string begin = "module H; import \"kel/Kel.kel\"; namespace A; ";
   auto chain = [ & ]( const std::string& first, const char* before, const char* between, const char* after ) {
      std::string text = begin + first;
      for( int i = 1; i < 8000; ++i ) text += before + std::to_string( i ) + between + std::to_string( i - 1 ) + after;
      return survive( text );
   };
   EXPECT_EQ( chain( "value V0 { a : U8; } ", "value V", " { a : V", "; }\n" ), 1 );
   EXPECT_EQ( chain( "value V0 : U8; ", "value V", " : V", ";\n" ), 1 );
   EXPECT_EQ( chain( "entity V0( name ) {} ", "entity V", "( name ) : V", " {}\n" ), 1 );
   EXPECT_EQ( chain( "entity V0( name ) {} ", "entity V", "( name ) { a : ref V", "; }\n" ), 0 );
}

TEST_F( Hostile, NestingThatDoublesOnEachLevel ) {
   std::string text = "module H; import \"kel/Kel.kel\"; namespace A; value V0 ordered { a : U8; b : U8; }\n";
   for( int i = 1; i < 60; ++i ) {
      const std::string inner = "V" + std::to_string( i - 1 );
      text += "value V" + std::to_string( i ) + " ordered { a : " + inner + "; b : " + inner + "; }\n";
   }
   EXPECT_EQ( survive( text ), 0 );
   EXPECT_EQ( survive( text + "entity E( name ) { t : table of V59 by a; }" ), 1 );
}

TEST_F( Hostile, ManyErrorsAreCounted ) {
   const auto result = define( repeated( "value v : U8;\n", 250 ) );
   EXPECT_EQ( result.status, 1 );
   EXPECT_TRUE( result.err.ends_with( "kelc: 150 more errors are not shown\n" ) ) << result.err.substr( result.err.size() - 200 );
}

TEST_F( Hostile, ImportsInACircleAndTooDeep ) {
   write( "a.kel", "module A; import \"b.kel\";" );
   write( "b.kel", "module B;\nimport \"c.kel\";" );
   write( "c.kel", "module C;\n\nimport \"b.kel\";" );
   EXPECT_EQ( kelc( { "-I.", "a.kel" } ).err, R"(./c.kel:3:8: error: this import closes a cycle
import "b.kel";
       ^~~~~~~
./b.kel:2:8: note: which is reached through this import
)" );
   write( "self.kel", "module S; import \"./x/../self.kel\";" );
   std::filesystem::create_directory( "x" );
   EXPECT_NE( kelc( { "-I.", "self.kel" } ).err.find( "closes a cycle" ), std::string::npos );
   for( int i = 0; i < 200; ++i )
      write( "d" + std::to_string( i ) + ".kel",
             "module D" + std::to_string( i ) + "; import \"d" + std::to_string( i + 1 ) + ".kel\";" );
   EXPECT_NE( kelc( { "-I.", "d0.kel" } ).err.find( "imports nest more than 100 deep" ), std::string::npos );
}

TEST_F( Hostile, ImportsThatAreNoFiles ) {
   std::filesystem::create_directory( "dir.kel" );
   write( "t.kel", "module T;\nimport \"dir.kel\";\nimport \"/dev/zero\";\nimport \"none.kel\";" );
   EXPECT_EQ( kelc( { "-I", "i", "-I.", "t.kel" } ).err, R"(t.kel:2:8: error: can't find the imported file; tried
   i/dir.kel: no such file
   ./dir.kel: not a regular file
import "dir.kel";
       ^~~~~~~~~
t.kel:3:8: error: can't find the imported file; tried
   /dev/zero: not a regular file
   /dev/zero: not a regular file
import "/dev/zero";
       ^~~~~~~~~~~
t.kel:4:8: error: can't find the imported file; tried
   i/none.kel: no such file
   ./none.kel: no such file
import "none.kel";
       ^~~~~~~~~~
)" );
}

}

}
