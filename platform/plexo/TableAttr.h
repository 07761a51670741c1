#pragma once

#include <cstring>
#include <kel/Hash.h>
#include <plexo/TableControl.h>

// The typed table attribute of a generated entity. An entity with
//
//    plexoFdbStatus : table of PlexoFdbStatus by key;
//
// has a member `TableAttr< PlexoFdbStatus, HostKey > plexoFdbStatus_{ *this, Attr_::plexoFdbStatus }` and forwards to it.

namespace [[gnu::visibility("default")]] Plexo {

template< class Record, class Key >
class TableAttr;

/// A walk over a table attribute, in the table's own order. It tolerates every change of the table between two steps, meets a
/// record that stays throughout exactly once, and stands on a copy of its record. Making one and stepping throws
/// `CorruptionException`. It must not outlive its entity.
template< class Record, class Key >
class TableIterator {
 public:
   /// Stands at the end of no table.
   TableIterator() = default;
   explicit TableIterator( const TableAttr< Record, Key >& table ) : table_( &table ) { reset(); }

   /// False at the end.
   explicit operator bool() const noexcept { return valid_; }
   TableIterator& operator++() {
      if( valid_ ) step();
      return *this;
   }
   /// REQUIRES: not at the end.
   Key key() const {
      KEL_ASSERT( "Plexo/TableIterator", valid_ );
      return TableAttr< Record, Key >::keyOf( *table_, record_ );
   }
   /// The record as it was when the iterator came to it. REQUIRES: not at the end.
   const Record& value() const {
      KEL_ASSERT( "Plexo/TableIterator", valid_ );
      return record_;
   }
   /// The same, or null at the end.
   const Record* ptr() const noexcept { return valid_ ? &record_ : nullptr; }
   /// Goes back to the first record.
   void reset() {
      at_ = 0;
      if( table_ ) step();
   }

 private:
   friend TableAttr< Record, Key >;
   /// After an exception the iterator is at the end.
   void step() {
      valid_ = false;
      valid_ = table_->nextRecord( at_, &record_ );
   }

   const TableAttr< Record, Key >* table_ = nullptr;
   U32 at_ = 0;
   bool valid_ = false;
   Record record_;
};

/// A keyed table in shared memory as an attribute of an entity: one process writes it, others read and follow it. `Record` is a
/// fixed-size value type whose attribute named in the definition is its key.
template< class Record, class Key >
class TableAttr final : public TableControl {
   static_assert( std::is_trivially_copyable_v< Record > && std::is_trivially_copyable_v< Key >, "a record owns no memory" );
   static_assert( std::is_standard_layout_v< Record > && sizeof( Record ) % 4 == 0, "a record has a fixed layout" );
   static_assert( alignof( Record ) <= 4, "a record's layout is the same in both word sizes" );
   static_assert( std::has_unique_object_representations_v< Key >, "a key has no padding: keys are compared by their bytes" );

 public:
   using Iterator = TableIterator< Record, Key >;
   using ConstIterator = Iterator;
   using Value = Record;

   TableAttr( Kel::Entity& owner, U16 attr ) : TableControl( owner, attr, &hashKey ) {}

   /// What `<attr>Control()` gives, of a const entity too: reading processes report corruptions there.
   TableControl& control() const noexcept { return const_cast< TableAttr& >( *this ); }

   /// The record with this key, or the default record. Throws `CorruptionException`.
   Record at( const Key& key ) const {
      Record record;
      return findRecord( &key, &record ) ? record : Record();
   }
   std::size_t size() const noexcept { return records(); }
   Iterator iterator() const { return Iterator( *this ); }

   /// Inserts or overwrites the record under its key, and returns it. A record that stands there already is no change. Throws
   /// `TableFullException` and `AssertionException` (corrupted, or not the writer), as all writes do.
   Record is( const Record& value ) {
      Writer& table = writing();
      const Record stored = tidied( value );
      if( table.upsert( &stored ) != Outcome::unchanged ) changed( keyOf( *this, stored ) );
      return stored;
   }
   /// The same through direct mode.
   Record insert( const Record& value ) {
      *direct() = value;
      return commit( cell_ );
   }
   /// Begins direct mode: a default record to be filled in place. REQUIRES: not in direct mode.
   Record* direct() { return cell_ = ::new( writing().direct() ) Record(); }
   /// Ends direct mode: the record goes into the table. Throws `AssertionException` for anything else than `direct` gave.
   Record commit( const Record* record ) {
      Writer& table = writing();
      if( record && record == cell_ ) tidy( cell_ );
      const Outcome outcome = table.commit( record );
      const Record stored = *std::exchange( cell_, nullptr );
      if( outcome != Outcome::unchanged ) changed( keyOf( *this, stored ) );
      return stored;
   }

   /// Erases the record and returns it; the default record when there is none.
   Record del( const Key& key ) {
      const Key copy( key );
      Writer& table = writing();
      Record removed;
      try {
         if( !findRecord( &copy, &removed ) || !table.erase( &copy ) ) return Record();
      } catch( const CorruptionException& e ) {
         writeRefused( e );
      }
      changed( copy );
      return removed;
   }
   /// Erases the record under the iterator, which then stands on the erased place.
   Record del( const Iterator& at ) { return at ? del( at.key() ) : Record(); }
   /// Erases every record, each as `del` does. Readers are woken once.
   void delAll() {
      const WriterBatch batch( writing() );
      try {
         for( Iterator i = iterator(); i; ++i ) del( i );
      } catch( const CorruptionException& e ) {
         writeRefused( e );
      }
   }

   static Key keyOf( const TableAttr& table, const Record& record ) {
      Key key;
      std::memcpy( static_cast< void* >( &key ), table.TableControl::keyOf( &record ), sizeof key );
      return key;
   }

 private:
   friend Iterator;
   friend Kel::CollectionOpsOf< TableAttr >;

   static U32 hashKey( const void* bytes ) {
      Key key;
      std::memcpy( static_cast< void* >( &key ), bytes, sizeof key );
      return Kel::hashOf( key );
   }
   Record tidied( const Record& value ) const {
      Record copy;
      std::memcpy( static_cast< void* >( &copy ), &value, sizeof copy );
      tidy( &copy );
      return copy;
   }
   void changed( const Key& key );

   void onKey( const void* bytes ) override {
      Key key;                                                          // the notifiees may end the reader whose bytes these are
      std::memcpy( static_cast< void* >( &key ), bytes, sizeof key );
      const Kel::Ptr< const Kel::Entity > hold( &owner() );             // and may drop the last reference to the entity
      changed( key );
   }
   void onCollection() override {
      const Kel::Ptr< const Kel::Entity > hold( &owner() );
      owner().attrNotify( attr() );
   }

   Record* cell_ = nullptr;
};

}

/// A table attribute for code that has only its attribute row.
template< class Record, class Key_ >
struct Kel::CollectionOpsOf< Plexo::TableAttr< Record, Key_ > > {
   using Table = Plexo::TableAttr< Record, Key_ >;
   using Key = Key_;

   static void changed( Entity& owner, U16 attr, const Key_& key ) { owner.changedKey( attr, &key ); }

   static const Table& constTable( const void* table ) { return *static_cast< const Table* >( table ); }
   static std::size_t size( const void* table ) { return constTable( table ).size(); }
   /// Points to a copy that is good until this thread's next call.
   static const void* find( const void* table, const void* key ) {
      static thread_local Record record;
      return constTable( table ).findRecord( key, &record ) ? &record : nullptr;
   }
   /// A table has no order of keys, so the place of `after` is searched for unless it was the last one given.
   static bool next( const void* table, const void* after, void* keyOut ) {
      static thread_local struct {
         const void* table = nullptr;
         Key_ key{};
         typename Table::Iterator at;
      } walk;
      if( !after || walk.table != table || !( walk.key == *static_cast< const Key_* >( after ) ) ) {
         walk.at = constTable( table ).iterator();
         while( after && walk.at && !( walk.at.key() == *static_cast< const Key_* >( after ) ) ) ++walk.at;
         walk.table = table;
      }
      if( after ) ++walk.at;
      if( !walk.at ) {
         walk.table = nullptr;
         return false;
      }
      *static_cast< Key_* >( keyOut ) = walk.key = walk.at.key();
      return true;
   }
   static void set( Entity&, U16, void* table, const void*, const void* value ) {
      static_cast< Table* >( table )->is( *static_cast< const Record* >( value ) );
   }
   static bool erase( Entity&, U16, void* table, const void* key ) {
      auto& t = *static_cast< Table* >( table );
      if( !find( table, key ) ) return false;
      t.del( *static_cast< const Key_* >( key ) );
      return true;
   }
   static constexpr CollectionOps make() {
      Kel::CollectionOps ops{};
      ops.size = &size;
      ops.find = &find;
      ops.next = &next;
      ops.set = &set;
      ops.erase = &erase;
      return ops;
   }
};

namespace [[gnu::visibility("default")]] Plexo {

template< class Record, class Key >
void TableAttr< Record, Key >::changed( const Key& key ) {
   Kel::CollectionOpsOf< TableAttr >::changed( owner(), attr(), key );
}

/// The row of a table attribute. `keyAttr`: 1 + the index of the record's key attribute.
template< class Table >
constexpr Kel::Attr tableAttr( const char* name, std::size_t offset, U32 flags, U8 keyAttr ) {
   using Of = Kel::CollectionOpsOf< Table >;
   using Record = typename Table::Value;
   Kel::Attr row = Kel::attr< Record >( name, offset, flags );
   row.kind = Kel::AttrKind::table;
   row.keyType = &Kel::typeOf< typename Of::Key >();
   row.extra.collection = &Kel::collectionOps< Table >;
   row.keyAttr = keyAttr;
   return row;
}

/// The row of a table's control handle: registered, never created with the entity.
template< class Table >
constexpr Kel::Attr controlAttr( const char* name ) {
   Kel::Attr row = Kel::attr< typename Table::Value >( name, 0, Kel::KelAttrIntrospectionFlags::nonInstantiating );
   row.kind = Kel::AttrKind::control;
   return row;
}

}
