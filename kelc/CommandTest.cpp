// The command line, the files that are written, and the goldens of what they hold.
#include "TestTree.h"

namespace Kelc {

namespace {

const char* const definition =
   "module Vid; import \"kel/Kel.kel\"; namespace A; /// A number.\nvalue Vid : U16 in 1..4094 = 1;\n";

// The first line in which two texts differ, with its number.
std::string firstDifference( const std::string& written, const std::string& wanted ) {
   std::istringstream a( written ), b( wanted );
   std::string left, right;
   for( int n = 1; written != wanted; ++n ) {
      const bool more = static_cast< bool >( std::getline( a, left ) ),
                 wantedMore = static_cast< bool >( std::getline( b, right ) );
      if( left != right || more != wantedMore ) return "line " + std::to_string( n ) + " is '" + left + "', not '" + right + "'";
   }
   return "";
}

class Command : public TestTree {
 protected:
   static std::vector< std::string > all( const std::string& file ) {
      return { "-I",     KELC_PLATFORM, "--include-prefix", "G",    "--header",  "o.h", "--source", "o.cpp",
               "--json", "o.json",      "--markdown",       "o.md", "--depfile", "o.d", file };
   }
};

TEST_F( Command, UsageErrorsAreOneLine ) {
   const std::vector< std::pair< std::vector< std::string >, std::string > > cases{
      { {}, "kelc: no definition file is given; kelc --help tells the options\n" },
      { { "--frob", "a.kel" }, "kelc: unknown option --frob; kelc --help tells the options\n" },
      { { "a.kel", "--header" }, "kelc: --header needs a value; kelc --help tells the options\n" },
      { { "-I" }, "kelc: -I needs a value; kelc --help tells the options\n" },
      { { "a.kel", "b.kel" }, "kelc: more than one definition file: b.kel; kelc --help tells the options\n" },
      { { "--registry=r.cpp", "a.kel" }, "kelc: --registry and --library go together; kelc --help tells the options\n" },
      { { "--registry=r.cpp", "--library=L", "--header=h", "a.kel" },
        "kelc: --registry excludes --header, --source, --json and --markdown; kelc --help tells the options\n" },
      { { "--index=i.md", "a.kel" }, "kelc: --index needs --registry; kelc --help tells the options\n" },
      { { "--depfile=d", "a.kel" },
        "kelc: --depfile needs an output that depends on something; kelc --help tells the options\n" },
      { { "a.kel" }, "kelc: can't read a.kel: no such file\n" },
      { { "." }, "kelc: can't read .: not a regular file\n" },
   };
   for( const auto& [ arguments, report ] : cases ) {
      const auto result = kelc( arguments );
      EXPECT_EQ( result.err, report );
      EXPECT_EQ( result.status, 2 );
   }
   EXPECT_EQ( kelc( { "--help" } ).out.substr( 0, 11 ), "usage: kelc" );
   EXPECT_EQ( kelc( { "--version", "--help" } ).status, 0 );
}

TEST_F( Command, ErrorsWriteNothing ) {
   write( "v.kel", "module V; value V : U8;" );
   EXPECT_EQ( kelc( all( "v.kel" ) ).status, 1 );
   EXPECT_FALSE( std::filesystem::exists( "o.h" ) );
}

TEST_F( Command, UnwritableOutputIsNamed ) {
   write( "v.kel", "module V;" );
   EXPECT_EQ( kelc( { "--header", "none/o.h", "v.kel" } ).err, "kelc: can't write none/o.h: No such file or directory\n" );
   std::filesystem::create_directory( "d" );
   EXPECT_EQ( kelc( { "--header", "d", "v.kel" } ).status, 2 );
}

TEST_F( Command, UnchangedOutputIsUntouched ) {
   write( "v.kel", definition );
   ASSERT_EQ( kelc( all( "v.kel" ) ).status, 0 );
   const auto old = std::filesystem::file_time_type::clock::now() - std::chrono::hours( 1 );
   for( const char* file : { "o.h", "o.cpp", "o.json", "o.md", "o.d" } ) std::filesystem::last_write_time( file, old );
   // Another comment changes the documentation, not the source.
   write( "v.kel", "module Vid; import \"kel/Kel.kel\"; namespace A; /// Another number.\nvalue Vid : U16 in 1..4094 = 1;\n" );
   ASSERT_EQ( kelc( all( "v.kel" ) ).status, 0 );
   EXPECT_EQ( std::filesystem::last_write_time( "o.cpp" ), old );
   EXPECT_EQ( std::filesystem::last_write_time( "o.d" ), old );
   EXPECT_NE( std::filesystem::last_write_time( "o.h" ), old );
   EXPECT_NE( std::filesystem::last_write_time( "o.md" ), old );
   for( const auto& entry : std::filesystem::directory_iterator( "." ) ) {
      EXPECT_EQ( entry.path().string().find( ".new." ), std::string::npos ) << entry.path();
   }
}

TEST_F( Command, LinkedOutputStaysALink ) {
   write( "v.kel", definition );
   write( "real.h", "" );
   std::filesystem::create_symlink( "real.h", "o.h" );
   ASSERT_EQ( kelc( all( "v.kel" ) ).status, 0 );
   EXPECT_TRUE( std::filesystem::is_symlink( "o.h" ) );
   EXPECT_NE( read( "real.h" ), "" );
}

TEST_F( Command, DepfileNamesEveryInput ) {
   write( "my dir/$in.kel", "module In;" );
   write( "v.kel", "module V; import \"my dir/$in.kel\";" );
   ASSERT_EQ( kelc( { "-I.", "--header", "o#1.h", "--json", "o.json", "--depfile", "o.d", "v.kel" } ).status, 0 );
   EXPECT_EQ( read( "o.d" ), "o\\#1.h o.json: \\\n  v.kel \\\n  ./my\\ dir/$$in.kel\n" );
}

TEST_F( Command, ImportedHeadersHaveThePrefixOfTheirDirectory ) {
   write( "one/A.kel", "module A; import \"kel/Kel.kel\"; namespace A; value V : U8;" );
   write( "two/B.kel", "module B; import \"kel/Kel.kel\"; namespace B; value V : U8;" );
   write( "t.kel", "module T; import \"A.kel\"; import \"B.kel\"; namespace T; value W { a : A::V; b : B::V; }" );
   ASSERT_EQ(
      kelc( { "-I", KELC_PLATFORM, "-Ione=One", "-I", "two", "--include-prefix", "Own", "--header", "t.h", "t.kel" } ).status,
      0 );
   const std::string header = read( "t.h" );
   EXPECT_NE( header.find( "#include <One/A.h>" ), std::string::npos );
   EXPECT_NE( header.find( "#include <Own/B.h>" ), std::string::npos );
}

TEST_F( Command, JsonAndMarkdownEscapeWhatTheyQuote ) {
   write( "v.kel", "/// A \"quoted\" | \\ <b> \xff text\n/// and more\nmodule V; import \"kel/Kel.kel\"; namespace A; value V { "
                   "a : String8 = \"|\\\"`\"; }" );
   ASSERT_EQ( kelc( all( "v.kel" ) ).status, 0 );
   EXPECT_NE( read( "o.json" )
                 .find( R"("documentation": "A \"quoted\" | \\ <b> )"
                        "\xef\xbf\xbd"
                        R"( text\nand more")" ),
              std::string::npos );
   EXPECT_NE( read( "o.md" ).find( "A \"quoted\" \\| \\\\ \\<b>" ), std::string::npos );
   EXPECT_NE( read( "o.md" ).find( "| `a` | `Kel::String8` | `\"/\\\"'\"` |" ), std::string::npos );
}

// KELC_UPDATE_GOLDENS=1 in the environment takes what is written as the new goldens.
TEST_F( Command, Goldens ) {
   const std::string golden = std::string( KELC_TESTDATA ) + "/golden/";
   std::filesystem::copy( golden + "Golden.kel", "Golden.kel" );
   ASSERT_EQ( kelc( all( "Golden.kel" ) ).err, "" );
   ASSERT_EQ( kelc( { "-I", KELC_PLATFORM, "--registry", "o.registry.cpp", "--index", "o.index.md", "--library", "Golden",
                     "Golden.kel" } ).err, "" );
   for( const char* kind : { ".h", ".cpp", ".json", ".md", ".registry.cpp", ".index.md" } ) {
      const std::string written = read( "o" + std::string( kind ) );
      EXPECT_EQ( firstDifference( written, read( golden + "Golden" + kind ) ), "" );
      if( const char* update = std::getenv( "KELC_UPDATE_GOLDENS" ); update && *update )
         write( golden + "Golden" + kind, written );
   }
}

}

}
