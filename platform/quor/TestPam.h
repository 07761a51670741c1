#pragma once

#include <functional>
#include <quor/Pam.h>
#include <string>
#include <vector>

// Both ends of a packet endpoint, for tests.
namespace Quor::TestPams {

using Kel::Ptr;
using Kel::U32;
using Bytes = std::vector< Kel::U8 >;

inline Ptr< Packet > packet( const Bytes& bytes ) { return Ptr< Packet >( new Packet( bytes ) ); }
inline Bytes content( const Packet& pkt ) { return { pkt.view().begin(), pkt.view().end() }; }

/// Notes what it is told, then does something.
struct Listener : PamNotifiee {
   void onRx( const Ptr< Packet >& pkt ) override {
      frames.push_back( content( *pkt ) );
      act();
   }
   void onGone( const Kel::String8& why ) override {
      gone.push_back( why.str() );
      act();
   }
   void act() {
      if( const auto now = action ) now();
   }
   std::vector< Bytes > frames;
   std::vector< std::string > gone;
   std::function< void() > action;
};

/// A lower endpoint whose wire is the test.
struct WirePam : Pam {
   void tx( const Ptr< Packet >& pkt ) override {
      if( const auto now = action ) now();
      sent.push_back( content( *pkt ) );
   }
   void receive( const Bytes& bytes ) { deliver( packet( bytes ) ); }
   void vanish( const char* why ) { deliverGone( why ); }
   std::vector< Bytes > sent;
   std::function< void() > action;
};

}
