#include "DynVlanMerge.h"

#include <algorithm>
#include <kel/Dir.h>
#include <kel/Trace.h>

// An interface is unowned, or owned: it has an entry in the list's `sourcePriority`, and its owner's configuration stands in
// `preIntfList`. From there a reactor of its own publishes it in the list's `intfConfig` once it is marked as dynamic. So what is
// published is owned. Taking goes owner first, then configuration; giving back goes the other way.
//
// Every change of a list, a configuration or a directory of reports calls reactors of others, which may take away what is worked
// on: the request, its machine, the source, the reactor. Nothing is put off: the handlers of such changes run at once, in the
// middle of the step, and leave everything in order. So a step keeps what it works on, and behind each change it looks whether
// there is still something left to do.

namespace Vanta::DynVlan {

using Interface::VlanIntfConfig;
using Interface::VlanIntfConfigErrorDir;

namespace {

/// `handler` is the signature of the handler that a step belongs to, whoever calls it.
Kel::TraceStream trace( Kel::U32 level, const char* handler ) {
   return kelModuleVlanDynIntfSm::_defaultTraceHandle().at( level, component, handler );
}

}

Kel::TraceStream decision( std::source_location where ) { return trace( 8, where.function_name() ); }
Kel::TraceStream passage( std::source_location where ) { return trace( 6, where.function_name() ); }
void entry( std::source_location where ) {
   if( auto t = decision( where ) ) t << "";
}

Kel::Ptr< VlanIntfConfig > requestOf( const DynVlanIntfConfigSm& machine, const Quor::IntfId& intfId ) {
   const auto requests = machine.dynVlanConfig();
   return requests && !machine.kelHasGone() ? requests->intfConfig( intfId ) : nullptr;
}

Kel::Ptr< DynVlanIntfConfigSm > machineOf( const DynVlanIntfReactor& reactor, const Kel::Name& source,
                                           const SourcePriorityPair* skip ) {
   for( auto i = reactor.dynVlanIntfConfigSmIterConst(); i; ++i ) {
      if( i.key().source() == source && !( skip && i.key() == *skip ) && !i.value()->kelHasGone() ) return i.value();
   }
   return nullptr;
}

Merge::Merge( DynVlanIntfReactor* reactor )
   : reactor_( reactor ), kept_( kept( reactor ) ), list_( reactor ? reactor->dynVlanIntfList() : nullptr ) {}

void Merge::mark( VlanIntfConfig& config, const Kel::Name& source ) {
   if( reactor_->standbyMode() || !reactor_->launchedByVanta() ) return;
   config.dynamicIs( true );
   config.sourceIs( source );
}

void Merge::take( DynVlanIntfConfigSm& machine, const Quor::IntfId& intfId ) {
   const SourcePriorityPair owner = machine.sourcePriority();
   list_->sourcePriorityIs( intfId, owner );
   if( list_->sourcePriority( intfId ) != owner ) return;
   if( const auto config = requestOf( machine, intfId ) ) return reactor_->preIntfListIs( config );
   // Its source may have gone and come again, with another machine under the same key that has taken the interface itself.
   const auto current = reactor_->dynVlanIntfConfigSm( owner );
   if( !current || !requestOf( *current, intfId ) ) reassign( owner, owner, intfId );
}

/// Takes an interface from its owner. False when it has an owner afterwards, the same or another.
bool Merge::release( const Quor::IntfId& intfId, const SourcePriorityPair& owner ) {
   reactor_->preIntfListDel( intfId );
   if( list_->sourcePriority( intfId ) != owner || reactor_->preIntfListMap_().contains( intfId ) ) return false;
   list_->sourcePriorityDel( intfId );
   return !isOwned( intfId );
}

void Merge::reassign( const SourcePriorityPair& owner, const SourcePriorityPair& skip, const Quor::IntfId& intfId ) {
   const bool err = list_->intfConfigError( intfId );
   if( release( intfId, owner ) ) setAlternate( skip, intfId, err );
   else settle( intfId );
}

void Merge::displace( const SourcePriorityPair& owner, DynVlanIntfConfigSm& by, const Quor::IntfId& intfId ) {
   const bool prevError = list_->intfConfigError( intfId );
   const auto previous = reactor_->dynVlanIntfConfigSm( owner );
   const bool wasAsked = previous && requestOf( *previous, intfId );
   if( !release( intfId, owner ) || !requestOf( by, intfId ) ) return;
   report( by.sourcePriority().source(), intfId, prevError );
   if( !wasAsked || requestOf( *previous, intfId ) ) report( owner.source(), intfId, true );
}

void Merge::setAlternate( const SourcePriorityPair& skip, const Quor::IntfId& intfId, bool prevError ) {
   static constexpr char handler[] =
      "void Vanta::DynVlanIntfConfigSm::setAlternateInput(const Vanta::SourcePriorityPair&, const Quor::IntfId&, bool)";
   if( auto t = trace( 8, handler ) ) t << " skip: " << skip << "intf " << intfId;
   for( auto i = reactor_->dynVlanIntfConfigSmIterConst(); i; ++i ) {
      const auto config = i.key() == skip ? nullptr : requestOf( *i.value(), intfId );
      if( !config ) continue;
      if( auto t = trace( 8, handler ) ) t << "found alternate cfg " << config->fullName();
      const auto machine = i.value();
      const SourcePriorityPair owner = i.key();
      take( *machine, intfId );
      if( list_->sourcePriority( intfId ) == owner ) report( owner.source(), intfId, prevError );
      return;
   }
}

void Merge::settle( const Quor::IntfId& intfId ) {
   for( auto i = reactor_->dynVlanIntfConfigSmIterConst(); i; ++i ) {
      if( !requestOf( *i.value(), intfId ) ) continue;
      const auto best = i.value();
      if( list_->sourcePriority( intfId ) != i.key() ) best->handleDynVlanConfig( intfId );
      return;
   }
}

Kel::Ptr< VlanIntfConfigErrorDir > Merge::reportsOf( const Kel::Name& source ) const {
   const auto all = reactor_->dynVlanIntfErrorDir();
   return all ? Kel::dynamicCast< VlanIntfConfigErrorDir >( all->entry( source ) ) : nullptr;
}

void Merge::report( const Kel::Name& source, const Quor::IntfId& intfId, bool add ) {
   static constexpr char handler[] =
      "void Vanta::DynVlanIntfConfigSm::addOrDeleteIntfConfigError(const Kel::Name&, const Quor::IntfId&, bool)";
   static const Kel::String8 rejection( "Rejected: Higher priority config found" );
   if( reactor_->standbyMode() ) {
      if( auto t = trace( 8, handler ) ) t << " standbyMode: " << true;
      return;
   }
   const auto reports = reportsOf( source );
   if( !reports ) {
      if( auto t = trace( 8, handler ) ) t << " return no err dir intf " << intfId;
      return;
   }
   if( auto t = trace( 8, handler ) ) {
      t << ( add ? " add report for " : " del report for " ) << source << ", intf " << intfId;
   }
   if( add ) reports->vlanIntfConfigErrorIs( intfId, rejection );
   else reports->vlanIntfConfigErrorDel( intfId );
}

void Merge::reconcile( const Kel::Name& source, const SourcePriorityPair* skip, const IntfIds& settled ) {
   const auto reports = reportsOf( source );
   if( !reports || reactor_->standbyMode() ) return;
   const auto machine = machineOf( *reactor_, source, skip );
   const auto isWrong = [ & ]( const Quor::IntfId& intfId, bool isReported ) {
      const bool isDue = machine && requestOf( *machine, intfId ) &&
                         ( list_->sourcePriority( intfId ).source() != source || list_->intfConfigError( intfId ) );
      return isDue != isReported && !std::binary_search( settled.begin(), settled.end(), intfId );
   };
   for( auto i = reports->vlanIntfConfigErrorIterConst(); i; ++i ) {
      if( isWrong( i.key(), true ) ) report( source, i.key(), false );
   }
   const auto requests = machine ? machine->dynVlanConfig() : nullptr;
   if( !requests ) return;
   for( auto i = requests->intfConfigIterConst(); i; ++i ) {
      if( isWrong( i.key(), false ) ) report( source, i.key(), true );
   }
}

}
