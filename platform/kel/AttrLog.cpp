#include <kel/AttrLog.h>

#include <kel/Entity.h>
#include <kel/GenericIf.h>
#include <kel/Path.h>
#include <unordered_set>

// Keys stand in order of their revision, oldest first, so that a difference is the tail of the list: its cost is that of what it
// holds. A key that changes again moves to the end.

namespace Kel {

namespace {

enum class Record : U8 { set = 0, gone = 1, end = 2, whole = 3, tail = 4 };

bool isCollection( const Attr& row ) {
   return row.kind == AttrKind::map || row.kind == AttrKind::childMap || row.kind == AttrKind::refMap ||
          row.kind == AttrKind::queue;
}

const char* memberOf( const Entity& entity, const Attr& row ) { return reinterpret_cast< const char* >( &entity ) + row.offset; }

std::string keyBytes( const Type& type, const void* key ) {
   LogOut out;
   write( type, key, out );
   return std::string( reinterpret_cast< const char* >( out.bytes().data() ), out.size() );
}

LogIn bytesOf( const std::string& text ) { return LogIn( { reinterpret_cast< const U8* >( text.data() ), text.size() } ); }

void writeReference( const Ptr< Entity >& entity, LogOut& out ) {
   out.string( entity ? entity->fullName().view() : std::string_view() );
}

// An optional child is there by its name, a reference by the full name of what it refers to.
void writeScalar( const Attr& row, const char* member, LogOut& out ) {
   if( row.kind == AttrKind::scalar ) return write( *row.type, member, out );
   const auto& entity = *reinterpret_cast< const Ptr< Entity >* >( member );
   if( row.kind == AttrKind::ref ) return writeReference( entity, out );
   out.string( entity ? entity->name().view() : std::string_view() );
}

// A child is there by its constructor parameters; its other attributes are in its own log.
void writeElement( const Attr& row, const void* element, LogOut& out ) {
   if( row.kind == AttrKind::map || row.kind == AttrKind::queue ) return write( *row.type, element, out );
   const auto& entity = *static_cast< const Ptr< Entity >* >( element );
   if( row.kind == AttrKind::refMap ) return writeReference( entity, out );
   const Type& type = *row.type;
   for( U16 i = 0; i < type.attrCount(); ++i ) {
      const Attr& parameter = type.attr( i );
      if( parameter.has( KelAttrIntrospectionFlags::constructorRole ) )
         writeScalar( parameter, memberOf( *entity, parameter ), out );
   }
}

}

AttrLog::AttrLog( const Entity& entity ) : entity_( entity ), marks_( entity.fwkType().attrCount() ) { markAll(); }

bool AttrLog::isLogged( U16 attr ) const {
   const Attr& row = entity_.fwkType().attr( attr );
   return row.has( KelAttrIntrospectionFlags::logged ) &&
          ( isCollection( row ) || row.kind == AttrKind::scalar || row.kind == AttrKind::ref || row.kind == AttrKind::child );
}

void AttrLog::markAll() {
   for( U16 attr = 0; attr < marks_.size(); ++attr ) attrDirty( attr );
}

void AttrLog::attrDirty( U16 attr ) {
   if( !isLogged( attr ) ) return;
   const Attr& row = entity_.fwkType().attr( attr );
   if( !isCollection( row ) ) {
      marks_[ attr ].revision = ++revision_;
      return;
   }
   if( !marks_[ attr ].collection ) marks_[ attr ].collection = std::make_unique< Collection >();
   const CollectionOps& ops = *row.extra.collection;
   OwnedValueIf key( *row.keyType, nullptr, false );
   for( bool more = ops.next( memberOf( entity_, row ), nullptr, key.storage() ); more;
        more = ops.next( memberOf( entity_, row ), key.object(), key.storage() ) ) {
      keyDirty( attr, key.object() );
   }
}

void AttrLog::keyDirty( U16 attr, const void* key ) {
   if( !isLogged( attr ) ) return;
   const Attr& row = entity_.fwkType().attr( attr );
   mark( attr, keyBytes( *row.keyType, key ), !row.extra.collection->find( memberOf( entity_, row ), key ) );
}

void AttrLog::mark( U16 attr, std::string bytes, bool gone ) {
   Mark& mark = marks_[ attr ];
   if( !mark.collection ) mark.collection = std::make_unique< Collection >();
   Collection& c = *mark.collection;
   mark.revision = ++revision_;
   auto at = c.byKey.find( bytes );
   if( at == c.byKey.end() ) {
      c.keys.push_back( { std::move( bytes ), revision_, false } );
      const auto last = std::prev( c.keys.end() );
      at = c.byKey.emplace( last->bytes, last ).first;
   } else {
      c.keys.splice( c.keys.end(), c.keys, at->second );
      at->second->revision = revision_;
   }
   Key& entry = *at->second;
   c.tombstones += static_cast< std::size_t >( gone ) - static_cast< std::size_t >( entry.gone );
   entry.gone = gone;
   if( c.tombstones > maxTombstones ) forgetTombstones( c );
}

// Half of them at a time, so that each removal pays for one step of the walk on average.
void AttrLog::forgetTombstones( Collection& c ) {
   for( auto i = c.keys.begin(); i != c.keys.end() && c.tombstones > maxTombstones / 2; ) {
      if( !i->gone ) {
         ++i;
         continue;
      }
      c.floor = i->revision;
      c.byKey.erase( i->bytes );
      i = c.keys.erase( i );
      --c.tombstones;
   }
}

bool AttrLog::take( LogOut& out ) {
   if( !dirty() ) return false;
   difference( taken_, out );
   taken_ = revision_;
   return true;
}

void AttrLog::difference( U64 since, LogOut& out ) const {
   out.u64( since );
   out.u64( revision_ );
   // References last: they may be to the entity's own children.
   for( const bool references : { false, true } ) {
      for( U16 attr = 0; attr < marks_.size(); ++attr ) {
         const Mark& mark = marks_[ attr ];
         const Attr& row = entity_.fwkType().attr( attr );
         if( references != ( row.kind == AttrKind::ref || row.kind == AttrKind::refMap ) ) continue;
         // Since nothing, a collection that was never filled is told too: the reader may hold one from before.
         if( since ? mark.revision <= since : !isLogged( attr ) ) continue;
         out.u16( attr );
         if( isCollection( row ) ) writeCollection( attr, mark.collection.get(), since, out );
         else writeScalar( row, memberOf( entity_, row ), out );
      }
   }
   out.u16( 0xffff );
}

void AttrLog::writeCollection( U16 attr, const Collection* collection, U64 since, LogOut& out ) const {
   const Attr& row = entity_.fwkType().attr( attr );
   const bool whole = since == 0 || ( collection && since < collection->floor );
   if( whole ) out.u8( static_cast< U8 >( Record::whole ) );
   if( row.kind == AttrKind::queue ) {
      // First, since it tells on which side of a queue that wraps an element stands.
      out.u8( static_cast< U8 >( Record::tail ) );
      out.u32( row.extra.collection->tail( memberOf( entity_, row ) ) );
   }
   if( collection ) {
      auto first = collection->keys.end();
      while( first != collection->keys.begin() && ( whole || std::prev( first )->revision > since ) ) --first;
      OwnedValueIf key( *row.keyType, nullptr, false );
      for( ; first != collection->keys.end(); ++first ) {
         LogIn in = bytesOf( first->bytes );
         read( *row.keyType, key.storage(), in );
         const void* element = row.extra.collection->find( memberOf( entity_, row ), key.object() );
         if( !element && whole ) continue;
         out.u8( static_cast< U8 >( element ? Record::set : Record::gone ) );
         out.raw( first->bytes.data(), first->bytes.size() );
         if( element ) writeElement( row, element, out );
      }
   }
   out.u8( static_cast< U8 >( Record::end ) );
}

// The entity that a reference names. One that is not there yet is no fault: other trees come in other differences.
Ptr< Entity > AttrLogProxy::reference( const Attr& row, LogIn& in ) {
   const std::string_view name = in.string();
   if( name.empty() ) return nullptr;
   const Ptr< Entity > found = entityAtFullName( entity_, name );
   if( !found ) isMissing_ = true;
   else if( !found->fwkType().derivesFrom( *row.type ) ) throw FrameworkException( "Entity is the wrong type" );
   return found;
}

void AttrLogProxy::setReference( U16 attr, const Attr& row, LogIn& in ) {
   const Ptr< Entity > found = reference( row, in );
   // One that may not be null is so only until it is set for the first time.
   if( found || !row.has( KelAttrIntrospectionFlags::nonNull ) ) entity_.attrIs( attr, &found );
}

// Fills one place from the log, or keeps what the log holds for it until the entities that it refers to are there.
void AttrLogProxy::apply( const Place& place, const Attr& row, LogIn& in ) {
   LogIn start = in;
   isMissing_ = false;
   if( isCollection( row ) ) {
      OwnedValueIf key( *row.keyType, nullptr, false );
      LogIn keyIn = bytesOf( place.second );
      read( *row.keyType, key.storage(), keyIn );
      setElement( place.first, row, const_cast< char* >( memberOf( entity_, row ) ), key.object(), in );
   } else {
      setReference( place.first, row, in );
   }
   if( !isMissing_ ) {
      waiting_.erase( place );
      return;
   }
   const std::size_t size = start.left() - in.left();
   waiting_[ place ] = std::string( reinterpret_cast< const char* >( start.raw( size ) ), size );
}

std::size_t AttrLogProxy::resolve() {
   const auto waiting = waiting_;
   for( const auto& [ place, bytes ] : waiting ) {
      // One that is refused, for an entity of another type is there now, is told once and waits no longer.
      waiting_.erase( place );
      LogIn in = bytesOf( bytes );
      apply( place, entity_.fwkType().attr( place.first ), in );
   }
   return waiting_.size();
}

void AttrLogProxy::update( LogIn& in ) {
   const Type& type = entity_.fwkType();
   const U64 since = in.u64();
   const U64 revision = in.u64();
   if( since && since != revision_ ) {
      throw RangeException( "a difference since revision " + std::to_string( since ) + " does not follow revision " +
                            std::to_string( revision_ ) );
   }
   for( U16 attr = in.u16(); attr != 0xffff; attr = in.u16() ) {
      if( attr >= type.attrCount() || !type.attr( attr ).has( KelAttrIntrospectionFlags::logged ) ) {
         throw RangeException( std::string( type.qualifiedName() ) + " logs no attribute number " + std::to_string( attr ) );
      }
      const Attr& row = type.attr( attr );
      if( readOnly_ ) throw FrameworkException( std::string( "write-update from readonly proxy: " ) + row.name );
      if( isCollection( row ) ) {
         updateCollection( attr, row, in );
      } else if( row.kind == AttrKind::child ) {
         const Name name( in.string() );
         const auto& current = *reinterpret_cast< const Ptr< Entity >* >( memberOf( entity_, row ) );
         if( current && current->name() != name ) entity_.delOptionalAt( attr );
         if( !name.empty() ) entity_.newOptionalAt( attr, name );
      } else if( row.kind == AttrKind::ref ) {
         apply( { attr, {} }, row, in );
      } else {
         OwnedValueIf value( *row.type, nullptr, false );
         read( *row.type, value.storage(), in );
         // A constructor parameter came with the entity; it can't differ.
         if( row.has( KelAttrIntrospectionFlags::writable ) ) setScalar( attr, row, value.object() );
      }
   }
   revision_ = revision;
   if( !waiting_.empty() ) resolve();
}

// A setter may store what it refuses. The sender holds such a value then, and so does its copy now: that is no fault of the difference.
void AttrLogProxy::setScalar( U16 attr, const Attr& row, const void* value ) {
   try {
      entity_.attrIs( attr, value );
   } catch( const RangeException& ) {
      if( !row.type->info().values->equal( memberOf( entity_, row ), value ) ) throw;
   }
}

namespace {

std::unordered_set< std::string > keysOf( const Attr& row, const void* map ) {
   std::unordered_set< std::string > keys;
   OwnedValueIf key( *row.keyType, nullptr, false );
   for( bool more = row.extra.collection->next( map, nullptr, key.storage() ); more;
        more = row.extra.collection->next( map, key.object(), key.storage() ) ) {
      keys.insert( keyBytes( *row.keyType, key.object() ) );
   }
   return keys;
}

}

// Of a collection that comes as a whole, what it no longer holds goes at the end: what stays is not disturbed.
void AttrLogProxy::updateCollection( U16 attr, const Attr& row, LogIn& in ) {
   const CollectionOps& ops = *row.extra.collection;
   void* map = const_cast< char* >( memberOf( entity_, row ) );
   OwnedValueIf key( *row.keyType, nullptr, false );
   std::unordered_set< std::string > stale;
   for( auto record = Record( in.u8() ); record != Record::end; record = Record( in.u8() ) ) {
      switch( record ) {
      case Record::whole:
         stale = keysOf( row, map );
         std::erase_if( waiting_, [ attr ]( const auto& place ) { return place.first.first == attr; } );
         break;
      case Record::tail:
         if( row.kind != AttrKind::queue ) throw RangeException( "a position in the attribute log of " + std::string( row.name ) + ", which is no queue" );
         ops.tailIs( entity_, attr, map, in.u32() );
         break;
      case Record::gone:
         read( *row.keyType, key.storage(), in );
         ops.erase( entity_, attr, map, key.object() );
         if( !waiting_.empty() ) waiting_.erase( { attr, keyBytes( *row.keyType, key.object() ) } );
         break;
      case Record::set:
         read( *row.keyType, key.storage(), in );
         if( row.kind == AttrKind::map || row.kind == AttrKind::queue ) setElement( attr, row, map, key.object(), in );
         else apply( { attr, keyBytes( *row.keyType, key.object() ) }, row, in );
         if( !stale.empty() ) stale.erase( keyBytes( *row.keyType, key.object() ) );
         break;
      default: throw RangeException( "unknown record in attribute log of " + std::string( row.name ) );
      }
   }
   for( const std::string& bytes : stale ) {
      LogIn keyIn = bytesOf( bytes );
      read( *row.keyType, key.storage(), keyIn );
      ops.erase( entity_, attr, map, key.object() );
   }
}

void AttrLogProxy::setElement( U16 attr, const Attr& row, void* map, const void* key, LogIn& in ) {
   const CollectionOps& ops = *row.extra.collection;
   if( row.kind == AttrKind::refMap ) {
      const Ptr< Entity > found = reference( row, in );
      if( isMissing_ ) return void( ops.erase( entity_, attr, map, key ) );
      if( !found && row.has( KelAttrIntrospectionFlags::nonNull ) ) entity_.nullRefused( attr );
      return ops.set( entity_, attr, map, key, &found );
   }
   if( row.kind != AttrKind::childMap ) {
      OwnedValueIf value( *row.type, nullptr, false );
      read( *row.type, value.storage(), in );
      if( row.keyAttr &&
          !row.keyType->info().values->equal( key, static_cast< const char* >( value.object() ) +
                                                      row.type->attr( static_cast< U16 >( row.keyAttr - 1 ) ).offset ) ) {
         throw RangeException( "an element of " + std::string( row.name ) + " does not carry the key that it stands under" );
      }
      return ( row.kind == AttrKind::queue ? ops.setBeforeTail : ops.set )( entity_, attr, map, key, value.object() );
   }
   std::vector< Ptr< GenericIf > > parameters;
   if( isNamedByKey( *row.type, *row.keyType ) ) parameters.push_back( new OwnedValueIf( *row.keyType, key, false ) );
   for( U16 i = 0; i < row.type->attrCount(); ++i ) {
      const Attr& parameter = row.type->attr( i );
      if( !parameter.has( KelAttrIntrospectionFlags::constructorRole ) ) continue;
      if( parameter.kind == AttrKind::ref ) {
         const Ptr< Entity > found = reference( parameter, in );
         parameters.push_back( found ? parameter.type->genericIf( found.ptr(), false ) : Ptr< GenericIf >() );
      } else {
         Ptr< OwnedValueIf > value( new OwnedValueIf( *parameter.type, nullptr, false ) );
         read( *parameter.type, value->storage(), in );
         parameters.push_back( value );
      }
   }
   if( isMissing_ ) return;
   if( parameters.empty() ) parameters.push_back( new OwnedValueIf( *row.keyType, key, false ) );
   if( !parameters[ 0 ] || &parameters[ 0 ]->type() != row.keyType ||
       !row.keyType->info().values->equal( key, parameters[ 0 ]->object() ) ) {
      throw RangeException( "a child of " + std::string( row.name ) + " does not carry the key that it stands under" );
   }
   std::vector< const GenericIf* > given;
   for( const auto& p : parameters ) given.push_back( p.ptr() );
   try {
      entity_.newChildAt( attr, given );
   } catch( const NameInUseException& ) {
      // The sender's is another one by now.
      ops.erase( entity_, attr, map, key );
      entity_.newChildAt( attr, given );
   }
}

}
