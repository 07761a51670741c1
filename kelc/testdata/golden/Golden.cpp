// Written by kelc from the definitions of module Golden.
#include <G/Golden.h>
#include <kel/GenericIf.h>
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

::Kel::TraceHandle& kelModuleGolden::_defaultTraceHandle() {
   static ::Kel::TraceHandle& handle = ::Kel::traceHandle( "Golden" );
   return handle;
}
namespace Bridging {
static constexpr ::Kel::Enumerator State_names[] = { { 0, "idle" }, { 3, "busy" } };
constinit ::Kel::Type State_Type{ ::Kel::enumInfo< State >( "Bridging::State", State_names ) };
// --- VlanId
constinit const ::Kel::Attr VlanId::attrs_[] = {
   ::Kel::attr< ::Kel::U16 >( "value", offsetof( VlanId, value_ ) ),
   ::Kel::constantAttr( "max", &max ),
};
constinit ::Kel::Type VlanId::_Type{ ::Kel::valueInfo< VlanId >( "Bridging::VlanId", attrs_, { 1, 4094, "VlanId::value < 1 or > 4094 not allowed" } ) };
struct VlanId::Layout_ { static_assert( sizeof( VlanId ) == 2 ); };
// --- Label
constinit const ::Kel::Attr Label::attrs_[] = {
   ::Kel::attr< ::Kel::String8 >( "value", offsetof( Label, value_ ) ),
};
constinit ::Kel::Type Label::_Type{ ::Kel::valueInfo< Label >( "Bridging::Label", attrs_, { 0, 10, "Label::bytes > 10 not allowed" } ) };
// --- Host
constinit const ::Kel::Attr Host::attrs_[] = {
   ::Kel::attr< ::Bridging::VlanId >( "vlan", offsetof( Host, vlan_ ) ),
   ::Kel::attr< ::Kel::U32 >( "moves", offsetof( Host, moves_ ) ),
   ::Kel::attr< ::Kel::Seconds >( "lastMove", offsetof( Host, lastMove_ ), 0, &::Kel::BuiltIn::seconds ),
   ::Kel::attr< ::Bridging::State >( "state", offsetof( Host, state_ ) ),
};
constinit ::Kel::Type Host::_Type{ ::Kel::valueInfo< Host >( "Bridging::Host", attrs_ ) };
struct Host::Layout_ { static_assert( sizeof( Host ) == 20 && offsetof( Host, vlan_ ) == 0 && offsetof( Host, moves_ ) == 4 && offsetof( Host, lastMove_ ) == 8 && offsetof( Host, state_ ) == 16 ); };
// --- HostDir
constinit const ::Kel::Attr HostDir::attrs_[] = {
   ::Kel::attr< ::Bridging::VlanId >( "vlan", offsetof( HostDir, vlan_ ), 0x05 ),
   ::Kel::attr< bool >( "internal", offsetof( HostDir, internal_ ), 0x05 ),
   ::Kel::collectionAttr< HostMap_ >( "host", ::Kel::AttrKind::map, offsetof( HostDir, host_ ), 0x0b, 1 ),
   ::Kel::attr< ::Kel::Seconds >( "agingTime", offsetof( HostDir, agingTime_ ), 0x0b, &::Kel::BuiltIn::seconds ),
   ::Kel::derivedAttr< HostDir, &HostDir::good >( "good" ),
};
constinit ::Kel::Type HostDir::_Type{ ::Kel::entityInfo< HostDir, ::Kel::Entity, ::Bridging::VlanId, bool >( "Bridging::HostDir", attrs_ ) };
HostDir::HostDir( ::Bridging::VlanId vlan, bool internal ) : ::Kel::Entity( ::Kel::keyName( vlan ) ), vlan_( vlan ), internal_( internal ) {}
void HostDir::NotifieeConst::dispatch( const ::Kel::Change& change ) {
   switch( change.attr ) {
   case Attr_::agingTime: return onAgingTime();
   case Attr_::host: return onHostkelImmediate(), change.key ? onHost( *static_cast< const ::Bridging::VlanId* >( change.key ) ) : onHost();
   default: return ::Kel::Entity::NotifieeConst::dispatch( change );
   }
}
::Kel::Ptr< ::Bridging::HostDir > hostDirFactory( ::Bridging::VlanId vlan, bool internal ) { return ::Kel::Ptr< ::Bridging::HostDir >( new HostDir( vlan, internal ) ); }
// --- Status
constinit const ::Kel::Attr Status::attrs_[] = {
   ::Kel::collectionAttr< HostDirMap_ >( "hostDir", ::Kel::AttrKind::childMap, offsetof( Status, hostDir_ ), 0x0b ),
   ::Kel::attr< ::Bridging::Label >( "label", offsetof( Status, label_ ), 0x0b ),
   ::Kel::operationAttr< Status, &Status::find, ::Bridging::VlanId >( "find" ),
};
constinit ::Kel::Type Status::_Type{ ::Kel::namedInfo< Status, ::Kel::Entity >( "Bridging::Status", attrs_ ) };
Status::Status( const ::Kel::Name& name ) : ::Kel::Entity( name ) {}
void Status::NotifieeConst::dispatch( const ::Kel::Change& change ) {
   switch( change.attr ) {
   case Attr_::label: return onLabel();
   case Attr_::hostDir: return onHostDirkelImmediate(), change.key ? onHostDir( *static_cast< const ::Bridging::VlanId* >( change.key ) ) : onHostDir();
   default: return ::Kel::Entity::NotifieeConst::dispatch( change );
   }
}
::Kel::Ptr< ::Bridging::Status > statusFactory( const ::Kel::Name& name ) { return ::Kel::Ptr< ::Bridging::Status >( new Status( name ) ); }
// --- HostSm
constinit const ::Kel::Attr HostSm::attrs_[] = {
   ::Kel::ptrAttr< ::Bridging::Status >( "status", ::Kel::AttrKind::reactor, offsetof( HostSm, status_ ), 0x04 ),
   ::Kel::reactorMapAttr< HostDirMap_, ::Bridging::HostDir >( "hostDir", offsetof( HostSm, hostDir_ ) ),
   ::Kel::attr< bool >( "ready", offsetof( HostSm, ready_ ), 0 ),
   ::Kel::operationAttr< HostSm, &HostSm::handleInitialized >( "handleInitialized" ),
};
constinit ::Kel::Type HostSm::_Type{ ::Kel::objectInfo< HostSm, ::Kel::Machine >( "Bridging::HostSm", attrs_ ) };
HostSm::HostSm( const ::Kel::Ptr< const ::Bridging::Status >& status ) {
   if( status ) status_ = new KelStatus( status, this );
   kelFollowHostDir();
   handleInitialized();
}
HostSm::~HostSm() {
   if( status_ ) status_->deactivate();
   for( auto i = hostDir_.iterator(); i; ++i ) i.value()->deactivate();
}
::Kel::Ptr< const ::Bridging::Status > HostSm::status() const { return status_ ? status_->status() : ::Kel::Ptr< const ::Bridging::Status >(); }
void HostSm::statusIs( const ::Kel::Ptr< const ::Bridging::Status >& entity ) {
   if( !entity ) nullRefused( "status" );
   if( status() == entity ) return;
   const auto kept = kelKept();
   if( status_ ) status_->kelGone(), status_->deactivate();
   status_ = new KelStatus( entity, this );
   status_->hasNotificationActiveIs( hasNotificationActive() );
   status_->kelStart();
   kelFollowHostDir();
}
::Kel::Ptr< HostSm::KelHostDir > HostSm::hostDir( ::Bridging::VlanId key ) const {
   const auto* found = hostDir_.find( key );
   return found ? *found : ::Kel::Ptr< HostSm::KelHostDir >();
}
::Kel::Ptr< HostSm::KelHostDir > HostSm::hostDirIs( const ::Kel::Ptr< const ::Bridging::HostDir >& entity ) {
   if( !entity ) nullRefused( "hostDir" );
   const auto kept = kelKept();
   return ::Kel::followEntity( hostDir_, ::Bridging::VlanId( entity->vlan() ), ::Kel::Ptr< const ::Bridging::HostDir >( entity ), this );
}
void HostSm::hostDirDel( ::Bridging::VlanId key ) { ::Kel::unfollowEntity( hostDir_, key ); }
void HostSm::kelFollowHostDir() {
   const auto kept = kelKept();
   const auto from = status();
   if( !from ) return;
   ::Kel::followAll( from->hostDirMap_(), hostDir_, [ this ]( const auto& e ) { hostDirIs( e ); }, [ this ]( const auto& k ) { hostDirDel( k ); } );
}
void HostSm::kelFollowHostDir( ::Bridging::VlanId key ) {
   if( const auto entity = status() ? status()->hostDir( key ) : nullptr ) hostDirIs( entity );
   else hostDirDel( key );
}
void HostSm::hasNotificationActiveIs( bool on ) {
   ::Kel::Machine::hasNotificationActiveIs( on );
   if( status_ ) status_->hasNotificationActiveIs( on );
   for( auto i = hostDir_.iterator(); i; ++i ) i.value()->hasNotificationActiveIs( on );
}
::Kel::Ptr< ::Bridging::HostSm > hostSmFactory( const ::Kel::Ptr< const ::Bridging::Status >& status ) {
   return ::Kel::Ptr< ::Bridging::HostSm >( new HostSm( status ) );
}
}

static ::Kel::Type* const kelTypes[] = {
   &::Bridging::VlanId::_Type, &::Bridging::Label::_Type, &::Bridging::State_Type, &::Bridging::Host::_Type,
   &::Bridging::HostDir::_Type, &::Bridging::Status::_Type, &::Bridging::HostSm::_Type
};
static ::Kel::S32 kelHandles[ 0 + 2 + ::Bridging::HostDir::Attr_::count_ - ::Kel::Entity::Attr_::count_ + 2 + ::Bridging::Status::Attr_::count_ - ::Kel::Entity::Attr_::count_ ];
extern ::Kel::Module kelModuleGolden_;
constinit ::Kel::Module kelModuleGolden_{ .name = "Golden", .types = kelTypes, .handles = kelHandles };
void kelInitGolden() { ::Kel::describeModule( kelModuleGolden_ ); }
