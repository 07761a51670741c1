#pragma once

#include <atomic>
#include <kel/Types.h>

namespace [[gnu::visibility("default")]] Kel {

/// True while the process-wide switch for thread-safe pointers is on (off at start).
bool threadSafePtrs() noexcept;

/// Turns the process-wide switch for thread-safe pointers. Turn it on before the second thread that touches a reference
/// exists: while it is off, counts change with plain arithmetic.
void threadSafePtrsIs( bool on ) noexcept;

namespace Detail {
extern bool threadSafePtrs;
}

/// A count word: the count in its low 26 bits, six flags of its owner above them. Changes are plain loads and stores, or
/// atomic read-modify-writes while the thread-safe-pointer switch is on. REQUIRES: nobody holds more than 67,108,863 references
/// to one object at a time (they alone would take 256 MiB, or 512 MiB in the 64-bit library). One more would carry into the
/// flags and make the count zero; it is not checked for, since every copy of a pointer would pay for that.
class RefCount {
 public:
   static constexpr U32 countMask = 0x03ffffff;
   static constexpr U32 flagShift = 26;

   RefCount() = default;
   /// A copied object is a new object: nobody refers to it yet.
   RefCount( const RefCount& ) noexcept {}
   RefCount& operator=( const RefCount& ) noexcept { return *this; }

   U32 count() const noexcept { return word_.load( std::memory_order_relaxed ) & countMask; }
   bool flag( unsigned n ) const noexcept { return ( word_.load( std::memory_order_relaxed ) >> ( flagShift + n ) ) & 1u; }

   /// True when the count is above `least` and no flag is set.
   bool isAboveAndPlain( U32 least ) const noexcept {
      return word_.load( std::memory_order_relaxed ) - ( least + 1 ) < countMask - least;
   }

   void flagIs( unsigned n, bool on ) noexcept {
      const U32 bit = 1u << ( flagShift + n );
      if( !Detail::threadSafePtrs ) {
         const U32 old = word_.load( std::memory_order_relaxed );
         word_.store( on ? old | bit : old & ~bit, std::memory_order_relaxed );
      } else if( on ) {
         word_.fetch_or( bit, std::memory_order_relaxed );
      } else {
         word_.fetch_and( ~bit, std::memory_order_relaxed );
      }
   }

   void increment() noexcept {
      if( !Detail::threadSafePtrs ) {
         word_.store( word_.load( std::memory_order_relaxed ) + 1, std::memory_order_relaxed );
      } else {
         word_.fetch_add( 1, std::memory_order_relaxed );
      }
   }

   /// Returns true when the count part has reached zero.
   bool decrement() noexcept {
      if( !Detail::threadSafePtrs ) {
         const U32 now = word_.load( std::memory_order_relaxed ) - 1;
         word_.store( now, std::memory_order_relaxed );
         return ( now & countMask ) == 0;
      }
      return ( word_.fetch_sub( 1, std::memory_order_acq_rel ) & countMask ) == 1;
   }

 private:
   std::atomic< U32 > word_{ 0 };
};

}
