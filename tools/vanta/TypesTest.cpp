// `vanta types TYPE`: over the schema that was built with it, and over files that nobody should have written.
#include "Cli.h"
#include "ShowType.h"
#include "VantaTest.h"

#include <filesystem>
#include <random>

namespace Tool {
namespace {

class Types : public VantaCommand {
 protected:
   Types() { unsetenv( "VANTA_SCHEMA" ); }

   static std::string builtSchema() { return std::filesystem::path( program() ).parent_path() / "../schema"; }

   std::string schemaWith( const std::string& content ) {
      std::filesystem::create_directories( directory_ + "/schema/Lab" );
      std::ofstream( directory_ + "/schema/Lab/M.json", std::ios::binary ) << content;
      return directory_ + "/schema";
   }
};

TEST_F( Types, ShowsTheReferenceOfAType ) {
   struct Case {
      const char* name;
      std::vector< std::string > lines;
   };
   const Case cases[] = {
      { "Bridging::VlanId",
        { "Bridging::VlanId", "scalar of Kel::U16 in 1..4094, by default 1, ordered; module VlanId",
          "  VlanId::value < 1 or > 4094 not allowed: a value outside of the bounds" } },
      { "VlanTpid", { "Bridging::VlanTpid", "  VlanTpid::value <= 0 not allowed: a value outside of the bounds" } },
      { "VlanXlateKey",
        { "innerVid   Bridging::VlanIdOrNone  0        The VLAN of the inner (customer) tag; 0 matches frames with a single tag.",
          "  VlanXlateKey has no such attribute: NAME: text with another attribute" } },
      { "Input::SwitchIntfConfig",
        { "  SwitchIntfConfig::tapTruncationSize > SwitchIntfConfig::tapTruncationSizeMax not allowed: a greater "
          "`tapTruncationSize`, which is stored all the same and not announced",
          "  onTrunkGroup( key : Kel::String8 )", "  onTrunkGroup()", "  onTrunkGroupkelImmediate()" } },
      { "VlanIntfStatus",
        { "entity derived from Interface::EthIntfStatus; module VlanIntf",
          "From Interface::EthIntfStatus: intfName, speed, duplex, macAddr",
          "  Interface::VlanIntfStatusDir::newIntfStatus( intfId : Quor::IntfId, defaultConfig : ref Interface::IntfConfig, "
          "genId : Kel::U32, intfName : Kel::String8 )" } },
      { "TagOnEgress", { "1      tagOnEgressDisabled", "  TagOnEgress has no such value: NAME: a name that no enumerator has" } },
      { "WriterFdbStatusSm",
        { "  fdbStatus: learnedHost( addr ): KelFdbStatus::handleLearnedHost",
          "  null _plexoStatus parameter to mutator for Bridging::WriterFdbStatusSm::plexoStatus not allowed: null, given to "
          "`plexoStatusIs()`" } },
      { "GroupAddrMetadata", { "Bridging::IeeeReservedMacForwardGroup::GroupAddrMetadata" } },
   };
   for( const Case& c : cases ) {
      const Outcome result = run( std::string( "types " ) + c.name );
      EXPECT_EQ( result.code, 0 ) << result.err;
      for( const std::string& line : c.lines )
         EXPECT_NE( ( "\n" + result.out ).find( "\n" + line + "\n" ), std::string::npos ) << line << "\n" << result.out;
      EXPECT_STREQ( parsed( run( std::string( "types --json " ) + c.name ).out )[ "name" ].GetString(),
                    result.out.substr( 0, result.out.find( '\n' ) ).c_str() );
   }
}

TEST_F( Types, EveryTypeOfTheLibraryIsDescribedOnce ) {
   const Schema schema( builtSchema() );
   std::istringstream names( run( "types" ).out );
   const auto json = parsed( run( "types --json" ).out );
   rapidjson::SizeType count = 0;
   for( std::string name; std::getline( names, name ); ++count ) {
      EXPECT_EQ( json[ "types" ][ count ].GetString(), name );
      const auto found = schema.find( name );
      ASSERT_EQ( found.size(), 1u ) << name;
      EXPECT_EQ( found.front()->name, name );
   }
   EXPECT_EQ( count, 127u );
   EXPECT_EQ( json[ "types" ].Size(), count );
}

TEST_F( Types, ANameThatIsNoneOrOfSeveralIsToldWithThoseThatMayBeMeant ) {
   const std::string some = schemaWith(
      R"({ "format": 1, "types": [ { "name": "A::Vlan" }, { "name": "A::B::Vlan" }, { "name": "A::Host" } ] })" );
   const std::pair< const char*, const char* > cases[] = {
      { "Vlan", "vanta types: 'Vlan' may be any of A::Vlan, A::B::Vlan\n" },
      { "A::Vlam", "vanta types: there is no type 'A::Vlam'; did you mean A::Vlan, A::B::Vlan?\n" },
      { "hots", "vanta types: there is no type 'hots'; did you mean A::Host?\n" },
      { "Interface", "vanta types: there is no type 'Interface'\n" },
      { "host", "vanta types: there is no type 'host'; did you mean A::Host?\n" },
      { "''", "vanta types: there is no type ''\n" },
      { "\"$(printf 'a\\033[31m')\"", "vanta types: there is no type 'a\\x1b[31m'\n" },
   };
   for( const auto& [ name, text ] : cases ) {
      const Outcome result = run( "types --schema '" + some + "' " + name );
      EXPECT_EQ( result.err, text );
      EXPECT_EQ( result.code, 1 ) << name;
      EXPECT_EQ( result.out, "" );
   }
   EXPECT_EQ( run( "types B::Vlan", "", "VANTA_SCHEMA='" + some + "'" ).out, "A::B::Vlan\n; module\n" );
   EXPECT_EQ( run( "types --schema '" + some + "'" ).err,
              "vanta types: --schema is for one type; name it; see 'vanta types --help'\n" );
}

TEST_F( Types, ASchemaThatCantBeUsedIsToldInOneLine ) {
   const auto deep = []( std::size_t n ) {
      return R"({ "format": 1, "types": [ { "name": "T", "x": )" + std::string( n, '[' ) + std::string( n, ']' ) + " } ] }";
   };
   const std::pair< std::string, const char* > cases[] = {
      { "", "at byte 0: The document is empty." },
      { "{ \"format\": 1, \"types\": [ { \"name\": \"T\"", "at byte 39: Missing a comma or '}' after an object member." },
      { "[]", "it is no schema" },
      { "{}", "it is no schema: it has no format" },
      { R"({ "format": "1" })", "it is no schema: it has no format" },
      { R"({ "format": 2 })", "it has format 2, this program reads format 1" },
      { R"({ "format": 1, "types": {} })", "a member \"types\" in it is no list of objects" },
      { R"({ "format": 1, "types": [ 1 ] })", "a member \"types\" in it is no list of objects" },
      { R"({ "format": 1, "types": [ {} ] })", "a type in it has no name" },
      { R"({ "format": 1, "types": [ { "name": 7 } ] })", "a member \"name\" in it is no text" },
      { R"({ "format": 1, "types": [ { "name": "T", "nested": "T" } ] })", "a member \"nested\" in it is no list of objects" },
      { R"({ "format": 1, "types": [ { "name": "T", "creation": [ {} ] } ] })",
        "a member \"creation\" in it is no list of texts" },
      { R"({ "format": 1, "types": [ { "name": "T", "attributes": [ { "name": [] } ] } ] })",
        "a member \"name\" in it is no text" },
      { "{ \"format\": 1, \"types\": [ { \"name\": \"T\xff\" } ] }", "at byte 38: Invalid encoding in string." },
      { deep( 29 ), nullptr },
      { deep( 30 ), "it nests deeper than any schema" },
      { deep( 1000000 ), "it nests deeper than any schema" },
   };
   for( const auto& [ content, reason ] : cases ) {
      const std::string schema = schemaWith( content );
      const Outcome result = run( "types --schema '" + schema + "' T" );
      EXPECT_EQ( result.err, reason ? "vanta types: cannot read '" + schema + "/Lab/M.json': " + reason + "\n" : "" );
      EXPECT_EQ( result.code, reason ? 3 : 0 ) << content.substr( 0, 100 );
   }
   std::filesystem::remove( directory_ + "/schema/Lab/M.json" );
   EXPECT_EQ( run( "types --schema '" + directory_ + "/schema' T" ).err,
              "vanta types: the schema directory '" + directory_ + "/schema' describes no type\n" );
   ASSERT_EQ( mkfifo( ( directory_ + "/schema/Lab/M.json" ).c_str(), 0600 ), 0 );
   EXPECT_EQ( run( "types --schema '" + directory_ + "/schema' T" ).code, 3 );
}

// Whatever bytes of a schema are wrong: it is refused in one line or shown, and what is shown can't steer a terminal.
TEST_F( Types, AnyByteOfASchemaMayBeWrong ) {
   const std::string good = contentOf( builtSchema() + "/Vanta/BridgingEntryTypes.json" );
   ASSERT_FALSE( good.empty() );
   std::mt19937 random( 1 );
   int shown = 0;
   for( int i = 0; i < 1000; ++i ) {
      std::string content = good;
      for( int n = 0; n < 3; ++n ) content[ random() % content.size() ] = "\"{}[]:,\\u01\033\0x"[ random() % 14 ];
      if( i % 10 == 0 ) content.resize( random() % content.size() );
      testing::internal::CaptureStdout();
      try {
         const Schema schema( schemaWith( content ) );
         for( const Schema::Type* type : schema.find( "RemoteMacEntry" ) ) showType( *type ), showTypeAsJson( *type ), ++shown;
      } catch( const Failure& e ) {
         EXPECT_EQ( e.code(), exitNotConnected );
      }
      EXPECT_EQ( testing::internal::GetCapturedStdout().find_first_of( std::string( "\033\0", 2 ) ), std::string::npos );
   }
   EXPECT_GT( shown, 10 );
}

TEST_F( Types, LinesFitTheTerminal ) {
   for( const std::size_t width : { 40u, 80u, 132u } ) {
      const std::string command = "stty cols " + std::to_string( width ) + "; '" + program() + "' types HwCapabilities";
      const std::string line = "TERM=xterm script -qec \"" + command + "\" /dev/null >'" + directory_ + "/out' 2>&1 </dev/null";
      ASSERT_EQ( std::system( line.c_str() ), 0 );
      const std::string out = contentOf( directory_ + "/out" );
      EXPECT_EQ( out.find( "\033[1mBridging::HwCapabilities\033[0m" ), 0u ) << out.substr( 0, 200 );
      std::istringstream lines( out );
      for( std::string text; std::getline( lines, text ); ) {
         for( const char* code : { "\033[1m", "\033[0m", "\r" } ) {
            if( const auto at = text.find( code ); at != text.npos ) text.erase( at, std::strlen( code ) );
         }
         EXPECT_LE( text.size(), width ) << text;
      }
   }
   EXPECT_EQ( run( "types HwCapabilities" ).out.find( '\033' ), std::string::npos );
}

}
}
