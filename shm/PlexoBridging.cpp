#include <Vanta/PlexoBridging.h>

#include <charconv>

namespace Plexo::Bridging {

Kel::String8 PlexoFdbStatus::plexoString() const {
   Kel::TextOut out;
   out.append( '[' );
   out.number( key().fid().value() );
   out.append( ',' );
   out.append( key().addr().stringValue() );
   out.append( ']' );
   out.append( intf().shortName() );
   out.append( ',' );
   // The largest double has 309 digits before its point.
   char* text = out.reserve( 320 );
   out.wrote( std::to_chars( text, text + 320, double( lastMoveTime() ), std::chars_format::fixed, 3 ).ptr );
   out.append( ',' );
   out.number( static_cast< Kel::U32 >( entryType() ) );
   return out.view();
}

}
