#include "Reflect.h"

#include <algorithm>
#include <map>

// The library's own account of its types against the table: that nothing is missing, and nothing is there that the table does not
// know.

namespace Model {

namespace {

using namespace Kel;

MATCHER_P( IsLike, pattern, "is \"" + pattern + "\"" ) { return matches( pattern, arg ); }

std::string rowLine( const Kel::Type& type, const std::string& attribute ) {
   const S32 id = type.attributeId( attribute );
   return id < 0 ? "no " + attribute : lineOf( type.attr( static_cast< U16 >( id ) ), type );
}

// The parameters of a machine are named in its parentheses.
std::string rowPattern( const Type& want, const Attribute& a ) {
   const bool isGiven = want.kind == "machine" && ( " " + want.parameters + "," ).find( " " + a.name + "," ) != std::string::npos;
   return ( isGiven ? "param " : "" ) + a.line( want.kind == "machine" );
}

// The own attributes, in order, but for operations that the table does not ask for.
void expectAttributes( const Type& want, const Kel::Type& type ) {
   const bool isMachine = want.kind == "machine", isHolder = want.kind == "scalar" || want.kind == "wrapped";
   const auto own = type.ownAttrs();
   std::vector< testing::Matcher< std::string > > expected;
   if( isHolder ) expected.push_back( std::string( "value : " + want.base ) );
   for( const Attribute& a : want.attributes ) {
      const bool isOwn = std::any_of( own.begin(), own.end(), [ & ]( const Attr& row ) { return row.nameView() == a.name; } );
      const bool isElsewhere = a.role == "op" || ( !isOwn && ( a.role == "narrow" || a.role == "inherited" ) );
      // A base holds children of a wider type; SweepTest sees those that are made. Its values may be computed.
      const std::string wide = a.role == "narrow" ? a.name + " : map " + a.key + " -> child ..." : "..." + a.line( isMachine );
      if( isElsewhere ) { EXPECT_THAT( rowLine( type, a.name ), IsLike( a.role == "op" ? a.line( isMachine ) : wide ) ); }
      else if( a.role != "owner" ) expected.push_back( IsLike( rowPattern( want, a ) ) );
   }
   std::vector< std::string > actual;
   for( const Attr& row : own ) {
      if( row.kind != AttrKind::operation ) actual.push_back( lineOf( row, type ) );
   }
   if( want.words.contains( "anyorder" ) ) {
      EXPECT_THAT( actual, testing::UnorderedElementsAreArray( expected ) );
      return;
   }
   EXPECT_EQ( expected.size(), actual.size() );
   for( std::size_t i = 0; i < std::min( expected.size(), actual.size() ); ++i ) {
      ASSERT_THAT( actual[ i ], expected[ i ] ) << "attribute " << i;
   }
}

// What each attribute of a fresh instance reads as.
void expectStarts( const Type& want, const If& instance ) {
   for( const Attribute& a : want.attributes ) {
      const S32 id = instance->attributeId( a.name );
      const bool isGiven = a.role == "key" || a.role.starts_with( "param" );
      if( id < 0 || isGiven || a.role == "control" ) continue;
      If value;
      const bool isPlain = a.collection.empty();
      const auto kind = isPlain ? AttributeOp::Kind::get : AttributeOp::Kind::count;
      instance->attributeOp( { static_cast< U16 >( id ), kind }, nullptr, value );
      EXPECT_THAT( value ? value->stringValue().str() : "null", IsLike( isPlain ? a.start.value() : "0" ) ) << a.name;
   }
}

void expectValue( const Type& want, Kel::Type& type ) {
   const Kel::TypeInfo& info = type.info();
   EXPECT_EQ( !want.words.contains( "nohash" ), info.values->hash != nullptr );
   EXPECT_EQ( want.refusal, info.bounds.text ? info.bounds.text : "" );
   if( !want.min.empty() ) { EXPECT_EQ( want.min, std::to_string( info.bounds.min ) ); }
   if( !want.max.empty() ) { EXPECT_EQ( want.max, std::to_string( info.bounds.max ) ); }
   std::vector< std::pair< unsigned, std::string > > enumerators;
   for( const Enumerator& e : info.enumerators ) enumerators.emplace_back( e.value, e.name );
   EXPECT_EQ( want.enumerators, enumerators );
   const If instance( new OwnedValueIf( type, nullptr, false ) );
   if( want.kind == "scalar" ) { EXPECT_THAT( instance->stringValue().str(), IsLike( want.start ) ); }
   expectStarts( want, instance );
}

void expectEntity( const Type& want, Kel::Type& type ) {
   if( want.base.empty() ) { EXPECT_EQ( !want.parameters.empty(), type.info().takesName ); }
   const auto entity = Maker().entity( type );
   expectStarts( want, type.genericIf( entity.ptr(), false ) );
   for( const std::string& name : want.again ) EXPECT_THAT( rowLine( type, name ), IsLike( "param " + name + "..." ) );
}

using ModelTest = PerModule;

TEST_P( ModelTest, DefinesItsTypesInOrder ) {
   const Kel::Module* built = TypeRegistry::instance().module( GetParam().name );
   ASSERT_TRUE( built ) << "the library has no module " << GetParam().name;
   std::vector< std::string > expected, actual;
   for( const Type& type : GetParam().types ) expected.push_back( type.name );
   for( const Kel::Type* type : built->types ) actual.emplace_back( type->qualifiedName() );
   EXPECT_EQ( expected, actual );
}

TEST_P( ModelTest, EachTypeIsAsTheTableHasIt ) {
   static const std::map< std::string, TypeCode > codes = {
      { "enum", TypeCode::enumeration }, { "scalar", TypeCode::scalar }, { "wrapped", TypeCode::scalar },
      { "value", TypeCode::composite },  { "entity", TypeCode::entity }, { "machine", TypeCode::machine } };
   for( const Type& want : GetParam().types ) {
      SCOPED_TRACE( want.name );
      Kel::Type* type = TypeRegistry::instance().type( want.name );
      if( !type || type->code() != codes.at( want.kind ) ) {
         ADD_FAILURE() << "the library has no such type, or it is no " << want.kind;
         continue;
      }
      EXPECT_TRUE( type->hasReflection() );
      expectAttributes( want, *type );
      if( want.isValue() ) {
         expectValue( want, *type );
         continue;
      }
      if( type->isEntity() ) expectEntity( want, *type );
      const std::string plain = type->isEntity() ? "Kel::Entity" : "Kel::Machine";
      if( want.base == "*" ) { EXPECT_NE( plain, type->base()->qualifiedName() ); }
      else { EXPECT_EQ( want.base.empty() ? plain : want.base, type->base()->qualifiedName() ); }
   }
}

INSTANTIATE_TEST_SUITE_P( Module, ModelTest, testing::ValuesIn( modules() ), &PerModule::name );

/// The table leaves the numbers open, not their order.
TEST( ModelTest, PreferencesAscend ) {
   std::vector< U32 > values;
   for( const Attr& row : typeObject( "Bridging::Preference" ).ownAttrs() ) {
      if( row.kind == AttrKind::constant ) values.push_back( *static_cast< const U32* >( row.extra.constant ) );
   }
   EXPECT_EQ( 6u, values.size() );
   EXPECT_TRUE( std::adjacent_find( values.begin(), values.end(), std::greater_equal<>() ) == values.end() );
}

TEST( ModelTest, TableIsWhole ) {
   std::size_t types = 0;
   for( const Module& module : modules() ) types += module.types.size();
   EXPECT_EQ( 20u, modules().size() );
   EXPECT_EQ( 127u, types );
}

}

}
