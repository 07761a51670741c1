#pragma once

#include <bit>
#include <cstring>
#include <kel/Exception.h>
#include <kel/String8.h>
#include <kel/Types.h>
#include <memory>
#include <span>

// The typed streams of the attribute log. Their byte layout is docs/attribute-log.md: 8- and 16-bit numbers and doubles stand in
// network byte order at their full width, 32- and 64-bit integers in a prefix form of 1 to 5 or 1 to 9 bytes, strings behind
// their length.
namespace [[gnu::visibility("default")]] Kel {

class Type;

namespace Detail {

// Each writes one number and returns its end.

inline U8* put( U8* at, U8 v ) {
   *at = v;
   return at + 1;
}
inline U8* put( U8* at, U16 v ) {
   const U16 bytes = __builtin_bswap16( v );
   std::memcpy( at, &bytes, sizeof bytes );
   return at + sizeof bytes;
}
inline U8* put( U8* at, double v ) {
   const U64 bytes = __builtin_bswap64( std::bit_cast< U64 >( v ) );
   std::memcpy( at, &bytes, sizeof bytes );
   return at + sizeof bytes;
}

/// The prefix form; 9 bytes may be written over.
inline U8* putPrefixed( U8* at, U64 v ) {
   if( v < 0x80 ) return put( at, static_cast< U8 >( v ) );
   if( v < 0x4000 ) return put( at, static_cast< U16 >( v | 0x8000 ) );
   const unsigned bits = 64 - static_cast< unsigned >( std::countl_zero( v ) );
   const unsigned extra = bits > 56 ? 8 : ( bits - 1 ) / 7;
   if( extra == 8 ) *at++ = 0xff;
   else v = ( v | U64( 0xff00 >> extra & 0xff ) << ( 8 * extra ) ) << ( 56 - 8 * extra );
   v = __builtin_bswap64( v );
   std::memcpy( at, &v, sizeof v );
   return at + ( extra == 8 ? 8 : extra + 1 );
}

/// A signed number as an unsigned one that is small when it is near 0.
constexpr U32 folded( S32 v ) { return static_cast< U32 >( v ) << 1 ^ static_cast< U32 >( v >> 31 ); }
constexpr U64 folded( S64 v ) { return static_cast< U64 >( v ) << 1 ^ static_cast< U64 >( v >> 63 ); }
constexpr S32 unfolded( U32 v ) { return static_cast< S32 >( v >> 1 ^ ( 0 - ( v & 1 ) ) ); }
constexpr S64 unfolded( U64 v ) { return static_cast< S64 >( v >> 1 ^ ( 0 - ( v & 1 ) ) ); }

}

/// Where attribute-log bytes are written: a buffer that grows and can be used again after `clear()`.
class LogOut {
 public:
   LogOut() = default;
   LogOut( LogOut&& ) = default;
   LogOut& operator=( LogOut&& ) = default;

   std::span< const U8 > bytes() const { return { begin_.get(), static_cast< std::size_t >( at_ - begin_.get() ) }; }
   std::size_t size() const { return static_cast< std::size_t >( at_ - begin_.get() ); }
   void clear() { at_ = begin_.get(); }

   void boolean( bool v ) { u8( v ? 1 : 0 ); }
   void u8( U8 v ) {
      room( 1 );
      *at_++ = v;
   }
   void u16( U16 v ) {
      room( 2 );
      at_ = Detail::put( at_, v );
   }
   /// A 32-bit number in its prefix form: as many leading one bits as bytes follow the first.
   void u32( U32 v ) { u64( v ); }
   void u64( U64 v ) {
      room( 9 );
      at_ = Detail::putPrefixed( at_, v );
   }
   void s32( S32 v ) { u32( Detail::folded( v ) ); }
   void s64( S64 v ) { u64( Detail::folded( v ) ); }
   void f64( double v ) {
      room( 8 );
      at_ = Detail::put( at_, v );
   }
   void string( std::string_view v ) {
      u32( static_cast< U32 >( v.size() ) );
      raw( v.data(), v.size() );
   }
   void raw( const void* data, std::size_t size ) {
      room( size );
      if( size ) std::memcpy( at_, data, size );
      at_ += size;
   }
   /// Room for `size` bytes; `wrote` says how far they went.
   U8* reserve( std::size_t size ) {
      room( size );
      return at_;
   }
   void wrote( U8* end ) { at_ = end; }

 private:
   void room( std::size_t size ) {
      if( static_cast< std::size_t >( end_ - at_ ) < size ) [[unlikely]] grow( size );
   }
   void grow( std::size_t size );

   std::unique_ptr< U8[] > begin_;
   U8* at_ = nullptr;
   U8* end_ = nullptr;
};

/// Attribute-log bytes as they are read. They come from another process: whatever they hold, a read stays inside them. Every read
/// past the end throws `RangeException` "premature end of attribute log"; a number that is too wide or not in its shortest form
/// is refused likewise.
class LogIn {
 public:
   explicit LogIn( std::span< const U8 > bytes ) : at_( bytes.data() ), end_( bytes.data() + bytes.size() ) {}

   std::size_t left() const { return static_cast< std::size_t >( end_ - at_ ); }
   bool atEnd() const { return at_ == end_; }

   bool boolean() {
      const U8 v = u8();
      if( v > 1 ) [[unlikely]] noBoolean();
      return v == 1;
   }
   U8 u8() {
      need( 1 );
      return *at_++;
   }
   U16 u16() {
      need( 2 );
      U16 bytes;
      std::memcpy( &bytes, at_, sizeof bytes );
      at_ += sizeof bytes;
      return __builtin_bswap16( bytes );
   }
   U32 u32() {
      const U64 v = u64();
      if( v >> 32 ) [[unlikely]] tooWide();
      return static_cast< U32 >( v );
   }
   U64 u64() {
      need( 1 );
      if( *at_ < 0x80 ) return *at_++;
      return prefixed();
   }
   S32 s32() { return Detail::unfolded( u32() ); }
   S64 s64() { return Detail::unfolded( u64() ); }
   double f64() {
      need( 8 );
      U64 bits;
      std::memcpy( &bits, at_, 8 );
      at_ += 8;
      return std::bit_cast< double >( __builtin_bswap64( bits ) );
   }
   /// The characters stay in the log's own bytes.
   std::string_view string() {
      const U32 size = u32();
      return { reinterpret_cast< const char* >( raw( size ) ), size };
   }
   const U8* raw( std::size_t size ) {
      need( size );
      at_ += size;
      return at_ - size;
   }

 private:
   void need( std::size_t size ) const {
      if( left() < size ) [[unlikely]] premature();
   }
   [[noreturn]] static void premature();
   [[noreturn]] static void tooWide();
   [[noreturn]] static void noBoolean();
   // A number of n bytes has n bits of prefix and 7 n of its own, but for the longest, whose prefix is the whole first byte.
   U64 prefixed() {
      const unsigned size = static_cast< unsigned >( std::countl_one( *at_ ) ) + 1;
      need( size );
      U64 v = 0;
      if( left() >= 8 && size <= 8 ) {
         std::memcpy( &v, at_, sizeof v );
         v = __builtin_bswap64( v ) << size >> ( 64 - 7 * size );
      } else {
         for( unsigned i = 0; i < size; ++i ) v = v << 8 | at_[ i ];
         if( size < 9 ) v &= ~U64( 0 ) >> ( 64 - 7 * size );
      }
      at_ += size;
      if( v >> 7 * ( size - 1 ) == 0 ) [[unlikely]] tooWide();
      return v;
   }

   const U8* at_;
   const U8* end_;
};

/// Writes a value of `type`.
void write( const Type& type, const void* value, LogOut& out );
/// Reads a value of `type`. Throws `RangeException` on bytes that are no such value; `value` may then be changed in part.
void read( const Type& type, void* value, LogIn& in );

}
