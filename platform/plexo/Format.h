#pragma once

#include <cstddef>
#include <plexo/RecordLayout.h>
#include <string>

// Where everything stands in a table's file; docs/plexo-table.md explains it with a worked example.
namespace Plexo::Format {

inline constexpr U64 magic = 0x4c42544f58454c50;                        // the bytes "PLEXOTBL"
inline constexpr U32 version = 1;
inline constexpr U32 pageBytes = 4096;
inline constexpr U32 headerBytes = 2 * pageBytes;
inline constexpr U32 maxRecordBytes = 4032;
inline constexpr U32 slotHeadBytes = 8;
inline constexpr U32 bucketBytes = 64;
inline constexpr U32 bucketLanes = 12;
/// Records per bucket on average above which the index doubles.
inline constexpr U32 bucketLoad = 10;
inline constexpr U32 minBuckets = 16;
inline constexpr U32 minRing = 1024;
inline constexpr U32 maxRing = 1u << 18;
inline constexpr U32 maxRecords = 1u << 30;

/// Offsets in the header. Up to `writer` nothing changes during the life of the file.
namespace At {
inline constexpr U32 magic = 0;
inline constexpr U32 version = 8;
inline constexpr U32 headerBytes = 12;
inline constexpr U32 fingerprint = 16;
inline constexpr U32 tableId = 24;
inline constexpr U32 recordBytes = 32;
inline constexpr U32 keyOffset = 36;
inline constexpr U32 keyBytes = 40;
inline constexpr U32 slotBytes = 44;
inline constexpr U32 maxRecords = 48;
inline constexpr U32 slotCount = 52;
inline constexpr U32 ringEntries = 56;
inline constexpr U32 indexBuckets = 60;
inline constexpr U32 ringOffset = 64;
inline constexpr U32 slabOffset = 72;
inline constexpr U32 indexOffset = 80;
inline constexpr U32 fileBytes = 88;
inline constexpr U32 indexClasses = 96;
inline constexpr U32 hashSeed = 100;
inline constexpr U32 textBytes = 104;
inline constexpr U32 initialRecords = 108;
inline constexpr U32 writerInstance = 128;
inline constexpr U32 floor = 136;
inline constexpr U32 writerPid = 144;
inline constexpr U32 replaced = 148;
inline constexpr U32 indexWord = 192;
inline constexpr U32 head = 256;
inline constexpr U32 highWater = 264;
inline constexpr U32 liveRecords = 268;
inline constexpr U32 text = 1024;
inline constexpr U32 undo = pageBytes;
}
inline constexpr U32 maxTextBytes = pageBytes - At::text;

/// Offsets in the undo cell.
namespace Undo {
inline constexpr U32 slot = 0;                                          // slot number + 1, 0 before the first use
inline constexpr U32 sequence = 4;
inline constexpr U32 version = 8;
inline constexpr U32 record = 16;
}

/// Bits of a slot's sequence word; the rest counts changes.
namespace Sequence {
inline constexpr U32 busy = 1;
inline constexpr U32 live = 2;
inline constexpr U32 step = 4;
}

/// The sizes and offsets of one table. A process works with its own checked copy of them.
struct Geometry {
   U32 recordBytes = 0, keyOffset = 0, keyBytes = 0, slotBytes = 0;
   U32 initialRecords = 0, maxRecords = 0, slotCount = 0, ringEntries = 0;
   /// Buckets of the smallest index arena; there are `indexClasses` sizes, each twice the one before, and two arenas of each.
   U32 indexBuckets = 0, indexClasses = 0;
   U64 ringOffset = 0, slabOffset = 0, indexOffset = 0, fileBytes = 0;

   /// Throws `Kel::RangeException` when `initial` is 0, `max` is below it or the table does not fit this process's addresses.
   static Geometry of( const RecordLayout& layout, U32 initial, U32 max );

   U64 slotOffset( U32 slot ) const noexcept { return slabOffset + U64( slot ) * slotBytes; }
   U32 arenaBuckets( U32 arena ) const noexcept { return indexBuckets << ( arena >> 1 ); }
   U64 arenaBytes( U32 arena ) const noexcept { return U64( arenaBuckets( arena ) ) * bucketBytes; }
   U64 arenaOffset( U32 arena ) const noexcept;
   /// The smaller arena of the smallest class that holds `records` within the load limit.
   U32 arenaFor( U32 records ) const noexcept;

   friend bool operator==( const Geometry&, const Geometry& ) = default;
};

/// A private copy of a header.
struct Header {
   Geometry geometry;
   U64 magic = 0, fingerprint = 0, tableId = 0, writerInstance = 0, floor = 0, head = 0;
   U32 version = 0, hashSeed = 0, writerPid = 0, replaced = 0, indexWord = 0, highWater = 0, liveRecords = 0;
   std::string text;

   /// Takes the fields out of the first `pageBytes` bytes of a file.
   static Header decode( const std::byte* page );
   /// What is wrong with the static part for a file of `size` bytes, empty when nothing is.
   std::string fault( U64 size ) const;
   /// Why the file is none that a writer of this layout's record type may put another in the place of, empty when it is one:
   /// a table of that type in whatever layout and state. The rest of the header may be anything.
   std::string foreign( const RecordLayout& layout ) const;
   /// Why a process with this layout cannot share the table, empty when it can.
   std::string mismatch( const RecordLayout& layout ) const;
};

/// Stores the static part of a new table's header.
void encode( std::byte* base, const Geometry& geometry, const RecordLayout& layout, U64 tableId, U32 hashSeed );

}
