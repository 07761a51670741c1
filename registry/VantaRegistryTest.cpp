#include "model/Model.h"

#include <Vanta/BrTopology.h>
#include <Vanta/Bridging.h>
#include <Vanta/BridgingEntryTypes.h>
#include <Vanta/BridgingHostEntryType.h>
#include <Vanta/DynVlanV1.h>
#include <Vanta/FdbStatusSm.h>
#include <Vanta/InternalVlan.h>
#include <Vanta/PlexoBridging.h>
#include <Vanta/PseudowireIntfId.h>
#include <Vanta/SubIntf.h>
#include <Vanta/VantaAsu.h>
#include <Vanta/VantaIntfId.h>
#include <Vanta/VlanCounters.h>
#include <Vanta/VlanCountersCliReq.h>
#include <Vanta/VlanDynIntfSm.h>
#include <Vanta/VlanId.h>
#include <Vanta/VlanIdExtRequest.h>
#include <Vanta/VlanIntf.h>
#include <Vanta/VlanMuxDemux.h>
#include <Vanta/VlanTpid.h>
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <kel/AttrLog.h>
#include <link.h>
#include <memory>
#include <set>
#include <sys/wait.h>

// What the built library says of its types: in its file, without running it, and in the registry, after it was loaded.

namespace {

using Names = std::vector< std::string >;
using testing::ElementsAre;

/// In load order, as the table of the model has them.
void ( *const inits[] )() = {
   kelInitVlanIntf, kelInitBridging, kelInitPlexoBridging, kelInitDynVlanV1, kelInitBrTopology, kelInitVantaIntfId,
   kelInitBridgingHostEntryType, kelInitFdbStatusSm, kelInitVlanMuxDemux, kelInitSubIntf, kelInitVlanDynIntfSm,
   kelInitInternalVlan, kelInitVantaAsu, kelInitVlanCounters, kelInitVlanCountersCliReq, kelInitVlanId, kelInitVlanTpid,
   kelInitVlanIdExtRequest, kelInitPseudowireIntfId, kelInitBridgingEntryTypes };

Names typesOf( const Model::Module& module ) {
   Names out;
   for( const Model::Type& type : module.types ) out.push_back( type.name );
   return out;
}

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
   for( const Model::Module& module : Model::modules() ) {
      expected.resize( ( expected.size() + 31 ) / 32 * 32 );
      const Names types = typesOf( module );
      for( auto name = types.rbegin(); name != types.rend(); ++name ) expected.append( name->c_str(), name->size() + 1 );
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
   for( const Model::Module& row : Model::modules() ) {
      const Kel::Module* module = registry.module( row.name );
      ASSERT_TRUE( module ) << row.name;
      EXPECT_TRUE( module->typesNamed && module->initialised ) << row.name;
      for( const Kel::Type* type : module->types ) {
         EXPECT_TRUE( type->named() && type->hasReflection() ) << type->qualifiedName();
         EXPECT_EQ( type, registry.type( type->qualifiedName() ) );
         EXPECT_TRUE( objects.insert( type ).second ) << type->qualifiedName() << " is registered twice";
      }
   }
   EXPECT_EQ( 127u, objects.size() );
   EXPECT_EQ( &Bridging::HostKey::_Type, registry.type( "Bridging::HostKey" ) );
   EXPECT_EQ( &Bridging::HostKey::_fwkType(), &Bridging::HostKey().fwkType() );
}

/// The one life of this process, in order: no reactor, one that is switched off, one that works, the second call.
TEST( VantaRegistry, ModulesDescribeThemselvesOnce ) {
   const Kel::TypeRegistry& registry = Kel::TypeRegistry::instance();
   const auto describeAll = [ & ]( bool described ) {
      for( std::size_t i = 0; i < std::size( inits ); ++i ) {
         inits[ i ]();
         EXPECT_EQ( described, registry.module( Model::modules()[ i ].name )->described ) << i;
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
   for( const Model::Module& row : Model::modules() ) {
      const Names types = typesOf( row );
      expected.insert( expected.end(), types.begin(), types.end() );
   }
   EXPECT_EQ( expected, told() );
   describeAll( true );
   EXPECT_EQ( expected, told() );

   EXPECT_THAT( reactor.namespaces(), ElementsAre( "Interface::Input", "Interface", "Bridging::Input", "Bridging", "Plexo::Bridging", "Bridging::Topology::Inst",
                                                   "Bridging::Topology", "Quor", "Vanta", "Interface::Hardware", "VantaExt" ) );
   using Flags = Kel::KelAttrIntrospectionFlags;
   EXPECT_TRUE( reactor.type( "Plexo::Bridging::Status" )->attributes[ 1 ].flags.has( Flags::nonInstantiating ) );
   Kel::IntrospectionReactor::instanceIs( false );
}

/// The functions that a library exports, with their parameters.
Names exported( const Library& library ) {
   const auto symbols = library.section( ".dynsym" );
   const std::string names = library.content( library.section( ".dynstr" ) );
   Names out;
   for( std::size_t i = 0; i < symbols.sh_size; i += sizeof( ElfW( Sym ) ) ) {
      const auto symbol = library.at< ElfW( Sym ) >( symbols.sh_offset + i );
      if( symbol.st_shndx == SHN_UNDEF || symbol.st_name >= names.size() ) continue;
      int status = 0;
      const std::unique_ptr< char, void ( * )( void* ) > text( abi::__cxa_demangle( names.c_str() + symbol.st_name, nullptr, nullptr, &status ), std::free );
      if( text ) out.emplace_back( text.get() );
   }
   return out;
}

TEST( VantaRegistry, EveryEntityAndMachineHasAFactory ) {
   const Names all = exported( Library() );
   for( const Model::Module& module : Model::modules() ) {
      for( const Model::Type& type : module.types ) {
         if( type.isValue() ) continue;
         std::string name = type.shortName();
         name[ 0 ] = static_cast< char >( std::tolower( name[ 0 ] ) );
         const std::string factory = type.name.substr( 0, type.name.rfind( ':' ) + 1 ) + name + "Factory(";
         EXPECT_TRUE( std::any_of( all.begin(), all.end(), [ & ]( const std::string& f ) { return f.starts_with( factory ); } ) ) << factory;
      }
   }
   // Those that agents call most, with their arguments.
   EXPECT_EQ( "12", Bridging::fdbStatusFactory( 12 )->name().str() );
   EXPECT_EQ( 7u, Bridging::Topology::topoConfigFactory( "mst", 7u, Bridging::Topology::PortState::discarding, true )->creationNonce() );
   EXPECT_EQ( "t", Bridging::remoteMacTableFactory( "t" )->name().str() );
   EXPECT_FALSE( Vanta::vlanMuxDemuxFactory( Kel::Ptr< Quor::Pam >(), "", Bridging::VlanIdOrNone( 5 ), false )->ethPam() );
   EXPECT_TRUE( Bridging::writerFdbStatusSmFactory( nullptr, nullptr ) && Bridging::ReaderFdbStatusSmIs( nullptr, nullptr ) );
   EXPECT_EQ( "d", Kel::TypeRegistry::instance().newEntity( "Plexo::Bridging::Status", Kel::Name( "d" ) )->name().str() );
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
