#pragma once

#include <cstddef>
#include <kel/Types.h>

/// The bytes of a ring file, the same in both word sizes; docs/rilo.md describes them. Programs use `Rilo` and `RiloReader`.
namespace Kel::RiloLayout {

inline constexpr U64 magic = 0x474e49524f4c4952; // "RILORING"
inline constexpr U32 formatVersion = 1;
inline constexpr U32 headerBytes = 4096;
inline constexpr U32 slotBytes = 256;
inline constexpr std::size_t payloadBytes = 224;
inline constexpr std::size_t maxProgramBytes = 63;
inline constexpr U32 maxSlots = 1u << 22;

/// The start of the file; the rest of its 4096 bytes is zero.
struct Header {
   alignas( 8 ) U64 magic;
   U32 formatVersion;
   U32 headerBytes;
   U32 slotBytes;
   U32 slots;
   U32 pid;
   U32 uid;
   alignas( 8 ) U64 processStart;
   alignas( 8 ) U64 openedAt;
   char program[ 64 ];
};

/// One message. `word` is 0 in a slot that never held one, else the low 30 bits of the sequence number, a bit that is 1, and
/// the busy bit, from the top.
struct Slot {
   alignas( 8 ) U32 word;
   U32 thread;
   alignas( 8 ) U64 sequence;
   alignas( 8 ) U64 time;
   U16 sourceBytes;
   U16 textBytes;
   U32 cut;
   char payload[ payloadBytes ];
};

inline constexpr U32 emptyWord = 0;
inline constexpr U32 busy = 1;
constexpr U32 wordOf( U64 sequence ) noexcept { return static_cast< U32 >( sequence ) << 2 | 2; }

static_assert( sizeof( Header ) == 112 && alignof( Header ) == 8 && sizeof( Header ) <= headerBytes );
static_assert( offsetof( Header, magic ) == 0 && offsetof( Header, formatVersion ) == 8 &&
               offsetof( Header, headerBytes ) == 12 );
static_assert( offsetof( Header, slotBytes ) == 16 && offsetof( Header, slots ) == 20 && offsetof( Header, pid ) == 24 );
static_assert( offsetof( Header, uid ) == 28 && offsetof( Header, processStart ) == 32 &&
               offsetof( Header, openedAt ) == 40 );
static_assert( offsetof( Header, program ) == 48 );
static_assert( sizeof( Slot ) == slotBytes && alignof( Slot ) == 8 );
static_assert( offsetof( Slot, word ) == 0 && offsetof( Slot, thread ) == 4 && offsetof( Slot, sequence ) == 8 );
static_assert( offsetof( Slot, time ) == 16 && offsetof( Slot, sourceBytes ) == 24 && offsetof( Slot, textBytes ) == 26 );
static_assert( offsetof( Slot, cut ) == 28 && offsetof( Slot, payload ) == 32 );

/// When a process started, in clock ticks since boot (proc(5), field 22 of /proc/PID/stat).
struct ProcessStart {
   enum class Known : U32 { yes, gone, hidden };
   Known known = Known::gone; ///< a zombie is gone; hidden: it exists, but its start can't be read
   U64 ticks = 0;
};
ProcessStart processStart( U32 pid ) noexcept;

}
