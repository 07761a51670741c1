#pragma once

#include <kel/Dir.h>
#include <kel/Machine.h>

// What Outside.kel speaks of.
namespace [[gnu::visibility("default")]] Outside {

class Mux : public Kel::Machine {
 public:
   struct Attr_ : Kel::Machine::Attr_ {
      enum : Kel::U16 { lower = Kel::Machine::Attr_::count_, count_ };
   };
   static Kel::Type _Type;
   explicit Mux( const Kel::Ptr< Kel::Dir >& lower ) : lower_( lower ) {}
   Kel::Ptr< Kel::Dir > lower() const { return lower_; }
   virtual Kel::U32 decapsulate( Kel::U32 frame ) { return frame; }

 private:
   static const Kel::Attr attrs_[];
   Kel::Ptr< Kel::Dir > lower_;
};

class IntfConfig : public Kel::Entity {
 public:
   struct Attr_ : Kel::Entity::Attr_ {
      enum : Kel::U16 { intfId = Kel::Entity::Attr_::count_, genId, count_ };
   };
   static Kel::Type _Type;
   IntfConfig( Kel::U32 intfId, Kel::U32 genId ) : Kel::Entity( Kel::keyName( intfId ) ), intfId_( intfId ), genId_( genId ) {}
   Kel::Type& fwkType() const override { return _Type; }
   Kel::U32 intfId() const { return intfId_; }
   Kel::U32 genId() const { return genId_; }

 private:
   static const Kel::Attr attrs_[];
   Kel::U32 intfId_;
   Kel::U32 genId_;
};

class IntfConfigDir : public Kel::Entity {
 public:
   struct Attr_ : Kel::Entity::Attr_ {
      enum : Kel::U16 { intfConfig = Kel::Entity::Attr_::count_, count_ };
   };
   using IntfConfigMap_ = Kel::HashMap< Kel::U32, Kel::Ptr< IntfConfig > >;
   static Kel::Type _Type;
   explicit IntfConfigDir( const Kel::Name& name ) : Kel::Entity( name ) {}
   Kel::Type& fwkType() const override { return _Type; }
   Kel::Ptr< IntfConfig > intfConfig( Kel::U32 key ) const { return at( intfConfig_, key, Kel::Ptr< IntfConfig >() ); }
   Kel::Ptr< IntfConfig > newIntfConfig( Kel::U32 intfId, Kel::U32 genId ) { return kelNewIntfConfig( intfId, genId ); }
   virtual Kel::Ptr< IntfConfig > kelNewIntfConfig( Kel::U32 intfId, Kel::U32 genId ) {
      return newChild< IntfConfig >( Attr_::intfConfig, intfConfig_, intfId, { &intfId, &genId }, intfId, genId );
   }
   Kel::Ptr< IntfConfig > intfConfigDel( Kel::U32 key ) { return delFrom( Attr_::intfConfig, intfConfig_, key ); }
   virtual void doGetIntf( Kel::U32 intfId, IntfConfig** const& config ) { *config = intfConfig( intfId ).ptr(); }

   class NotifieeConst : public Kel::Entity::NotifieeConst {
    public:
      NotifieeConst() = default;
      virtual void onIntfConfig() {}
      virtual void onIntfConfig( Kel::U32 ) {}
      virtual void onIntfConfigkelImmediate() {}
      void dispatch( const Kel::Change& change ) override;
   };

 protected:
   IntfConfigMap_& kelIntfConfig() { return intfConfig_; }

 private:
   static const Kel::Attr attrs_[];
   IntfConfigMap_ intfConfig_;
};

}
