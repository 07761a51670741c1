#include <Vanta/SubIntfDetails.h>
#include <Vanta/VantaIntfId.h>
#include <Vanta/VlanIntf.h>
#include <gtest/gtest.h>
#include <intfbase/IntfDetails.h>
#include <kel/Dir.h>
#include <kel/ThrownTest.h>
#include <quor/EthIntfId.h>
#include <vector>

// What network management is told of sub-interfaces.

namespace Interface {
namespace {

using Kel::Name;
using Kel::S32;
using Kel::U32;
using Quor::IntfId;

IntfId eth( U32 module, U32 port, U32 lane, U32 subIntf ) { return Quor::EthIntfId::make( module, port, lane, subIntf ); }
IntfId channel( U32 number, U32 subIntf ) { return { Quor::IntfTypeId::portChannel << 25 | number, subIntf }; }

/// A further kind of sub-interface.
struct OtherSubIntfStatus : SubIntfStatus {
   using SubIntfStatus::SubIntfStatus;
   static Kel::Type _Type;
   Kel::Type& fwkType() const override { return _Type; }
};
constinit Kel::Type OtherSubIntfStatus::_Type{
   { .qualifiedName = "Other", .code = Kel::TypeCode::entity, .base = &SubIntfStatus::_Type, .firstAttr = Attr_::count_ } };

template< class Status = SubIntfStatus >
S32 ifIndex( const IntfId& intfId ) {
   const auto status = Kel::makePtr< Status >( intfId, nullptr, 1u );
   return intfDetailsProvider( *status )->ifIndex( *status );
}

/// An interface and its index, or the assertion that it stops at.
struct Row {
   IntfId intfId;
   S32 index;
   const char* assertion = nullptr;
};
const Row rows[] = {
   { eth( 0, 3, 2, 100 ), ( 100 << 18 ) | 82 },
   { channel( 7, 5 ), ( 5 << 18 ) | 0x3e000 | 7 },
   { eth( 30, 8191, 0, 4094 ), ( 4094 << 18 ) | ( 30 << 13 ) | 8191 },
   { eth( 30, 204, 40, 4094 ), ( 4094 << 18 ) | ( 30 << 13 ) | 8160 },
   { eth( 5, 3, 0, 0 ), ( 5 << 13 ) | 3 },
   { channel( 7, 0x20000005 ), ( 5 << 18 ) | 0x3e000 | 7 },   // an ECMP group
   { channel( 0x1ffffff, 4094 ), 0x3fffffff },
   // Each stops at its own check, whatever comes behind it.
   { eth( 31, 0, 41, 4095 ), 0, "subIntfNum <= 4094" },
   { eth( 31, 0, 41, 4094 ), 0, "module <= 30" },
   { eth( 30, 0, 41, 4094 ), 0, "lane <= 40" },
   { eth( 30, 0, 40, 4094 ), 0, "port" },
   { eth( 0, 205, 1, 1 ), 0, "port <= 204" },
   { eth( 0, 8192, 0, 1 ), 0, "port <= 8191" },
   { channel( 7, 4095 ), 0, "subIntfNum <= 4094" },
   { IntfId( "Vlan10" ), 0, "0" },
   { IntfId(), 0, "0" },
};

TEST( SubIntfDetailsDeathTest, IndicesComeFromTheIdentifier ) {
   EXPECT_EQ( subIntfIfIndexBase(), 0 );
   for( const auto& [ intfId, index, assertion ] : rows ) {
      if( assertion ) {
         EXPECT_DEATH( ifIndex( intfId ), std::string( "SubIntf: ifIndex: assertion \"" ) + assertion + "\" failed" ) << intfId;
         continue;
      }
      for( const S32 base : { 1 << 30, 0x3fffe000, 0 } ) {
         subIntfIfIndexBaseIs( base );
         EXPECT_EQ( ifIndex( intfId ), index + base ) << intfId;
         EXPECT_EQ( ifIndex< OtherSubIntfStatus >( intfId ), index + base ) << intfId;
      }
   }
   for( const S32 refused : { -1, ( 1 << 30 ) + 1 } ) {
      EXPECT_EQ( thrown( [ & ] { subIntfIfIndexBaseIs( refused ); } ), "subIntfIfIndexBase < 0 or > 1073741824 not allowed" );
   }
   EXPECT_EQ( subIntfIfIndexBase(), 0 );
}

TEST( SubIntfDetails, TheSpeedIsTheParentsAllElseAVlans ) {
   const auto dir = Kel::dirFactory( Name( "eth" ) );
   const auto slices = Kel::dirFactory( Name( "slice" ) ), other = Kel::dirFactory( Name( "other" ) );
   const auto subs = subIntfStatusDirFactory( Name( "subintf" ) );
   const auto phy = vlanIntfStatusDirFactory( Name( "1" ) );
   const auto speedOf = [ & ]( const char* name ) {
      const auto status = subs->intfStatusIs( IntfId( name ), nullptr, 1 );
      return intfDetailsProvider( *status )->speed( *status );
   };
   EXPECT_EQ( speedOf( "Ethernet3/2.5" ), 0u );
   dir->entryIs( subs );
   dir->entryIs( slices );
   dir->entryIs( other );
   other->entryIs( slices );   // a circle
   slices->entryIs( other );
   slices->entryIs( phy );
   EXPECT_EQ( speedOf( "Ethernet3/2.5" ), 0u );
   phy->intfStatusIs( IntfId( "Ethernet3/2" ), nullptr, 1, "et" )->speedIs( 10 );
   phy->intfStatusIs( IntfId( "Port-Channel7" ), nullptr, 1, "po" )->speedIs( 20 );
   EXPECT_EQ( speedOf( "Ethernet3/2.5" ), 10u );
   EXPECT_EQ( speedOf( "Port-Channel7.1" ), 20u );
   EXPECT_EQ( speedOf( "Ethernet3/2" ), 0u );   // it has no parent, and is not its own
   EXPECT_EQ( speedOf( "Ethernet3/2.5" ), 10u );   // nor that of others beside it
   const auto sub = subs->intfStatus( IntfId( "Ethernet3/2" ) );
   const IntfDetailsProvider* const details = intfDetailsProvider( *sub );
   EXPECT_EQ( static_cast< int >( details->ianaType( *sub ) ), 135 );
   EXPECT_FALSE( details->connectorPresent( *sub ) );
   subIntfIfIndexBaseIs( 5 );
   EXPECT_EQ( details->ifIndex( *phy->intfStatus( IntfId( "Ethernet3/2" ) ) ), -1 );
   subIntfIfIndexBaseIs( 0 );
   const auto ofPorts = intfDetailsProviderIs( EthIntfStatus::_Type, nullptr );
   EXPECT_EQ( speedOf( "Ethernet3/2.5" ), 0u );
   intfDetailsProviderIs( EthIntfStatus::_Type, ofPorts );
   other->entryDelAll();
}

/// Counts how often it is asked for a status.
struct Asked : IntfStatusDirBase {
   using IntfStatusDirBase::IntfStatusDirBase;
   Kel::Ptr< Kel::Entity > child( const Name& ) const override {
      ++times;
      return nullptr;
   }
   mutable int times = 0;
};

// However deep directories are nested, each is searched once, whatever names it stands under.
TEST( SubIntfDetails, TheParentIsFoundInNestedDirectories ) {
   const auto asked = Kel::makePtr< Asked >( Name( "asked" ) );
   const auto phy = vlanIntfStatusDirFactory( Name( "1" ) );
   phy->intfStatusIs( IntfId( "Ethernet3" ), nullptr, 1, "et" )->speedIs( 10 );
   const auto dirWith = []( const Kel::Ptr< Kel::Entity >& entity ) {
      const auto dir = Kel::dirFactory( Name( "dir" ) );
      dir->entryIs( entity );
      return dir;
   };
   std::vector< Kel::Ptr< Kel::Dir > > dirs{ dirWith( asked ) };
   dirs.back()->entryIs( phy );
   while( dirs.size() < 60000 ) {
      const auto inner = dirs.back();
      dirs.push_back( dirWith( inner ) );
      if( dirs.size() < 12 ) dirs.back()->entryIs( Name( "again" ), inner );
   }
   const auto subs = subIntfStatusDirFactory( Name( "subintf" ) );
   dirs.back()->entryIs( subs );
   const auto speedOf = [ & ]( const char* name ) {
      const auto status = subs->intfStatusIs( IntfId( name ), nullptr, 1 );
      return intfDetailsProvider( *status )->speed( *status );
   };
   EXPECT_EQ( speedOf( "Ethernet3.5" ), 10u );
   asked->times = 0;
   EXPECT_EQ( speedOf( "Ethernet4.5" ), 0u );
   EXPECT_EQ( asked->times, 1 );
   while( !dirs.empty() ) dirs.pop_back();   // from the outside: each is still held when the one around it goes
}

}
}
