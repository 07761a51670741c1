#include <kel/Name.h>
#include <kel/ThrownTest.h>
#include <kel/Trace.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct Seen {
   std::string facility;
   Kel::U32 level;
   std::string source, function, text;
   bool operator==( const Seen& ) const = default;
};

std::ostream& operator<<( std::ostream& out, const Seen& s ) {
   return out << s.facility << '/' << s.level << ' ' << s.source << ": " << s.function << '|' << s.text;
}

struct Point {
   int x, y;
   friend std::ostream& operator<<( std::ostream& out, const Point& p ) { return out << p.x << '/' << p.y; }
};

struct Unprintable {
   friend std::ostream& operator<<( std::ostream& out, const Unprintable& ) {
      out << "half";
      throw std::runtime_error( "no" );
   }
};

/// Collects what is traced, away from standard error; settings are as at the start of a process before and after.
class Trace : public ::testing::Test {
 protected:
   Trace() {
      Kel::traceToStandardErrorIs( false );
      Kel::traceSettingReset();
   }
   ~Trace() override {
      Kel::traceSettingReset();
      Kel::traceToStandardErrorIs( true );
   }

   static std::string fileContent( const std::string& path ) {
      std::stringstream content;
      content << std::ifstream( path ).rdbuf();
      return content.str();
   }

   std::vector< Seen > seen;
   Kel::TraceDestination destination = Kel::traceToCallback( [ this ]( const Kel::TraceLine& l ) {
      seen.push_back(
         { std::string( l.facility ), l.level, std::string( l.source ), std::string( l.function ), std::string( l.text ) } );
   } );
};

struct Sm {
   virtual ~Sm() = default;
   virtual void handleInitialized() {
      if( auto t = Kel::traceHandle( "TraceTest" ).at( 5, "FdbStatusSm" ) ) t << " source " << Kel::Name( "lag" );
   }
};

TEST_F( Trace, fieldsAreExact ) {
   auto& handle = Kel::traceHandle( "TraceTest" );
   Kel::traceLevelIs( "TraceTest", Kel::TraceLevels::upTo( 5 ) );
   if( auto t = handle.at( 2, "Intf/Counter", "counterCommon" ) )
      t << "Found " << Point{ 3, 4 } << ' ' << std::string( "in" ) << Kel::U8( 65 ) << Kel::S8( -3 ) << 'c' << 1.5
        << static_cast< const char* >( nullptr );
   Sm().handleInitialized();
   const std::vector< Seen > want{ { "TraceTest", 2, "Intf/Counter", "counterCommon", "Found 3/4 in65-3c1.5(null)" },
                                   { "TraceTest", 5, "FdbStatusSm", "virtual void {anonymous}::Sm::handleInitialized()",
                                     " source lag" } };
   EXPECT_EQ( want, seen );
}

TEST_F( Trace, offEvaluatesNothing ) {
   auto& handle = Kel::traceHandle( "TraceTest" );
   int evaluated = 0;
   for( Kel::U32 level : { 1u, 9u, 10u, 31u, 32u, 1u << 31 } )
      if( auto t = handle.at( level, "S", "f()" ) ) t << ++evaluated;
   EXPECT_EQ( 0, evaluated );
   if( auto t = handle.at( 0, "S", "f()" ) ) t << ++evaluated;
   EXPECT_EQ( 1, evaluated );
   EXPECT_EQ( 1u, seen.size() );
}

TEST_F( Trace, settingsReachHandlesThatComeLater ) {
   auto& early = Kel::traceHandle( "TraceTest.early" );
   Kel::traceSettingIs( "TraceTest.*/0-2,TraceTest.l?te/8,Nobody" );
   auto& late = Kel::traceHandle( "TraceTest.late" );
   EXPECT_EQ( Kel::TraceLevels::upTo( 2 ), early.levels() );
   EXPECT_EQ( Kel::TraceLevels::only( 8 ), late.levels() );
   Kel::traceLevelIs( "*", Kel::TraceLevels::none() );
   EXPECT_FALSE( early.enabled( 0 ) || late.enabled( 8 ) );
   Kel::traceSettingReset();
   EXPECT_EQ( Kel::TraceLevels::only( 0 ), late.levels() );
   EXPECT_EQ( &late, &Kel::traceHandle( "TraceTest.late" ) );
}

TEST_F( Trace, patterns ) {
   const struct {
      const char* pattern;
      const char* name;
      bool matches;
   } rows[] = { { "a*b*c", "aXbYc", true }, { "a*b*c", "abcb", false }, { "*", "", true },
                { "", "x", false },         { "?", "", false },         { "**x", "axax", true },
                { "a", "ab", false },       { "ab", "a", false },       { "*ab", "aab", true } };
   int n = 0;
   for( const auto& r : rows ) {
      const std::string unique = "TraceTest.p" + std::to_string( n++ );
      auto& handle = Kel::traceHandle( unique + r.name );
      Kel::traceLevelIs( unique + r.pattern, Kel::TraceLevels::all() );
      EXPECT_EQ( r.matches, handle.enabled( 7 ) ) << r.pattern << " against " << r.name;
   }
}

TEST_F( Trace, levelTexts ) {
   const struct {
      const char* text;
      const char* canonical; // null: refused
   } rows[] = { { "*", "*" },       { "-", "-" },     { "0-9", "*" },      { "0-26", "0-26" }, { "850", "058" },
                { "01", "01" },     { "4-4", "4" },   { "789", "7-9" },    { "", nullptr },    { "5-", nullptr },
                { "5-2", nullptr }, { "x", nullptr }, { "0-5,", nullptr }, { "1**", nullptr } };
   for( const auto& r : rows ) {
      if( r.canonical ) EXPECT_EQ( r.canonical, Kel::TraceLevels::parse( r.text ).str() ) << r.text;
      else EXPECT_THROW( Kel::TraceLevels::parse( r.text ), Kel::RangeException ) << r.text;
   }
}

TEST_F( Trace, badSettingChangesNothing ) {
   auto& handle = Kel::traceHandle( "TraceTest" );
   const struct {
      const char* setting;
      const char* what;
   } rows[] = {
      { "TraceTest/*,X/7-a",
        "trace levels \"7-a\" not understood at column 2: expected digits and ranges such as 0-5, * for all or - for none" },
      { "TraceTest/*,,X",
        "trace setting \"TraceTest/*,,X\" has no facility at column 12: expected FACILITY/LEVELS joined by commas" },
      { "TraceTest/*,",
        "trace setting \"TraceTest/*,\" has no facility at column 12: expected FACILITY/LEVELS joined by commas" },
   };
   for( const auto& r : rows ) {
      EXPECT_EQ( r.what, thrown( [ & ] { Kel::traceSettingIs( r.setting ); } ) );
      EXPECT_EQ( Kel::TraceLevels::only( 0 ), handle.levels() );
   }
}

TEST_F( Trace, lineForPeople ) {
   const std::string text = " a\tb\r\x1b[31m\x7f\xc3\xa9" + std::string( 1, '\0' );
   const Kel::TraceLine line{ 4133980799123456789u, "F\n", 8, "S", "void f()", text };
   EXPECT_EQ( "2100-12-31T23:59:59.123456Z F\\n/8 S: void f() a\\tb\\r\\x1b[31m\\x7f\xc3\xa9\\x00", line.str() );
   EXPECT_EQ( "1970-01-01T00:00:00.000000Z F/0 S: f() text", ( Kel::TraceLine{ 0, "F", 0, "S", "f()", "text" }.str() ) );
   EXPECT_EQ( "1970-01-01T00:00:00.000000Z F/0 S: f()", ( Kel::TraceLine{ 0, "F", 0, "S", "f()", "" }.str() ) );
}

TEST_F( Trace, nothingEscapes ) {
   auto& handle = Kel::traceHandle( "TraceTest" );
   auto broken = Kel::traceToCallback( []( const Kel::TraceLine& ) -> void { throw 1; } );
   int echoed = 0;
   auto echo = Kel::traceToCallback( [ & ]( const Kel::TraceLine& ) {
      ++echoed;
      if( auto t = handle.at( 0, "S", "echo" ) ) t << "again";
   } );
   if( auto t = handle.at( 0, "S", "f()" ) ) t << "a" << Unprintable() << "b";
   EXPECT_EQ( 1, echoed );
   ASSERT_EQ( 1u, seen.size() );
   EXPECT_EQ( "a(unprintable: no)b", seen[ 0 ].text );
}

TEST_F( Trace, destinationsCloseInACallback ) {
   int calls = 0, callsOfOther = 0;
   Kel::TraceDestination self, other;
   self = Kel::traceToCallback( [ & ]( const Kel::TraceLine& ) {
      ++calls;
      self.close();
      other.close();
   } );
   other = Kel::traceToCallback( [ & ]( const Kel::TraceLine& ) { ++callsOfOther; } );
   for( int i = 0; i < 2; ++i )
      if( auto t = Kel::traceHandle( "TraceTest" ).at( 0, "S", "f()" ) ) t << i;
   EXPECT_EQ( 1, calls );
   EXPECT_EQ( 0, callsOfOther );
   EXPECT_EQ( 2u, seen.size() );
}

TEST_F( Trace, fileTakesWholeLinesFromThreads ) {
   const std::string path = ::testing::TempDir() + "trace-" + std::to_string( ::getpid() );
   {
      auto file = Kel::traceToFile( path );
      destination.close();
      const auto work = [] {
         for( int i = 0; i < 200; ++i )
            if( auto t = Kel::traceHandle( "TraceTest" ).at( 0, "S", "f()" ) ) t << std::string( 5000, 'x' ) << i;
      };
      std::thread one( work ), two( work );
      one.join();
      two.join();
   }
   std::ifstream in( path );
   int lines = 0;
   for( std::string line; std::getline( in, line ); ++lines ) {
      const std::string head = " TraceTest/0 S: f() " + std::string( 5000, 'x' );
      ASSERT_TRUE( line.size() <= 27 + head.size() + 3 && line.substr( 27, head.size() ) == head ) << line.substr( 0, 100 );
   }
   EXPECT_EQ( 400, lines );
   std::remove( path.c_str() );
   EXPECT_EQ( "trace file /nonexistent/trace can't be opened: No such file or directory; name a file in a folder that "
              "this user may write",
              thrown< Kel::Exception >( [] { (void)Kel::traceToFile( "/nonexistent/trace" ); } ) );
}

// An exit handler that was registered before a handle was made runs after the handle is destroyed.
TEST_F( Trace, harmlessAfterTheHandlesDestruction ) {
   const std::string path = ::testing::TempDir() + "trace-exit-" + std::to_string( ::getpid() );
   const pid_t child = ::fork();
   if( child == 0 ) {
      static Kel::TraceHandle* handle;
      static Kel::TraceDestination file = Kel::traceToFile( path );
      const auto line = [] {
         if( auto t = handle->at( 0, "S", "f()" ) ) t << "line";
      };
      std::atexit( line );
      std::atexit( [] { handle->levelsIs( Kel::TraceLevels::all() ); } );
      handle = &Kel::traceHandle( "TraceTest.exit" );
      std::atexit( line );
      line();
      std::exit( 7 );
   }
   int status = 0;
   ::waitpid( child, &status, 0 );
   EXPECT_EQ( 7, WEXITSTATUS( status ) );
   const std::string content = fileContent( path );
   EXPECT_EQ( 2, std::count( content.begin(), content.end(), '\n' ) ) << content;
   std::remove( path.c_str() );
}

}
