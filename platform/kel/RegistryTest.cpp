#include "FacetsTest.h"

#include <kel/Registry.h>

// What a module tells of its types, when, and how often. The order of these steps is one test because the process has only one
// registry.

extern Kel::Module kelModuleFacets_;

namespace {

using Kel::IntrospectionReactor;
using Kel::TypeRegistry;

TEST( RegistryTest, ModuleNamesAndDescribesItsTypesOnce ) {
   TypeRegistry& registry = TypeRegistry::instance();
   EXPECT_EQ( registry.type( "Facets::Pair" ), nullptr );
   EXPECT_EQ( registry.type( "U16" ), &Kel::BuiltIn::u16 );
   EXPECT_EQ( IntrospectionReactor::instance(), nullptr );
   Kel::initialiseModule( kelModuleFacets_, kelInitFacets );
   EXPECT_EQ( registry.module( "Facets" ), &kelModuleFacets_ );
   EXPECT_EQ( registry.module( "Faces" ), nullptr );
   EXPECT_TRUE( kelModuleFacets_.typesNamed && kelModuleFacets_.initialised );
   EXPECT_FALSE( kelModuleFacets_.described );
   EXPECT_EQ( registry.type( "Facets::Pair" ), &Facets::Pair::_Type );
   EXPECT_EQ( registry.type( "Facets::Colour" ), &Facets::Colour_Type );

   IntrospectionReactor::instanceIs( true );
   IntrospectionReactor& reactor = *IntrospectionReactor::instance();
   reactor.enabledIs( false );
   kelInitFacets();
   EXPECT_FALSE( kelModuleFacets_.described );
   reactor.enabledIs( true );
   kelInitFacets();
   const std::size_t types = reactor.types().size();
   kelInitFacets();
   EXPECT_EQ( reactor.types().size(), types );
   EXPECT_EQ( types, kelModuleFacets_.types.size() );
   EXPECT_EQ( reactor.types().front().name, "Facets::Colour" );

   const Kel::TypeDescription& vid = *reactor.type( "Facets::Vid" );
   EXPECT_TRUE( vid.isValue && vid.hasReflection );
   std::string told;
   for( const auto& a : vid.attributes )
      told += std::string( a.name ) + ":" + std::string( a.typeName ) + "/" + std::to_string( a.flags.value() ) + " ";
   EXPECT_EQ( told, "value:U16/0 min:U16/16 max:U16/16 invalid:U16/16 hash:U32/16 " );
   const Kel::TypeDescription& leaf = *reactor.type( "Facets::Leaf" );
   EXPECT_FALSE( leaf.isValue );
   EXPECT_EQ( leaf.attributes.size(), 3u );
   EXPECT_TRUE( leaf.attributes[ 1 ].flags.has( Kel::KelAttrIntrospectionFlags::constructorRole ) );
   EXPECT_TRUE( leaf.attributes[ 1 ].flags.has( Kel::KelAttrIntrospectionFlags::writable ) );
   EXPECT_FALSE( leaf.attributes[ 0 ].flags.has( Kel::KelAttrIntrospectionFlags::writable ) );
   EXPECT_EQ( thrown( [] { Kel::KelAttrIntrospectionFlags flags( 0x40 ); } ),
              "KelAttrIntrospectionFlags::value > 0x3f not allowed" );

   const auto made = registry.newEntity( "Facets::Tree", Kel::Name( "made" ) );
   EXPECT_EQ( made->name(), "made" );
   EXPECT_EQ( &made->fwkType(), &Facets::Tree::_Type );
   EXPECT_EQ( thrown( [ & ] { registry.newEntity( "Facets::Leaf", Kel::Name( "x" ) ); } ),
              "no nonce given for a new Facets::Leaf" );
   EXPECT_EQ( thrown( [ & ] { registry.newEntity( "Facets::Nothing", Kel::Name( "x" ) ); } ),
              "no type has the name Facets::Nothing" );
   IntrospectionReactor::instanceIs( false );
}

}
