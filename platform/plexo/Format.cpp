#include <bit>
#include <cstring>
#include <limits>
#include <plexo/Format.h>
#include <plexo/Shared.h>

namespace Plexo::Format {

namespace {

constexpr U64 roundUp( U64 v, U64 unit ) noexcept { return ( v + unit - 1 ) / unit * unit; }

U32 bucketsFor( U32 records ) noexcept {
   return std::bit_ceil( std::max( minBuckets, ( records + bucketLoad - 1 ) / bucketLoad ) );
}

/// Everything that follows from record layout and sizes.
Geometry derive( U32 recordBytes, U32 keyOffset, U32 keyBytes, U32 initial, U32 max ) noexcept {
   Geometry g;
   g.recordBytes = recordBytes;
   g.keyOffset = keyOffset;
   g.keyBytes = keyBytes;
   g.slotBytes = U32( roundUp( slotHeadBytes + recordBytes, 8 ) );
   g.initialRecords = initial;
   g.maxRecords = max;
   g.ringEntries = std::min( maxRing, std::max( minRing, std::bit_ceil( max ) ) );
   // An erased slot rests until its journal entry has left the ring, so a full table may have that many more of them.
   g.slotCount = max + g.ringEntries;
   g.indexBuckets = bucketsFor( initial );
   g.indexClasses = U32( std::bit_width( bucketsFor( max ) / g.indexBuckets ) );
   g.ringOffset = headerBytes;
   g.slabOffset = g.ringOffset + roundUp( U64( g.ringEntries ) * 4, pageBytes );
   g.indexOffset = g.slabOffset + roundUp( U64( g.slotCount ) * g.slotBytes, pageBytes );
   g.fileBytes = roundUp( g.arenaOffset( g.indexClasses * 2 ), pageBytes );
   return g;
}

U32 word( const std::byte* page, U32 at ) noexcept {
   U32 v;
   std::memcpy( &v, page + at, sizeof v );
   return v;
}

U64 wide( const std::byte* page, U32 at ) noexcept {
   U64 v;
   std::memcpy( &v, page + at, sizeof v );
   return v;
}

std::string number( U64 v ) { return std::to_string( v ); }

constexpr char noTable[] = "it is no table: its first 8 bytes are not PLEXOTBL";

std::string otherVersion( U32 version ) {
   return "its format is " + number( version ) + ", this library knows " + number( Format::version );
}

/// The qualified name of the record's type, which its layout's text begins with.
std::string typeName( std::string_view text ) { return std::string( text.substr( 0, text.find( '{' ) ) ); }

}

U64 Geometry::arenaOffset( U32 arena ) const noexcept {
   const U32 size = arena >> 1;
   const U64 before = 2 * U64( indexBuckets ) * ( ( U64( 1 ) << size ) - 1 );
   return indexOffset + ( before + ( arena & 1 ) * ( U64( indexBuckets ) << size ) ) * bucketBytes;
}

U32 Geometry::arenaFor( U32 records ) const noexcept {
   U32 size = 0;
   while( size + 1 < indexClasses && ( U64( indexBuckets ) << size ) * bucketLoad < records ) ++size;
   return size * 2;
}

Geometry Geometry::of( const RecordLayout& layout, U32 initial, U32 max ) {
   layout.check();
   if( initial == 0 ) throw Kel::RangeException( "initial number of records is 0, must be at least 1" );
   if( max < initial ) {
      throw Kel::RangeException( "maximum number of records " + number( max ) + " is below the initial number " +
                                 number( initial ) );
   }
   if( max > Format::maxRecords ) {
      throw Kel::RangeException( "maximum number of records " + number( max ) + " is above " + number( Format::maxRecords ) );
   }
   const Geometry g = derive( layout.recordBytes, layout.keyOffset, layout.keyBytes, initial, max );
   if( g.fileBytes > std::numeric_limits< std::size_t >::max() / 2 ) {
      throw Kel::RangeException( "a table of " + number( max ) + " records takes " + number( g.fileBytes ) +
                                 " bytes of addresses, more than this process has" );
   }
   return g;
}

Header Header::decode( const std::byte* page ) {
   Header h;
   h.magic = wide( page, At::magic );
   h.version = word( page, At::version );
   h.fingerprint = wide( page, At::fingerprint );
   h.tableId = wide( page, At::tableId );
   Geometry& g = h.geometry;
   g.recordBytes = word( page, At::recordBytes );
   g.keyOffset = word( page, At::keyOffset );
   g.keyBytes = word( page, At::keyBytes );
   g.slotBytes = word( page, At::slotBytes );
   g.maxRecords = word( page, At::maxRecords );
   g.slotCount = word( page, At::slotCount );
   g.ringEntries = word( page, At::ringEntries );
   g.indexBuckets = word( page, At::indexBuckets );
   g.ringOffset = wide( page, At::ringOffset );
   g.slabOffset = wide( page, At::slabOffset );
   g.indexOffset = wide( page, At::indexOffset );
   g.fileBytes = wide( page, At::fileBytes );
   g.indexClasses = word( page, At::indexClasses );
   g.initialRecords = word( page, At::initialRecords );
   h.hashSeed = word( page, At::hashSeed );
   h.writerInstance = wide( page, At::writerInstance );
   h.floor = wide( page, At::floor );
   h.writerPid = word( page, At::writerPid );
   h.replaced = word( page, At::replaced );
   h.indexWord = word( page, At::indexWord );
   h.head = wide( page, At::head );
   h.highWater = word( page, At::highWater );
   h.liveRecords = word( page, At::liveRecords );
   const U32 textBytes = std::min( word( page, At::textBytes ), maxTextBytes );
   h.text.assign( reinterpret_cast< const char* >( page + At::text ), textBytes );
   return h;
}

std::string Header::fault( U64 size ) const {
   if( magic != Format::magic ) return noTable;
   if( version != Format::version ) return otherVersion( version );
   const Geometry& g = geometry;
   const bool sane = g.recordBytes > 0 && g.recordBytes % 4 == 0 && g.recordBytes <= maxRecordBytes && g.keyBytes > 0 &&
                     g.keyOffset <= g.recordBytes && g.keyBytes <= g.recordBytes - g.keyOffset && g.initialRecords > 0 &&
                     g.initialRecords <= g.maxRecords && g.maxRecords <= Format::maxRecords;
   if( !sane || g != derive( g.recordBytes, g.keyOffset, g.keyBytes, g.initialRecords, g.maxRecords ) ) {
      return "the sizes and offsets in its header contradict each other";
   }
   if( size < g.fileBytes ) return "it has " + number( size ) + " bytes where its header needs " + number( g.fileBytes );
   if( g.fileBytes > std::numeric_limits< std::size_t >::max() / 2 ) {
      return "its " + number( g.fileBytes ) + " bytes are more than this process can map";
   }
   return {};
}

std::string Header::foreign( const RecordLayout& layout ) const {
   if( magic != Format::magic ) return noTable;
   if( version > Format::version ) return otherVersion( version );
   if( fingerprint == layout.fingerprint() || typeName( text ) == typeName( layout.text ) ) return {};
   return "its records are of the type \"" + typeName( text ) + "\" where this program's are of \"" + typeName( layout.text ) +
          '"';
}

std::string Header::mismatch( const RecordLayout& layout ) const {
   if( fingerprint == layout.fingerprint() && geometry.recordBytes == layout.recordBytes &&
       geometry.keyOffset == layout.keyOffset && geometry.keyBytes == layout.keyBytes ) {
      return {};
   }
   return "its records are \"" + text + "\" where this program's are \"" + std::string( layout.text ) + "\"";
}

void encode( std::byte* base, const Geometry& g, const RecordLayout& layout, U64 tableId, U32 hashSeed ) {
   const std::pair< U32, U32 > words[] = {
      { At::version, Format::version }, { At::headerBytes, Format::headerBytes }, { At::recordBytes, g.recordBytes },
      { At::keyOffset, g.keyOffset }, { At::keyBytes, g.keyBytes }, { At::slotBytes, g.slotBytes },
      { At::maxRecords, g.maxRecords }, { At::slotCount, g.slotCount }, { At::ringEntries, g.ringEntries },
      { At::indexBuckets, g.indexBuckets }, { At::indexClasses, g.indexClasses }, { At::hashSeed, hashSeed },
      { At::initialRecords, g.initialRecords },
   };
   for( const auto& [ at, v ] : words ) SharedStore::word32( base + at, v );
   const std::pair< U32, U64 > wides[] = {
      { At::fingerprint, layout.fingerprint() }, { At::tableId, tableId }, { At::ringOffset, g.ringOffset },
      { At::slabOffset, g.slabOffset }, { At::indexOffset, g.indexOffset }, { At::fileBytes, g.fileBytes },
   };
   for( const auto& [ at, v ] : wides ) SharedStore::word64( base + at, v );
   std::string text( layout.text.substr( 0, maxTextBytes ) );
   SharedStore::word32( base + At::textBytes, U32( text.size() ) );
   text.resize( std::size_t( roundUp( text.size(), 4 ) ) );
   SharedStore::bytes( base + At::text, text.data(), text.size() );
   SharedStore::release64( base + At::magic, Format::magic );
}

}
