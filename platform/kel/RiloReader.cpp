#include <kel/RiloReader.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <kel/Exception.h>
#include <kel/RiloLayout.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>

// The slots are copied with pread(2), a chunk at a time and each chunk three times. A slot counts only if its word is the
// same in all three copies and not busy: then nobody wrote it between the first copy and the last, so the middle one is
// whole. Every number in it is checked before it is used.
//
// A follower must not pass over a message whose writer was merely interrupted. A sequence number that is missing while its
// slot does not hold a later one may still come: reading stops before it once, and goes on at the next call whatever became
// of it.

namespace Kel {

using namespace RiloLayout;

namespace {

constexpr std::size_t chunkSlots = 256;
constexpr std::size_t maxFiles = 65536;
constexpr U64 maxSequence = U64( 1 ) << 62;

using Chunk = std::array< Slot, chunkSlots >;

/// How many whole slots were read.
std::size_t readChunk( int fd, U32 first, std::size_t count, Chunk& chunk ) {
   const auto offset = static_cast< off_t >( headerBytes ) + static_cast< off_t >( first ) * slotBytes;
   const ssize_t n = ::pread( fd, chunk.data(), count * slotBytes, offset );
   return n > 0 ? static_cast< std::size_t >( n ) / slotBytes : 0;
}

/// Whether a copy that is known to be whole makes sense as the content of slot `index`.
bool plausible( const Slot& slot, U32 index, U32 slots ) {
   return slot.sequence != 0 && slot.sequence <= maxSequence && wordOf( slot.sequence ) == slot.word &&
          ( static_cast< U32 >( slot.sequence - 1 ) & ( slots - 1 ) ) == index &&
          std::size_t( slot.sourceBytes ) + slot.textBytes <= payloadBytes;
}

RiloMessage messageOf( const Slot& slot ) {
   RiloMessage m;
   m.sequence = slot.sequence;
   m.time = slot.time;
   m.thread = slot.thread;
   m.cut = slot.cut != 0;
   m.source.assign( slot.payload, slot.sourceBytes );
   m.text.assign( slot.payload + slot.sourceBytes, slot.textBytes );
   return m;
}

}

struct RiloReader::Scan {
   std::vector< RiloMessage > messages; // ascending
   std::vector< U32 > words;            // of all slots

   /// The first number of [from, end of what was found) that is missing and may still come, but `except`; 0 if there is none.
   U64 mayStillCome( U64 from, U64 except ) const;
};

U64 RiloReader::Scan::mayStillCome( U64 from, U64 except ) const {
   if( messages.empty() ) return 0;
   const U64 newest = messages.back().sequence;
   from = std::max( from, newest - std::min< U64 >( newest - 1, words.size() - 1 ) );
   auto next = std::ranges::lower_bound( messages, from, {}, &RiloMessage::sequence );
   for( U64 q = from; q <= newest; ++q ) {
      if( next->sequence == q ) {
         ++next;
         continue;
      }
      const U32 word = words[ static_cast< U32 >( q - 1 ) & ( words.size() - 1 ) ];
      const bool overtaken = word != emptyWord && !( word & busy ) && static_cast< S32 >( word - wordOf( q ) ) >= 0;
      if( !overtaken && q != except ) return q;
   }
   return 0;
}

RiloReader::RiloReader( const std::string& path ) : path_( path ) {
   fd_ = UniqueFd( ::open( path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC ) );
   if( !fd_ ) throwErrno( "trace ring " + path + " can't be opened" );
   readHeader();
}

void RiloReader::refuse( const std::string& reason ) const { throw Exception( path_ + " is no trace ring: " + reason ); }

void RiloReader::readHeader() {
   struct stat status;
   if( ::fstat( fd_.get(), &status ) != 0 || !S_ISREG( status.st_mode ) ) refuse( "not a regular file" );
   Header h;
   if( ::pread( fd_.get(), &h, sizeof h, 0 ) != static_cast< ssize_t >( sizeof h ) ) refuse( "shorter than its header" );
   if( h.magic == 0 ) refuse( "it is still being made, or was never finished" );
   if( h.magic != magic ) refuse( "it begins with other bytes than RILORING" );
   if( h.formatVersion != formatVersion )
      refuse( "it has format version " + std::to_string( h.formatVersion ) + ", this program reads version " +
              std::to_string( formatVersion ) );
   if( h.headerBytes != headerBytes || h.slotBytes != slotBytes || !std::has_single_bit( h.slots ) || h.slots > maxSlots )
      refuse( "its sizes are impossible" );
   if( static_cast< U64 >( status.st_size ) < headerBytes + U64( h.slots ) * slotBytes )
      refuse( "it is cut short: " + std::to_string( status.st_size ) + " bytes for " + std::to_string( h.slots ) +
              " messages" );
   program_.assign( h.program, ::strnlen( h.program, sizeof h.program ) );
   pid_ = h.pid;
   processStart_ = h.processStart;
   openedAt_ = h.openedAt;
   slots_ = h.slots;
}

bool RiloReader::alive() const {
   const ProcessStart now = processStart( pid_ );
   return now.known == ProcessStart::Known::hidden || ( now.known == ProcessStart::Known::yes && now.ticks == processStart_ );
}

void RiloReader::scanSlots( U64 from, Scan& scan ) const {
   const auto copies = std::make_unique_for_overwrite< std::array< Chunk, 3 > >();
   auto& [ before, content, after ] = *copies;
   scan.words.assign( slots_, emptyWord );
   for( U32 first = 0; first < slots_; first += chunkSlots ) {
      std::size_t count = std::min< std::size_t >( chunkSlots, slots_ - first );
      for( Chunk& copy : *copies ) count = std::min( count, readChunk( fd_.get(), first, count, copy ) );
      for( std::size_t i = 0; i < count; ++i ) {
         const U32 index = first + static_cast< U32 >( i );
         const U32 word = after[ i ].word;
         scan.words[ index ] = word;
         const bool whole = !( word & busy ) && word == before[ i ].word && word == content[ i ].word;
         if( whole && plausible( content[ i ], index, slots_ ) && content[ i ].sequence >= from )
            scan.messages.push_back( messageOf( content[ i ] ) );
      }
   }
   std::ranges::sort( scan.messages, {}, &RiloMessage::sequence );
}

RiloBatch RiloReader::read( U64 from ) {
   const bool following = from != 0;
   from = std::clamp< U64 >( from, 1, maxSequence );
   const bool mayGrow = alive(); // asked first: what a process wrote before it died is all there
   Scan scan;
   scanSlots( from, scan );
   RiloBatch batch;
   batch.next = scan.messages.empty() ? from : scan.messages.back().sequence + 1;
   const U64 hole = following && mayGrow ? scan.mayStillCome( from, awaited_ ) : 0;
   awaited_ = hole;
   if( hole ) {
      batch.next = hole;
      std::erase_if( scan.messages, [ & ]( const RiloMessage& m ) { return m.sequence > hole; } );
   }
   batch.messages = std::move( scan.messages );
   batch.lost = batch.next - from - batch.messages.size();
   return batch;
}

std::string riloDirectory() {
   const char* set = ::secure_getenv( "RILO_DIR" );
   return set && *set ? set : "/dev/shm/rilo";
}

std::vector< std::string > riloFiles( const std::string& directory ) {
   std::vector< std::string > files;
   const std::unique_ptr< DIR, int ( * )( DIR* ) > dir( ::opendir( directory.c_str() ), ::closedir );
   while( const dirent* entry = dir && files.size() < maxFiles ? ::readdir( dir.get() ) : nullptr )
      if( entry->d_name[ 0 ] != '.' ) files.push_back( directory + '/' + entry->d_name );
   std::ranges::sort( files );
   return files;
}

namespace RiloLayout {

namespace {

/// The 0-based word `index` of `text`, as a number.
bool number( std::string_view text, int index, U64& value ) noexcept {
   for( ; index > 0; --index ) {
      const std::size_t space = text.find( ' ' );
      if( space == std::string_view::npos ) return false;
      text.remove_prefix( space + 1 );
   }
   return std::from_chars( text.data(), text.data() + text.size(), value ).ec == std::errc();
}

}

ProcessStart processStart( U32 pid ) noexcept {
   if( pid == 0 || pid > INT32_MAX ) return {};
   std::array< char, 32 > path{ "/proc/" };
   std::strcpy( std::to_chars( path.data() + 6, path.data() + 20, pid ).ptr, "/stat" );
   const UniqueFd fd( ::open( path.data(), O_RDONLY | O_CLOEXEC ) );
   std::array< char, 1024 > content;
   const ssize_t n = fd ? ::read( fd.get(), content.data(), content.size() ) : -1;
   if( n <= 0 ) {
      const bool exists = ::kill( static_cast< pid_t >( pid ), 0 ) == 0 || errno == EPERM;
      return { exists ? ProcessStart::Known::hidden : ProcessStart::Known::gone, 0 };
   }
   const std::string_view text( content.data(), static_cast< std::size_t >( n ) );
   const std::size_t name = text.rfind( ") " ); // the name itself may hold anything
   if( name == std::string_view::npos || name + 2 >= text.size() ) return { ProcessStart::Known::hidden, 0 };
   const char processState = text[ name + 2 ];
   if( processState == 'Z' || processState == 'X' ) return {};
   ProcessStart start{ ProcessStart::Known::yes, 0 };
   if( !number( text.substr( name + 2 ), 19, start.ticks ) ) start.known = ProcessStart::Known::hidden;
   return start;
}

}

}
