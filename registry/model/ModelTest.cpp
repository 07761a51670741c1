#include "Reflect.h"

// The library's own account of its types against the table: that nothing is missing, and nothing there that the table does not know.

namespace Model {

namespace {

using namespace Kel;
using testing::UnorderedElementsAreArray;

MATCHER_P( IsLike, pattern, "is \"" + pattern + "\"" ) { return matches( pattern, arg ); }

TypeCode codeOf( const Type& want ) {
   static const std::map< std::string, TypeCode > codes = {
      { "enum", TypeCode::enumeration }, { "scalar", TypeCode::scalar }, { "wrapped", TypeCode::scalar }, { "value", TypeCode::composite },
      { "entity", TypeCode::entity }, { "machine", TypeCode::machine } };
   return codes.at( want.kind );
}

/// Each constant and default reads as the table says. What is derived from constructor parameters has no fixed start.
void expectStart( const std::string& want, const If& instance, const char* attribute ) {
   If value;
   instance->attributeOp( { static_cast< U16 >( instance->attributeId( attribute ) ), AttributeOp::Kind::get }, nullptr, value );
   const std::string text = value ? value->stringValue().str() : "null";
   EXPECT_TRUE( matches( want, text ) ) << attribute << " starts as " << text << ", not as " << want;
}

void expectAttributes( const Type& want, const Kel::Type& type ) {
   const auto own = type.ownAttrs();
   std::vector< testing::Matcher< std::string > > expected;
   std::vector< std::string > actual;
   const bool isMachine = want.kind == "machine";
   for( const Attribute& a : want.attributes ) {
      const bool isOwn = std::any_of( own.begin(), own.end(), [ & ]( const Attr& row ) { return row.nameView() == a.name; } );
      const bool mayBeInherited = a.role == "narrow" || a.role == "inherited";
      if( mayBeInherited && !isOwn ) {
         const S32 id = type.attributeId( a.name );
         ASSERT_GE( id, 0 ) << a.name;
         const std::string line = lineOf( type.attr( static_cast< U16 >( id ) ), type );
         // A base holds children of a wider type; SweepTest asks for those that are made.
         if( a.role == "inherited" ) { EXPECT_THAT( line, testing::AnyOf( IsLike( a.line( isMachine ) ), IsLike( "derived " + a.line( isMachine ) ) ) ); }
         else { EXPECT_THAT( line, IsLike( a.name + " : map " + a.key + " -> child ..." ) ); }
      } else if( a.role == "op" ) {
         const S32 id = type.attributeId( a.name );
         ASSERT_GE( id, 0 ) << a.name;
         EXPECT_EQ( a.line( isMachine ), lineOf( type.attr( static_cast< U16 >( id ) ), type ) );
      } else if( a.role != "owner" ) {
         expected.push_back( IsLike( a.line( isMachine ) ) );
      }
   }
   for( const Attr& row : own.subspan( want.held.empty() ? 0 : 1 ) ) {
      if( row.kind != AttrKind::operation ) actual.push_back( lineOf( row, type ) );
   }
   if( want.is( "anyorder" ) ) {
      EXPECT_THAT( actual, UnorderedElementsAreArray( expected.begin(), expected.end() ) );
      return;
   }
   EXPECT_EQ( expected.size(), actual.size() );
   for( std::size_t i = 0; i < std::min( expected.size(), actual.size() ); ++i ) ASSERT_THAT( actual[ i ], expected[ i ] ) << "attribute " << i;
}

void expectValue( const Type& want, Kel::Type& type ) {
   const Kel::TypeInfo& info = type.info();
   ASSERT_TRUE( info.values );
   EXPECT_EQ( !want.is( "nohash" ), info.values->hash != nullptr );
   const If instance( new OwnedValueIf( type, nullptr, false ) );
   if( !want.held.empty() ) { EXPECT_EQ( "value : " + want.held, lineOf( type.ownAttrs().front(), type ) ); }
   if( want.kind == "scalar" ) {
      EXPECT_EQ( want.refusal, info.bounds.text ? info.bounds.text : "" );
      if( !want.min.empty() ) { EXPECT_EQ( want.min, std::to_string( info.bounds.min ) ); }
      if( !want.max.empty() && info.bounds.text ) { EXPECT_EQ( want.max, std::to_string( info.bounds.max ) ); }
      EXPECT_TRUE( matches( want.start, instance->stringValue().str() ) ) << instance->stringValue().str();
   }
   for( const Attribute& a : want.attributes ) {
      ASSERT_TRUE( a.start ) << a.name;
      if( type.attributeId( a.name ) >= 0 ) expectStart( *a.start, instance, a.name.c_str() );
   }
}

void expectEntity( const Type& want, const Kel::Type& type ) {
   if( want.base != "*" ) { EXPECT_EQ( want.base.empty() ? "Kel::Entity" : want.base, type.base()->qualifiedName() ); }
   else { EXPECT_NE( &Entity::_Type, type.base() ); }
   if( want.base.empty() ) { EXPECT_EQ( !want.takes.empty(), type.info().takesName ); }
   ASSERT_TRUE( type.info().make );
   const auto entity = Maker().entity( type );
   const If instance = entity->fwkType().genericIf( entity.ptr(), false );
   for( const Attribute& a : want.attributes ) {
      if( type.attributeId( a.name ) < 0 || a.role == "control" || a.isParameter() ) continue;
      if( !a.collection.empty() ) {
         If count;
         instance->attributeOp( { static_cast< U16 >( type.attributeId( a.name ) ), AttributeOp::Kind::count }, nullptr, count );
         EXPECT_EQ( 0u, count->as< U32 >() ) << a.name;
      } else {
         ASSERT_TRUE( a.start ) << a.name;
         expectStart( *a.start, instance, a.name.c_str() );
      }
   }
   for( const std::string& name : want.again ) {
      const S32 id = type.attributeId( name );
      ASSERT_GE( id, 0 ) << name;
      EXPECT_THAT( lineOf( type.attr( static_cast< U16 >( id ) ), type ), IsLike( "param " + name + "..." ) );
   }
}

using ModelTest = PerModule;

TEST_P( ModelTest, DefinesItsTypesInOrder ) {
   const Kel::Module* built = TypeRegistry::instance().module( module().name );
   ASSERT_TRUE( built ) << "the library has no module " << module().name;
   std::vector< std::string > expected, actual;
   for( const Type& type : module().types ) expected.push_back( type.name );
   for( const Kel::Type* type : built->types ) actual.emplace_back( type->qualifiedName() );
   EXPECT_EQ( expected, actual );
}

TEST_P( ModelTest, EachTypeIsAsTheTableHasIt ) {
   for( const Type& want : module().types ) {
      SCOPED_TRACE( want.name );
      Kel::Type* type = TypeRegistry::instance().type( want.name );
      if( !type ) {
         ADD_FAILURE() << "the library has no type " << want.name;
         continue;
      }
      ASSERT_EQ( codeOf( want ), type->code() );
      EXPECT_TRUE( type->hasReflection() );
      std::vector< std::pair< unsigned, std::string > > enumerators;
      for( const Enumerator& e : type->info().enumerators ) enumerators.emplace_back( e.value, e.name );
      EXPECT_EQ( want.enumerators, enumerators );
      expectAttributes( want, *type );
      if( want.isValue() ) expectValue( want, *type );
      else if( type->isEntity() ) expectEntity( want, *type );
      else if( !want.base.empty() ) { EXPECT_EQ( want.base, type->base()->qualifiedName() ); }
   }
}

INSTANTIATE_TEST_SUITE_P( Module, ModelTest, testing::ValuesIn( PerModule::names() ), []( const auto& of ) { return of.param; } );

/// The table leaves the numbers open, not their order.
TEST( ModelTest, PreferencesAscend ) {
   Kel::Type* type = TypeRegistry::instance().type( "Bridging::Preference" );
   ASSERT_TRUE( type );
   std::vector< U32 > values;
   for( const Attr& row : type->ownAttrs() ) {
      if( row.kind == AttrKind::constant ) values.push_back( *static_cast< const U32* >( row.extra.constant ) );
   }
   EXPECT_EQ( 6u, values.size() );
   EXPECT_TRUE( std::adjacent_find( values.begin(), values.end(), std::greater_equal<>() ) == values.end() );
}

TEST( ModelTest, TableIsWhole ) {
   std::set< std::string > names;
   for( const Module& module : modules() ) {
      for( const Type& type : module.types ) names.insert( type.name );
   }
   EXPECT_EQ( 20u, modules().size() );
   EXPECT_EQ( 127u, names.size() );
}

}

}
