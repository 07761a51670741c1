#include "DynVlanMerge.h"

#include <algorithm>
#include <kel/Assert.h>
#include <kel/Dir.h>
#include <kel/Trace.h>

// The handlers of the machines. How the merge works stands in DynVlanMerge.cpp.

namespace Vanta {

using namespace DynVlan;
using Interface::VlanIntfConfigDir;

namespace {

/// Whether a machine that is being let go, further up, holds a key. Whoever lets it go looks at its source again then.
bool isInTheWay( const DynVlanIntfReactor& reactor, const SourcePriorityPair& key ) {
   const auto machine = reactor.dynVlanIntfConfigSm( key );
   return machine && machine->kelHasGone();
}

/// The requests of a source as its entry in the directory of sources has them, or null.
Kel::Ptr< VlanIntfConfigDir > requestsOf( const DynVlanIntfReactor& reactor, const Kel::Name& source ) {
   const auto sources = reactor.dynVlanIntfDir();
   return sources ? Kel::dynamicCast< VlanIntfConfigDir >( sources->entry( source ) ) : nullptr;
}

/// Lets the machines of a source over `requests` go, but for the one under `keep`. There is one, unless a re-keying was
/// disturbed.
void dropMachines( DynVlanIntfReactor& reactor, const Kel::Name& source, const Kel::Ptr< VlanIntfConfigDir >& requests,
                   const SourcePriorityPair* keep ) {
   for( auto i = reactor.dynVlanIntfConfigSmIterConst(); i; ++i ) {
      if( i.key().source() != source || ( keep && i.key() == *keep ) || i.value()->kelHasGone() ) continue;
      if( i.value()->dynVlanConfig() == requests ) reactor.dynVlanIntfConfigSmDel( i.key() );
   }
}

}

// --- the order of sources

std::strong_ordering SourcePriorityPair::operator<=>( const SourcePriorityPair& other ) const {
   const auto byPriority = static_cast< Kel::S32 >( other.priority_ ) <=> static_cast< Kel::S32 >( priority_ );
   return byPriority != 0 ? byPriority : source_ <=> other.source_;
}

bool SourcePriorityPair::isLowerPriority( const SourcePriorityPair& other ) const { return other < *this; }

// --- one source

void DynVlanIntfConfigSm::handleInitialized() {
   entry();
   KEL_ASSERT( component, parent() );
   initializedIs( true );
   handleDynVlanConfig();
}

void DynVlanIntfConfigSm::handleDynVlanConfig() {
   if( auto t = decision() ) t << " sourcePriority: " << sourcePriority();
   const auto self = kept( this );
   const auto requests = dynVlanConfig();
   if( !requests ) return;
   for( auto i = requests->intfConfigIterConst(); i && !kelHasGone(); ++i ) handleDynVlanConfig( i.key() );
}

void DynVlanIntfConfigSm::handleDynVlanConfig( const Quor::IntfId& id ) {
   const Quor::IntfId intfId( id );   // the caller's may go with what it stands in
   if( auto t = decision() ) t << " intf " << intfId;
   if( !initialized() || kelHasGone() ) return;
   const auto self = kept( this );
   Merge merge( parent() );
   if( !merge ) return;
   const SourcePriorityPair myPri = sourcePriority();
   const auto asked = requestOf( *this, intfId );
   if( !asked ) {
      if( merge.list().sourcePriority( intfId ) != myPri ) return merge.report( myPri.source(), intfId, false );
      if( auto t = decision() ) t << " del config for intf:" << intfId;
      return merge.reassign( myPri, myPri, intfId );
   }
   merge.mark( *asked, myPri.source() );
   // True once others may have decided on the interface meanwhile.
   bool again = requestOf( *this, intfId ) != asked;
   while( const auto config = requestOf( *this, intfId ) ) {
      if( !merge.isOwned( intfId ) ) {
         if( auto t = decision() ) t << " add config " << config->fullName();
         return merge.take( *this, intfId );
      }
      const SourcePriorityPair prevPri = merge.list().sourcePriority( intfId );
      KEL_ASSERT( component, !!prevPri );
      if( again && prevPri == myPri ) return;
      const bool isLower = myPri.isLowerPriority( prevPri );
      if( auto t = decision() ) t << "myPri < prevPri?" << " " << isLower << " " << prevPri << " " << myPri;
      if( isLower ) {
         merge.report( myPri.source(), intfId, true );
         if( auto t = decision() ) t << " keep prev config ";
         return;
      }
      if( auto t = decision() ) t << " replace prev config ";
      merge.displace( prevPri, *this, intfId );
      again = true;
   }
   merge.settle( intfId );
}

void DynVlanIntfConfigSm::handleDynVlanConfigAgain() {
   handleDynVlanConfig();
   const auto self = kept( this );
   Merge merge( parent() );
   if( !merge ) return;
   const auto isGone = [ this ]( const Quor::IntfId& intfId ) { return !kelHasGone() && !requestOf( *this, intfId ); };
   for( auto i = merge.list().sourcePriorityIterConst(); i; ++i ) {
      if( i.value() == sourcePriority() && isGone( i.key() ) ) handleDynVlanConfig( i.key() );
   }
   const auto reports = merge.reportsOf( sourcePriority().source() );
   if( !reports ) return;
   for( auto i = reports->vlanIntfConfigErrorIterConst(); i; ++i ) {
      if( isGone( i.key() ) ) handleDynVlanConfig( i.key() );
   }
}

void DynVlanIntfConfigSm::setAlternateInput( const SourcePriorityPair& skip, const Quor::IntfId& intfId, bool prevError ) {
   if( Merge merge( parent() ); merge ) merge.setAlternate( skip, intfId, prevError );
}

void DynVlanIntfConfigSm::addOrDeleteIntfConfigError( const Kel::Name& source, const Quor::IntfId& intfId, bool add ) {
   if( Merge merge( parent() ); merge ) merge.report( source, intfId, add );
}

void DynVlanIntfConfigSm::cleanup() {
   const auto self = kept( this );
   const SourcePriorityPair myPri = sourcePriority();
   if( auto t = decision() ) t << " source: " << myPri;
   if( Merge merge( parent() ); merge ) {
      Merge::IntfIds settled;
      for( auto i = merge.list().intfConfigIterConst(); i && parent(); ++i ) {
         KEL_ASSERT( component, !!parent()->dynVlanIntfList()->sourcePriority( i.key() ) );
         merge.reassign( merge.list().sourcePriority( i.key() ), myPri, i.key() );
         if( merge.list().sourcePriority( i.key() ).source() == myPri.source() ) settled.push_back( i.key() );
      }
      std::sort( settled.begin(), settled.end() );
      merge.reconcile( myPri.source(), &myPri, settled );
   }
   initializedIs( false );
}

// --- its priority

void DynVlanIntfConfigPrioritySm::handleConfigPriority() {
   const auto self = kept( this );
   DynVlanIntfReactor* const reactor = parent();
   const auto keptReactor = kept( reactor );
   const auto requests = dynVlanConfig();
   const auto machine = reactor && requests ? machineOf( *reactor, name() ) : nullptr;
   if( !machine ) return;
   SourcePriorityPair key = machine->sourcePriority();
   if( key.priority() == requests->configPriority() ) {
      if( auto t = decision() ) t << " no change from previous priority " << key.priority();
      return;
   }
   // It may change again while the source is merged at the new one.
   while( parent() && key.priority() != requests->configPriority() ) {
      const SourcePriorityPair next( name(), requests->configPriority() );
      if( isInTheWay( *reactor, next ) ) return;
      if( auto t = decision() ) t << " replace previous priority " << key.priority() << " with new priority " << next.priority();
      reactor->newDynVlanIntfConfigSm( next, requests );
      dropMachines( *reactor, name(), requests, &next );
      key = next;
   }
   const auto made = reactor->dynVlanIntfConfigSm( key );
   if( parent() && made && !made->kelHasGone() ) return;
   // The source was taken away meanwhile, with only one of its two machines, and may have come back; or its priority went back
   // and forth while the machine for it was being let go.
   if( requestsOf( *reactor, name() ) != requests ) dropMachines( *reactor, name(), requests, nullptr );
   reactor->handleDynVlanIntfDir( name() );
}

// --- all sources

void DynVlanIntfReactor::handleLaunch() { launchedByVantaIs( static_cast< bool >( dynVlanIntfErrorDir() ) ); }

void DynVlanIntfReactor::handleInitialized() {
   if( auto t = decision() ) t << " launched by Vanta? : " << launchedByVanta();
   KEL_ASSERT( component, dynVlanIntfList() );
   initializedIs( true );
   handleDynVlanIntfDir();
}

void DynVlanIntfReactor::handleDynVlanIntfDir() {
   entry();
   const auto self = kept( this );
   const auto sources = dynVlanIntfDir();
   if( !sources ) return;
   for( auto i = sources->entryIterConst(); i; ++i ) handleDynVlanIntfDir( i.key() );
   for( auto i = dynVlanIntfConfigPrioritySmIterConst(); i; ++i ) {
      if( !sources->entry( i.key() ) ) handleDynVlanIntfDir( i.key() );
   }
}

void DynVlanIntfReactor::handleDynVlanIntfDir( const Kel::Name& of ) {
   const Kel::Name name( of );   // the caller's may go with what it stands in
   if( auto t = decision() ) t << " source " << name;
   if( !initialized() ) return;
   const auto self = kept( this );
   const auto requests = requestsOf( *this, name );
   const auto machine = machineOf( *this, name );
   const auto former = dynVlanIntfConfigPrioritySm( name );
   // A directory may have been replaced before its end was heard of here; then the old one goes first.
   if( !requests || ( machine && machine->dynVlanConfig() != requests ) || ( former && former->dynVlanConfig() != requests ) ) {
      if( auto t = passage() ) t << "remove source " << name;
      dynVlanIntfConfigPrioritySmDel( name );
      if( machine ) dynVlanIntfConfigSmDel( machine->sourcePriority() );
      if( requestsOf( *this, name ) ) handleDynVlanIntfDir( name );
      return;
   }
   // A source that is known stays at its key until its priority machine has heard of a new priority.
   const SourcePriorityPair key( name, machine ? machine->sourcePriority().priority() : requests->configPriority() );
   if( auto t = passage() ) t << " add source " << name << " priority " << requests->configPriority();
   if( isInTheWay( *this, key ) ) return;
   newDynVlanIntfConfigSm( key, requests );
   if( requestsOf( *this, name ) != requests ) return;
   const auto priority = newDynVlanIntfConfigPrioritySm( name, requests );
   if( requests->configPriority() != key.priority() ) priority->handleConfigPriority();
}

void DynVlanIntfReactor::handleIntfConfigError( const Quor::IntfId& intfId ) {
   if( auto t = decision() ) t << " intf  " << intfId;
   const auto list = dynVlanIntfList();
   if( !initialized() || !list || !list->sourcePriorityMap_().contains( intfId ) ) return;
   const SourcePriorityPair sourcePri = list->sourcePriority( intfId );
   KEL_ASSERT( component, !!sourcePri );
   KEL_ASSERT( component, dynVlanIntfConfigSm( sourcePri ) );
   const auto machine = dynVlanIntfConfigSm( sourcePri );
   machine->addOrDeleteIntfConfigError( sourcePri.source(), intfId, list->intfConfigError( intfId ) );
}

void DynVlanIntfReactor::handleIntfConfigErrors() {
   const auto self = kept( this );
   const auto list = dynVlanIntfList();
   if( !list ) return;
   for( auto i = list->sourcePriorityIterConst(); i; ++i ) {
      // An interface that was never published stays with a source that has gone, and nobody is to be told.
      if( dynVlanIntfConfigSm( i.value() ) ) handleIntfConfigError( i.key() );
   }
}

void DynVlanIntfReactor::handleStandbyMode() {
   if( auto t = decision() ) t << " standbyMode " << standbyMode();
   if( !initialized() || standbyMode() || !launchedByVanta() ) return;
   const auto self = kept( this );
   for( auto i = dynVlanIntfConfigSmIterConst(); i; ++i ) {
      const auto machine = i.value();
      machine->handleDynVlanConfig();
   }
   const auto reports = dynVlanIntfErrorDir();
   Merge merge( this );
   if( !reports || !merge ) return;
   for( auto i = reports->entryIterConst(); i; ++i ) merge.reconcile( i.key(), nullptr, {} );
}

void DynVlanIntfReactor::cleanup() {
   entry();
   const auto self = kept( this );
   dynVlanIntfConfigPrioritySmDelAll();
   dynVlanIntfConfigSmDelAll();
   preIntfListDelAll();
}

// --- one owned interface

Quor::IntfId DynVlanIntfReactor::KelPreIntfListSm::intfId() const {
   const auto config = preIntfListSm();
   return config ? config->intfId() : Quor::IntfId();
}

void DynVlanIntfReactor::KelPreIntfListSm::handleInitialized() {
   entry();
   KEL_ASSERT( component, !!dynVlanIntfReactor()->dynVlanIntfList()->sourcePriority( intfId() ) );
   initializedIs( true );
   handleIntfConfigDynamicOrSource();
}

void DynVlanIntfReactor::KelPreIntfListSm::handleIntfConfigDynamicOrSource() {
   if( auto t = decision() ) t << " initialized:" << initialized() << " intf " << intfId();
   if( !initialized() ) return;
   const auto config = preIntfListSm();
   const auto list = dynVlanIntfReactor()->dynVlanIntfList();
   if( !config || !list || !config->dynamic() || config->source() == "cli" ) return;
   if( auto t = decision() ) t << "adding prelisted intf " << intfId() << " to dynVlanIntfList";
   KEL_ASSERT( component, !!dynVlanIntfReactor()->dynVlanIntfList()->sourcePriority( intfId() ) );
   list->intfConfigIs( dynVlanIntfReactor()->preIntfList( intfId() ) );
}

void DynVlanIntfReactor::KelPreIntfListSm::cleanup() {
   if( auto t = decision() ) t << "removing prelisted intf " << intfId();
   if( const auto list = dynVlanIntfReactor()->dynVlanIntfList() ) list->intfConfigDel( intfId() );
}

}
