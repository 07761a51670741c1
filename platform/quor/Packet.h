#pragma once

#include <algorithm>
#include <kel/Assert.h>
#include <kel/Ptr.h>
#include <kel/Types.h>
#include <span>

namespace [[gnu::visibility("default")]] Quor {

/// A frame on its way through the process: a range of bytes in a buffer, with head room before it for tags that are still to come
/// and tail room behind it. Copies share the buffer; one that is shared is copied before it is written. Held by `Kel::Ptr`, not
/// locked.
///
/// A packet is made with data, which may be of length 0, or without; asking one without data for its bytes, and trimming or
/// growing beyond the buffer, are assertions.
class Packet : public Kel::PtrInterface {
 public:
   using U8 = Kel::U8;
   using U32 = Kel::U32;

   /// The head room of buffers that are made without saying how much: a few tags or another small header.
   static constexpr U32 defaultHeadRoom = 64;
   /// The largest buffer.
   static constexpr U32 maxBytes = 1u << 30;

   /// A packet without data.
   Packet() noexcept = default;
   /// `bytes` zero bytes with room around them. Throws `Kel::RangeException` "Packet::bytes > 1073741824 not allowed" for more in
   /// all.
   explicit Packet( U32 bytes, U32 headRoom = defaultHeadRoom, U32 tailRoom = 0 );
   /// A copy of `bytes` with room around it; throws likewise.
   explicit Packet( std::span< const U8 > bytes, U32 headRoom = defaultHeadRoom, U32 tailRoom = 0 );
   /// Another packet over the same buffer.
   Packet( const Packet& other ) noexcept;
   Packet& operator=( const Packet& other ) noexcept;
   ~Packet() override { drop(); }

   bool hasData() const noexcept { return sharedBuffer_ != nullptr; }
   U32 bytes() const noexcept { return dataBytes_; }
   /// The first byte.
   const U8* data() const {
      KEL_ASSERT( "Quor/Packet", sharedBuffer_ != 0 );
      return data_;
   }
   std::span< const U8 > view() const { return { data(), dataBytes_ }; }
   /// The first byte, to write; it stays good until the packet grows, is assigned or goes. A buffer that is shared is left to the
   /// others and a copy of the data taken.
   U8* writableData() {
      KEL_ASSERT( "Quor/Packet", sharedBuffer_ != 0 );
      if( isShared() ) [[unlikely]] move( std::max( headRoom(), defaultHeadRoom ), tailRoom() );
      return data_;
   }
   /// True while another packet has the same buffer.
   bool isShared() const noexcept { return sharedBuffer_ && sharedBuffer_->references.isAboveAndPlain( 1 ); }

   /// Bytes in front of the data and behind it.
   U32 headRoom() const noexcept { return static_cast< U32 >( data_ - buffer_ ); }
   U32 tailRoom() const noexcept { return size_ - headRoom() - dataBytes_; }

   /// Moves the start of the data back by `bytes`, where there is room and nobody shares the buffer; into a fresh buffer
   /// otherwise. What the new bytes hold is left open. Returns the new start, to write.
   U8* headGrow( U32 bytes ) {
      KEL_ASSERT( "Quor/Packet", sharedBuffer_ != 0 );
      if( headRoom() < bytes || isShared() ) [[unlikely]] moveForHead( bytes );
      data_ -= bytes;
      dataBytes_ += bytes;
      return data_;
   }
   /// Drops the first `bytes` of the data.
   void headTrim( U32 bytes ) {
      KEL_ASSERT( "Quor/Packet", sharedBuffer_ != 0 );
      if( bytes > dataBytes_ ) [[unlikely]] trimmedBeyond( bytes, 0 );
      data_ += bytes;
      dataBytes_ -= bytes;
   }
   /// Moves the end of the data by `bytes` into the tail room. What the new bytes hold is left open.
   void tailGrow( U32 bytes ) {
      KEL_ASSERT( "Quor/Packet", sharedBuffer_ != 0 );
      if( bytes > tailRoom() ) [[unlikely]] grownBeyond( bytes );
      dataBytes_ += bytes;
   }
   /// Drops the last `bytes` of the data.
   void tailTrim( U32 bytes ) {
      KEL_ASSERT( "Quor/Packet", sharedBuffer_ != 0 );
      if( bytes > dataBytes_ ) [[unlikely]] trimmedBeyond( 0, bytes );
      dataBytes_ -= bytes;
   }

 private:
   /// The head of a buffer; its bytes follow.
   struct SharedBuffer {
      Kel::RefCount references;
      U8* bytes() noexcept { return reinterpret_cast< U8* >( this + 1 ); }
   };

   static SharedBuffer* newBuffer( U32 size );
   [[noreturn, gnu::cold]] void trimmedBeyond( U32 head, U32 tail ) const;
   [[noreturn, gnu::cold]] void grownBeyond( U32 bytes ) const;
   void take( SharedBuffer* buffer, U32 size, U32 headRoom, U32 bytes ) noexcept;
   void drop() noexcept;
   /// Takes the data into a fresh buffer with this much room around it.
   void move( U32 headRoom, U32 tailRoom );
   void moveForHead( U32 bytes );

   SharedBuffer* sharedBuffer_ = nullptr;
   U8* buffer_ = nullptr;
   U8* data_ = nullptr;
   U32 size_ = 0;
   U32 dataBytes_ = 0;
};

}
