#pragma once

#include <bit>
#include <kel/Hash.h>
#include <plexo/Format.h>
#include <plexo/Shared.h>
#if defined( __SSE2__ )
#include <emmintrin.h>
#endif

namespace Plexo {

/// The two hashes of a key: the key type's own, mixed, chooses the first bucket; a seeded hash over the key's bytes, which is
/// only computed when that bucket has overflowed, chooses where the search goes on. So keys that collide under their own hash
/// part ways after one bucket.
class KeyHash {
 public:
   KeyHash( const RecordLayout& layout, const void* key, U32 seed ) noexcept
         : first_( Kel::Detail::murmurFinal( layout.hash( key ), 4 ) ), key_( key ), keyBytes_( layout.keyBytes ),
           seed_( seed ) {}
   U32 first() const noexcept { return first_; }
   U32 second() const noexcept { return Kel::murmur3( key_, keyBytes_, seed_ ); }
   /// A hash's one-byte mark in a bucket; 0 marks an empty lane.
   static U8 tag( U32 hash ) noexcept {
      const U8 top = U8( hash >> 24 );
      return top ? top : U8( 1 );
   }

 private:
   U32 first_;
   const void* key_;
   U32 keyBytes_;
   U32 seed_;
};

/// One arena of the index: a power of two of 64-byte buckets { u32 slot[12], u8 tag[12], u32 overflow }. A key's path is its
/// first bucket, then the buckets from its second hash on. `overflow` counts the keys whose path led on from a bucket, so a
/// search ends at the first bucket where it is zero and nothing is left behind by a removal.
class Index {
 public:
   /// Where a key's entry stands on its path.
   struct Place {
      U32 step = 0, bucket = 0, lane = 0, slot = 0;
   };

   Index( std::byte* base, U32 buckets ) noexcept : base_( base ), mask_( buckets - 1 ) {}

   void prefetch( const KeyHash& hash ) const noexcept { __builtin_prefetch( at( hash.first() & mask_ ) ); }

   /// What `find` does with the buckets on its way: nothing. Tests count them.
   struct Unseen {
      void operator()( U32 ) const noexcept {}
   };

   /// Calls `match( slot )` for each candidate until one says yes, and `see( bucket )` for each bucket that it looks into: every
   /// one once at most.
   template< class Match, class See = Unseen >
   bool find( const KeyHash& hash, Match&& match, Place* place = nullptr, See&& see = {} ) const {
      U32 bucket = hash.first() & mask_;
      U8 tag = KeyHash::tag( hash.first() );
      for( U32 step = 0;; ++step ) {
         see( bucket );
         const Line line( at( bucket ) );
         for( U32 lanes = line.lanesWith( tag ); lanes; lanes &= lanes - 1 ) {
            const U32 lane = U32( std::countr_zero( lanes ) );
            const U32 slot = SharedLoad::word32( at( bucket ) + lane * 4 );
            if( match( slot ) ) {
               if( place ) *place = { step, bucket, lane, slot };
               return true;
            }
         }
         if( line.overflow() == 0 || step > mask_ ) return false;
         if( step == 0 ) {
            const U32 second = hash.second();
            bucket = second & mask_;
            tag = KeyHash::tag( second );
         } else {
            bucket = ( bucket + 1 ) & mask_;
         }
      }
   }

   /// Writer only. False when every bucket is full, which the load limit rules out.
   bool insert( const KeyHash& hash, U32 slot ) noexcept;
   /// Writer only.
   void erase( const KeyHash& hash, const Place& place ) noexcept;

 private:
   static constexpr U32 tagOffset = Format::bucketLanes * 4;
   static constexpr U32 overflowOffset = tagOffset + Format::bucketLanes;
   static constexpr U32 allLanes = ( 1u << Format::bucketLanes ) - 1;

   /// A bucket's tags and overflow count, loaded once.
   class Line {
    public:
      explicit Line( const std::byte* bucket ) noexcept {
         for( U32 i = 0; i < 16 / sizeof( Word ); ++i )
            words_[ i ] = SharedLoad::acquireWord( bucket + tagOffset + i * sizeof( Word ) );
      }
      U32 overflow() const noexcept { return U32( words_[ 16 / sizeof( Word ) - 1 ] >> ( ( sizeof( Word ) - 4 ) * 8 ) ); }
      U32 lanesWith( U8 tag ) const noexcept {
#if defined( __SSE2__ )
         const __m128i tags = std::bit_cast< __m128i >( words_ );
         return U32( _mm_movemask_epi8( _mm_cmpeq_epi8( tags, _mm_set1_epi8( char( tag ) ) ) ) ) & allLanes;
#else
         const auto tags = std::bit_cast< std::array< U8, 16 > >( words_ );
         U32 lanes = 0;
         for( U32 i = 0; i < Format::bucketLanes; ++i ) lanes |= U32( tags[ i ] == tag ) << i;
         return lanes;
#endif
      }

    private:
      std::array< Word, 16 / sizeof( Word ) > words_;
   };

   std::byte* at( U32 bucket ) const noexcept { return base_ + std::size_t( bucket ) * Format::bucketBytes; }
   void tagIs( U32 bucket, U32 lane, U8 tag ) noexcept;
   /// Calls `visit( bucket, tag )` along a key's path until it returns false; at most once per bucket and once more.
   template< class Visit >
   void walk( const KeyHash& hash, Visit&& visit ) const {
      if( !visit( hash.first() & mask_, KeyHash::tag( hash.first() ) ) ) return;
      const U32 second = hash.second();
      for( U32 i = 0; i <= mask_; ++i ) {
         if( !visit( ( second + i ) & mask_, KeyHash::tag( second ) ) ) return;
      }
   }

   std::byte* base_;
   U32 mask_;
};

}
