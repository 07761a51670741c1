#include <kel/Hash.h>
#include <plexo/Format.h>
#include <plexo/RecordLayout.h>

namespace Plexo {

U64 RecordLayout::fingerprint() const noexcept {
   const U32 sizes[] = { recordBytes, keyOffset, keyBytes };
   const U32 low = Kel::murmur3( text.data(), text.size(), Kel::murmur3( sizes, sizeof sizes, 0 ) );
   const U32 high = Kel::murmur3( text.data(), text.size(), Kel::murmur3( sizes, sizeof sizes, 0x9e3779b9 ) );
   return U64( high ) << 32 | low;
}

void RecordLayout::check() const {
   const std::string what = "record layout " + std::string( text );
   if( recordBytes == 0 || recordBytes % 4 || recordBytes > Format::maxRecordBytes ) {
      throw Kel::RangeException( what + ": " + std::to_string( recordBytes ) + " bytes, must be a multiple of 4 from 4 to " +
                                 std::to_string( Format::maxRecordBytes ) );
   }
   if( keyBytes == 0 || keyOffset > recordBytes || keyBytes > recordBytes - keyOffset ) {
      throw Kel::RangeException( what + ": the key (" + std::to_string( keyBytes ) + " bytes at " + std::to_string( keyOffset ) +
                                 ") does not lie within the record" );
   }
   if( !hash ) throw Kel::RangeException( what + ": no hash function" );
}

}
