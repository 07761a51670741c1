#pragma once

#include <IntfBase/IntfBase.h>

// What network management asks of an interface and its kind has to work out. A module registers a provider for the type of its status
// entities; whoever has a status finds the provider of its type, or of the nearest base that has one.
namespace [[gnu::visibility("default")]] Interface {

/// Interface types by their IANA number (the ifType registry of RFC 7224).
enum class IanaType : Kel::S32 {
   other = 1,
   ethernetCsmacd = 6,
   l2vlan = 135,
   l3ipvlan = 136,
   ieee8023adLag = 161,
};

/// Answers for the status entities of one type.
class IntfDetailsProvider {
 public:
   virtual ~IntfDetailsProvider();
   virtual IanaType ianaType( const IntfStatus& status ) const = 0;
   /// In bits per second; 0 while it is not known.
   virtual Kel::U64 speed( const IntfStatus& status ) const = 0;
   /// Whether the interface has a physical connector (RFC 2863, ifConnectorPresent).
   virtual bool connectorPresent( const IntfStatus& status ) const = 0;
   /// The interface's number in network management (RFC 2863, ifIndex); -1 for a status that the provider does not know.
   virtual Kel::S32 ifIndex( const IntfStatus& status ) const = 0;
};

/// The provider of `EthIntfStatus` and of every type derived from it that has no other: an Ethernet port as its status tells it.
class EthIntfDetailsProvider : public IntfDetailsProvider {
 public:
   IanaType ianaType( const IntfStatus& status ) const override;
   Kel::U64 speed( const IntfStatus& status ) const override;
   bool connectorPresent( const IntfStatus& status ) const override;
   Kel::S32 ifIndex( const IntfStatus& status ) const override;
};

/// Registers the provider of a type of status entity for the life of the process. A second one for the same type replaces the first, which
/// is returned to be put back if need be; null when there was none. A null provider takes the registration back.
const IntfDetailsProvider* intfDetailsProviderIs( const Kel::Type& statusType, const IntfDetailsProvider* provider );

/// The provider for a status; null when neither its type nor a base of it has one.
const IntfDetailsProvider* intfDetailsProvider( const IntfStatus& status );

}
