#include "ShmTest.h"

#include <limits>

namespace Bridging {
namespace {

using testing::ElementsAre;

/// A record whose every byte says where it comes from.
PlexoFdbStatus telling() {
   return { { 0x0102, { 0x11, 0x12, 0x13, 0x14, 0x15, 0x16 } }, Quor::IntfId( 0x21222324, 0x31323334 ), 0x41424344, 1.5,
            EntryType::peerRouterMac };
}

/// What a slot of the table holds, in both word sizes.
TEST( PlexoFdbStatus, Bytes ) {
   static_assert( std::is_trivially_copyable_v< PlexoFdbStatus > );
   const unsigned char expected[] = {
      0x02, 0x01, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x24, 0x23, 0x22, 0x21, 0x34, 0x33, 0x32, 0x31,
      0x44, 0x43, 0x42, 0x41, 0,    0,    0,    0,    0,    0,    0xf8, 0x3f, 18,   0,    0,    0 };
   const PlexoFdbStatus r = telling();
   ASSERT_EQ( sizeof expected, sizeof r );
   EXPECT_EQ( 0, std::memcmp( expected, &r, sizeof r ) );
   const PlexoFdbStatus none;
   EXPECT_EQ( std::string( 32, '\0' ), std::string( reinterpret_cast< const char* >( &none ), sizeof none ) );
}

TEST( PlexoFdbStatus, TextForms ) {
   const std::string text =
      "Value('Plexo::Bridging::PlexoFdbStatus', ** {'key': Value('Bridging::HostKey', ** {'fid': 5, 'addr': "
                            "'02:00:00:00:00:07'}), 'intf': 'Ethernet3/2.100', 'moves': 4, 'lastMoveTime': 0.1, 'entryType': "
                            "'configuredStaticMac'})";
   const PlexoFdbStatus r( { 5, mac( 7 ) }, Quor::IntfId( "Ethernet3/2.100" ), 4, 0.1, EntryType::configuredStaticMac );
   EXPECT_EQ( text, Plexo::Bridging::valueToStrep( r ).str() );
   EXPECT_EQ( r, Kel::strepToValue< PlexoFdbStatus >( text ) );

   const double inf = std::numeric_limits< double >::infinity(), big = std::numeric_limits< double >::max();
   const struct {
      const char* intf;
      double time;
      U32 type;
      std::string expected;
   } rows[] = { { "", 0, 0, "[9,02:00:00:00:00:07],0.000,0" },
                { "Ethernet3/2.100", 1735689600.0625, 4, "[9,02:00:00:00:00:07]Et3/2.100,1735689600.062,4" },
                { "Port-Channel7", -0.0004, 4294967295, "[9,02:00:00:00:00:07]Po7,-0.000,4294967295" },
                { "Cpu", 1e22, 19, "[9,02:00:00:00:00:07]Cpu,10000000000000000000000.000,19" },
                { "Vlan10", inf, 0, "[9,02:00:00:00:00:07]Vl10,inf,0" } };
   for( const auto& row : rows ) {
      const PlexoFdbStatus each( { 9, mac( 7 ) }, Quor::IntfId( row.intf ), 77, row.time, static_cast< EntryType >( row.type ) );
      EXPECT_EQ( row.expected, each.plexoString().str() );
   }
   EXPECT_EQ( "[0,00:00:00:00:00:00],0.000,0", PlexoFdbStatus().plexoString() );
   const std::string longest = PlexoFdbStatus( { 9, mac( 7 ) }, Quor::IntfId( "Ethernet1" ), 0, -big, {} ).plexoString().str();
   EXPECT_EQ( std::string( "[9,02:00:00:00:00:07]Et1,-17976931348623157" ), longest.substr( 0, 43 ) );
   EXPECT_EQ( 25u + 1 + 309 + std::strlen( ".000,0" ), longest.size() );
}

/// Writes down what the table's reactors hear, and whether the record is there.
struct TableLog : Plexo::Bridging::Status::NotifieeConst {
   using NotifieeConst::NotifieeConst;
   void onPlexoFdbStatus() override { heard.push_back( "all" ); }
   void onPlexoFdbStatus( const HostKey& key ) override {
      heard.push_back( nameOf( key ) + ( notifier()->plexoFdbStatus( key ) == PlexoFdbStatus() ? " gone" : "" ) );
   }
   void onPlexoFdbStatuskelImmediate() override { ++immediate; }
   Strings take() { return std::exchange( heard, {} ); }
   Strings heard;
   int immediate = 0;
};

using PlexoBridgingTest = ShmTest;

TEST_F( PlexoBridgingTest, OperationsOfTheTable ) {
   const auto table = tableOf( "t", TableMode::writer );
   const auto log = Kel::makePtr< TableLog >( table );
   EXPECT_EQ( record( 1, 5 ), table->plexoFdbStatusIs( record( 1, 5 ) ) );
   table->plexoFdbStatusIs( record( 1, 5 ) );
   table->plexoFdbStatusIs( record( 1, 5, 2 ) );
   EXPECT_EQ( record( 2, 5 ), table->newPlexoFdbStatus( record( 2, 5 ) ) );
   auto* direct = table->plexoFdbStatusDirect();
   EXPECT_EQ( PlexoFdbStatus(), *direct );
   *direct = record( 2, 6 );
   EXPECT_EQ( record( 2, 6 ), table->plexoFdbStatusCommit( direct ) );
   EXPECT_THAT( log->take(), ElementsAre( "1/5", "1/5", "2/5", "2/6" ) );
   EXPECT_EQ( 4, log->immediate );

   EXPECT_EQ( record( 1, 5, 2 ), table->plexoFdbStatus( { 1, mac( 5 ) } ) );
   EXPECT_EQ( PlexoFdbStatus(), table->plexoFdbStatus( { 3, mac( 5 ) } ) );
   Strings walked;
   for( auto i = table->plexoFdbStatusIterConst(); i; ++i ) {
      EXPECT_EQ( i.key(), i.value().key() );
      walked.push_back( nameOf( i.key() ) );
   }
   EXPECT_THAT( walked, testing::UnorderedElementsAre( "1/5", "2/5", "2/6" ) );

   EXPECT_EQ( record( 2, 5 ), table->plexoFdbStatusDel( { 2, mac( 5 ) } ) );
   EXPECT_EQ( PlexoFdbStatus(), table->plexoFdbStatusDel( { 2, mac( 5 ) } ) );
   auto at = table->plexoFdbStatusIter();
   while( at.key() != HostKey( 2, mac( 6 ) ) ) ++at;
   EXPECT_EQ( record( 2, 6 ), table->plexoFdbStatusDel( at ) );
   EXPECT_THAT( log->take(), ElementsAre( "2/5 gone", "2/6 gone" ) );
   table->plexoFdbStatusNotify( { 1, mac( 5 ) } );
   table->plexoFdbStatusNotifyCollection();
   EXPECT_THAT( log->take(), ElementsAre( "1/5", "all" ) );
   table->plexoFdbStatusIs( record( 1, 8 ) );
   table->plexoFdbStatusDelAll();
   EXPECT_THAT( log->take(), ElementsAre( "1/8", "1/5 gone", "1/8 gone" ) );
   EXPECT_EQ( 0u, table->plexoFdbStatusCount() );
}

/// Whatever a write meets, its caller sees the assertion exception; what only reads sees the corruption.
TEST_F( PlexoBridgingTest, CorruptionOfReadsIsAnAssertionOfWrites ) {
   const auto spoil = [ & ]( const std::string& name ) { TableBytes( directory + "/" + name + ".plexo" ).spoilMagic(); };
   using Write = void ( * )( Plexo::Bridging::Status& );
   const Write writes[] = {
      []( auto& t ) { t.plexoFdbStatusIs( record( 1, 5, 2 ) ); }, []( auto& t ) { t.newPlexoFdbStatus( record( 1, 6 ) ); },
      []( auto& t ) { t.plexoFdbStatusDel( { 1, mac( 5 ) } ); }, []( auto& t ) { t.plexoFdbStatusDelAll(); } };
   for( std::size_t i = 0; i < std::size( writes ); ++i ) {
      const std::string name = "t" + std::to_string( i );
      const auto table = tableOf( name, TableMode::writer );
      table->plexoFdbStatusIs( record( 1, 5 ) );
      spoil( name );
      const std::string text = thrown< Plexo::AssertionException >( [ & ] { writes[ i ]( *table ); } );
      EXPECT_EQ( 0u, text.find( "write to a corrupted table: table " + name + " is corrupted: " ) ) << text;
      EXPECT_THROW( table->plexoFdbStatus( { 1, mac( 5 ) } ), Plexo::CorruptionException );
      EXPECT_THROW( table->plexoFdbStatusIterConst(), Plexo::CorruptionException );
   }
}

}
}
