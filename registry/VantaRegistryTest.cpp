#include <Vanta/FdbStatusSm.h>
#include <Vanta/PseudowireIntfId.h>
#include <Vanta/VantaIntfId.h>
#include <Vanta/VlanMuxDemux.h>
#include <Vanta/VlanTpid.h>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <kel/AttrLog.h>
#include <link.h>
#include <set>
#include <sys/wait.h>

// What the built library says of its types: in its file, without running it, and in the registry, after it was loaded.

namespace {

using Names = std::vector< std::string >;
using testing::ElementsAre;

struct ModuleRow {
   const char* name;
   void ( *kelInit )();
   Names types;   ///< in registration order
};

/// In load order.
const ModuleRow modules[] = {
   { "Bridging", kelInitBridging,
     { "Bridging::InternalVlanAllocationPolicy", "Bridging::SwitchportMode", "Bridging::SwitchForwardingMode", "Bridging::LearnedHost",
       "Bridging::ConfiguredHost", "Bridging::HostTableFlushRequest", "Bridging::HostTableFlushRequestDir", "Bridging::EthGroup", "Bridging::Fid",
       "Bridging::FdbConfig", "Bridging::HostKey", "Bridging::FdbStatus", "Bridging::InternalVlanRange", "Bridging::Status" } },
   { "PlexoBridging", kelInitPlexoBridging, { "Plexo::Bridging::PlexoFdbStatus", "Plexo::Bridging::Status" } },
   { "VantaIntfId", kelInitVantaIntfId,
     { "Quor::CpuIntfId", "Quor::PortChannelIntfId", "Quor::PeerEthIntfId", "Quor::PeerPortChannelIntfId", "Quor::SubIntfId" } },
   { "BridgingHostEntryType", kelInitBridgingHostEntryType, { "Bridging::EntryType" } },
   { "FdbStatusSm", kelInitFdbStatusSm, { "Bridging::WriterFdbStatusSm", "Bridging::ReaderFdbStatusSm" } },
   { "VlanMuxDemux", kelInitVlanMuxDemux, { "Vanta::VlanMuxDemux" } },
   { "VlanId", kelInitVlanId,
     { "Bridging::VlanId", "Bridging::VlanIdOrNone", "Bridging::VlanIdOrAny", "Bridging::VlanIdOrAnyOrNone", "Bridging::VlanXlateKey",
       "Bridging::VlanXlateMapping" } },
   { "VlanTpid", kelInitVlanTpid, { "Bridging::VlanTpid", "Bridging::VlanTpidOrNone" } },
   { "PseudowireIntfId", kelInitPseudowireIntfId, { "Quor::PseudowireIntfId" } },
};

/// The file that this process has loaded, as bytes.
class Library {
 public:
   Library() {
      Dl_info info{};
      EXPECT_TRUE( dladdr( reinterpret_cast< void* >( &kelInitBridging ), &info ) );
      path = info.dli_fname;
      std::ifstream in( path, std::ios::binary );
      bytes_.assign( std::istreambuf_iterator< char >( in ), {} );
      header_ = at< ElfW( Ehdr ) >( 0 );
   }
   ElfW( Shdr ) section( const char* name ) const {
      const auto names = at< ElfW( Shdr ) >( header_.e_shoff + header_.e_shstrndx * header_.e_shentsize );
      for( unsigned i = 0; i < header_.e_shnum; ++i ) {
         const auto s = at< ElfW( Shdr ) >( header_.e_shoff + i * header_.e_shentsize );
         if( std::strcmp( bytes_.data() + names.sh_offset + s.sh_name, name ) == 0 ) return s;
      }
      ADD_FAILURE() << path << " has no section " << name;
      return {};
   }
   std::string content( const ElfW( Shdr )& s ) const { return bytes_.substr( s.sh_offset, s.sh_size ); }
   template< class T >
   T at( std::size_t offset ) const {
      T v{};
      EXPECT_LE( offset + sizeof v, bytes_.size() );
      if( offset + sizeof v <= bytes_.size() ) std::memcpy( &v, bytes_.data() + offset, sizeof v );
      return v;
   }

   std::string path;

 private:
   std::string bytes_;
   ElfW( Ehdr ) header_;
};

TEST( VantaRegistry, SectionListsTheTypesModuleByModule ) {
   const Library library;
   const auto section = library.section( ".kel.type" );
   EXPECT_EQ( 32u, section.sh_addralign );
   EXPECT_EQ( 0u, section.sh_addr % 32 );
   EXPECT_TRUE( section.sh_flags & SHF_ALLOC );
   // Each group begins at a multiple of 32 and has its last registered type first; zeros fill it up.
   std::string expected;
   for( const ModuleRow& module : modules ) {
      expected.resize( ( expected.size() + 31 ) / 32 * 32 );
      for( auto name = module.types.rbegin(); name != module.types.rend(); ++name )
         expected.append( name->c_str(), name->size() + 1 );
   }
   std::string content = library.content( section );
   ASSERT_GE( content.size(), expected.size() );
   ASSERT_LT( content.size(), expected.size() + 32 );
   expected.resize( content.size() );
   EXPECT_EQ( expected, content );
}

TEST( VantaRegistry, EachNameIsThatOfOneTypeObject ) {
   const Kel::TypeRegistry& registry = Kel::TypeRegistry::instance();
   std::set< const Kel::Type* > objects;
   for( const ModuleRow& row : modules ) {
      const Kel::Module* module = registry.module( row.name );
      ASSERT_TRUE( module ) << row.name;
      EXPECT_TRUE( module->typesNamed && module->initialised ) << row.name;
      Names registered;
      for( const Kel::Type* type : module->types ) {
         registered.push_back( std::string( type->qualifiedName() ) );
         EXPECT_TRUE( type->named() );
         EXPECT_TRUE( type->hasReflection() || type->code() == Kel::TypeCode::enumeration ) << registered.back();
         EXPECT_EQ( type, registry.type( registered.back() ) );
         EXPECT_TRUE( objects.insert( type ).second ) << registered.back() << " is registered twice";
      }
      EXPECT_EQ( row.types, registered );
   }
   EXPECT_EQ( &Bridging::HostKey::_Type, registry.type( "Bridging::HostKey" ) );
   EXPECT_EQ( &Bridging::HostKey::_fwkType(), &Bridging::HostKey().fwkType() );
}

/// The one life of this process, in order: no reactor, one that is switched off, one that works, the second call.
TEST( VantaRegistry, ModulesDescribeThemselvesOnce ) {
   const Kel::TypeRegistry& registry = Kel::TypeRegistry::instance();
   const auto describeAll = [ & ]( bool described ) {
      for( const ModuleRow& row : modules ) {
         row.kelInit();
         EXPECT_EQ( described, registry.module( row.name )->described ) << row.name;
      }
   };
   ASSERT_FALSE( Kel::IntrospectionReactor::instance() );
   describeAll( false );
   Kel::IntrospectionReactor::instanceIs( true );
   auto& reactor = *Kel::IntrospectionReactor::instance();
   reactor.enabledIs( false );
   describeAll( false );
   EXPECT_TRUE( reactor.types().empty() );
   reactor.enabledIs( true );
   describeAll( true );
   const auto told = [ & ] {
      Names all;
      for( const auto& type : reactor.types() ) all.push_back( std::string( type.name ) );
      return all;
   };
   Names expected;
   for( const ModuleRow& row : modules ) expected.insert( expected.end(), row.types.begin(), row.types.end() );
   EXPECT_EQ( expected, told() );
   describeAll( true );
   EXPECT_EQ( expected, told() );

   EXPECT_THAT( reactor.namespaces(), ElementsAre( "Bridging", "Plexo::Bridging", "Quor" ) );
   EXPECT_TRUE( reactor.type( "Plexo::Bridging::Status" )->attributes[ 1 ].flags.has( Kel::KelAttrIntrospectionFlags::nonInstantiating ) );
   Kel::IntrospectionReactor::instanceIs( false );
}

/// The cached handles of each entity type: the framework's two attributes first, then its own, as the accessors use them.
TEST( VantaRegistry, AttributeHandlesAreCached ) {
   for( const ModuleRow& row : modules ) {
      const Kel::Module& module = *Kel::TypeRegistry::instance().module( row.name );
      std::vector< Kel::S32 > expected;
      for( const Kel::Type* type : module.types ) {
         if( !type->isEntity() ) continue;
         for( const char* name : { "kelNboAttrLogSaForMsgChannel", "kelHasAttrLogInterface" } ) {
            EXPECT_GE( type->attributeId( name ), 0 ) << type->qualifiedName();
            expected.push_back( type->attributeId( name ) );
         }
         for( const Kel::Attr& attr : type->ownAttrs() ) expected.push_back( type->attributeId( attr.nameView() ) );
      }
      EXPECT_EQ( expected, std::vector< Kel::S32 >( module.handles.begin(), module.handles.end() ) ) << row.name;
   }
}

TEST( VantaRegistry, FactoriesMakeEveryEntity ) {
   const Quor::EthAddr mac( "02:00:00:00:00:01" );
   struct {
      Kel::Ptr< Kel::Entity > made;
      const char* type;
      const char* name;
   } const rows[] = {
      { Bridging::statusFactory( "a" ), "Bridging::Status", "a" },
      { Bridging::hostTableFlushRequestDirFactory( "b" ), "Bridging::HostTableFlushRequestDir", "b" },
      { Bridging::fdbStatusFactory( 12 ), "Bridging::FdbStatus", "12" },
      { Bridging::fdbConfigFactory( 13 ), "Bridging::FdbConfig", "13" },
      { Bridging::ethGroupFactory( mac ), "Bridging::EthGroup", "02:00:00:00:00:01" },
      { Plexo::Bridging::statusFactory( "c" ), "Plexo::Bridging::Status", "c" },
   };
   std::set< std::string > made;
   for( const auto& row : rows ) {
      EXPECT_EQ( row.type, row.made->fwkType().qualifiedName() );
      EXPECT_EQ( row.name, row.made->name().str() );
      made.insert( row.type );
   }
   for( const Kel::Type* type : Kel::TypeRegistry::instance().types() ) {
      const std::string name( type->qualifiedName() );
      EXPECT_TRUE( !type->isEntity() || name.starts_with( "Kel::" ) || made.contains( name ) ) << name << " has no row above";
   }
   EXPECT_EQ( "d", Kel::TypeRegistry::instance().newEntity( "Plexo::Bridging::Status", Kel::Name( "d" ) )->name().str() );
   EXPECT_TRUE( Bridging::writerFdbStatusSmFactory( nullptr, nullptr ) && Bridging::ReaderFdbStatusSmIs( nullptr, nullptr ) );
}

/// A program that knows nothing of the library loads it with every symbol bound at once, finds its types, and has them still after
/// it has let the library go.
TEST( VantaRegistry, ProgramsCanLoadItAtRunTime ) {
   const int status = std::system( ( std::string( VANTA_LOADER ) + " '" + Library().path + "'" ).c_str() );
   EXPECT_TRUE( WIFEXITED( status ) );
   EXPECT_EQ( 0, WEXITSTATUS( status ) );
   const Library library;
   const auto dynamic = library.section( ".dynamic" );
   ElfW( Xword ) flags = 0;
   for( std::size_t i = 0; i < dynamic.sh_size; i += sizeof( ElfW( Dyn ) ) ) {
      const auto entry = library.at< ElfW( Dyn ) >( dynamic.sh_offset + i );
      if( entry.d_tag == DT_FLAGS_1 ) flags = entry.d_un.d_val;
   }
   EXPECT_TRUE( flags & DF_1_NODELETE ) << "its types are registered for the life of the process";
}

}
