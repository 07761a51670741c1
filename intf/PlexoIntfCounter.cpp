#include <Vanta/PlexoIntfCounter.h>
#include <plexo/Exceptions.h>

namespace Interface {

using Plexo::Interface::AllIntfCounterDir;
using Plexo::Interface::IntfCounterKey;
using Plexo::Interface::IntfCounterRecord;

/// Has the view look at its row again. It outlives the view where that goes in the middle of a callback.
class PlexoIntfCounter::Follower : public AllIntfCounterDir::NotifieeConst {
 public:
   Follower( PlexoIntfCounter& view, const Kel::Ptr< const AllIntfCounterDir >& counterDir )
         : NotifieeConst( counterDir ), view_( &view ) {}
   void leave() {
      view_ = nullptr;
      deactivate();
   }

 protected:
   void onIntfCounter( const IntfCounterKey& key ) override {
      if( view_ && key == view_->key_ ) onIntfCounter();
   }
   void onIntfCounter() override {
      const Kel::Ptr< PlexoIntfCounter > held( view_ );   // its own reactors may let go of it
      if( held ) held->update();
   }
   void onZombie() override {
      deactivate();
      onIntfCounter();
   }

 private:
   PlexoIntfCounter* view_;
};

PlexoIntfCounter::PlexoIntfCounter( const Kel::Name& name, const Kel::Ptr< const AllIntfCounterDir >& counterDir,
                                    const Quor::IntfId& intfId )
      : VlanIntfCounter( name ), key_( intfId, Plexo::Interface::CounterNameInstance( name.str() ) ),
        follower_( new Follower( *this, counterDir ) ) {
   update();
}

PlexoIntfCounter::~PlexoIntfCounter() { follower_->leave(); }

IntfCounterRecord PlexoIntfCounter::row() const {
   const auto counterDir = follower_->notifier();
   if( !counterDir ) return IntfCounterRecord();
   try {
      return counterDir->intfCounter( key_ );
   } catch( const Plexo::CorruptionException& e ) {
      counterDir->intfCounterControl().corruptionDetected( e.what() );
      return IntfCounterRecord();
   }
}

void PlexoIntfCounter::update() {
   const IntfCounterRecord record = row();
   const bool exists = record != IntfCounterRecord();
   const IntfStatistics& all = record.statistics();
   // A reactor to one of these attributes may change the table, and so update the view: the later update is the one that counts.
   const Kel::U32 own = ++updates_;
   const auto set = [ this, own ]( auto setter, const auto& value ) {
      if( own == updates_ ) ( this->*setter )( value );
   };
   if( !exists ) set( &VlanIntfCounter::validIs, false );
   set( &IntfCounter::statisticsIs, all );
   set( &IntfCounter::discontinuityTimeIs, record.discontinuityTime() );
   set( &IntfCounter::statsUpdateTimeIs, record.statsUpdateTime() );
   set( &VlanIntfCounter::vlanStatisticsIs,
        VlanIntfStatistics( all.inUcastOctets(), all.inMulticastOctets(), all.outUcastOctets(), all.outMulticastOctets() ) );
   if( exists ) set( &VlanIntfCounter::validIs, true );
}

}
