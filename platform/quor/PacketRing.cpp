#include <quor/PacketRing.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstring>
#include <kel/Trace.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <quor/EthTag.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <system_error>

// The ring has slots of one size, TPACKET_V2 (packet(7), and Documentation/networking/packet_mmap.rst of Linux): the system tells
// of each frame at once, where the blocks of TPACKET_V3 are handed over when they are full or after some milliseconds, which is
// long for the control protocols that agents speak. A slot takes a frame of the device's full size. A longer one, which the
// system has merged from several, is also put into the socket's queue as a whole and taken from there.
//
// Frames are sent through a socket of their own, for which nobody waits: Linux wakes a socket's waiters for each frame of it that
// has left, which took 25 to 30 ns of the 530 ns that a short frame took through a veth pair.
//
// The system hands over a received frame without its outer tag, which stands in the slot's head; it is put back.

namespace Quor {

namespace {

constexpr Kel::U32 ringBytes = 2u << 20;
constexpr Kel::U32 blockBytes = 64u << 10;
constexpr int queueBytes = 4 << 20;   // of frames that wait beside the ring, with what Linux keeps of each
constexpr char cantBeOpened[] = "can't be opened";
constexpr Kel::U32 slotOverhead = 128;   // the slot's head and alignment, and a tag

}

void deviceFailed( const Kel::String8& device, const std::string& what, int error ) {
   std::string text = "Ethernet device '";
   Kel::appendPrintable( text, device );
   const std::string why = error ? std::system_category().message( error ) : "not an Ethernet device";
   throw Kel::Exception( text + "' " + what + ": " + why );
}

void PacketRing::check( int result ) const {
   if( result < 0 ) deviceFailed( device_, cantBeOpened, errno );
}

void PacketRing::option( int name, int value ) { check( setsockopt( fd(), SOL_PACKET, name, &value, sizeof value ) ); }

PacketRing::PacketRing( const Kel::String8& device ) : device_( device ) {
   for( Kel::UniqueFd* fd : { &fd_, &sendFd_ } ) {
      fd->reset( ::socket( AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ) );
      check( fd->get() );
   }
   findDevice();
   bind( fd_, ETH_P_ALL );
   bind( sendFd_, 0 );
   // Without the right to it (CAP_NET_ADMIN), what the system gives to all has to do.
   setsockopt( fd(), SOL_SOCKET, SO_RCVBUFFORCE, &queueBytes, sizeof queueBytes );
   setsockopt( sendFd(), SOL_SOCKET, SO_SNDBUFFORCE, &queueBytes, sizeof queueBytes );
}

PacketRing::~PacketRing() {
   if( map_ ) munmap( map_, mapBytes_ );
}

void PacketRing::findDevice() {
   ifreq request{};
   const std::string_view name = device_;
   if( name.empty() || name.size() >= sizeof request.ifr_name || name.find( '\0' ) != name.npos ) {
      deviceFailed( device_, cantBeOpened, ENODEV );
   }
   std::memcpy( request.ifr_name, name.data(), name.size() );
   check( ioctl( fd(), SIOCGIFINDEX, &request ) );
   index_ = request.ifr_ifindex;
   check( ioctl( fd(), SIOCGIFHWADDR, &request ) );
   const auto kind = request.ifr_hwaddr.sa_family;
   if( kind != ARPHRD_ETHER && kind != ARPHRD_LOOPBACK ) deviceFailed( device_, cantBeOpened, 0 );
   address_ = ConstEthHdr( reinterpret_cast< const U8* >( request.ifr_hwaddr.sa_data ) ).destination();
   check( ioctl( fd(), SIOCGIFMTU, &request ) );
   map( static_cast< U32 >( std::max( request.ifr_mtu, 0 ) ) );
}

void PacketRing::map( U32 mtu ) {
   option( PACKET_VERSION, TPACKET_V2 );
   option( PACKET_IGNORE_OUTGOING, 1 );
   option( PACKET_COPY_THRESH, 1 );
   slotBytes_ = std::bit_ceil( std::clamp( mtu + slotOverhead, 2048u, blockBytes / 4 ) );
   slots_ = ringBytes / slotBytes_;
   tpacket_req ring{ .tp_block_size = blockBytes,
                     .tp_block_nr = ringBytes / blockBytes,
                     .tp_frame_size = slotBytes_,
                     .tp_frame_nr = slots_ };
   check( setsockopt( fd(), SOL_PACKET, PACKET_RX_RING, &ring, sizeof ring ) );
   void* mapped = mmap( nullptr, ringBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd(), 0 );
   if( mapped == MAP_FAILED ) deviceFailed( device_, cantBeOpened, errno );
   map_ = static_cast< U8* >( mapped );
   mapBytes_ = ringBytes;
}

// Last, so that no frame of another device gets into the ring.
void PacketRing::bind( const Kel::UniqueFd& fd, Kel::U16 protocol ) {
   sockaddr_ll address{};
   address.sll_family = AF_PACKET;
   address.sll_protocol = __builtin_bswap16( protocol );
   address.sll_ifindex = index_;
   check( ::bind( fd.get(), reinterpret_cast< const sockaddr* >( &address ), sizeof address ) );
}

int PacketRing::membershipIs( Kel::U16 type, const EthAddr& group, bool on ) {
   packet_mreq request{};
   request.mr_ifindex = index_;
   request.mr_type = type;
   request.mr_alen = EthAddr::size;
   std::memcpy( request.mr_address, group.bytes().data(), EthAddr::size );
   const int option = on ? PACKET_ADD_MEMBERSHIP : PACKET_DROP_MEMBERSHIP;
   return setsockopt( fd(), SOL_PACKET, option, &request, sizeof request ) < 0 ? errno : 0;
}

Kel::Ptr< Packet > PacketRing::longFrame( U32 bytes ) {
   Kel::Ptr< Packet > frame( new Packet( std::min( bytes, Packet::maxBytes / 2 ) ) );
   const auto got = recv( fd(), frame->writableData(), frame->bytes(), MSG_DONTWAIT | MSG_TRUNC );
   return got >= 0 && static_cast< U32 >( got ) == frame->bytes() ? frame : nullptr;
}

PacketRing::Taken PacketRing::next( Kel::Ptr< Packet >& frame ) {
   U8* slot = map_ + std::size_t( at_ ) * slotBytes_;
   auto& head = *reinterpret_cast< tpacket2_hdr* >( slot );
   const std::atomic_ref< __u32 > owner( head.tp_status );
   const U32 status = owner.load( std::memory_order_acquire );
   if( !( status & TP_STATUS_USER ) ) return Taken::nothing;

   frame = nullptr;
   if( status & TP_STATUS_COPY ) frame = longFrame( head.tp_len );
   else if( head.tp_len == head.tp_snaplen && head.tp_mac <= slotBytes_ && head.tp_len <= slotBytes_ - head.tp_mac )
      frame = new Packet( std::span< const U8 >( slot + head.tp_mac, head.tp_len ) );
   if( frame && status & TP_STATUS_VLAN_VALID && frame->bytes() >= EthHdr::bytes ) {
      const bool hasTpid = status & TP_STATUS_VLAN_TPID_VALID;
      tagPush( *frame, hasTpid ? head.tp_vlan_tpid : Dot1qHdr::customerTpid, head.tp_vlan_tci );
   }
   owner.store( TP_STATUS_KERNEL, std::memory_order_release );
   at_ = at_ + 1 == slots_ ? 0 : at_ + 1;
   return frame ? Taken::frame : Taken::cut;
}

void PacketRing::clearError() {
   int error = 0;
   socklen_t size = sizeof error;
   getsockopt( fd(), SOL_SOCKET, SO_ERROR, &error, &size );   // reading it clears it
}

Kel::U32 PacketRing::dropped() const {
   tpacket_stats since{};
   socklen_t size = sizeof since;
   return getsockopt( fd(), SOL_PACKET, PACKET_STATISTICS, &since, &size ) == 0 ? since.tp_drops : 0;
}

}
