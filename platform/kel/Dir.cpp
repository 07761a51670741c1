#include <kel/Dir.h>

#pragma GCC diagnostic ignored "-Winvalid-offsetof"

namespace Kel {

constinit const Attr Dir::attrs_[] = { collectionAttr< EntryMap >(
   "entry", AttrKind::refMap, offsetof( Dir, entry_ ),
   KelAttrIntrospectionFlags::logged | KelAttrIntrospectionFlags::notifies | KelAttrIntrospectionFlags::writable |
      KelAttrIntrospectionFlags::nonNull ) };

constinit Type Dir::_Type{
   { .qualifiedName = "Kel::Dir",
     .code = TypeCode::entity,
     .size = sizeof( Dir ),
     .attrs = attrs_,
     .base = &Entity::_Type,
     .firstAttr = Entity::Attr_::count_,
     .make = []( const void* const* p ) { return Ptr< Entity >( new Dir( *static_cast< const Name* >( p[ 0 ] ) ) ); },
     .takesName = true,
     .wrap = &makeGenericIf< Dir > }
};

Dir::~Dir() {
   // Others may go on holding what the directory was the parent of.
   for( auto i = entry_.iterator(); i; ++i ) giveAway( *i.value() );
}

void Dir::entryIs( const Name& name, const Ptr< Entity >& entity ) {
   if( !entity ) nullRefused( Attr_::entry );
   for( const Entity* e = this; e; e = e->parent() ) {
      if( entity == e )
         throw RangeException( "directory " + fullName().str() + " stands in " + e->name().str() + " and can't hold it" );
   }
   const Ptr< Entity > current = entry( name );
   if( current == entity ) return;
   if( current ) entryDel( name );
   if( !entity->parent() ) adopt( *entity );
   setIn( Attr_::entry, entry_, name, entity );
}

void Dir::NotifieeConst::dispatch( const Change& change ) {
   if( change.attr != Attr_::entry ) return Entity::NotifieeConst::dispatch( change );
   onEntrykelImmediate();
   if( change.key ) onEntry( *static_cast< const Name* >( change.key ) );
   else onEntry();
}

Ptr< Dir > dirFactory( const Name& name ) { return Ptr< Dir >( new Dir( name ) ); }

}
