// What the compiler writes for every spelling of the language, at work: the classes of testdata/Spellings.kel with bodies by
// hand.
#include <KelcTest/Spellings.h>
#include <KelcTest/Table.h>

#include <functional>
#include <gtest/gtest.h>
#include <kel/GenericIf.h>
#include <kel/ThrownTest.h>
#include <sstream>

#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace Outside {

constinit const Kel::Attr Mux::attrs_[] = { Kel::ptrAttr< Kel::Dir >( "lower", Kel::AttrKind::ref, offsetof( Mux, lower_ ), 0 ) };
constinit Kel::Type Mux::_Type{
   { .qualifiedName = "Outside::Mux", .code = Kel::TypeCode::machine, .attrs = attrs_, .base = &Kel::Machine::_Type,
     .firstAttr = Kel::Machine::Attr_::count_ }
};
constinit const Kel::Attr IntfConfig::attrs_[] = { Kel::attr< Kel::U32 >( "intfId", offsetof( IntfConfig, intfId_ ), 5 ),
                                                   Kel::attr< Kel::U32 >( "genId", offsetof( IntfConfig, genId_ ), 5 ) };
constinit Kel::Type IntfConfig::_Type{ { .qualifiedName = "Outside::IntfConfig",
                                         .code = Kel::TypeCode::entity,
                                         .attrs = attrs_,
                                         .base = &Kel::Entity::_Type,
                                         .firstAttr = Kel::Entity::Attr_::count_ } };
constinit const Kel::Attr IntfConfigDir::attrs_[] = {
   Kel::collectionAttr< IntfConfigMap_ >( "intfConfig", Kel::AttrKind::childMap, offsetof( IntfConfigDir, intfConfig_ ), 0x0b ) };
constinit Kel::Type IntfConfigDir::_Type{ { .qualifiedName = "Outside::IntfConfigDir",
                                            .code = Kel::TypeCode::entity,
                                            .attrs = attrs_,
                                            .base = &Kel::Entity::_Type,
                                            .firstAttr = Kel::Entity::Attr_::count_ } };
void IntfConfigDir::NotifieeConst::dispatch( const Kel::Change& change ) {
   if( change.attr != Attr_::intfConfig ) return;
   onIntfConfigkelImmediate();
   change.key ? onIntfConfig( *static_cast< const Kel::U32* >( change.key ) ) : onIntfConfig();
}

}

namespace Spelling {

namespace {

std::string calls;   ///< what the handlers below have been called with

std::function< void() > then;   ///< what the next one does

void called( const std::string& call ) {
   calls += ( calls.empty() ? "" : " " ) + call;
   if( then ) std::exchange( then, nullptr )();
}
std::string takeCalls() { return std::exchange( calls, {} ); }

template< class T >
std::string shown( const T& value ) {
   std::ostringstream out;
   out << value;
   return out.str();
}

template< class F >
std::string thrownBy( F f ) {
   return thrown< Kel::Exception >( f );
}

}

Kel::U32 HostKey::hash() const { return addr_.hash() ^ fid_; }
bool Mixed::isSmall( Kel::U32 than ) const { return size_ < than; }
Mixed Mixed::largest() { return Mixed(); }
std::strong_ordering Ranked::operator<=>( const Ranked& other ) const {
   return rank_ != other.rank_ ? other.rank_ <=> rank_ : source_ <=> other.source_;
}
bool Ranked::isLower( const Ranked& other ) const { return other < *this; }
bool PortId::isPortId( const Quor::IntfId& id ) { return !id.isEmpty(); }
bool Vlan::good() const { return vid().value() < 1000; }
void Fdb::flush( Colour colour ) { called( "flush " + shown( colour ) ); }
void Fdb::flush() { called( "flush" ); }
Host Fdb::find( const HostKey& key ) const { return host( key ); }
Kel::Ptr< Vlan > Root::doCreate( Vid vid ) { return vlanIs( vid, false, Pair() ); }
Kel::Ptr< Vlan > BigRoot::doCreate( Vid vid ) { return vlanIs( vid, true, Pair() ); }
void VlanIntfConfigDir::doGetIntf( Kel::U32 intfId, Outside::IntfConfig** const& config ) {
   *config = intfConfig( intfId ).ptr();
}
void Writer::handleInitialized() { called( "init" ); }
void Writer::handleAging() { called( "aging" ); }
void Writer::handleVlans() { called( "vlans" ); }
void Writer::handleStandby() { called( "standby" ); }
void Writer::handleCount( const Kel::String8& key ) { called( "count:" + key.str() ); }
void Writer::RootReactor::handleVlan( Vid vid ) { called( "vlan:" + shown( vid ) ); }
void Writer::KelFdb::handleHosts() { called( "hosts:" + std::to_string( fdb()->fid() ) ); }
void Writer::KelFdb::handleHost( const HostKey& key ) { called( "host:" + std::to_string( key.fid() ) ); }
void Writer::KelFdb::cleanHosts() { called( "clean:" + std::to_string( fdb()->fid() ) ); }
void Merger::handleStart() { called( "start" ); }
void Merger::handleEntry( const Kel::Name& name ) { called( "entry:" + name.str() ); }
void Merger::cleanup() { called( "cleanup" ); }
void Merger::PickedReactor::handleSource() { called( "source:" + shown( pickedSm()->vid() ) ); }
void SourceSm::handleStart() {
   called( "sm:" + ranked().source().str() + ( merger()->sourceSm( ranked() ).ptr() == this ? "+" : "-" ) );
}
void SourceSm::handleConfig() { called( "configs" ); }
void SourceSm::handleConfig( Kel::U32 id ) { called( "config:" + std::to_string( id ) ); }
void SourceSm::cleanup() { called( "sm-cleanup:" + ranked().source().str() + ( merger()->sourceSm( ranked() ) ? "+" : "-" ) ); }
Kel::U32 VlanMux::decapsulate( Kel::U32 frame ) { return frame + native().value(); }

namespace {

TEST( Spellings, ScalarsAndEnumerations ) {
   EXPECT_EQ( shown( Tpid() ), "33024" );
   EXPECT_EQ( shown( Offset() ), "-3" );
   EXPECT_EQ( shown( Delay() ), "1.5" );
   EXPECT_EQ( shown( Label() ), "'none'" );
   EXPECT_EQ( Vid::max(), 4094 );
   EXPECT_EQ( thrownBy( [] { Tpid( 0 ); } ), "Tpid::value <= 0 not allowed" );
   EXPECT_EQ( thrownBy( [] { Tpid( 65535 ); } ), "nothing" );
   EXPECT_EQ( thrownBy( [] { VidOrNone( 4095 ); } ), "VidOrNone::value > 4094 not allowed" );
   EXPECT_EQ( thrownBy( [] { Wide( ~Kel::U64( 0 ) ); } ), "Wide::value < 5 or > 18446744073709551614 not allowed" );
   EXPECT_EQ( thrownBy( [] { Kel::strepToValue< Wide >( "4" ); } ), "Wide::value < 5 or > 18446744073709551614 not allowed" );
   EXPECT_EQ( static_cast< Kel::U32 >( Colour::grey ), 8u );
   EXPECT_EQ( ColourInstance( 7 ), Colour::blue );
   EXPECT_EQ( shown( Inner::Colour::white ), "white" );
}

TEST( Spellings, CompositesHaveTheDefaultsOfTheirDefinition ) {
   EXPECT_EQ( shown( Mixed() ),
              "Value('Spelling::Mixed', ** {'size': 17, 'flag': True, 'text': 'a \"b\"\\n\\x01', "
              "'pair': Value('Spelling::Pair', ** {'outer': 7, 'inner': 0}), 'level': 'low', 'colour': 'blue', "
              "'addr': '02:00:00:00:00:01'})" );
   EXPECT_EQ( Mixed::limit(), 17u );
   EXPECT_TRUE( Mixed().isSmall( 18 ) );
   EXPECT_TRUE( !Host() );
   EXPECT_FALSE( !Host( {}, {}, 1, 0, 0, 0, Colour::red ) );
   EXPECT_EQ( sizeof( Host ), 48u );
   EXPECT_LT( HostKey( 1, Quor::EthAddr() ), HostKey( 2, Quor::EthAddr() ) );
   EXPECT_EQ( HostKey( 5, Quor::EthAddr() ).hash(), Quor::EthAddr().hash() ^ 5u );
   EXPECT_LT( Ranked( "b", Level::low ), Ranked( "a", Level::high ) );
   EXPECT_TRUE( Ranked( "b", Level::low ).isLower( Ranked( "a", Level::low ) ) );
}

TEST( Spellings, EntitiesKeepTheirLimitsAndDefaults ) {
   const auto root = rootFactory( "root" );
   const auto vlan = root->vlanIs( 10, true, Pair( 3, 4 ) );
   EXPECT_EQ( vlan->name(), "10" );
   EXPECT_EQ( vlan->outer(), Vid( 3 ) );
   EXPECT_TRUE( vlan->good() );
   EXPECT_EQ( vlan->source(), "default" );
   EXPECT_EQ( vlan->group(), Quor::EthAddr( "01:80:c2:00:00:02" ) );
   EXPECT_EQ( thrownBy( [ & ] { vlan->checkedIs( 101 ); } ), "Vlan::checked > 100 not allowed" );
   EXPECT_EQ( vlan->checked(), 3 );
   vlan->pairIs( Pair( 9, 9 ) );
   EXPECT_EQ( root->vlanIs( 10, true, Pair( 1, 1 ) ), vlan );
   EXPECT_EQ( root->range(), Range( 10, 20 ) );
   EXPECT_EQ( bigRootFactory( "b" )->doCreate( 5 )->internal(), true );
   EXPECT_EQ( Inner::shadeFactory( "s" )->colour(), Inner::Colour::white );
}

TEST( Spellings, CollectionsAndReferences ) {
   const auto root = rootFactory( "root" );
   const auto vlan = root->vlanIs( 10, true, Pair() );
   EXPECT_EQ( root->byVlanIs( vlan ), vlan );
   EXPECT_EQ( root->byVlan( 10 ), vlan );
   EXPECT_EQ( thrownBy( [ & ] { root->byVlanIs( nullptr ); } ),
              "null _byVlan parameter to mutator for Spelling::Root::byVlan not allowed" );
   const auto fdb = root->fdbIs( 3 );
   root->topoIs( "t", 7, fdb );
   EXPECT_NE( thrownBy( [ & ] { root->topoIs( "t", 7, nullptr ); } ).find( "_best has a different value of null" ),
              std::string::npos );
   const auto group = root->groupIs( "g" );
   EXPECT_EQ( group->state(), Group::State( 1, 2 ) );
   EXPECT_EQ( group->phase(), Group::Phase::late );
   vlan->allowedIs( 30, true );
   vlan->allowedIs( 20, true );
   EXPECT_EQ( vlan->allowedIterConst().key(), Vid( 20 ) );
   fdb->hostIs( Host( HostKey( 3, Quor::EthAddr() ), {}, 5, 0, 0, 0, Colour::red ) );
   EXPECT_EQ( fdb->find( HostKey( 3, Quor::EthAddr() ) ).moves(), 5u );
}

TEST( Spellings, ReflectionCallsAnOverload ) {
   const auto fdb = fdbFactory( 3 );
   Fdb::GenericIf_ generic( fdb.ptr(), false );
   takeCalls();
   const Kel::OwnedValueIf colour( Colour_Type, nullptr, false );
   const Kel::GenericIf* arguments[] = { &colour };
   Kel::AttributeOp op{ .attribute = Fdb::Attr_::flush, .kind = Kel::AttributeOp::Kind::invoke, .arguments = arguments };
   generic.attributeOp( op, nullptr, nullptr );
   EXPECT_EQ( takeCalls(), "flush red" );
   EXPECT_EQ( BigRoot::_Type.attributeId( "extra" ), BigRoot::Attr_::extra );
   EXPECT_EQ( BigRoot::Attr_::extra, Root::Attr_::count_ );
}

TEST( Spellings, NarrowedCollectionIsOneMapForBothTypes ) {
   const auto dir = vlanIntfConfigDirFactory( "dir" );
   const Kel::Ptr< VlanIntfConfig > own = dir->intfConfigIs( 5, 1 );
   EXPECT_TRUE( own->autoState() );
   EXPECT_EQ( own->parent(), dir.ptr() );
   const Kel::Ptr< Outside::IntfConfigDir > wide( dir );
   EXPECT_EQ( wide->intfConfig( 5 ), own );
   EXPECT_TRUE( Kel::dynamicCast< VlanIntfConfig >( wide->newIntfConfig( 6, 2 ) ) );
   EXPECT_EQ( dir->intfConfig( 6 )->genId(), 2u );
   EXPECT_NE( thrownBy( [ & ] { dir->intfConfigIs( 6, 3 ); } ).find( "_genId has a different value of 3" ), std::string::npos );
   Outside::IntfConfig* found = nullptr;
   wide->doGetIntf( 6, &found );
   EXPECT_EQ( found, dir->intfConfig( 6 ).ptr() );
   VlanIntfConfigDir::GenericIf_ generic( dir.ptr(), false );
   const Kel::U32 seven = 7;
   const Kel::OwnedValueIf key( Kel::BuiltIn::u32, &seven, false );
   const Kel::GenericIf* arguments[] = { &key, &key };
   generic.attributeOp(
      { .attribute = VlanIntfConfigDir::Attr_::intfConfig, .kind = Kel::AttributeOp::Kind::create, .arguments = arguments },
      nullptr, nullptr );
   EXPECT_TRUE( Kel::dynamicCast< VlanIntfConfig >( wide->intfConfig( 7 ) ) );
   EXPECT_EQ( dir->intfConfigDel( 6 )->genId(), 2u );
   EXPECT_EQ( wide->intfConfig( 6 ), nullptr );
}

TEST( Spellings, MachineFollowsWhatItWatches ) {
   takeCalls();
   const auto root = rootFactory( "root" );
   root->fdbIs( 9 );
   root->fdbIs( 3 );
   const auto writer = writerFactory( root, root, false );
   EXPECT_EQ( takeCalls(), "hosts:3 hosts:9 init" );
   root->fdbIs( 4 );
   EXPECT_EQ( takeCalls(), "hosts:4" );
   root->fdb( 4 )->hostIs( Host( HostKey( 4, Quor::EthAddr() ), {}, 1, 0, 0, 0, Colour::red ) );
   EXPECT_EQ( takeCalls(), "host:4" );
   root->fdbDel( 3 );
   EXPECT_EQ( takeCalls(), "clean:3" );
   root->agingIs( 5 );
   root->vlanIs( 7, false, Pair() );
   root->vlanNotifyCollection();
   EXPECT_EQ( takeCalls(), "aging vlan:7 vlans" );
   writer->standbyIs( false );
   writer->standbyIs( true );
   writer->countsIs( "x", 4 );
   EXPECT_EQ( takeCalls(), "standby count:x" );
   EXPECT_EQ( writer->counts( "x" ), 4u );
   writer->hasNotificationActiveIs( false );
   root->agingIs( 6 );
   root->fdb( 9 )->hostNotifyCollection();
   EXPECT_EQ( takeCalls(), "" );
   EXPECT_EQ( thrownBy( [ & ] { writer->rootIs( nullptr ); } ),
              "null _root parameter to mutator for Spelling::Writer::root not allowed" );
   EXPECT_EQ( thrownBy( [ & ] { writer->fdbIs( nullptr ); } ),
              "null _fdb parameter to mutator for Spelling::Writer::fdb not allowed" );
   EXPECT_EQ( thrownBy( [ & ] { writer->targetIs( nullptr ); } ),
              "null _target parameter to mutator for Spelling::Writer::target not allowed" );
}

TEST( Spellings, MachineWithoutEntitiesStartsAndTakesThemLater ) {
   takeCalls();
   const auto writer = writerFactory( nullptr, nullptr, false );
   EXPECT_EQ( takeCalls(), "init" );
   const auto root = rootFactory( "root" );
   root->fdbIs( 1 );
   writer->rootIs( root );
   EXPECT_EQ( takeCalls(), "hosts:1" );
   const auto other = rootFactory( "other" );
   other->fdbIs( 2 );
   writer->rootIs( other );
   EXPECT_EQ( takeCalls(), "hosts:2 clean:1" );
   root->fdbIs( 5 );
   EXPECT_EQ( takeCalls(), "" );
}

TEST( Spellings, MachineAndItsEntityMayGoWhileItStartsItsReactors ) {
   auto root = rootFactory( "root" );
   for( Kel::U16 fid = 1; fid < 4; ++fid ) root->fdbIs( fid );
   auto writer = writerFactory( nullptr, nullptr, false );
   takeCalls();
   then = [ & ] { writer = nullptr, root = nullptr; };
   writer->rootIs( root );
   EXPECT_EQ( takeCalls(), "hosts:1 hosts:2 hosts:3" );
}

TEST( Spellings, ChildMachinesStartInTheirMapAndEndInIt ) {
   takeCalls();
   const auto dir = Kel::dirFactory( "dir" );
   const auto config = vlanIntfConfigDirFactory( "config" );
   auto merger = mergerFactory( dir );
   EXPECT_EQ( takeCalls(), "start" );
   dir->entryIs( "a", config );
   EXPECT_EQ( takeCalls(), "entry:a" );
   const auto sm = merger->sourceSmIs( Ranked( "a", Level::low ), config );
   merger->sourceSmIs( Ranked( "b", Level::low ), config );
   EXPECT_EQ( takeCalls(), "sm:a+ sm:b+" );
   EXPECT_EQ( merger->sourceSmIs( Ranked( "a", Level::low ), config ), sm );
   EXPECT_EQ( thrownBy( [ & ] { merger->sourceSmIs( Ranked( "a", Level::low ), vlanIntfConfigDirFactory( "x" ) ); } ),
              "Reinstantiating the pointer interface where constructor parameter attribute _config has a different value of x "
              "than the current "
              "value of dir/config not allowed" );
   EXPECT_EQ( merger->sourceSmIterConst().key().source(), "a" );
   config->intfConfigIs( 5, 1 );
   EXPECT_EQ( takeCalls(), "config:5 config:5" );
   merger->sourceSmDel( Ranked( "a", Level::low ) );
   EXPECT_EQ( takeCalls(), "sm-cleanup:a+" );
   const auto vlan = vlanFactory( "v", 7, false, Pair() );
   merger->pickedIs( vlan );
   vlan->sourceIs( "new" );
   EXPECT_EQ( takeCalls(), "source:7" );
   merger->pickedSm( 7 )->readyIs( true );
   merger->pickedDel( 7 );
   EXPECT_EQ( merger->pickedSm( 7 ), nullptr );
   vlan->sourceIs( "newer" );
   EXPECT_EQ( takeCalls(), "" );
   // The machine ends its children; one that is held by somebody else reacts no more.
   const auto held = merger->sourceSm( Ranked( "b", Level::low ) );
   merger = nullptr;
   EXPECT_EQ( takeCalls(), "cleanup sm-cleanup:b+" );
   EXPECT_EQ( held->merger(), nullptr );
   config->intfConfigIs( 6, 1 );
   EXPECT_EQ( takeCalls(), "" );
}

TEST( Spellings, MachineOnABaseByHand ) {
   const auto dir = Kel::dirFactory( "dir" );
   const auto mux = vlanMuxFactory( dir, 5 );
   const Kel::Ptr< Outside::Mux > base( mux );
   EXPECT_EQ( base->decapsulate( 10 ), 15u );
   EXPECT_EQ( base->lower(), dir );
   EXPECT_EQ( VlanMux::_Type.attributeId( "below" ), Outside::Mux::Attr_::count_ );
}

}

}
