#include "Reflect.h"

#include <algorithm>
#include <filesystem>
#include <kel/AttrLog.h>
#include <plexo/TableControl.h>

// What is true of every type, tried on every type by reflection; the table says what there is to try.

namespace Model {

namespace {

using namespace Kel;
using Kind = AttributeOp::Kind;
using Flags = KelAttrIntrospectionFlags;

// --- values ----------------------------------------------------------------------------------------------------------------------------

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

/// Texts of values just outside the declared bounds.
std::vector< std::string > outside( const Type& scalar ) {
   if( scalar.refusal.empty() ) return {};
   if( scalar.held == "Kel::String8" ) return { "'" + std::string( std::stoul( scalar.max ) + 1, 'x' ) + "'" };
   std::vector< std::string > out;
   if( const auto min = std::stoul( scalar.min ) ) out.push_back( std::to_string( min - 1 ) );
   if( scalar.max != "65535" ) out.push_back( std::to_string( std::stoul( scalar.max ) + 1 ) );
   return out;
}

void expectRefusals( const Type& want, Kel::Type& type, Maker& make ) {
   for( const std::string& text : outside( want ) ) {
      EXPECT_EQ( want.refusal, fault( type, text ) );
      const If value = make.value( type );
      const std::string before = value->stringValue().str();
      const If number = typeObject( want.held ).genericIf( String8( text ), true );
      EXPECT_EQ( want.refusal, thrown< RangeException >( [ & ] { value->attributeOp( { 0, Kind::set }, number.ptr(), nullptr ); } ) );
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
      if( !held || held->kind != "scalar" ) continue;
      for( const std::string& bad : outside( *held ) ) {
         EXPECT_EQ( name + "::" + a.name + ": " + held->refusal, fault( type, open + "'" + a.name + "': " + bad + "})" ) );
      }
   }
}

// --- entities --------------------------------------------------------------------------------------------------------------------------

/// Hears of every change, of any entity.
struct Watch : NotifieeBase {
   explicit Watch( Entity& entity ) { activate( &entity ); }
   void dispatch( const Change& change ) override { heard.push_back( { change.attr, change.key != nullptr } ); }
   std::vector< std::pair< U16, bool > > heard;
};

/// One attribute of one entity under test.
class Subject {
 public:
   Subject( const Ptr< Entity >& entity, U16 attr, Maker& make )
       : entity_( entity ), adapter_( entity->fwkType().genericIf( entity.ptr(), false ) ), watch_( new Watch( *entity ) ), attr_( attr ),
         row_( entity->fwkType().attr( attr ) ), make_( make ) {}

   const Attr& row() const { return row_; }
   void scalar( const Attribute* want );
   void reference();
   void optional();
   void values( bool isOrdered );
   void queue();
   void children( const Attribute* want );
   void references( const Attribute* want );

   /// Fills it with what has no ties to other entities.
   void fill();
   std::string dump();

 private:
   If perform( Kind kind, const GenericIf* argument = nullptr, const GenericIf* key = nullptr, const Ifs& arguments = {} ) {
      If result;
      const auto given = pointers( arguments );
      adapter_->attributeOp( { attr_, kind, key, given }, argument, result );
      return result;
   }
   template< class Action >
   void changes( std::size_t times, const Action& action ) {
      const U32 before = entity_->changeCount();
      watch_->heard.clear();
      action();
      EXPECT_EQ( before + times, entity_->changeCount() );
      const std::vector< std::pair< U16, bool > > expected( times, { attr_, row_.keyType != nullptr } );
      EXPECT_EQ( expected, watch_->heard );
   }
   template< class Action >
   void once( const Action& action ) { changes( 1, action ); }
   template< class Action >
   void silent( const Action& action ) { changes( 0, action ); }

   void refusesNull();
   void refused( const Attribute& want );
   void reinstantiates( const Kel::Type& type, const Ifs& parameters, const GenericIf& key, Entity* child );
   Ifs keys();
   If absentKey();
   If element( const If& key );
   U32 count() { return perform( Kind::count )->as< U32 >(); }

   Ptr< Entity > entity_;
   If adapter_;
   Ptr< Watch > watch_;
   const U16 attr_;
   const Attr& row_;
   Maker& make_;
};

If asIf( const Ptr< Entity >& entity ) { return entity->fwkType().genericIf( entity.ptr(), false ); }
Entity* entityOf( const If& adapter ) { return static_cast< Entity* >( const_cast< void* >( adapter->object() ) ); }

void Subject::scalar( const Attribute* want ) {
   const If current = perform( Kind::get );
   if( row_.kind != AttrKind::scalar || !row_.has( Flags::writable ) ) {
      EXPECT_NE( "nothing", thrown< ConstException >( [ & ] { perform( Kind::set, current.ptr() ); } ) );
      return;
   }
   silent( [ & ] { perform( Kind::set, current.ptr() ); } );
   const bool isLimited = want && !want->refused.empty();
   const If other = isLimited ? row_.type->genericIf( String8( std::to_string( std::stoul( want->refused ) - 1 ) ), true ) :
                                make_.valueUnlike( *row_.type, current->object() );
   once( [ & ] { perform( Kind::set, other.ptr() ); } );
   EXPECT_EQ( other->stringValue().str(), perform( Kind::get )->stringValue().str() );
   silent( [ & ] { perform( Kind::set, other.ptr() ); } );
   if( isLimited ) silent( [ & ] { refused( *want ); } );
}

// Refused, and stored all the same.
void Subject::refused( const Attribute& want ) {
   const If value = row_.type->genericIf( String8( want.refused ), true );
   EXPECT_EQ( want.refusal, thrown< RangeException >( [ & ] { perform( Kind::set, value.ptr() ); } ) );
   EXPECT_EQ( want.refused, perform( Kind::get )->stringValue().str() );
   perform( Kind::set, value.ptr() );
}

void Subject::refusesNull() {
   const Kel::Type& type = entity_->fwkType();
   silent( [ & ] {
      const If key = row_.keyType ? absentKey() : If();
      EXPECT_EQ( std::string( "null _" ) + row_.name + " parameter to mutator for " + std::string( type.qualifiedName() ) + "::" + row_.name + " not allowed",
                 thrown< RangeException >( [ & ] { perform( Kind::set, nullptr, key.ptr() ); } ) );
   } );
}

void Subject::reference() {
   if( !row_.type->info().make || !row_.has( Flags::writable ) ) return;
   const If target = asIf( make_.entity( *row_.type ) );
   once( [ & ] { perform( Kind::set, target.ptr() ); } );
   silent( [ & ] { perform( Kind::set, target.ptr() ); } );
   EXPECT_EQ( entityOf( target ), entityOf( perform( Kind::get ) ) );
   if( row_.has( Flags::nonNull ) ) refusesNull();
   else once( [ & ] { perform( Kind::set ); } );
}

void Subject::optional() {
   const Ifs name = { make_.value( BuiltIn::name ) };
   If child;
   once( [ & ] { child = perform( Kind::create, nullptr, nullptr, name ); } );
   EXPECT_EQ( entity_.ptr(), entityOf( child )->parent() );
   silent( [ & ] { EXPECT_EQ( child->object(), perform( Kind::create, nullptr, nullptr, name )->object() ); } );
   once( [ & ] { perform( Kind::del ); } );
   EXPECT_TRUE( entityOf( child )->isZombie() );
   silent( [ & ] { perform( Kind::del ); } );
}

Ifs Subject::keys() {
   Ifs out;
   for( If key = perform( Kind::next ); key; key = perform( Kind::next, nullptr, key.ptr() ) ) out.push_back( key );
   return out;
}

If Subject::absentKey() {
   for( ;; ) {
      const If key = make_.value( *row_.keyType );
      if( !perform( Kind::get, nullptr, key.ptr() ) ) return key;
   }
}

// An element for a key; one that lies under its own attribute gets the key there.
If Subject::element( const If& key ) {
   Ptr< OwnedValueIf > made( new OwnedValueIf( *row_.type, make_.value( *row_.type )->object(), false ) );
   if( row_.keyAttr ) {
      const Attr& own = row_.type->attr( static_cast< U16 >( row_.keyAttr - 1 ) );
      own.type->info().values->assign( static_cast< char* >( made->storage() ) + own.offset, key->object() );
   }
   return made;
}

void Subject::values( bool isOrdered ) {
   std::set< std::string > set;
   for( int i = 0; i < 64; ++i ) {
      const If key = absentKey();
      If value = element( key );
      once( [ & ] { perform( Kind::set, value.ptr(), key.ptr() ); } );
      silent( [ & ] { perform( Kind::set, value.ptr(), key.ptr() ); } );
      while( row_.type->info().values->equal( value->object(), perform( Kind::get, nullptr, key.ptr() )->object() ) ) value = element( key );
      once( [ & ] { perform( Kind::set, value.ptr(), key.ptr() ); } );
      EXPECT_EQ( value->stringValue().str(), perform( Kind::get, nullptr, key.ptr() )->stringValue().str() );
      set.insert( key->stringValue().str() );
   }
   EXPECT_EQ( 64u, count() );
   std::set< std::string > met;
   std::vector< long > numbers;
   for( const If& key : keys() ) {
      met.insert( key->stringValue().str() );
      numbers.push_back( std::atol( key->stringValue().str().c_str() ) );
   }
   EXPECT_EQ( set, met );
   // Only keys that are numbers tell by their text whether they ascend.
   if( numbers.back() || isOrdered ) { EXPECT_EQ( isOrdered, std::is_sorted( numbers.begin(), numbers.end() ) ); }
   silent( [ & ] { perform( Kind::del, nullptr, absentKey().ptr() ); } );
   const If first = keys().front();
   once( [ & ] { perform( Kind::del, nullptr, first.ptr() ); } );
   EXPECT_FALSE( perform( Kind::get, nullptr, first.ptr() ) );
   changes( 63, [ & ] { perform( Kind::delAll ); } );
   EXPECT_EQ( 0u, count() );
}

void Subject::queue() {
   std::vector< std::string > put, met;
   for( int i = 0; i < 5; ++i ) {
      const If value = make_.value( *row_.type );
      once( [ & ] { perform( Kind::enq, value.ptr() ); } );
      put.push_back( value->stringValue().str() );
   }
   for( const If& key : keys() ) met.push_back( perform( Kind::get, nullptr, key.ptr() )->stringValue().str() );
   EXPECT_EQ( put, met );
   const If second = keys()[ 1 ], current = perform( Kind::get, nullptr, second.ptr() );
   silent( [ & ] { perform( Kind::set, current.ptr(), second.ptr() ); } );
   const If other = make_.valueUnlike( *row_.type, current->object() );
   once( [ & ] { perform( Kind::set, other.ptr(), second.ptr() ); } );
   once( [ & ] { EXPECT_EQ( put[ 0 ], perform( Kind::deq )->stringValue().str() ); } );
   EXPECT_EQ( other->stringValue().str(), perform( Kind::get, nullptr, second.ptr() )->stringValue().str() );
   changes( 4, [ & ] { perform( Kind::delAll ); } );
   silent( [ & ] { perform( Kind::deq ); } );
}

// With each constructor parameter behind the key changed in turn.
void Subject::reinstantiates( const Kel::Type& type, const Ifs& parameters, const GenericIf& key, Entity* child ) {
   const auto text = [ & ]( const If& value ) { return value ? value->stringValue().str() : "null"; };
   std::size_t at = type.info().takesName && isName( *row_.keyType );   // its name is no attribute of it
   std::set< std::string > compared;
   for( U16 i = 0; i < type.attrCount(); ++i ) {
      const Attr& row = type.attr( i );
      if( !row.has( Flags::constructorRole ) ) continue;
      const std::size_t place = at++;
      if( place == 0 ) continue;
      Ifs changed = parameters;
      changed[ place ] = row.kind == AttrKind::ref ? asIf( make_.entity( *row.type ) ) : make_.valueUnlike( *row.type, parameters[ place ]->object() );
      silent( [ & ] {
         If again;
         const std::string refusal = thrown< NameInUseException >( [ & ] { again = perform( Kind::create, nullptr, nullptr, changed ); } );
         if( row.has( Flags::writable ) ) { EXPECT_EQ( child, again ? entityOf( again ) : nullptr ) << refusal; }
         else {
            compared.insert( row.name );
            EXPECT_EQ( "Reinstantiating the entity with name " + child->name().str() + " where constructor parameter attribute _" + row.name +
                          " has a different value of " + text( changed[ place ] ) + " than the current value of " + text( parameters[ place ] ) + " not allowed",
                       refusal );
         }
      } );
   }
   // A name names as it is; a Name holds nothing but its String8.
   EXPECT_EQ( isName( *row_.keyType ) ? static_cast< const String8* >( key.object() )->str() : keyName( *row_.keyType, key.object() ).str(),
              child->name().str() );
   // What the table says of it; what a base from elsewhere compares besides is that library's.
   const Type* want = find( std::string( type.qualifiedName() ) );
   if( !want ) return;
   std::set< std::string > expected( want->again.begin(), want->again.end() );
   for( const Attribute& a : want->attributes ) {
      if( a.role == "param" ) expected.insert( a.name );
   }
   EXPECT_TRUE( std::includes( compared.begin(), compared.end(), expected.begin(), expected.end() ) );
}

void Subject::children( const Attribute* want ) {
   const Kel::Type& type = entity_->kelChildType( attr_ );
   if( want ) { EXPECT_EQ( want->type, type.qualifiedName() ); }
   for( int i = 0; i < 4; ++i ) {
      Ifs parameters = make_.parameters( type, row_.keyType );
      parameters[ 0 ] = absentKey();
      If child;
      once( [ & ] { child = perform( Kind::create, nullptr, nullptr, parameters ); } );
      ASSERT_TRUE( child );
      EXPECT_EQ( &type, &child->type() );
      EXPECT_EQ( entity_.ptr(), entityOf( child )->parent() );
      silent( [ & ] { EXPECT_EQ( child->object(), perform( Kind::create, nullptr, nullptr, parameters )->object() ); } );
      EXPECT_EQ( child->object(), perform( Kind::get, nullptr, parameters[ 0 ].ptr() )->object() );
      reinstantiates( type, parameters, *parameters[ 0 ], entityOf( child ) );
   }
   EXPECT_EQ( 4u, keys().size() );
   silent( [ & ] { perform( Kind::del, nullptr, absentKey().ptr() ); } );
   const If first = keys()[ 0 ], child = perform( Kind::get, nullptr, first.ptr() );
   once( [ & ] { perform( Kind::del, nullptr, first.ptr() ); } );
   EXPECT_TRUE( entityOf( child )->isZombie() );
   changes( 3, [ & ] { perform( Kind::delAll ); } );
}

void Subject::references( const Attribute* want ) {
   const If target = asIf( make_.entity( *row_.type ) );
   If key = absentKey();
   if( want && !want->by.empty() ) target->attributeOp( { static_cast< U16 >( target->attributeId( want->by ) ), Kind::get }, nullptr, key );
   once( [ & ] { perform( Kind::set, target.ptr(), key.ptr() ); } );
   silent( [ & ] { perform( Kind::set, target.ptr(), key.ptr() ); } );
   EXPECT_EQ( target->object(), perform( Kind::get, nullptr, key.ptr() )->object() );
   if( row_.has( Flags::nonNull ) ) refusesNull();
   once( [ & ] { perform( Kind::del, nullptr, key.ptr() ); } );
   EXPECT_FALSE( entityOf( target )->isZombie() ) << "it is not owned";
   silent( [ & ] { perform( Kind::del, nullptr, key.ptr() ); } );
}

void Subject::fill() {
   for( int i = 0; i < 5; ++i ) {
      if( row_.kind == AttrKind::scalar && row_.has( Flags::writable ) && i == 0 ) {
         const If start = perform( Kind::get );
         const bool isRefused = thrown< RangeException >( [ & ] { perform( Kind::set, make_.value( *row_.type ).ptr() ); } ) != "nothing";
         if( isRefused ) perform( Kind::set, start.ptr() );   // a limited one has stored it all the same
      } else if( row_.kind == AttrKind::child && i == 0 ) {
         perform( Kind::create, nullptr, nullptr, { make_.value( BuiltIn::name ) } );
      } else if( row_.kind == AttrKind::queue ) {
         perform( Kind::enq, make_.value( *row_.type ).ptr() );
      } else if( row_.kind == AttrKind::map ) {
         const If key = absentKey();
         perform( Kind::set, element( key ).ptr(), key.ptr() );
      } else if( row_.kind == AttrKind::childMap ) {
         Ifs parameters = make_.parameters( entity_->kelChildType( attr_ ), row_.keyType );
         parameters[ 0 ] = absentKey();
         perform( Kind::create, nullptr, nullptr, parameters );
      }
   }
}

std::string Subject::dump() {
   if( row_.kind == AttrKind::scalar || row_.kind == AttrKind::derived ) return perform( Kind::get )->stringValue().str();
   if( row_.kind == AttrKind::child ) return entityOf( perform( Kind::get ) )->name().str();
   std::set< std::string > all;
   for( const If& key : keys() ) {
      const If found = perform( Kind::get, nullptr, key.ptr() );
      all.insert( key->stringValue().str() + ": " + ( row_.kind == AttrKind::childMap ? entityOf( found )->name().str() : found->stringValue().str() ) );
   }
   std::string out;
   for( const std::string& line : all ) out += line + "\n";
   return out;
}

class SweepTest : public PerModule {
 protected:
   /// Calls `visit` for each type of the module that is a value (true) or an entity (false).
   template< class Visit >
   void each( bool isValue, const Visit& visit ) {
      for( const Type& want : module().types ) {
         if( isValue ? !want.isValue() : want.kind != "entity" ) continue;
         SCOPED_TRACE( want.name );
         EXPECT_NO_THROW( visit( want, typeObject( want.name ) ) );
      }
   }
   /// Joins a table of its own.
   void setUp( Entity& entity, const Attr& row ) {
      auto* control = reinterpret_cast< Plexo::TableControl* >( reinterpret_cast< char* >( &entity ) + row.offset );
      control->setUp( { .name = row.name, .mode = Plexo::TableMode::writer, .initialRecords = 128, .maxRecords = 128, .directory = directory_ } );
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
      if( want.kind == "scalar" ) expectRefusals( want, type, make_ );
   } );
}

TEST_P( SweepTest, EntitiesChangeOnceAndOnlyWhenSomethingDiffers ) {
   each( false, [ & ]( const Type& want, Kel::Type& type ) {
      const auto entity = make_.entity( type );
      EXPECT_EQ( &type, &entity->fwkType() );
      for( U16 i = Entity::Attr_::count_; i < type.attrCount(); ++i ) {
         const std::string name = type.attr( i ).name;
         SCOPED_TRACE( name );
         const auto at = std::find_if( want.attributes.begin(), want.attributes.end(), [ & ]( const Attribute& a ) { return a.name == name; } );
         const Attribute* attribute = at == want.attributes.end() ? nullptr : &*at;
         Subject subject( entity, i, make_ );
         switch( subject.row().kind ) {
         case AttrKind::scalar:
         case AttrKind::constant:
         case AttrKind::derived: subject.scalar( attribute ); break;
         case AttrKind::ref: subject.reference(); break;
         case AttrKind::child: subject.optional(); break;
         case AttrKind::table: setUp( *entity, subject.row() ); [[fallthrough]];
         case AttrKind::map: subject.values( attribute && attribute->collection == "ordered" ); break;
         case AttrKind::queue: subject.queue(); break;
         case AttrKind::childMap: subject.children( attribute ); break;
         case AttrKind::refMap: subject.references( attribute ); break;
         default: break;
         }
      }
   } );
}

TEST_P( SweepTest, EntitiesComeOutOfTheirLogAsTheyWentIn ) {
   each( false, [ & ]( const Type&, Kel::Type& type ) {
      const Ifs parameters = make_.parameters( type );
      const auto from = make_.entity( type, parameters ), to = make_.entity( type, parameters );
      ASSERT_TRUE( from->attrLogIs( true ) );
      const auto eachAttr = [ & ]( const auto& visit ) {
         for( U16 i = Entity::Attr_::count_; i < type.attrCount(); ++i ) {
            const AttrKind kind = type.attr( i ).kind;
            if( kind == AttrKind::scalar || kind == AttrKind::child || kind == AttrKind::map || kind == AttrKind::queue || kind == AttrKind::childMap ||
                kind == AttrKind::derived ) visit( i );
         }
      };
      eachAttr( [ & ]( U16 i ) { Subject( from, i, make_ ).fill(); } );
      LogOut out;
      from->attrLog()->difference( 0, out );
      LogIn in( out.bytes() );
      AttrLogProxy( *to ).update( in );
      EXPECT_TRUE( in.atEnd() );
      eachAttr( [ & ]( U16 i ) { EXPECT_EQ( Subject( from, i, make_ ).dump(), Subject( to, i, make_ ).dump() ) << type.attr( i ).name; } );
   } );
}

INSTANTIATE_TEST_SUITE_P( Module, SweepTest, testing::ValuesIn( PerModule::names() ), []( const auto& of ) { return of.param; } );

}

}
