#pragma once

#include <Vanta/FdbStatusSm.h>
#include <functional>
#include <kel/Activity.h>
#include <string>

namespace Tool {

/// A table of learned hosts as a tree of entities. The tree holds what the table held when the connection was made, and follows
/// it while `wait` runs.
class FdbConnection {
 public:
   /// Throws `UsageError` for a name that no table can have. That there is no such table, or a foreign one, is a state.
   explicit FdbConnection( const std::string& table );

   const Kel::Ptr< Bridging::Status >& hosts() const { return hosts_; }
   Plexo::TableState state() const { return table_->plexoFdbStatusControl().state(); }
   /// Why the table is degraded; empty otherwise.
   const std::string& reason() const { return table_->plexoFdbStatusControl().reason(); }
   /// Called with each new state, before the changes that follow it.
   void stateHandlerIs( std::function< void() > handler );
   /// "table 'fdb' in /dev/shm/plexo".
   const std::string& description() const { return description_; }
   /// Whether everything that a table held has been taken over once.
   bool synced() const { return synced_; }

   /// Waits until the table has something new or `seconds` have passed (negative: without limit) and takes over a slice of it.
   /// False once a signal, or the end of whoever reads our output, asks to stop.
   bool wait( double seconds );

 private:
   class SyncReactor;

   std::string description_;
   Kel::Activity activity_;
   bool stopped_ = false;
   bool synced_ = false;
   Kel::SignalWatch signals_;
   Kel::Ptr< Plexo::Bridging::Status > table_;
   Kel::Ptr< Bridging::Status > hosts_;
   Kel::Ptr< Bridging::ReaderFdbStatusSm > reader_;
   Kel::Ptr< Plexo::Bridging::Status::NotifieeConst > sync_;
};

}
