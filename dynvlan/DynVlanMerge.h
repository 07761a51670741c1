#pragma once

#include <Vanta/VlanDynIntfSm.h>
#include <source_location>
#include <vector>

namespace Kel {
class TraceStream;
}

// What the machines of dynamic VLAN interfaces have in common.

namespace Vanta::DynVlan {

constexpr char component[] = "VlanDynIntfSm";

/// A trace line with a decision of the handler that calls this.
Kel::TraceStream decision( std::source_location where = std::source_location::current() );
/// A trace line for a source that comes or goes.
Kel::TraceStream passage( std::source_location where = std::source_location::current() );
/// A trace line that says no more than that a handler runs.
void entry( std::source_location where = std::source_location::current() );

/// Keeps a machine while one of its handlers runs. One that is being made or that goes has no references, and needs none.
template< class Machine >
Kel::Ptr< Machine > kept( Machine* machine ) {
   return machine && machine->referenceCount() ? machine : nullptr;
}

/// What a machine's source asks for an interface, or null. One that is being let go asks for nothing.
Kel::Ptr< Interface::VlanIntfConfig > requestOf( const DynVlanIntfConfigSm& machine, const Quor::IntfId& intfId );
/// The first machine of a source, `skip` excepted, or null when the source is gone.
Kel::Ptr< DynVlanIntfConfigSm > machineOf( const DynVlanIntfReactor& reactor, const Kel::Name& source,
                                           const SourcePriorityPair* skip = nullptr );

/// The steps that handlers have in common, for one reactor. It keeps the reactor and the list while it lives.
class Merge {
 public:
   using IntfIds = std::vector< Quor::IntfId >;

   explicit Merge( DynVlanIntfReactor* reactor );
   /// False when there is no reactor or no list any more.
   explicit operator bool() const { return static_cast< bool >( list_ ); }
   DynVlanIntfList& list() const { return *list_; }
   bool isOwned( const Quor::IntfId& intfId ) const { return list_->sourcePriorityMap_().contains( intfId ); }

   /// Marks what a source asks for as dynamic, where that is left to the reactor.
   void mark( Interface::VlanIntfConfig& config, const Kel::Name& source );
   /// Makes a machine the owner of an interface that has none.
   void take( DynVlanIntfConfigSm& machine, const Quor::IntfId& intfId );
   /// Takes an interface from its owner and gives it to the best other source, `skip` excepted.
   void reassign( const SourcePriorityPair& owner, const SourcePriorityPair& skip, const Quor::IntfId& intfId );
   /// Takes an interface from its owner, for another or for the same one once more. The new one inherits the report before the
   /// old one gets its own, so a source that displaces itself is left with a report.
   void displace( const SourcePriorityPair& owner, DynVlanIntfConfigSm& by, const Quor::IntfId& intfId );
   /// Gives an interface without an owner to the best source that asks for it, `skip` excepted, with the last owner's report.
   void setAlternate( const SourcePriorityPair& skip, const Quor::IntfId& intfId, bool prevError );
   /// An interface may have been taken while it was between two owners, and its taker compared itself with nobody. Here the best
   /// source takes it from that one.
   void settle( const Quor::IntfId& intfId );

   /// The directory with the reports of a source, or null.
   Kel::Ptr< Interface::VlanIntfConfigErrorDir > reportsOf( const Kel::Name& source ) const;
   /// Writes or withdraws a report, unless in standby.
   void report( const Kel::Name& source, const Quor::IntfId& intfId, bool add );
   /// Brings the reports of a source in step with the merge: one for each interface that it asks for and does not own, one for
   /// each that it owns and that could not be made, no others; none at all without a machine for the source (`skip` does not
   /// count). What is `settled`, in ascending order, stays as it is.
   void reconcile( const Kel::Name& source, const SourcePriorityPair* skip, const IntfIds& settled );

 private:
   bool release( const Quor::IntfId& intfId, const SourcePriorityPair& owner );

   DynVlanIntfReactor* reactor_;
   Kel::Ptr< DynVlanIntfReactor > kept_;
   Kel::Ptr< DynVlanIntfList > list_;
};

}
