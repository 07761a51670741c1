#include "CaptureFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <sys/stat.h>

// libpcap reads the file; it is trusted with the format and with nothing else. A timestamp is what the file says it is: a pcapng
// file can name any second in 64 bits, so it is clamped to where nanoseconds in 64 bits can't overflow.

namespace Fdbd {

namespace {

constexpr std::int64_t lastSecond = std::int64_t( 1 ) << 33;

std::string linkTypeName( int type ) {
   const char* name = pcap_datalink_val_to_name( type );
   return name ? name : "number " + std::to_string( type );
}

}

CaptureFile::CaptureFile( std::string path ) : path_( std::move( path ) ) { open(); }

void CaptureFile::open() {
   // Not blocking: the name may be that of a pipe which nobody writes.
   struct stat status;
   const int fd = ::open( path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC );
   if( fd < 0 || fstat( fd, &status ) != 0 || !S_ISREG( status.st_mode ) ) {
      const std::string why = fd < 0                       ? std::strerror( errno )
                              : S_ISDIR( status.st_mode ) ? std::strerror( EISDIR )
                                                          : "it is not a regular file";
      fault_ = "capture '" + path_ + "': can't be opened: " + why + "; check its name and permissions";
      if( fd >= 0 ) ::close( fd );
      return;
   }
   std::FILE* file = fdopen( fd, "rb" );
   char error[ PCAP_ERRBUF_SIZE ] = "";
   pcap_.reset( pcap_fopen_offline_with_tstamp_precision( file, PCAP_TSTAMP_PRECISION_NANO, error ) );
   if( !pcap_ ) {
      std::fclose( file );
      fault_ = "capture '" + path_ + "': not a pcap or pcapng file that can be read: " + error +
         "; record it again, e.g. with tcpdump -w";
      return;
   }
   const int type = pcap_datalink( pcap_.get() );
   if( type != DLT_EN10MB ) {
      pcap_.reset();
      fault_ = "capture '" + path_ + "': its link type is " + linkTypeName( type ) +
               ", only Ethernet (EN10MB) has MAC addresses to learn; record it on one Ethernet device";
      if( type == DLT_LINUX_SLL || type == DLT_LINUX_SLL2 ) fault_ += ", not on 'any'";
      return;
   }
   opened_ = true;
}

std::string CaptureFile::position() const {
   std::string text = "after frame " + std::to_string( frames_ );
   const off_t offset = ftello( pcap_file( pcap_.get() ) );
   if( offset >= 0 ) text += ", before byte " + std::to_string( offset );
   return text;
}

std::optional< CapturedFrame > CaptureFile::next() {
   if( !pcap_ ) return std::nullopt;
   pcap_pkthdr* header = nullptr;
   const u_char* data = nullptr;
   const int result = pcap_next_ex( pcap_.get(), &header, &data );
   if( result != 1 ) {
      if( result != PCAP_ERROR_BREAK )
         fault_ = "capture '" + path_ + "': damaged " + position() + ": " + pcap_geterr( pcap_.get() ) +
                  "; what was learned before stays";
      pcap_.reset();
      return std::nullopt;
   }
   ++frames_;
   const std::int64_t seconds = std::clamp< std::int64_t >( header->ts.tv_sec, 0, lastSecond );
   // Nanoseconds, as asked for.
   const std::int64_t nanos = std::clamp< std::int64_t >( header->ts.tv_usec, 0, nanosPerSecond - 1 );
   return CapturedFrame{ seconds * nanosPerSecond + nanos, { data, header->caplen }, std::max( header->len, header->caplen ) };
}

}
