#include <kel/Activity.h>
#include <kel/GenericIf.h>
#include <kel/Trace.h>
#include <kel/Value.h>
#include <plexo/TableAttr.h>
#include <plexo/TestTable.h>

#pragma GCC diagnostic ignored "-Winvalid-offsetof"

// The typed attribute, over an entity as it is generated from a definition.
namespace Plexo {

namespace {

/// A bounded number with padding behind it in its record.
class Port : public Kel::Value< Port > {
 public:
   Port() = default;
   Port( U16 value ) : value_( value ) {}
   U16 value() const { return value_; }
   friend auto operator<=>( const Port&, const Port& ) = default;
   U32 hash() const { return Kel::hashOf( value_ ); }
   using GenericIf_ = Kel::GenericIfOf< Port >;
   static constexpr Kel::TypeCode _code = Kel::TypeCode::scalar;
   static Kel::Type _Type;

 private:
   static const Kel::Attr attrs_[];
   U16 value_ = 1;
};
constinit const Kel::Attr Port::attrs_[] = { Kel::attr< U16 >( "value", offsetof( Port, value_ ) ) };
constinit Kel::Type Port::_Type{ { .qualifiedName = "Test::Port", .code = _code, .size = sizeof( Port ), .attrs = attrs_,
   .values = &Kel::valueOps< Port >, .bounds = { 1, 100, "Port::value < 1 or > 100 not allowed" }, .wrap = &Kel::makeGenericIf< Port > } };

/// Counts per port.
class Count : public Kel::Value< Count > {
 public:
   Count() = default;
   Count( Port port, Kel::U64 octets ) : port_( port ), octets_( octets ) {}
   Port port() const { return port_; }
   Kel::U64 octets() const { return octets_; }
   void octetsIs( Kel::U64 v ) { octets_ = v; }
   friend bool operator==( const Count&, const Count& ) = default;
   using GenericIf_ = Kel::GenericIfOf< Count >;
   static constexpr Kel::TypeCode _code = Kel::TypeCode::composite;
   static Kel::Type _Type;

 private:
   static const Kel::Attr attrs_[];
   Port port_;
   Kel::U64a4 octets_ = 0;
};
constinit const Kel::Attr Count::attrs_[] = { Kel::attr< Port >( "port", offsetof( Count, port_ ) ),
                                              Kel::attr< Kel::U64 >( "octets", offsetof( Count, octets_ ) ) };
constinit Kel::Type Count::_Type{ { .qualifiedName = "Test::Count", .code = _code, .size = sizeof( Count ), .attrs = attrs_,
   .values = &Kel::valueOps< Count >, .wrap = &Kel::makeGenericIf< Count > } };
static_assert( sizeof( Count ) == 12 );

class Counts : public Kel::Entity {
 public:
   struct Attr_ : Kel::Entity::Attr_ {
      enum : U16 { count = Kel::Entity::Attr_::count_, countControl, count_ };
   };
   using CountTable_ = TableAttr< Count, Port >;
   explicit Counts( const Kel::Name& name ) : Entity( name ) {}

   Count count( const Port& key ) const { return count_.at( key ); }
   Count countIs( const Count& v ) { return count_.is( v ); }
   Count newCount( const Count& v ) { return count_.insert( v ); }
   Count* countDirect() { return count_.direct(); }
   Count countCommit( const Count* v ) { return count_.commit( v ); }
   Count countDel( const Port& key ) { return count_.del( key ); }
   Count countDel( CountTable_::Iterator& at ) { return count_.del( at ); }
   void countDelAll() { count_.delAll(); }
   std::size_t countCount() const { return count_.size(); }
   CountTable_::ConstIterator countIterConst() const { return count_.iterator(); }
   TableControl& countControl() const { return count_.control(); }

   static Kel::Type _Type;
   Kel::Type& fwkType() const override { return _Type; }
   using GenericIf_ = Kel::GenericIfOf< Counts >;

 private:
   static const Kel::Attr attrs_[];
   CountTable_ count_{ *this, Attr_::count };
};
constinit const Kel::Attr Counts::attrs_[] = {
   tableAttr< Counts::CountTable_ >( "count", offsetof( Counts, count_ ),
                                     Kel::KelAttrIntrospectionFlags::notifies | Kel::KelAttrIntrospectionFlags::writable, 1 ),
   controlAttr< Counts::CountTable_ >( "countControl" ),
};
constinit Kel::Type Counts::_Type{ { .qualifiedName = "Test::Counts", .code = Kel::TypeCode::entity, .size = sizeof( Counts ),
   .attrs = attrs_, .base = &Kel::Entity::_Type, .firstAttr = Kel::Entity::Attr_::count_ } };

/// Notes what it is told.
class Notes : public Kel::NotifieeBase {
 public:
   explicit Notes( const Kel::Ptr< Counts >& counts ) { activate( counts.ptr() ); }
   void dispatch( const Kel::Change& change ) override {
      EXPECT_EQ( Counts::Attr_::count, change.attr );
      if( !change.key ) ++collections;
      else keys.push_back( static_cast< const Port* >( change.key )->value() );
      if( onEach ) onEach();
   }
   std::vector< U16 > keys;
   U32 collections = 0;
   std::function< void() > onEach;
};

class TableAttrTest : public TableTest {
 protected:
   Kel::Ptr< Counts > make( TableMode mode, U32 initial = 10, U32 max = 50 ) {
      Kel::Ptr< Counts > counts( new Counts( "counts" ) );
      counts->countControl().setUp( { .name = "c", .mode = mode, .initialRecords = initial, .maxRecords = max } );
      return counts;
   }
};

TEST_F( TableAttrTest, ReadsAsEmptyAndRefusesWritesUntilSetUp ) {
   const Kel::Ptr< Counts > counts( new Counts( "counts" ) );
   EXPECT_EQ( Count(), counts->count( 5 ) );
   EXPECT_FALSE( counts->countIterConst() );
   EXPECT_EQ( 0u, counts->countCount() );
   EXPECT_EQ( TableState::connecting, counts->countControl().state() );
   try {
      counts->countIs( Count( 5, 1 ) );
      FAIL();
   } catch( const AssertionException& e ) {
      EXPECT_STREQ( "write to table attribute Test::Counts::count before it is set up as its table's writer", e.what() );
   }
   EXPECT_THROW( counts->countDelAll(), AssertionException );
   EXPECT_THROW( counts->countCommit( nullptr ), AssertionException );
   EXPECT_THROW( make( TableMode::writer, 0 ), Kel::RangeException );
   EXPECT_THROW( make( TableMode::reader, 0 ), Kel::RangeException );
   EXPECT_THROW( make( TableMode::none ), Kel::RangeException );
   const auto writer = make( TableMode::writer );
   EXPECT_THROW( writer->countControl().setUp( { .name = "d" } ), Kel::InternalException );
   const auto reader = make( TableMode::reader );
   EXPECT_THROW( reader->countDel( 5 ), AssertionException );
}

TEST_F( TableAttrTest, WritesNotifyOnlyOnChange ) {
   const auto counts = make( TableMode::writer );
   const Kel::Ptr< Notes > notes( new Notes( counts ) );
   EXPECT_EQ( Count( 5, 1 ), counts->countIs( Count( 5, 1 ) ) );
   counts->countIs( Count( 5, 1 ) );
   EXPECT_EQ( 1u, counts->changeCount() );
   counts->newCount( Count( 6, 2 ) );
   Count* direct = counts->countDirect();
   EXPECT_EQ( Count(), *direct );
   *direct = Count( 7, 3 );
   counts->countCommit( direct );
   EXPECT_THROW( counts->countCommit( direct ), AssertionException );
   EXPECT_EQ( Count( 6, 2 ), counts->countDel( 6 ) );
   EXPECT_EQ( Count(), counts->countDel( 6 ) );
   EXPECT_EQ( ( std::vector< U16 >{ 5, 6, 7, 6 } ), notes->keys );
   auto at = counts->countIterConst();
   EXPECT_EQ( Count( 5, 1 ), counts->countDel( at ) );
   EXPECT_EQ( Port( 5 ), at.key() );
   ++at;
   EXPECT_EQ( Count( 7, 3 ), at.value() );
   EXPECT_FALSE( ++at );
   counts->countDelAll();
   EXPECT_EQ( 0u, counts->countCount() );
   EXPECT_EQ( ( std::vector< U16 >{ 5, 6, 7, 6, 5, 7 } ), notes->keys );
   EXPECT_EQ( 0u, notes->collections );
}

/// Bytes between attributes hold what was on the stack; they are no difference.
TEST_F( TableAttrTest, PaddingIsNoChange ) {
   const auto counts = make( TableMode::writer );
   for( const int fill : { 0, 0xff, 0x55 } ) {
      alignas( Count ) unsigned char raw[ sizeof( Count ) ];
      std::memset( raw, fill, sizeof raw );
      Count* dirty = ::new( raw ) Count( 5, 1 );
      std::memset( raw + 2, fill, 2 );
      counts->countIs( *dirty );
   }
   EXPECT_EQ( 1u, counts->changeCount() );
}

TEST_F( TableAttrTest, ReadersFollow ) {
   for( const TableMode mode : { TableMode::reader, TableMode::shadow } ) {
      std::filesystem::remove( file( "c" ) );
      const auto reader = make( mode );
      const Kel::Ptr< Notes > notes( new Notes( reader ) );
      std::vector< TableState > states;
      reader->countControl().stateHandlerIs( [ & ]( TableState state, const std::string& ) { states.push_back( state ); } );
      auto writer = make( TableMode::writer );
      writer->countIs( Count( 5, 1 ) );
      Kel::Activity activity;
      reader->countControl().attach( activity );
      notes->onEach = [ & ] {
         if( notes->collections && notes->keys.size() == 3 ) activity.stop();
         if( notes->collections == 1 && notes->keys.size() == 1 ) {
            writer->countIs( Count( 6, 2 ) );
            writer->countDel( 5 );
         }
      };
      EXPECT_TRUE( activity.runFor( std::chrono::seconds( 10 ) ) );
      EXPECT_EQ( ( std::vector< U16 >{ 5, 6, 5 } ), notes->keys );
      EXPECT_EQ( Count(), reader->count( 5 ) );
      EXPECT_EQ( Count( 6, 2 ), reader->count( 6 ) );
      EXPECT_EQ( TableState::live, reader->countControl().state() );
      ASSERT_EQ( ( std::vector{ TableState::live } ), states );
      notes->onEach = nullptr;
      writer = nullptr;
      activity.runFor( std::chrono::milliseconds( 300 ) );
      EXPECT_EQ( TableState::stale, states.back() );
   }
}

TEST_F( TableAttrTest, EntityMayGoInItsOwnNotification ) {
   const auto writer = make( TableMode::writer );
   for( U16 i = 1; i <= 20; ++i ) writer->countIs( Count( i, i ) );
   auto reader = make( TableMode::reader );
   const Kel::Ptr< Notes > notes( new Notes( reader ) );
   TableControl& control = reader->countControl();
   notes->onEach = [ & ] { reader = nullptr; };
   EXPECT_FALSE( control.dispatch() );
   EXPECT_EQ( 1u, notes->keys.size() );
}

TEST_F( TableAttrTest, CorruptionIsCountedTracedAndMakesItDegraded ) {
   std::vector< std::string > traced;
   const auto destination = Kel::traceToCallback( [ & ]( const Kel::TraceLine& line ) { traced.push_back( std::string( line.text ) ); } );
   Kel::traceToStandardErrorIs( false );
   const auto writer = make( TableMode::writer );
   const auto reader = make( TableMode::reader );
   std::string told;
   reader->countControl().corruptionHandlerIs( [ & ]( const std::string& text ) { told = text; } );
   for( const auto& entity : { writer, reader } ) {
      TableControl& control = entity->countControl();
      control.corruptionDetected( "slot 3 is odd" );
      EXPECT_EQ( 1u, control.corruptionsDetected() );
      EXPECT_EQ( TableState::degraded, control.state() );
      EXPECT_EQ( "slot 3 is odd", control.reason() );
   }
   Kel::traceToStandardErrorIs( true );
   EXPECT_EQ( "slot 3 is odd", told );
   EXPECT_EQ( ( std::vector< std::string >( 2, " counts: slot 3 is odd" ) ), traced );
   EXPECT_THROW( writer->countIs( Count( 5, 1 ) ), AssertionException );
}

/// A number that its type does not allow is not handed out, wherever it comes from.
TEST_F( TableAttrTest, ValuesKeepTheirBounds ) {
   const auto writer = make( TableMode::writer );
   writer->countIs( Count( Port( 101 ), 1 ) );                          // this constructor checks nothing
   const auto reader = make( TableMode::reader );
   try {
      reader->count( Port( 101 ) );
      FAIL();
   } catch( const CorruptionException& e ) {
      EXPECT_STREQ( "table c is corrupted: port: Port::value < 1 or > 100 not allowed", e.what() );
   }
   EXPECT_THROW( reader->countIterConst(), CorruptionException );
}

TEST_F( TableAttrTest, RowsServeReflection ) {
   const auto counts = make( TableMode::writer );
   const Kel::Attr& row = counts->fwkType().attr( Counts::Attr_::count );
   const Kel::CollectionOps& ops = *row.extra.collection;
   char* table = reinterpret_cast< char* >( counts.ptr() ) + row.offset;
   for( U16 i = 1; i <= 3; ++i ) {
      const Count count( i, i );
      ops.set( *counts, Counts::Attr_::count, table, nullptr, &count );
   }
   EXPECT_EQ( 3u, ops.size( table ) );
   const Port two( 2 );
   EXPECT_EQ( Count( 2, 2 ), *static_cast< const Count* >( ops.find( table, &two ) ) );
   std::vector< U16 > keys;
   Port key;
   for( bool more = ops.next( table, nullptr, &key ); more; more = ops.next( table, &key, &key ) ) keys.push_back( key.value() );
   EXPECT_EQ( ( std::vector< U16 >{ 1, 2, 3 } ), keys );
   EXPECT_TRUE( ops.next( table, &two, &key ) );
   EXPECT_EQ( Port( 3 ), key );
   EXPECT_TRUE( ops.erase( *counts, Counts::Attr_::count, table, &two ) );
   EXPECT_FALSE( ops.erase( *counts, Counts::Attr_::count, table, &two ) );
}

}

}
