#include "Reflect.h"

#include <algorithm>
#include <filesystem>
#include <kel/AttrLog.h>
#include <kel/Dir.h>
#include <plexo/TableControl.h>

// What is true of every type, tried on every type by reflection; the table says what there is to try.

namespace Model {

namespace {

using namespace Kel;
using Kind = AttributeOp::Kind;
using Flags = KelAttrIntrospectionFlags;

// --- values ----------------------------------------------------------------------------------------------------------------

std::string fault( Kel::Type& type, const std::string& text ) {
   OwnedValueIf into( type, nullptr, false );
   return thrown< RangeException >( [ & ] { parseWhole( type, into.storage(), text ); } );
}

void expectRoundTrips( Kel::Type& type, const If& made ) {
   const ValueOps& ops = *type.info().values;
   const std::string text = textOf( type, made->object() );
   OwnedValueIf parsed( type, nullptr, false ), logged( type, nullptr, false );
   parseWhole( type, parsed.storage(), text );
   LogOut out;
   write( type, made->object(), out );
   LogIn in( out.bytes() );
   read( type, logged.storage(), in );
   EXPECT_TRUE( in.atEnd() );
   const If copy = type.genericIf( made.ptr(), true );
   for( const void* other : { parsed.object(), logged.object(), copy->object() } ) {
      EXPECT_TRUE( ops.equal( made->object(), other ) ) << text;
      EXPECT_EQ( text, textOf( type, other ) );
      if( ops.hash ) { EXPECT_EQ( ops.hash( made->object() ), ops.hash( other ) ) << text; }
   }
   for( std::size_t size = 0; type.code() == TypeCode::composite && size < text.size(); ++size ) {
      ASSERT_NE( "nothing", fault( type, text.substr( 0, size ) ) ) << text.substr( 0, size );
   }
}

/// Texts of values just outside the declared bounds; no 16-bit number is above 65535.
std::vector< std::string > outside( const Type& scalar ) {
   if( scalar.refusal.empty() ) return {};
   if( scalar.base == "Kel::String8" ) return { "'" + std::string( std::stoul( scalar.max ) + 1, 'x' ) + "'" };
   std::vector< std::string > out;
   if( scalar.min != "0" ) out.push_back( std::to_string( std::stoul( scalar.min ) - 1 ) );
   if( scalar.max != "65535" ) out.push_back( std::to_string( std::stoul( scalar.max ) + 1 ) );
   return out;
}

void expectRefusals( const Type& want, Kel::Type& type, const If& value ) {
   const std::string before = value->stringValue().str();
   for( const std::string& text : outside( want ) ) {
      EXPECT_EQ( want.refusal, fault( type, text ) );
      const If held = typeObject( want.base ).genericIf( String8( text ), true );
      const auto set = [ & ] { value->attributeOp( { 0, Kind::set }, held.ptr(), nullptr ); };
      EXPECT_EQ( want.refusal, thrown< RangeException >( set ) );
      EXPECT_EQ( before, value->stringValue().str() );
   }
}

void expectFaults( const Type& want, Kel::Type& type ) {
   const std::string open = "Value('" + want.name + "', ** {", name = want.shortName();
   const std::string text = textOf( type, OwnedValueIf( type, nullptr, true ).object() );
   for( const std::string& cut : { std::string(), open, text.substr( 0, text.size() - 2 ), text.substr( 0, text.size() - 1 ) } ) {
      EXPECT_EQ( "premature end of value type " + name, fault( type, cut ) ) << cut;
   }
   EXPECT_EQ( name + " has no such attribute: nonesuch", fault( type, open + "'nonesuch': 1})" ) );
   EXPECT_EQ( "junk at column " + std::to_string( text.size() ) + " deserializing " + want.name, fault( type, text + "x" ) );
   EXPECT_EQ( text, type.genericIf( String8( open + "})" ), true )->stringValue().str() );
   for( const Attribute& a : want.attributes ) {
      const Type* held = find( a.type );
      for( const std::string& bad : held ? outside( *held ) : Words() ) {
         EXPECT_EQ( name + "::" + a.name + ": " + held->refusal, fault( type, open + "'" + a.name + "': " + bad + "})" ) );
      }
   }
}

// --- entities --------------------------------------------------------------------------------------------------------------

using Heard = std::vector< std::pair< U16, bool > >;

/// Hears of every change, of any entity: which attribute, and whether by key.
struct Watch : NotifieeBase {
   explicit Watch( Entity& entity ) { activate( &entity ); }
   void dispatch( const Change& change ) override { heard.push_back( { change.attr, change.key != nullptr } ); }
   Heard heard;
};

If asIf( const Ptr< Entity >& entity ) { return entity->fwkType().genericIf( entity.ptr(), false ); }
Entity* entityOf( const If& adapter ) {
   return adapter ? static_cast< Entity* >( const_cast< void* >( adapter->object() ) ) : nullptr;
}
std::string textOf( const If& value ) { return value ? value->stringValue().str() : "null"; }

/// One attribute of one entity under test.
class Subject {
 public:
   Subject( const Ptr< Entity >& owner, U16 index, Maker& maker )
       : entity( owner ), type( owner->fwkType() ), row( type.attr( index ) ), make( maker ), adapter_( asIf( owner ) ),
         watch_( new Watch( *owner ) ), attr_( index ) {}

   If get( const If& key = {} ) { return perform( Kind::get, {}, key ); }
   /// An element that carries its key needs no other.
   void set( const If& value, const If& key = {} ) { perform( Kind::set, value, row.keyAttr ? If() : key ); }
   If create( const Ifs& parameters ) { return perform( Kind::create, {}, {}, parameters ); }
   void del( const If& key = {} ) { perform( Kind::del, {}, key ); }
   If perform( Kind kind, const If& argument = {}, const If& key = {}, const Ifs& arguments = {} ) {
      If result;
      const auto given = pointers( arguments );
      adapter_->attributeOp( { attr_, kind, key.ptr(), given }, argument.ptr(), result );
      return result;
   }

   /// The action is that many changes, each counted and announced.
   template< class Action >
   void changes( std::size_t times, const Action& action ) {
      const U32 before = entity->changeCount();
      watch_->heard.clear();
      action();
      EXPECT_EQ( before + times, entity->changeCount() );
      EXPECT_EQ( Heard( times, { attr_, row.keyType != nullptr } ), watch_->heard );
   }
   template< class Action >
   void once( const Action& action ) { changes( 1, action ); }
   template< class Action >
   void silent( const Action& action ) { changes( 0, action ); }

   Ifs keys() {
      Ifs out;
      for( If key = perform( Kind::next ); key; key = perform( Kind::next, {}, key ) ) out.push_back( key );
      EXPECT_EQ( out.size(), perform( Kind::count )->as< U32 >() );
      return out;
   }
   If absentKey() {
      If key;
      do key = make.value( *row.keyType );
      while( get( key ) );
      return key;
   }
   /// An element for a key; one that lies under its own attribute gets the key there.
   If element( const If& key ) {
      Ptr< OwnedValueIf > made( new OwnedValueIf( *row.type, make.value( *row.type )->object(), false ) );
      if( !row.keyAttr ) return made;
      const Attr& own = row.type->attr( static_cast< U16 >( row.keyAttr - 1 ) );
      own.type->info().values->assign( static_cast< char* >( made->storage() ) + own.offset, key->object() );
      return made;
   }
   Ifs childParameters() {
      Ifs out = make.parameters( entity->kelChildType( attr_ ), row.keyType );
      out[ 0 ] = absentKey();
      return out;
   }
   Kel::Type& childType() const { return entity->kelChildType( attr_ ); }

   const Ptr< Entity > entity;
   const Kel::Type& type;
   const Attr& row;
   Maker& make;

 private:
   const If adapter_;
   const Ptr< Watch > watch_;
   const U16 attr_;
};

void refusesNull( Subject& s ) {
   const If key = s.row.keyType ? s.absentKey() : If();
   const std::string name = s.row.name;
   const std::string fullName = std::string( s.type.qualifiedName() ) + "::" + name;
   s.silent( [ & ] {
      EXPECT_EQ( "null _" + name + " parameter to mutator for " + fullName + " not allowed",
                 thrown< RangeException >( [ & ] { s.set( {}, key ); } ) );
   } );
}

void sweepScalar( Subject& s, const Attribute* want ) {
   const If current = s.get();
   if( s.row.kind != AttrKind::scalar || !s.row.has( Flags::writable ) ) {
      EXPECT_NE( "nothing", thrown< ConstException >( [ & ] { s.set( current ); } ) );
      return;
   }
   const auto number = [ & ]( unsigned long n ) { return s.row.type->genericIf( String8( std::to_string( n ) ), true ); };
   const auto limit = want && !want->refused.empty() ? std::stoul( want->refused ) : 0;
   const If other = limit ? number( limit - 1 ) : s.make.valueUnlike( *s.row.type, current->object() );
   s.silent( [ & ] { s.set( current ); } );
   s.once( [ & ] { s.set( other ); } );
   EXPECT_EQ( textOf( other ), textOf( s.get() ) );
   s.silent( [ & ] { s.set( other ); } );
   if( !limit ) return;
   // Refused, and stored all the same.
   s.silent( [ & ] { EXPECT_EQ( want->refusal, thrown< RangeException >( [ & ] { s.set( number( limit ) ); } ) ); } );
   EXPECT_EQ( want->refused, textOf( s.get() ) );
   s.silent( [ & ] { s.set( number( limit ) ); } );
}

void sweepReference( Subject& s ) {
   if( !s.row.has( Flags::writable ) ) return;
   // A reference to any entity gets a directory.
   const If target = asIf( s.make.entity( s.row.type == &Entity::_Type ? Dir::_Type : *s.row.type ) );
   s.once( [ & ] { s.set( target ); } );
   s.silent( [ & ] { s.set( target ); } );
   EXPECT_EQ( entityOf( target ), entityOf( s.get() ) );
   if( s.row.has( Flags::nonNull ) ) refusesNull( s );
   else s.once( [ & ] { s.set( {} ); } );
}

void sweepOptional( Subject& s ) {
   const Ifs name = { s.make.value( BuiltIn::name ) };
   If child;
   s.once( [ & ] { child = s.create( name ); } );
   EXPECT_EQ( s.entity.ptr(), entityOf( child )->parent() );
   s.silent( [ & ] { EXPECT_EQ( entityOf( child ), entityOf( s.create( name ) ) ); } );
   s.once( [ & ] { s.del(); } );
   EXPECT_TRUE( entityOf( child )->isZombie() );
   s.silent( [ & ] { s.del(); } );
}

void sweepValues( Subject& s, bool isOrdered ) {
   std::set< std::string > put, met;
   for( int i = 0; i < 64; ++i ) {
      const If key = s.absentKey();
      If value = s.element( key );
      s.once( [ & ] { s.set( value, key ); } );
      s.silent( [ & ] { s.set( value, key ); } );
      while( s.row.type->info().values->equal( value->object(), s.get( key )->object() ) ) value = s.element( key );
      s.once( [ & ] { s.set( value, key ); } );
      EXPECT_EQ( textOf( value ), textOf( s.get( key ) ) );
      put.insert( textOf( key ) );
   }
   std::vector< long long > numbers;
   for( const If& key : s.keys() ) {
      met.insert( textOf( key ) );
      numbers.push_back( std::atoll( textOf( key ).c_str() ) );
   }
   EXPECT_EQ( put, met );
   // Only keys that are numbers tell by their text whether they ascend.
   if( numbers.back() || isOrdered ) { EXPECT_EQ( isOrdered, std::is_sorted( numbers.begin(), numbers.end() ) ); }
   s.silent( [ & ] { s.del( s.absentKey() ); } );
   const If first = s.keys().front();
   s.once( [ & ] { s.del( first ); } );
   EXPECT_FALSE( s.get( first ) );
   s.changes( 63, [ & ] { s.perform( Kind::delAll ); } );
}

void sweepQueue( Subject& s ) {
   std::vector< std::string > put, met;
   for( int i = 0; i < 5; ++i ) {
      const If value = s.make.value( *s.row.type );
      s.once( [ & ] { s.perform( Kind::enq, value ); } );
      put.push_back( textOf( value ) );
   }
   for( const If& key : s.keys() ) met.push_back( textOf( s.get( key ) ) );
   EXPECT_EQ( put, met );
   const If second = s.keys()[ 1 ], current = s.get( second );
   const If other = s.make.valueUnlike( *s.row.type, current->object() );
   s.silent( [ & ] { s.set( current, second ); } );
   s.once( [ & ] { s.set( other, second ); } );
   s.once( [ & ] { EXPECT_EQ( put[ 0 ], textOf( s.perform( Kind::deq ) ) ); } );
   EXPECT_EQ( textOf( other ), textOf( s.get( second ) ) );
   s.changes( 4, [ & ] { s.perform( Kind::delAll ); } );
   s.silent( [ & ] { s.perform( Kind::deq ); } );
}

// The child again, with each constructor parameter behind the key changed in turn.
void sweepAgain( Subject& s, const Ifs& parameters, Entity* child ) {
   std::size_t place = isNamedByKey( s.childType(), *s.row.keyType );
   for( U16 i = 0; i < s.childType().attrCount(); ++i ) {
      const Attr& row = s.childType().attr( i );
      if( !row.has( Flags::constructorRole ) || place++ == 0 ) continue;
      Ifs changed = parameters;
      If &value = changed[ place - 1 ], again;
      value = row.kind == AttrKind::ref ? asIf( s.make.entity( *row.type ) ) :
                                          s.make.valueUnlike( *row.type, value->object() );
      std::string refusal;
      s.silent( [ & ] { refusal = thrown< NameInUseException >( [ & ] { again = s.create( changed ); } ); } );
      if( row.has( Flags::writable ) ) {
         EXPECT_EQ( child, entityOf( again ) ) << refusal;
         continue;
      }
      EXPECT_EQ( "Reinstantiating the entity with name " + child->name().str() + " where constructor parameter attribute _" +
                    row.name + " has a different value of " + textOf( value ) + " than the current value of " +
                    textOf( parameters[ place - 1 ] ) + " not allowed",
                 refusal );
   }
}

void sweepChildren( Subject& s, const Attribute* want ) {
   if( want ) { EXPECT_EQ( want->type, s.childType().qualifiedName() ); }
   for( int i = 0; i < 4; ++i ) {
      const Ifs parameters = s.childParameters();
      const If& key = parameters[ 0 ];
      If child;
      s.once( [ & ] { child = s.create( parameters ); } );
      EXPECT_EQ( &s.childType(), &entityOf( child )->fwkType() );
      EXPECT_EQ( s.entity.ptr(), entityOf( child )->parent() );
      // A Name holds nothing but its String8, and names as it is.
      EXPECT_EQ( isNamedByKey( s.childType(), *s.row.keyType ) ? static_cast< const String8* >( key->object() )->str() :
                                                                 keyName( *s.row.keyType, key->object() ).str(),
                 entityOf( child )->name().str() );
      s.silent( [ & ] { EXPECT_EQ( entityOf( child ), entityOf( s.create( parameters ) ) ); } );
      EXPECT_EQ( entityOf( child ), entityOf( s.get( key ) ) );
      sweepAgain( s, parameters, entityOf( child ) );
   }
   s.silent( [ & ] { s.del( s.absentKey() ); } );
   const If first = s.keys()[ 0 ], child = s.get( first );
   s.once( [ & ] { s.del( first ); } );
   EXPECT_TRUE( entityOf( child )->isZombie() );
   s.changes( 3, [ & ] { s.perform( Kind::delAll ); } );
}

void sweepReferences( Subject& s, const Attribute* want ) {
   const If target = asIf( s.make.entity( *s.row.type ) );
   If key = s.absentKey();
   const S32 by = want && !want->by.empty() ? target->attributeId( want->by ) : -1;
   if( by >= 0 ) target->attributeOp( { static_cast< U16 >( by ) }, nullptr, key );
   s.once( [ & ] { s.set( target, key ); } );
   s.silent( [ & ] { s.set( target, key ); } );
   EXPECT_EQ( entityOf( target ), entityOf( s.get( key ) ) );
   if( s.row.has( Flags::nonNull ) ) refusesNull( s );
   s.once( [ & ] { s.del( key ); } );
   EXPECT_FALSE( entityOf( target )->isZombie() ) << "it is not owned";
   s.silent( [ & ] { s.del( key ); } );
}

// --- the attribute log -----------------------------------------------------------------------------------------------------

// Gives it content that has no ties to other entities.
void fill( Subject& s ) {
   const AttrKind kind = s.row.kind;
   if( kind == AttrKind::child ) s.create( { s.make.value( BuiltIn::name ) } );
   if( kind == AttrKind::scalar && s.row.has( Flags::writable ) ) {
      // A limited one stores what it refuses, and its copy holds that too.
      thrown< RangeException >( [ & ] { s.set( s.make.value( *s.row.type ) ); } );
   }
   for( int i = 0; i < 5; ++i ) {
      const If key = kind == AttrKind::map ? s.absentKey() : If();
      if( key ) s.set( s.element( key ), key );
      if( kind == AttrKind::queue ) s.perform( Kind::enq, s.make.value( *s.row.type ) );
      if( kind == AttrKind::childMap ) s.create( s.childParameters() );
   }
}

std::set< std::string > content( Subject& s ) {
   const auto told = []( const If& v ) { return v->type().isEntity() ? entityOf( v )->name().str() : textOf( v ); };
   if( !s.row.keyType ) return { told( s.get() ) };
   std::set< std::string > all;
   for( const If& key : s.keys() ) all.insert( textOf( key ) + ": " + told( s.get( key ) ) );
   return all;
}

class SweepTest : public PerModule {
 protected:
   /// Calls `visit` for each type of the module that is a value (true) or an entity (false).
   template< class Visit >
   void each( bool isValue, const Visit& visit ) {
      for( const Type& want : GetParam().types ) {
         SCOPED_TRACE( want.name );
         if( want.isValue() != isValue || want.kind == "machine" ) continue;
         Kel::Type* type = TypeRegistry::instance().type( want.name );
         if( !type || type->isValue() != isValue ) ADD_FAILURE() << "the library has no such type, or it is no " << want.kind;
         else { EXPECT_NO_THROW( visit( want, *type ) ); }
      }
   }
   void sweep( Subject& s, const Attribute* want ) {
      switch( s.row.kind ) {
      case AttrKind::scalar:
      case AttrKind::constant:
      case AttrKind::derived: return sweepScalar( s, want );
      case AttrKind::ref: return sweepReference( s );
      case AttrKind::child: return sweepOptional( s );
      case AttrKind::table: setUp( s ); [[fallthrough]];
      case AttrKind::map: return sweepValues( s, want && want->collection == "ordered" );
      case AttrKind::queue: return sweepQueue( s );
      case AttrKind::childMap: return sweepChildren( s, want );
      case AttrKind::refMap: return sweepReferences( s, want );
      default: return;
      }
   }
   /// Joins a table of its own.
   void setUp( Subject& s ) {
      auto* control = reinterpret_cast< Plexo::TableControl* >( reinterpret_cast< char* >( s.entity.ptr() ) + s.row.offset );
      control->setUp( { .name = s.row.name, .mode = Plexo::TableMode::writer, .directory = directory_ } );
   }
   void SetUp() override { ASSERT_TRUE( mkdtemp( directory_.data() ) ); }
   void TearDown() override { std::filesystem::remove_all( directory_ ); }

   std::string directory_ = testing::TempDir() + "modelXXXXXX";
   Maker make_;
};

TEST_P( SweepTest, ValuesSurviveTextLogAndCopy ) {
   each( true, [ & ]( const Type& want, Kel::Type& type ) {
      expectRoundTrips( type, If( new OwnedValueIf( type, nullptr, true ) ) );
      for( int i = 0; i < 100 && !HasFailure(); ++i ) expectRoundTrips( type, make_.value( type ) );
      if( want.kind == "value" ) expectFaults( want, type );
      if( want.kind == "scalar" ) expectRefusals( want, type, make_.value( type ) );
   } );
}

TEST_P( SweepTest, EntitiesChangeOnceAndOnlyWhenSomethingDiffers ) {
   each( false, [ & ]( const Type& want, Kel::Type& type ) {
      const auto entity = make_.entity( type );
      EXPECT_EQ( &type, &entity->fwkType() );
      for( U16 i = Entity::Attr_::count_; i < type.attrCount(); ++i ) {
         Subject subject( entity, i, make_ );
         SCOPED_TRACE( subject.row.name );
         sweep( subject, want.attribute( subject.row.name ) );
      }
   } );
}

TEST_P( SweepTest, EntitiesComeOutOfTheirLogAsTheyWentIn ) {
   each( false, [ & ]( const Type&, Kel::Type& type ) {
      const Ifs parameters = make_.parameters( type );
      const auto from = make_.entity( type, parameters ), to = make_.entity( type, parameters );
      ASSERT_TRUE( from->attrLogIs( true ) );
      for( U16 i = Entity::Attr_::count_; i < type.attrCount(); ++i ) {
         Subject subject( from, i, make_ );
         fill( subject );
      }
      LogOut out;
      from->attrLog()->difference( 0, out );
      LogIn in( out.bytes() );
      AttrLogProxy( *to ).update( in );
      EXPECT_TRUE( in.atEnd() );
      for( U16 i = Entity::Attr_::count_; i < type.attrCount(); ++i ) {
         const Attr& row = type.attr( i );
         if( row.kind == AttrKind::operation || row.kind == AttrKind::control || row.kind == AttrKind::ref ) continue;
         Subject sent( from, i, make_ ), received( to, i, make_ );
         EXPECT_EQ( content( sent ), content( received ) ) << row.name;
      }
   } );
}

INSTANTIATE_TEST_SUITE_P( Module, SweepTest, testing::ValuesIn( modules() ), &PerModule::name );

}

}
