#include <plexo/TestTable.h>

// This program beside `plexo_peer` of the same word size and of the other one, each as writer and as reader.
namespace Plexo {

namespace {

class PeerTest : public TableTest, public testing::WithParamInterface< bool > {
 protected:
   void SetUp() override {
      peer = GetParam() ? otherProgram( "plexo_peer" ) : PLEXO_PEER;
      if( peer.empty() ) GTEST_SKIP() << "VANTA_OTHER_BUILD does not name a build for the other word size";
   }
   int run( const std::string& arguments ) const { return std::system( ( peer + " " + arguments ).c_str() ); }

   std::string peer;
};

constexpr U32 count = 20000;

void leave( Writer& table, U32 port ) {
   for( U32 i = 0; i < count; ++i ) learn( table, i, port );
   for( U32 i = 0; i < count; i += 10 ) forget( table, i );
}

Contents left( U32 port ) {
   Contents out;
   for( U32 i = 0; i < count; ++i ) {
      if( i % 10 ) out[ { 0, i } ] = port;
   }
   return out;
}

TEST_P( PeerTest, ReadsWhatWeWrite ) {
   Writer table( hostLayout, "t", 1, count );
   Child reader( [ & ] { return run( "read t 20000 7" ) == 0 ? 0 : 1; } );
   leave( table, 6 );
   leave( table, 7 );
   EXPECT_EQ( 0, reader.wait() );
}

TEST_P( PeerTest, WritesWhatWeRead ) {
   Follower follower;
   FILE* writer = popen( ( peer + " write t 20000 5 > " + directory + "/said" ).c_str(), "w" );
   ASSERT_TRUE( writer );
   EXPECT_TRUE( follower.waitFor( [ & ] { return follower.seen == left( 5 ); } ) );
   EXPECT_EQ( TableState::live, follower.reader.state() );
   expectContents( follower.reader, left( 5 ) );
   EXPECT_EQ( 0, pclose( writer ) );
   EXPECT_TRUE( follower.waitFor( TableState::stale ) );
   Writer next( hostLayout, "t", 1, count );                            // takes over what the other left
   expectContents( next, left( 5 ) );
}

INSTANTIATE_TEST_SUITE_P( Sizes, PeerTest, testing::Bool(), []( const auto& which ) { return which.param ? "Other" : "Same"; } );

}

}
