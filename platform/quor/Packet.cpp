#include <quor/Packet.h>

#include <cstdlib>
#include <cstring>
#include <new>

// A buffer is one block: its reference count, then its bytes. Each packet over it has its own start and length, and keeps the
// block's address and size beside them, so that a tag is written without a look at the block's head beyond its count.

namespace Quor {

using Kel::U32;

namespace {

U32 checkedSize( std::size_t bytes, U32 headRoom, U32 tailRoom ) {
   if( bytes > Packet::maxBytes || Kel::U64( bytes ) + headRoom + tailRoom > Packet::maxBytes )
      throw Kel::RangeException( "Packet::bytes > " + std::to_string( Packet::maxBytes ) + " not allowed" );
   return static_cast< U32 >( bytes ) + headRoom + tailRoom;
}

// The range that a packet would have, by numbers, since a pointer beyond its buffer is not one to calculate with.
struct Region {
   using U64 = Kel::U64;
   U64 data_, dataBytes_, buffer_, size_;

   static bool ptrWithinRegion( U64 ptr, U64 region, U64 size ) { return ptr - region <= size; }
   void check() const {
      KEL_ASSERT( "Quor/Packet", ptrWithinRegion( data_, buffer_, size_ ) );
      KEL_ASSERT( "Quor/Packet", ptrWithinRegion( data_ + dataBytes_, buffer_, size_ ) );
   }
};

Kel::U64 number( const void* ptr ) { return reinterpret_cast< std::uintptr_t >( ptr ); }

}

// Neither of the two returns: they say what is wrong.
void Packet::trimmedBeyond( U32 head, U32 tail ) const {
   const Kel::U64 bytes = Kel::U64( head ) + tail;
   Region{ number( data_ ) + head, Kel::U64( dataBytes_ ) - bytes, number( buffer_ ), size_ }.check();
   KEL_ASSERT( "Quor/Packet", bytes <= dataBytes_ );
   std::abort();
}

void Packet::grownBeyond( U32 bytes ) const {
   Region{ number( data_ ), Kel::U64( dataBytes_ ) + bytes, number( buffer_ ), size_ }.check();
   std::abort();
}

Packet::SharedBuffer* Packet::newBuffer( U32 size ) {
   return ::new( ::operator new( sizeof( SharedBuffer ) + size ) ) SharedBuffer;
}

void Packet::take( SharedBuffer* buffer, U32 size, U32 headRoom, U32 bytes ) noexcept {
   buffer->references.increment();
   sharedBuffer_ = buffer;
   buffer_ = buffer->bytes();
   data_ = buffer_ + headRoom;
   size_ = size;
   dataBytes_ = bytes;
}

void Packet::drop() noexcept {
   if( sharedBuffer_ && sharedBuffer_->references.decrement() ) ::operator delete( sharedBuffer_ );
}

Packet::Packet( U32 bytes, U32 headRoom, U32 tailRoom ) {
   const U32 size = checkedSize( bytes, headRoom, tailRoom );
   take( newBuffer( size ), size, headRoom, bytes );
   std::memset( buffer_, 0, size );
}

Packet::Packet( std::span< const U8 > bytes, U32 headRoom, U32 tailRoom ) {
   const U32 size = checkedSize( bytes.size(), headRoom, tailRoom );
   take( newBuffer( size ), size, headRoom, static_cast< U32 >( bytes.size() ) );
   if( !bytes.empty() ) std::memcpy( data_, bytes.data(), bytes.size() );
}

Packet::Packet( const Packet& other ) noexcept : PtrInterface( other ) {
   if( other.sharedBuffer_ ) take( other.sharedBuffer_, other.size_, other.headRoom(), other.dataBytes_ );
}

Packet& Packet::operator=( const Packet& other ) noexcept {
   if( this == &other ) return *this;
   drop();
   sharedBuffer_ = nullptr;
   buffer_ = data_ = nullptr;
   size_ = dataBytes_ = 0;
   if( other.sharedBuffer_ ) take( other.sharedBuffer_, other.size_, other.headRoom(), other.dataBytes_ );
   return *this;
}

void Packet::move( U32 headRoom, U32 tailRoom ) {
   const U32 bytes = dataBytes_, size = checkedSize( bytes, headRoom, tailRoom );
   SharedBuffer* fresh = newBuffer( size );
   if( bytes ) std::memcpy( fresh->bytes() + headRoom, data_, bytes );
   drop();
   take( fresh, size, headRoom, bytes );
}

void Packet::moveForHead( U32 bytes ) {
   move( std::max( headRoom(), checkedSize( bytes, defaultHeadRoom, 0 ) ), tailRoom() );
}

}
