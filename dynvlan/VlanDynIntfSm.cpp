#include <Vanta/VlanDynIntfSm.h>

#include <algorithm>
#include <kel/Assert.h>
#include <kel/Trace.h>
#include <source_location>
#include <vector>

// An interface is unowned, or owned: it has an entry in the list's `sourcePriority` and its owner's configuration stands in `preIntfList`. From
// there a reactor of its own publishes it in the list's `intfConfig` once it is marked as dynamic. So what is published is owned. Taking goes
// owner first, then configuration; giving back goes the other way.
//
// Every change of a list, a configuration or a directory of reports calls reactors of others, which may take away what is worked on here: the
// request, its machine, the source, the reactor. Nothing is put off: the handlers of such changes run at once, in the middle of this one, and
// leave everything in order. So this one keeps what it works on, and behind each change it looks whether there is still something left to do.

namespace Vanta {

namespace {

using Interface::VlanIntfConfig;
using Interface::VlanIntfConfigDir;
using Interface::VlanIntfConfigErrorDir;

constexpr char component[] = "VlanDynIntfSm";

Kel::TraceStream trace( Kel::U32 level, const char* handler ) {
   return kelModuleVlanDynIntfSm::_defaultTraceHandle().at( level, component, handler );
}
/// A decision of the handler that calls this.
Kel::TraceStream decision( std::source_location where = std::source_location::current() ) { return trace( 8, where.function_name() ); }
/// No more than that a handler runs.
void entry( std::source_location where = std::source_location::current() ) {
   if( auto t = decision( where ) ) t << "";
}
/// A source comes or goes.
Kel::TraceStream passage( std::source_location where = std::source_location::current() ) { return trace( 6, where.function_name() ); }

/// Keeps a machine while one of its handlers runs. One that is being made or that goes has no references, and needs none.
template< class Machine >
Kel::Ptr< Machine > kept( Machine* machine ) {
   return machine && machine->referenceCount() ? machine : nullptr;
}

/// What a machine's source asks for an interface, or null. One that is being let go asks for nothing.
Kel::Ptr< VlanIntfConfig > requestOf( const DynVlanIntfConfigSm& machine, const Quor::IntfId& intfId ) {
   const auto requests = machine.dynVlanConfig();
   return requests && !machine.kelHasGone() ? requests->intfConfig( intfId ) : nullptr;
}

/// The first machine of a source, `skip` excepted, or null when the source is gone.
Kel::Ptr< DynVlanIntfConfigSm > machineOf( const DynVlanIntfReactor& reactor, const Kel::Name& source, const SourcePriorityPair* skip = nullptr ) {
   for( auto i = reactor.dynVlanIntfConfigSmIterConst(); i; ++i ) {
      if( i.key().source() == source && !( skip && i.key() == *skip ) && !i.value()->kelHasGone() ) return i.value();
   }
   return nullptr;
}

/// The requests of a source as its entry in the directory of sources has them, or null.
Kel::Ptr< VlanIntfConfigDir > requestsOf( const DynVlanIntfReactor& reactor, const Kel::Name& source ) {
   const auto sources = reactor.dynVlanIntfDir();
   return sources ? Kel::dynamicCast< VlanIntfConfigDir >( sources->entry( source ) ) : nullptr;
}

/// Lets the machines of a source over `requests` go, but for the one under `keep`. There is one, unless a re-keying was disturbed.
void dropMachines( DynVlanIntfReactor& reactor, const Kel::Name& source, const Kel::Ptr< VlanIntfConfigDir >& requests,
                   const SourcePriorityPair* keep ) {
   for( auto i = reactor.dynVlanIntfConfigSmIterConst(); i; ++i ) {
      if( i.key().source() != source || ( keep && i.key() == *keep ) || i.value()->kelHasGone() ) continue;
      if( i.value()->dynVlanConfig() == requests ) reactor.dynVlanIntfConfigSmDel( i.key() );
   }
}

using IntfIds = std::vector< Quor::IntfId >;

/// The steps that handlers have in common. It keeps the reactor and the list while it lives.
class Merge {
 public:
   explicit Merge( DynVlanIntfReactor* reactor )
      : reactor_( reactor ), kept_( kept( reactor ) ), list_( reactor ? reactor->dynVlanIntfList() : nullptr ) {}
   /// False when there is no reactor or no list any more.
   explicit operator bool() const { return static_cast< bool >( list_ ); }
   DynVlanIntfList& list() const { return *list_; }
   bool isOwned( const Quor::IntfId& intfId ) const { return list_->sourcePriorityMap_().contains( intfId ); }

   void mark( VlanIntfConfig& config, const Kel::Name& source );
   void take( DynVlanIntfConfigSm& machine, const Quor::IntfId& intfId );
   bool release( const Quor::IntfId& intfId, const SourcePriorityPair& owner );
   void reassign( const SourcePriorityPair& owner, const SourcePriorityPair& skip, const Quor::IntfId& intfId );
   void settle( const Quor::IntfId& intfId );
   void displace( const SourcePriorityPair& owner, DynVlanIntfConfigSm& by, const Quor::IntfId& intfId );
   void setAlternate( const SourcePriorityPair& skip, const Quor::IntfId& intfId, bool prevError );

   Kel::Ptr< VlanIntfConfigErrorDir > reportsOf( const Kel::Name& source ) const;
   void report( const Kel::Name& source, const Quor::IntfId& intfId, bool add );
   void reconcile( const Kel::Name& source, const SourcePriorityPair* skip, const IntfIds& settled );

 private:
   DynVlanIntfReactor* reactor_;
   Kel::Ptr< DynVlanIntfReactor > kept_;
   Kel::Ptr< DynVlanIntfList > list_;
};

void Merge::mark( VlanIntfConfig& config, const Kel::Name& source ) {
   if( reactor_->standbyMode() || !reactor_->launchedByVanta() ) return;
   config.dynamicIs( true );
   config.sourceIs( source );
}

/// Makes a machine the owner of an interface that has none.
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

/// Takes an interface from its owner and gives it to the best other source, `skip` excepted.
void Merge::reassign( const SourcePriorityPair& owner, const SourcePriorityPair& skip, const Quor::IntfId& intfId ) {
   const bool err = list_->intfConfigError( intfId );
   if( release( intfId, owner ) ) setAlternate( skip, intfId, err );
   else settle( intfId );
}

/// An interface was taken while it was between two owners, and its taker compared itself with nobody. Here the best source takes it from that one.
void Merge::settle( const Quor::IntfId& intfId ) {
   for( auto i = reactor_->dynVlanIntfConfigSmIterConst(); i; ++i ) {
      if( !requestOf( *i.value(), intfId ) ) continue;
      const auto best = i.value();
      if( list_->sourcePriority( intfId ) != best->sourcePriority() ) best->handleDynVlanConfig( intfId );
      return;
   }
}

/// Takes an interface from its owner, for another or for the same one once more. The new one inherits the report before the old one gets its
/// own, so a source that displaces itself is left with a report.
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
      take( *machine, intfId );
      if( list_->sourcePriority( intfId ) == machine->sourcePriority() ) report( machine->sourcePriority().source(), intfId, prevError );
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
   if( auto t = trace( 8, handler ) ) t << ( add ? " add report for " : " del report for " ) << source << ", intf " << intfId;
   if( add ) reports->vlanIntfConfigErrorIs( intfId, rejection );
   else reports->vlanIntfConfigErrorDel( intfId );
}

/// Brings the reports of a source in step with the merge: one for each interface that it asks for and does not own, one for each that it owns and
/// that could not be made, no others; none at all without a machine for the source (`skip` does not count). What is `settled`, in ascending
/// order, stays as it is.
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
      IntfIds settled;
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
      if( auto t = decision() ) t << " replace previous priority " << key.priority() << " with new priority " << next.priority();
      reactor->newDynVlanIntfConfigSm( next, requests );
      dropMachines( *reactor, name(), requests, &next );
      key = next;
   }
   const auto made = reactor->dynVlanIntfConfigSm( key );
   if( parent() && made && !made->kelHasGone() ) return;
   // The source was taken away meanwhile, with only one of its two machines, and may have come back; or its priority went back and forth while
   // the machine for it was being let go.
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
   if( auto t = passage() ) t << " add source " << name << " priority " << key.priority();
   // A machine in the way is being let go further up, where the source is looked at again then.
   if( const auto inTheWay = dynVlanIntfConfigSm( key ); inTheWay && inTheWay->kelHasGone() ) return;
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
   for( auto i = list->sourcePriorityIterConst(); i; ++i ) handleIntfConfigError( i.key() );
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
