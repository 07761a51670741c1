#include <Vanta/SubIntfDetails.h>
#include <Vanta/VantaIntfId.h>
#include <atomic>
#include <intfbase/IntfDetails.h>
#include <kel/Assert.h>
#include <kel/Dir.h>
#include <quor/EthIntfId.h>
#include <unordered_set>
#include <vector>

namespace Interface {

namespace {

using Quor::EthIntfId;
using Quor::PortChannelIntfId;
using Quor::SubIntfId;

constexpr char source[] = "SubIntf";
constexpr unsigned subIntfShift = 18;
constexpr unsigned moduleShift = 13;
/// The module that stands for port channels: one past the last of Ethernet ports.
constexpr Kel::U32 channelModule = 31;

/// The status of an interface in the status directories of `top`, but for `own`, and of the directories that stand in it.
Kel::Ptr< IntfStatus > statusBelow( const Kel::Dir& top, const Kel::Entity& own, const Quor::IntfId& intfId ) {
   std::vector< Kel::Ptr< const Kel::Dir > > dirs{ Kel::Ptr< const Kel::Dir >( &top ) };
   std::unordered_set< const Kel::Dir* > seen;   // one may stand there under several names
   for( std::size_t n = 0; n < dirs.size(); ++n ) {
      const Kel::Ptr< const Kel::Dir > dir = dirs[ n ];
      for( auto i = dir->entryIterConst(); i; ++i ) {
         const Kel::Ptr< Kel::Entity > entry = i.value();
         if( const auto statuses = dynamicCast< IntfStatusDirBase >( entry ); statuses && statuses.ptr() != &own ) {
            const auto found = dynamicCast< IntfStatus >( statuses->child( Kel::keyName( intfId ) ) );
            if( found && found->intfId() == intfId ) return found;
         } else if( const auto further = dynamicCast< Kel::Dir >( entry ); further && further->parent() == dir.ptr() ) {
            if( seen.insert( further.ptr() ).second ) dirs.push_back( further );
         }
      }
   }
   return nullptr;
}

class SubIntfDetailsProvider : public EthIntfDetailsProvider {
 public:
   IanaType ianaType( const IntfStatus& ) const override { return IanaType::l2vlan; }
   Kel::U64 speed( const IntfStatus& status ) const override;
   bool connectorPresent( const IntfStatus& ) const override { return false; }
   Kel::S32 ifIndex( const IntfStatus& status ) const override;

   std::atomic< Kel::S32 > base{ 0 };
};

SubIntfDetailsProvider& provider() {
   static SubIntfDetailsProvider& only = *new SubIntfDetailsProvider;   // registered for the life of the process
   return only;
}

[[gnu::constructor]] void registerProvider() { intfDetailsProviderIs( SubIntfStatus::_Type, &provider() ); }

Kel::U64 SubIntfDetailsProvider::speed( const IntfStatus& status ) const {
   const Kel::Entity* const statuses = status.parent();
   const auto* const dir = statuses ? dynamic_cast< const Kel::Dir* >( statuses->parent() ) : nullptr;
   if( !dir || !SubIntfId::isSubIntfId( status.intfId() ) ) return 0;
   const auto parent = statusBelow( *dir, *statuses, SubIntfId::parentIntfId( status.intfId() ) );
   const IntfDetailsProvider* const details = parent ? intfDetailsProvider( *parent ) : nullptr;
   return details ? details->speed( *parent ) : 0;
}

Kel::S32 SubIntfDetailsProvider::ifIndex( const IntfStatus& status ) const {
   if( !status.fwkType().derivesFrom( SubIntfStatus::_Type ) ) return -1;
   const Quor::IntfId& intfId = status.intfId();
   Kel::U32 index = 0;
   if( EthIntfId::isEthIntfId( intfId ) ) {
      const Kel::U32 subIntfNum = EthIntfId::subIntf( intfId ), module = EthIntfId::module( intfId );
      const Kel::U32 port = EthIntfId::port( intfId ), lane = EthIntfId::lane( intfId );
      KEL_ASSERT( source, subIntfNum <= 4094 );
      KEL_ASSERT( source, module <= 30 );
      KEL_ASSERT( source, lane <= 40 );
      KEL_ASSERT( source, port );
      if( lane ) KEL_ASSERT( source, port <= 204 );
      else KEL_ASSERT( source, port <= 8191 );
      index = subIntfNum << subIntfShift | module << moduleShift | ( lane ? ( port - 1 ) * 40 + lane : port );
   } else if( PortChannelIntfId::isPortChannelIntfId( intfId ) ) {
      const Kel::U32 subIntfNum = PortChannelIntfId::subIntf( intfId );
      KEL_ASSERT( source, subIntfNum <= 4094 );
      index = subIntfNum << subIntfShift | channelModule << moduleShift | PortChannelIntfId::portChannel( intfId );
   } else {
      KEL_ASSERT( source, 0 );
   }
   return static_cast< Kel::S32 >( index ) + base;
}

}

Kel::S32 subIntfIfIndexBase() { return provider().base; }

void subIntfIfIndexBaseIs( Kel::S32 base ) {
   if( base < 0 || base > subIntfIfIndexBaseMax ) {
      throw Kel::RangeException( "subIntfIfIndexBase < 0 or > " + std::to_string( subIntfIfIndexBaseMax ) + " not allowed" );
   }
   provider().base = base;
}

}
