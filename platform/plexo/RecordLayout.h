#pragma once

#include <plexo/Exceptions.h>
#include <string_view>

namespace [[gnu::visibility("default")]] Plexo {

/// What a table must know of its record type. A record is plain bytes whose layout is the same in every process: explicit
/// widths and offsets, no pointers, padding zero. It lives as long as the program (usually `constinit`).
struct RecordLayout {
   /// Multiple of 4, at most `Format::maxRecordBytes`.
   U32 recordBytes;
   /// Where the key stands in the record, and its size. Keys are equal when their bytes are.
   U32 keyOffset;
   U32 keyBytes;
   /// The key type's own hash, the same in every process. `key` is not aligned.
   U32 ( *hash )( const void* key );
   /// Every field with its type and offset, for example "Plexo::Bridging::PlexoFdbStatus{key.fid:U16@0,key.addr:EthAddr@2}".
   /// Two processes share a table exactly when their texts are equal; the text also stands in the table for people to read.
   std::string_view text;

   /// 64 bits of the text and the sizes.
   U64 fingerprint() const noexcept;
   /// Throws `Kel::RangeException` when sizes and offsets make no record.
   void check() const;
};

}
