#pragma once

#include <atomic>
#include <cstddef>
#include <cstring>
#include <kel/Types.h>

// The two gates to memory that other processes see. Everything in a table or a doorbell is stored through `SharedStore` and
// loaded through `SharedLoad`, in native words at most, so that one place decides how memory is touched, a test can stop a
// writer after any single store, and nothing is read twice by accident of the compiler.
namespace Plexo {

using Kel::U16;
using Kel::U32;
using Kel::U64;
using Kel::U8;

/// What a record is copied by. A copy in another width than the one that wrote it stalls store forwarding.
using Word = std::size_t;

static_assert( std::atomic_ref< U32 >::is_always_lock_free && std::atomic_ref< Word >::is_always_lock_free );
static_assert( std::atomic_ref< U64 >::required_alignment == 8, "a 64-bit word tears unless it is 8-aligned" );

/// Every store into shared memory. Addresses are naturally aligned; a byte range is word-aligned and a multiple of 4 long.
class SharedStore {
 public:
   /// Called after every single store while set; lets a test stop the process between any two of them.
   using Hook = void ( * )( void* context );
   [[gnu::visibility("default")]] static void hookIs( Hook hook, void* context ) noexcept;

   static void word32( std::byte* at, U32 v ) noexcept { put( at, v, std::memory_order_relaxed ); }
   static void release32( std::byte* at, U32 v ) noexcept { put( at, v, std::memory_order_release ); }
   static void word64( std::byte* at, U64 v ) noexcept { put( at, v, std::memory_order_relaxed ); }
   static void release64( std::byte* at, U64 v ) noexcept { put( at, v, std::memory_order_release ); }
   /// Stores private bytes.
   static void bytes( std::byte* to, const void* from, std::size_t size ) noexcept;
   /// Copies from one place in shared memory to another.
   static void copy( std::byte* to, const std::byte* from, std::size_t size ) noexcept;
   static void zero( std::byte* to, std::size_t size ) noexcept;

   /// Later stores stay behind earlier ones.
   static void fence() noexcept { std::atomic_thread_fence( std::memory_order_release ); }
   /// Later loads stay behind earlier stores: between publishing something and asking who waits for it.
   static void fullFence() noexcept { std::atomic_thread_fence( std::memory_order_seq_cst ); }

 private:
   template< class T >
   static void put( std::byte* at, T v, std::memory_order order ) noexcept {
      std::atomic_ref< T >( *reinterpret_cast< T* >( at ) ).store( v, order );
      if( hook_ ) [[unlikely]] hook_( context_ );
   }

   static Hook hook_;
   static void* context_;
};

/// Every load from shared memory. What was loaded is the caller's own copy: check that, never load again.
class SharedLoad {
 public:
   static U32 word32( const std::byte* at ) noexcept { return get< U32 >( at, std::memory_order_relaxed ); }
   static U32 acquire32( const std::byte* at ) noexcept { return get< U32 >( at, std::memory_order_acquire ); }
   static U64 acquire64( const std::byte* at ) noexcept { return get< U64 >( at, std::memory_order_acquire ); }
   static Word acquireWord( const std::byte* at ) noexcept { return get< Word >( at, std::memory_order_acquire ); }
   static void bytes( void* to, const std::byte* from, std::size_t size ) noexcept;
   /// Later loads stay behind earlier ones.
   static void fence() noexcept { std::atomic_thread_fence( std::memory_order_acquire ); }

 private:
   friend class SharedStore;
   template< class T >
   static T get( const std::byte* at, std::memory_order order ) noexcept {
      return std::atomic_ref< T >( *reinterpret_cast< T* >( const_cast< std::byte* >( at ) ) ).load( order );
   }
};

inline void SharedLoad::bytes( void* to, const std::byte* from, std::size_t size ) noexcept {
   auto* out = static_cast< std::byte* >( to );
   // Four words at a time by hand: as a copy of a block they would be gathered and wait for one another.
   const auto one = [ & ]( std::size_t i ) {
      const Word w = get< Word >( from + i * sizeof( Word ), std::memory_order_relaxed );
      std::memcpy( out + i * sizeof( Word ), &w, sizeof w );
   };
   constexpr std::size_t block = 4 * sizeof( Word );
   for( ; size >= block; size -= block, out += block, from += block ) {
      one( 0 );
      one( 1 );
      one( 2 );
      one( 3 );
   }
   for( ; size >= sizeof( Word ); size -= sizeof( Word ), out += sizeof( Word ), from += sizeof( Word ) ) {
      const Word w = get< Word >( from, std::memory_order_relaxed );
      std::memcpy( out, &w, sizeof w );
   }
   if( size ) {
      const U32 w = word32( from );
      std::memcpy( out, &w, sizeof w );
   }
}

inline void SharedStore::bytes( std::byte* to, const void* from, std::size_t size ) noexcept {
   const auto* in = static_cast< const std::byte* >( from );
   for( ; size >= sizeof( Word ); size -= sizeof( Word ), in += sizeof( Word ), to += sizeof( Word ) ) {
      Word w;
      std::memcpy( &w, in, sizeof w );
      put( to, w, std::memory_order_relaxed );
   }
   if( size ) {
      U32 w;
      std::memcpy( &w, in, sizeof w );
      word32( to, w );
   }
}

inline void SharedStore::copy( std::byte* to, const std::byte* from, std::size_t size ) noexcept {
   for( ; size >= sizeof( Word ); size -= sizeof( Word ), from += sizeof( Word ), to += sizeof( Word ) ) {
      put( to, SharedLoad::get< Word >( from, std::memory_order_relaxed ), std::memory_order_relaxed );
   }
   if( size ) word32( to, SharedLoad::word32( from ) );
}

inline void SharedStore::zero( std::byte* to, std::size_t size ) noexcept {
   for( ; size >= sizeof( Word ); size -= sizeof( Word ), to += sizeof( Word ) ) put( to, Word( 0 ), std::memory_order_relaxed );
   if( size ) word32( to, 0 );
}

}
