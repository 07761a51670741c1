#pragma once

#include <array>
#include <bit>
#include <compare>
#include <kel/Assert.h>
#include <kel/Hash.h>

namespace [[gnu::visibility("default")]] Kel {

/// A fixed number of bits, all clear at first. An index outside stops the process: `pos>=0 && pos<bits`.
template< int N >
   requires( N > 0 )
class BitSet {
 public:
   static constexpr int bits = N;

   constexpr BitSet() noexcept = default;

   bool bit( int pos ) const {
      check( pos );
      return words_[ wordOf( pos ) ] >> ( pos % wordBits ) & 1u;
   }
   bool operator[]( int pos ) const { return bit( pos ); }
   void bitIs( int pos, bool on ) {
      check( pos );
      U32& word = words_[ wordOf( pos ) ];
      const U32 mask = U32( 1 ) << ( pos % wordBits );
      word = on ? word | mask : word & ~mask;
   }
   void clear() noexcept { words_ = {}; }

   /// How many bits are set.
   int count() const noexcept {
      int n = 0;
      for( const U32 word : words_ ) n += std::popcount( word );
      return n;
   }
   bool any() const noexcept { return firstFrom( 0 ) < bits; }
   bool none() const noexcept { return !any(); }
   /// The first set bit at `pos` or above it, or `bits` when there is none. A `pos` of `bits` is fine: it gives `bits`.
   int firstFrom( int pos ) const {
      if( pos == bits ) return bits;
      check( pos );
      std::size_t i = wordOf( pos );
      U32 word = words_[ i ] & ~U32( 0 ) << ( pos % wordBits );
      while( word == 0 && ++i < wordCount ) word = words_[ i ];
      return word == 0 ? bits : static_cast< int >( i ) * wordBits + std::countr_zero( word );
   }

   BitSet& operator|=( const BitSet& other ) noexcept { return combine( other, []( U32 a, U32 b ) { return a | b; } ); }
   BitSet& operator&=( const BitSet& other ) noexcept { return combine( other, []( U32 a, U32 b ) { return a & b; } ); }
   BitSet& operator^=( const BitSet& other ) noexcept { return combine( other, []( U32 a, U32 b ) { return a ^ b; } ); }
   friend BitSet operator|( BitSet a, const BitSet& b ) noexcept { return a |= b; }
   friend BitSet operator&( BitSet a, const BitSet& b ) noexcept { return a &= b; }
   friend BitSet operator^( BitSet a, const BitSet& b ) noexcept { return a ^= b; }

   /// The order is total and means nothing further.
   friend auto operator<=>( const BitSet&, const BitSet& ) = default;
   /// Over the bits as little-endian bytes, as many as hold them.
   U32 hash() const noexcept { return murmur3( words_.data(), ( N + 7 ) / 8 ); }

 private:
   static constexpr int wordBits = 32;
   static constexpr std::size_t wordCount = ( N + wordBits - 1 ) / wordBits;

   static constexpr std::size_t wordOf( int pos ) noexcept { return static_cast< std::size_t >( pos / wordBits ); }
   static void check( int pos ) { KEL_ASSERT( "Kel/BitSet", pos>=0 && pos<bits ); }

   template< class Operation >
   BitSet& combine( const BitSet& other, Operation operation ) noexcept {
      for( std::size_t i = 0; i < wordCount; ++i ) words_[ i ] = operation( words_[ i ], other.words_[ i ] );
      return *this;
   }

   std::array< U32, wordCount > words_{};
};

}
