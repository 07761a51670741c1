#pragma once

#include <kel/Entity.h>
#include <kel/GenericIf.h>

namespace [[gnu::visibility("default")]] Kel {

/// A directory: references to entities of any type under names. It keeps them alive and is the parent of those that have none; an
/// entry that is replaced by another entity is announced as removed, then as added.
class Dir : public Entity {
 public:
   struct Attr_ : Entity::Attr_ {
      enum : U16 { entry = Entity::Attr_::count_, count_ };
   };
   using EntryMap = HashMap< Name, Ptr< Entity > >;
   using GenericIf_ = GenericIfOf< Dir >;
   static Type _Type;
   static Type& _fwkType() { return _Type; }
   Type& fwkType() const override { return _Type; }

   explicit Dir( Name name ) : Entity( std::move( name ) ) {}
   ~Dir() override;

   /// The entity under a name, or null.
   Ptr< Entity > entry( const Name& name ) const { return at( entry_, name, Ptr< Entity >() ); }
   /// The entity under a name as a `T`. Throws `FrameworkException` "Entity is the wrong type" when another one is there.
   template< class T >
   Ptr< T > entry( const Name& name ) const {
      const Ptr< Entity > found = entry( name );
      Ptr< T > typed = dynamicCast< T >( found );
      if( found && !typed ) throw FrameworkException( "Entity is the wrong type" );
      return typed;
   }
   /// Puts an entity under a name, its own or another. Throws `RangeException` for a null one, and for one that the directory
   /// stands in.
   void entryIs( const Name& name, const Ptr< Entity >& entity );
   void entryIs( const Ptr< Entity >& entity ) { entryIs( entity ? entity->name() : Name(), entity ); }
   Ptr< Entity > entryDel( const Name& name ) { return delFrom( Attr_::entry, entry_, name ); }
   void entryDelAll() { delAll( Attr_::entry, entry_ ); }
   void entryNotify( const Name& name ) { attrNotify( Attr_::entry, &name ); }
   std::size_t entries() const { return entry_.size(); }
   EntryMap::ConstIterator entryIterConst() const { return entry_.iterator(); }

   Ptr< Entity > child( const Name& name ) const override { return entry( name ); }

   class NotifieeConst : public Entity::NotifieeConst {
    public:
      explicit NotifieeConst( const Ptr< const Dir >& notifier ) { activate( notifier.ptr() ); }
      Ptr< const Dir > notifier() const { return static_cast< const Dir* >( notifierEntity() ); }
      virtual void onEntry( const Name& ) {}
      virtual void onEntry() {}
      virtual void onEntrykelImmediate() {}
      void dispatch( const Change& change ) override;
   };

 private:
   static const Attr attrs_[];
   EntryMap entry_;
};

Ptr< Dir > dirFactory( const Name& name );

}
