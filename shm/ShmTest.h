#pragma once

#include "TestFdb.h"

#include <gmock/gmock.h>
#include <plexo/Exceptions.h>
#include <plexo/Format.h>
#include <plexo/TestFiles.h>

// Helpers of the tests of this room: a directory of tables per test, hosts from a few numbers, and a table's bytes to spoil.
namespace Bridging {

using Kel::Ptr;
using Kel::U16;
using Kel::U32;
using Plexo::TableMode;
using Plexo::thrown;
using Plexo::Bridging::PlexoFdbStatus;
using Strings = std::vector< std::string >;

inline Quor::EthAddr mac( U32 n ) {
   return { 2, 0, Kel::U8( n >> 24 ), Kel::U8( n >> 16 ), Kel::U8( n >> 8 ), Kel::U8( n ) };
}

/// Host `n` on port Ethernet `port`.
inline LearnedHost host( U32 n, U32 port, U32 moves = 0 ) {
   return { mac( n ), Quor::IntfId( "Ethernet" + std::to_string( port ) ), moves, double( moves ) / 4,
            EntryType::learnedDynamicMac };
}

inline PlexoFdbStatus record( U16 fid, U32 n, U32 port = 1 ) {
   const LearnedHost h = host( n, port );
   return { { fid, h.address() }, h.intf(), h.moves(), h.lastMoveTime(), h.entryType() };
}

/// "1/5": the filtering database and the number of a host.
inline std::string nameOf( const HostKey& key ) {
   return std::to_string( key.fid().value() ) + "/" + std::to_string( key.addr().number() & 0xffffffff );
}

struct ShmTest : testing::Test {
   ShmTest() { static const Plexo::TestDirectory rings{ { "RILO_DIR" } }; }

   void learn( U16 fid, U32 n, U32 port, U32 moves = 0 ) { source->fdbStatusIs( fid )->learnedHostIs( host( n, port, moves ) ); }
   void forget( U16 fid, U32 n ) { source->fdbStatus( fid )->learnedHostDel( mac( n ) ); }

   const Plexo::TestDirectory home{ { "PLEXO_DIR" } };
   const std::string& directory = home.path;
   Ptr< Status > source = statusFactory( "source" );
};

/// Takes over what a reader's table has to tell.
inline void drain( const Ptr< Plexo::Bridging::Status >& table ) {
   while( table->plexoFdbStatusControl().dispatch( std::chrono::seconds( 10 ) ) ) {
   }
}

/// Waits on the reader's descriptor until `done`, for at most some seconds.
inline bool drainUntil( const Ptr< Plexo::Bridging::Status >& table, const std::function< bool() >& done ) {
   return Plexo::drainUntil( [ & ] { return table->plexoFdbStatusControl().fd(); }, [ & ] { drain( table ); }, done );
}

/// The bytes of a table's file, to spoil.
struct TableBytes : Plexo::FileBytes {
   using FileBytes::FileBytes;
   /// No look-up and no walk gets any further.
   void spoilMagic() { put( Plexo::Format::At::magic, 0x21646162 ); }
   /// A walk fails at its first step, look-ups go on.
   void spoilHighWater() { put( Plexo::Format::At::highWater, 0xffffffff ); }
   /// Every look-up fails, walks go on.
   void spoilIndex() {
      for( std::size_t at = get( Plexo::Format::At::indexOffset ); at < size; at += Plexo::Format::bucketBytes ) {
         for( std::size_t lane = 0; lane < Plexo::Format::bucketLanes; ++lane ) put( at + lane * 4, 0x7fffffff );
      }
   }
   /// A walk fails when it comes to this slot, and so does the look-up of its record: it says that it is being changed, yet the
   /// undo cell belongs to another.
   void spoilFirstSlot() { spoilSlot( 0 ); }
   void spoilSlot( U32 slot ) {
      namespace At = Plexo::Format::At;
      const std::size_t at = get( At::slabOffset ) + std::size_t( slot ) * get( At::slotBytes );
      put( at, get( at ) | Plexo::Format::Sequence::busy );
      put( At::undo, 0 );
   }
};

}
