#pragma once

#include <algorithm>
#include <cstring>
#include <kel/Hash.h>
#include <map>
#include <plexo/Writer.h>

// The record of the table tests.
namespace Plexo {

struct Host {
   U32 number = 0;                                                      // the key, with `space`
   U32 space = 0;
   U32 port = 0;
   U32 check[ 5 ] = {};                                                 // all equal `port`: a torn record shows

   Host() = default;
   Host( U32 n, U32 p, U32 s = 0 ) : number( n ), space( s ), port( p ) { std::fill_n( check, 5, p ); }
   bool whole() const { return std::all_of( check, check + 5, [ & ]( U32 c ) { return c == port; } ); }
};
static_assert( sizeof( Host ) == 32 );

inline U32 hostHash( const void* key ) {
   U32 words[ 2 ];
   std::memcpy( words, key, 8 );
   return Kel::murmur3Of8( words[ 0 ], words[ 1 ] );
}
inline U32 oneHash( const void* ) { return 12345; }

inline constexpr RecordLayout hostLayout{ 32, 0, 8, hostHash, "Host{number:U32@0,space:U32@4,port:U32@8,check:U32[5]@12}" };
/// What an earlier version of the program had.
inline constexpr RecordLayout oldHostLayout{ 32, 0, 8, hostHash, "Host{number:U32@0,space:U32@4,port:U32@8}" };
inline constexpr RecordLayout floodLayout{ 32, 0, 8, oneHash, "Flood{number:U32@0,space:U32@4,port:U32@8,check:U32[5]@12}" };

template< class Table >
void learn( Table& table, U32 number, U32 port, U32 space = 0 ) {
   const Host host( number, port, space );
   table.upsert( &host );
}

template< class Table >
bool forget( Table& table, U32 number, U32 space = 0 ) {
   const Host host( number, 0, space );
   return table.erase( &host );
}

}
