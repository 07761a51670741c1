#pragma once

#include "Host.h"
#include <memory>
#include <string>

namespace Fdbd {

/// The forwarding database as entities (`Bridging::Status`), published in a table in shared memory.
class Publisher final : public HostSink {
 public:
   /// Entities alone; hosts may come already.
   Publisher();
   ~Publisher() override;

   /// Becomes the writer of the table and brings it in step with the entities: what an earlier run has left there and is no more
   /// is removed, what is still true is not touched. Throws `Kel::Exception`: the table has another writer, or can't be made.
   void open( const std::string& table, std::size_t capacity );

   /// Counts the frames of each VLAN, see `VlanCounting`, from now on. Throws `Kel::Exception`.
   void countVlans( const std::string& table, const std::string& snapshots );

   // These throw `Kel::Exception` once the table is open: it is full, or corrupted.
   void learned( HostId id, const Host& host ) override;
   void gone( HostId id ) override;
   void arrived( Vlan vlan, const Quor::EthAddr& destination, std::size_t octets ) override;
   void batchBegins() override;
   void batchEnds() override;

 private:
   struct State;
   std::unique_ptr< State > state_;
};

}
