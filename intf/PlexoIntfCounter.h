#pragma once

#include <Vanta/VlanIntf.h>

namespace [[gnu::visibility("default")]] Interface {

/// A view over one row of a table of counters in shared memory, which another process mostly writes.
///
/// The attributes are those of the row when the view is made, and again whenever the table announces the row or itself as a
/// whole: at once in the process that writes the table, in one that reads it when `intfCounterControl()` is dispatched. So they
/// can be followed with a reactor as any other counters can; a view that is kept where nobody dispatches the table stays as it
/// is, one that is made anew has the row as it is now. `vlanStatistics` are the octets of the row's `statistics`. `valid` says
/// whether there is a row: it becomes true after the other attributes have been set, and false before they go back to zero. A row
/// that a corruption hides counts as none; the table's control handle is told of the corruption.
///
/// The table may come later than the view. A writer that dies leaves the row as it was, still valid; `state()` of the control
/// handle says that nobody counts any more. The next writer's rows take its place once they are announced.
///
/// The view does not keep the table's directory, and is no longer valid once that is gone. Reflection shows it as a
/// `VlanIntfCounter`.
class PlexoIntfCounter : public VlanIntfCounter {
 public:
   /// `name` says which counters ("current"). Throws `RangeException` for one that tables don't have.
   PlexoIntfCounter( const Kel::Name& name, const Kel::Ptr< const Plexo::Interface::AllIntfCounterDir >& counterDir,
                     const Quor::IntfId& intfId );
   ~PlexoIntfCounter() override;

   Quor::IntfId intfId() const { return key_.intfId(); }

 private:
   class Follower;

   Plexo::Interface::IntfCounterRecord row() const;
   void update();

   const Plexo::Interface::IntfCounterKey key_;
   const Kel::Ptr< Follower > follower_;
   Kel::U32 updates_ = 0;
};

}
