#pragma once

#include <kel/LogStream.h>
#include <kel/Type.h>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

// What has changed in an entity, by attribute and by collection key, with a revision each, so that whoever has seen a revision
// gets exactly the difference. State, not events: however often a key changes, its newest value is written once. The byte layout
// of a difference is docs/attribute-log.md.
namespace [[gnu::visibility("default")]] Kel {

class Entity;

class AttrLog {
 public:
   /// How many removed keys of one collection are remembered. A peer that has missed more gets the collection as a whole.
   static constexpr std::size_t maxTombstones = 4096;

   /// Marks everything that `entity` holds.
   explicit AttrLog( const Entity& entity );

   /// Advances with every mark.
   U64 revision() const { return revision_; }
   /// The revision up to which `take` has written.
   U64 takenRevision() const { return taken_; }
   bool dirty() const { return taken_ != revision_; }

   void attrDirty( U16 attr );
   /// `key` is of the collection's key type.
   void keyDirty( U16 attr, const void* key );

   /// Writes what has changed since the last `take`, and takes it as sent. Returns false, and writes nothing, when nothing has.
   bool take( LogOut& out );
   /// Writes what has changed since `revision`; everything for revision 0.
   void difference( U64 revision, LogOut& out ) const;

 private:
   struct Key {
      std::string bytes;   ///< in the attribute log's own form
      U64 revision;
      bool gone;
   };
   using Keys = std::list< Key >;   ///< oldest revision first

   struct Collection {
      Keys keys;
      std::unordered_map< std::string_view, Keys::iterator > byKey;
      std::size_t tombstones = 0;
      U64 floor = 0;   ///< the newest revision of a tombstone that was forgotten
   };

   /// The marks of one attribute: of a scalar the revision, of a collection those of its keys.
   struct Mark {
      U64 revision = 0;
      std::unique_ptr< Collection > collection;
   };

   bool isLogged( U16 attr ) const;
   void markAll();
   void mark( U16 attr, std::string bytes, bool gone );
   void forgetTombstones( Collection& collection );
   void writeCollection( U16 attr, const Collection* collection, U64 since, LogOut& out ) const;

   const Entity& entity_;
   std::vector< Mark > marks_;
   U64 revision_ = 0;
   U64 taken_ = 0;
};

/// The other side of an attribute log: applies differences to an entity. A difference comes from another process; one that is
/// malformed or does not fit the entity's type throws `RangeException`, and what stood before the fault in it has been applied.
class AttrLogProxy {
 public:
   explicit AttrLogProxy( Entity& entity, bool readOnly = false ) : entity_( entity ), readOnly_( readOnly ) {}

   /// Applies one difference. Throws `FrameworkException` "write-update from readonly proxy: " and the attribute's name when this
   /// proxy may only be read and the difference holds a change.
   void update( LogIn& in );
   /// The sender's revision that has been applied.
   U64 revision() const { return revision_; }

   /// How many references, and children that are made from references, wait for entities that are not there yet.
   std::size_t waiting() const { return waiting_.size(); }
   /// Tries those again, as every update does; call it when the tree around the entity has grown. Returns how many still wait.
   std::size_t resolve();

 private:
   /// An attribute, and the key in a collection in the log's form.
   using Place = std::pair< U16, std::string >;

   void apply( const Place& place, const Attr& row, LogIn& in );
   void setReference( U16 attr, const Attr& row, LogIn& in );
   Ptr< Entity > reference( const Attr& row, LogIn& in );
   void setScalar( U16 attr, const Attr& row, const void* value );
   void updateCollection( U16 attr, const Attr& row, LogIn& in );
   void setElement( U16 attr, const Attr& row, void* map, const void* key, LogIn& in );

   Entity& entity_;
   bool readOnly_;
   U64 revision_ = 0;
   std::map< Place, std::string > waiting_;   ///< what the log holds for a place that could not be filled
   bool isMissing_ = false;                   ///< the element at hand refers to an entity that is not there
};

}
