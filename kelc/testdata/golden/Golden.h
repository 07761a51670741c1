// Written by kelc from the definitions of module Golden.
#pragma once

#include <kel/Entity.h>
#include <kel/Machine.h>
#include <kel/Registry.h>
#include <kel/String8.h>
#include <kel/Trace.h>
#include <kel/Types.h>
#include <kel/Value.h>

/// Describes the module's types to the global introspection reactor, once, while that exists and is enabled.
[[gnu::visibility("default")]] void kelInitGolden();

namespace kelModuleGolden {
/// The module's trace handle, "Golden", made on first call.
[[gnu::visibility("default")]] ::Kel::TraceHandle& _defaultTraceHandle();
}

namespace [[gnu::visibility("default")]] Bridging {
using ::Kel::operator<<, ::Kel::stringValue, ::Kel::valueToStrep;
enum class State : ::Kel::U32; class VlanId; class Label; class Host; class HostDir; class Status; class HostSm;
}

namespace [[gnu::visibility("default")]] Bridging {
enum class State : ::Kel::U32 {
   idle = 0,
   busy = 3,
};
extern ::Kel::Type State_Type;
constexpr ::Kel::Type* kelTypeOf( const State* ) { return &State_Type; }
/// The enumerator with this number or name. Throws `RangeException`, for a number with the text "State".
inline State StateInstance( unsigned number ) { return static_cast< State >( ::Kel::enumerator( State_Type, number ) ); }
inline State StateInstance( const ::Kel::String8& name ) { return static_cast< State >( ::Kel::enumerator( State_Type, name.view() ) ); }

/// An 802.1Q VLAN number that always names a real VLAN.
class VlanId : public ::Kel::Value< VlanId > {
 public:
   static constexpr ::Kel::Constant< ::Kel::U16 > max{ 4094 };
   constexpr VlanId() = default;
   /// Throws `RangeException` "VlanId::value < 1 or > 4094 not allowed".
   constexpr VlanId( ::Kel::U16 value ) : value_( value ) { if( static_cast< ::Kel::U16 >( value - 1 ) > 4093 ) ::Kel::refuse( _Type ); }
   VlanId( ::Kel::TextIter& from, ::Kel::TextIter to ) { ::Kel::parse( _Type, this, from, to ); }
   explicit VlanId( ::Kel::LogIn& in ) { ::Kel::read( _Type, this, in ); }
   constexpr ::Kel::U16 value() const { return value_; }
   friend auto operator<=>( const VlanId&, const VlanId& ) = default;
   ::Kel::U32 hash() const { return ::Kel::hashOf( value_ ); }
   template< class Visit > auto kelParts( Visit visit ) const { return visit( ::Kel::part( &value_ ) ); }
   using GenericIf_ = ::Kel::GenericIfOf< VlanId >;
   static constexpr ::Kel::TypeCode _code = ::Kel::TypeCode::scalar;
   static ::Kel::Type _Type;
 private:
   struct Layout_;
   static const ::Kel::Attr attrs_[];
   ::Kel::U16 value_ = 1;
};

/// A name of at most 10 bytes.
class Label : public ::Kel::Value< Label > {
 public:
   Label() = default;
   /// Throws `RangeException` "Label::bytes > 10 not allowed".
   Label( const ::Kel::String8& value ) : value_( value ) { if( value_.bytes() > 10 ) ::Kel::refuse( _Type ); }
   Label( const char* value ) : Label( ::Kel::String8( value ) ) {}
   Label( ::Kel::TextIter& from, ::Kel::TextIter to ) { ::Kel::parse( _Type, this, from, to ); }
   explicit Label( ::Kel::LogIn& in ) { ::Kel::read( _Type, this, in ); }
   const ::Kel::String8& value() const { return value_; }
   operator const ::Kel::String8&() const { return value_; }
   friend auto operator<=>( const Label&, const Label& ) = default;
   ::Kel::U32 hash() const { return ::Kel::hashOf( value_ ); }
   template< class Visit > auto kelParts( Visit visit ) const { return visit( ::Kel::part( &value_ ) ); }
   using GenericIf_ = ::Kel::GenericIfOf< Label >;
   static constexpr ::Kel::TypeCode _code = ::Kel::TypeCode::scalar;
   static ::Kel::Type _Type;
 private:
   static const ::Kel::Attr attrs_[];
   ::Kel::String8 value_;
};

/// One learned host.
class Host : public ::Kel::Value< Host > {
 public:
   Host() = default;
   Host( ::Bridging::VlanId vlan, ::Kel::U32 moves, ::Kel::Seconds lastMove, ::Bridging::State state ) : vlan_( vlan ), moves_( moves ), lastMove_( lastMove ), state_( state ) {}
   Host( ::Kel::TextIter& from, ::Kel::TextIter to ) { ::Kel::parse( _Type, this, from, to ); }
   explicit Host( ::Kel::LogIn& in ) { ::Kel::read( _Type, this, in ); }
   ::Bridging::VlanId vlan() const { return vlan_; }
   void vlanIs( ::Bridging::VlanId v ) { vlan_ = v; }
   ::Kel::U32 moves() const { return moves_; }
   void movesIs( ::Kel::U32 v ) { moves_ = v; }
   /// When it last moved.
   ::Kel::Seconds lastMove() const { return lastMove_; }
   void lastMoveIs( ::Kel::Seconds v ) { lastMove_ = v; }
   ::Bridging::State state() const { return state_; }
   void stateIs( ::Bridging::State v ) { state_ = v; }
   friend auto operator<=>( const Host&, const Host& ) = default;
   bool operator!() const { return *this == Host(); }
   ::Kel::U32 hash() const { return ::Kel::hashAll( vlan_, moves_, ::Kel::Seconds( lastMove_ ), state_ ); }
   template< class Visit > auto kelParts( Visit visit ) const { return visit( ::Kel::part( &vlan_ ), ::Kel::part( &moves_ ), ::Kel::part( &lastMove_ ), ::Kel::part( &state_ ) ); }
   using GenericIf_ = ::Kel::GenericIfOf< Host >;
   static constexpr ::Kel::TypeCode _code = ::Kel::TypeCode::composite;
   static ::Kel::Type _Type;
 private:
   struct Layout_;
   static const ::Kel::Attr attrs_[];
   ::Bridging::VlanId vlan_;
   ::Kel::U32 moves_ = 0;
   ::Kel::F64a4 lastMove_ = 0;
   ::Bridging::State state_ = ::Bridging::State::busy;
};

/// The hosts of
/// one VLAN.
///
/// A second paragraph.
class HostDir : public ::Kel::Entity {
 public:
   struct Attr_ : ::Kel::Entity::Attr_ { enum : ::Kel::U16 { vlan = ::Kel::Entity::Attr_::count_, internal, host, agingTime, good, count_ }; };
   using HostMap_ = ::Kel::HashMap< ::Bridging::VlanId, ::Bridging::Host >;
   HostDir( ::Bridging::VlanId vlan, bool internal );
   /// Its VLAN.
   ///
   /// Never changes.
   ::Bridging::VlanId vlan() const { return vlan_; }
   bool internal() const { return internal_; }
   ::Bridging::Host host( ::Bridging::VlanId key ) const { return at( host_, key, ::Bridging::Host() ); }
   ::Bridging::Host hostIs( const ::Bridging::Host& v ) { return setIn( Attr_::host, host_, ::Bridging::VlanId( v.vlan() ), v ); }
   ::Bridging::Host newHost( const ::Bridging::Host& v ) { return hostIs( v ); }
   ::Bridging::Host hostDel( ::Bridging::VlanId key ) { return delFrom( Attr_::host, host_, key ); }
   ::Bridging::Host hostDel( const HostMap_::ConstIterator& at ) { return delAt( Attr_::host, host_, at ); }
   void hostDelAll() { delAll( Attr_::host, host_ ); }   void hostNotifyCollection() { attrNotify( Attr_::host ); }
   void hostNotify( ::Bridging::VlanId key ) { attrNotify( Attr_::host, &key ); }
   ::std::size_t hostCount() const { return host_.size(); }   const HostMap_& hostMap_() const { return host_; }
   HostMap_::Iterator hostIter() { return host_.iterator(); }
   HostMap_::ConstIterator hostIterConst() const { return host_.iterator(); }
   ::Kel::Seconds agingTime() const { return agingTime_; }
   void agingTimeIs( ::Kel::Seconds v ) { set( Attr_::agingTime, agingTime_, v, &NotifieeConst::onAgingTime ); }
   bool good() const;
   class NotifieeConst : public ::Kel::NotifieeOf< HostDir, ::Kel::Entity::NotifieeConst > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onHost() {} virtual void onHost( ::Bridging::VlanId ) {} virtual void onHostkelImmediate() {}
      virtual void onAgingTime() {}
      void dispatch( const ::Kel::Change& change ) override;
   };
   using GenericIf_ = ::Kel::GenericIfOf< HostDir >;
   static ::Kel::Type _Type;
   static ::Kel::Type& _fwkType() { return _Type; }   ::Kel::Type& fwkType() const override { return _Type; }
 private:
   static const ::Kel::Attr attrs_[];
   ::Bridging::VlanId vlan_;
   bool internal_;
   HostMap_ host_;
   ::Kel::Seconds agingTime_ = 300;
};
::Kel::Ptr< HostDir > hostDirFactory( ::Bridging::VlanId vlan, bool internal );

class Status : public ::Kel::Entity {
 public:
   struct Attr_ : ::Kel::Entity::Attr_ { enum : ::Kel::U16 { hostDir = ::Kel::Entity::Attr_::count_, label, find, count_ }; };
   using HostDirMap_ = ::Kel::HashMap< ::Bridging::VlanId, ::Kel::Ptr< ::Bridging::HostDir > >;
   explicit Status( const ::Kel::Name& name );
   ::Kel::Ptr< ::Bridging::HostDir > hostDir( ::Bridging::VlanId key ) const { return at( hostDir_, key, ::Kel::Ptr< ::Bridging::HostDir >() ); }
   ::Kel::Ptr< ::Bridging::HostDir > newHostDir( ::Bridging::VlanId vlan, bool internal ) { return newChild< ::Bridging::HostDir >( Attr_::hostDir, hostDir_, vlan, { &vlan, &internal }, vlan, internal ); }
   ::Kel::Ptr< ::Bridging::HostDir > hostDirIs( ::Bridging::VlanId vlan, bool internal ) { return newHostDir( vlan, internal ); }
   ::Kel::Ptr< ::Bridging::HostDir > hostDirDel( ::Bridging::VlanId key ) { return delFrom( Attr_::hostDir, hostDir_, key ); }
   ::Kel::Ptr< ::Bridging::HostDir > hostDirDel( const HostDirMap_::ConstIterator& at ) { return delAt( Attr_::hostDir, hostDir_, at ); }
   void hostDirDelAll() { delAll( Attr_::hostDir, hostDir_ ); }   void hostDirNotifyCollection() { attrNotify( Attr_::hostDir ); }
   void hostDirNotify( ::Bridging::VlanId key ) { attrNotify( Attr_::hostDir, &key ); }
   ::std::size_t hostDirCount() const { return hostDir_.size(); }   const HostDirMap_& hostDirMap_() const { return hostDir_; }
   HostDirMap_::Iterator hostDirIter() { return hostDir_.iterator(); }
   HostDirMap_::ConstIterator hostDirIterConst() const { return hostDir_.iterator(); }
   const ::Bridging::Label& label() const { return label_; }
   void labelIs( const ::Bridging::Label& v ) { set( Attr_::label, label_, v, &NotifieeConst::onLabel ); }
   /// The hosts of a VLAN.
   ///
   /// Null when there are none.
   ::Kel::Ptr< ::Bridging::HostDir > find( ::Bridging::VlanId vlan ) const;
   class NotifieeConst : public ::Kel::NotifieeOf< Status, ::Kel::Entity::NotifieeConst > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onHostDir() {} virtual void onHostDir( ::Bridging::VlanId ) {} virtual void onHostDirkelImmediate() {}
      virtual void onLabel() {}
      void dispatch( const ::Kel::Change& change ) override;
   };
   using GenericIf_ = ::Kel::GenericIfOf< Status >;
   static ::Kel::Type _Type;
   static ::Kel::Type& _fwkType() { return _Type; }   ::Kel::Type& fwkType() const override { return _Type; }
 private:
   static const ::Kel::Attr attrs_[];
   HostDirMap_ hostDir_;
   ::Bridging::Label label_;
};
::Kel::Ptr< Status > statusFactory( const ::Kel::Name& name );

/// Follows every host.
class HostSm : public ::Kel::Machine {
 public:
   struct Attr_ : ::Kel::Machine::Attr_ { enum : ::Kel::U16 { status = ::Kel::Machine::Attr_::count_, hostDir, ready, handleInitialized, count_ }; };
   class KelStatus;
   class KelHostDir;
   using HostDirMap_ = ::Kel::ReactorMap< ::Bridging::VlanId, KelHostDir >;
   explicit HostSm( const ::Kel::Ptr< const ::Bridging::Status >& status );
   ~HostSm() override;
   ::Kel::Ptr< const ::Bridging::Status > status() const;
   void statusIs( const ::Kel::Ptr< const ::Bridging::Status >& entity );
   ::Kel::Ptr< KelHostDir > hostDir( ::Bridging::VlanId key ) const;
   ::Kel::Ptr< KelHostDir > hostDirIs( const ::Kel::Ptr< const ::Bridging::HostDir >& entity );
   void hostDirDel( ::Bridging::VlanId key );
   /// Does nothing: reactors have no notifiees.
   void hostDirNotify( ::Bridging::VlanId ) {}
   ::std::size_t hostDirCount() const { return hostDir_.size(); }
   HostDirMap_::ConstIterator hostDirIterConst() const { return hostDir_.iterator(); }
   bool ready() const { return ready_; }
   virtual void readyIs( bool v ) { ready_ = v; }
   void hasNotificationActiveIs( bool on ) override;
   virtual void handleInitialized();
   using GenericIf_ = ::Kel::GenericIfOf< HostSm >;
   static ::Kel::Type _Type;
   static ::Kel::Type& _fwkType() { return _Type; }   ::Kel::Type& fwkType() const override { return _Type; }
 private:
   void kelFollowHostDir();
   void kelFollowHostDir( ::Bridging::VlanId key );
   static const ::Kel::Attr attrs_[];
   ::Kel::Ptr< KelStatus > status_;
   HostDirMap_ hostDir_;
   bool ready_ = false;
};

class HostSm::KelStatus : public ::Bridging::Status::NotifieeConst {
 public:
   KelStatus( const ::Kel::Ptr< const ::Bridging::Status >& notifier, HostSm* owner ) : NotifieeConst( notifier ), kelOwner_( owner ) {}
   HostSm* hostSm() const { return kelOwner_; }
   /// The watched entity; null once it has gone.
   ::Kel::Ptr< const ::Bridging::Status > status() const { return notifier(); }
   void onHostDir() override { kelOwner_->kelFollowHostDir(); }
   void onHostDir( ::Bridging::VlanId key ) override { kelOwner_->kelFollowHostDir( key ); }
   /// Called by the machine when the reactor is in its place, and once before it goes.
   void kelStart() {}
   void kelGone() {}
 private:
   HostSm* kelOwner_;
};

class HostSm::KelHostDir : public ::Bridging::HostDir::NotifieeConst {
 public:
   KelHostDir( const ::Kel::Ptr< const ::Bridging::HostDir >& notifier, HostSm* owner ) : NotifieeConst( notifier ), kelOwner_( owner ) {}
   HostSm* hostSm() const { return kelOwner_; }
   /// The watched entity; null once it has gone.
   ::Kel::Ptr< const ::Bridging::HostDir > hostDir() const { return notifier(); }
   void handleHosts();
   void handleHost( ::Bridging::VlanId vlan );
   void cleanHosts();
   void onHost() override { handleHosts(); }
   void onHost( ::Bridging::VlanId key ) override { handleHost( key ); }
   /// Called by the machine when the reactor is in its place, and once before it goes.
   void kelStart() { handleHosts(); }
   void kelGone() { if( !::std::exchange( kelGone_, true ) ) { cleanHosts(); } }
 private:
   void onZombie() override { kelGone(); }
   HostSm* kelOwner_;
   bool kelGone_ = false;
};
::Kel::Ptr< HostSm > hostSmFactory( const ::Kel::Ptr< const ::Bridging::Status >& status );
inline ::Kel::Ptr< HostSm > HostSmIs( const ::Kel::Ptr< const ::Bridging::Status >& status ) { return hostSmFactory( status ); }
}
