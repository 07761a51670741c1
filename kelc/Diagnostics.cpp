#include "Diagnostics.h"

#include <algorithm>
#include <cstdio>
#include <numeric>

namespace Kelc {

namespace {

constexpr std::size_t shownWidth = 160;

bool isContinuation( char c ) {
   return ( static_cast< unsigned char >( c ) & 0xc0 ) == 0x80;
}

bool isControl( char c ) {
   return static_cast< unsigned char >( c ) < 0x20 || c == 0x7f;
}

// The source line and, below it, a caret and tildes under the span. A tab stays a tab in both lines, so that they align at any
// tab width; an overlong line is cut around the span.
std::string lineWithCaret( const Source::Place& place, std::uint32_t spanBytes ) {
   const std::size_t column = place.column - 1;
   const std::size_t from = column > shownWidth / 2 && place.lineText.size() > shownWidth ? column - shownWidth / 2 : 0;
   const auto shown = place.lineText.substr( std::min( from, place.lineText.size() ), shownWidth );
   std::string line, marks;
   for( const char c : shown ) line += c == '\t' || !isControl( c ) ? c : '?';
   for( std::size_t i = 0; i < column - from && i < shown.size(); ++i ) {
      if( !isContinuation( shown[ i ] ) ) marks += shown[ i ] == '\t' ? '\t' : ' ';
   }
   marks += '^';
   const auto last = std::min( column - from + spanBytes, shown.size() );
   for( std::size_t i = column - from + 1; i < last; ++i ) {
      if( !isContinuation( shown[ i ] ) ) marks += '~';
   }
   return line + '\n' + marks + '\n';
}

std::string located( const Source::Place& place, const Span& span, const char* kind, const std::string& text ) {
   return span.source->path() + ':' + std::to_string( place.line ) + ':' + std::to_string( place.column ) + ": " + kind + ": " +
          text + '\n';
}

std::size_t editDistance( std::string_view a, std::string_view b ) {
   std::vector< std::size_t > row( b.size() + 1 );
   std::iota( row.begin(), row.end(), std::size_t( 0 ) );
   for( std::size_t i = 1; i <= a.size(); ++i ) {
      std::size_t diagonal = row[ 0 ];
      row[ 0 ] = i;
      for( std::size_t j = 1; j <= b.size(); ++j ) {
         const std::size_t above = row[ j ];
         row[ j ] = std::min( { above + 1, row[ j - 1 ] + 1, diagonal + ( a[ i - 1 ] != b[ j - 1 ] ) } );
         diagonal = above;
      }
   }
   return row.back();
}

}

Error& Error::note( Span span, std::string text ) {
   if( span.source ) notes_.push_back( { span, std::move( text ) } );
   return *this;
}

std::string Error::str() const {
   const auto place = span_.source->place( span_.begin );
   std::string out = located( place, span_, "error", text_ ) + lineWithCaret( place, span_.end - span_.begin );
   for( const Note& n : notes_ ) out += located( n.span.source->place( n.span.begin ), n.span, "note", n.text );
   return out;
}

Error& Diagnostics::error( Span span, std::string text ) {
   constexpr std::size_t limit = 20000;   // nobody reads so many; the input may be huge
   if( errors_.size() < limit ) return errors_.emplace_back( span, std::move( text ) );
   return errors_.back() = Error( span, std::move( text ) );
}

std::string Diagnostics::str( std::size_t limit ) const {
   auto rank = [ this ]( const Error* e ) { return std::find( sources_.begin(), sources_.end(), e->span().source ); };
   std::vector< const Error* > sorted;
   for( const Error& e : errors_ ) sorted.push_back( &e );
   std::stable_sort( sorted.begin(), sorted.end(), [ & ]( const Error* a, const Error* b ) {
      const auto ra = rank( a ), rb = rank( b );
      return ra != rb ? ra < rb : a->span().begin < b->span().begin;
   } );
   auto same = []( const Error* a, const Error* b ) {
      return a->span().source == b->span().source && a->span().begin == b->span().begin;
   };
   sorted.erase( std::unique( sorted.begin(), sorted.end(), same ), sorted.end() );
   std::string out;
   for( std::size_t i = 0; i < std::min( limit, sorted.size() ); ++i ) out += sorted[ i ]->str();
   if( sorted.size() > limit ) out += "kelc: " + std::to_string( sorted.size() - limit ) + " more errors are not shown\n";
   return out;
}

std::string quoted( std::string_view text ) {
   constexpr std::size_t limit = 60;
   std::string out = "'";
   for( const char c : text.substr( 0, limit ) ) {
      if( isControl( c ) || c < 0 ) {
         char hex[ 5 ];
         std::snprintf( hex, sizeof hex, "\\x%02x", static_cast< unsigned >( static_cast< unsigned char >( c ) ) );
         out += hex;
      } else {
         out += c;
      }
   }
   return out + ( text.size() > limit ? "...'" : "'" );
}

std::string_view nearest( std::string_view word, const std::vector< std::string_view >& candidates ) {
   if( word.size() < 3 || word.size() > 64 ) return {};
   std::string_view best;
   std::size_t bestDistance = word.size() / 3 + 1;
   for( const auto candidate : candidates ) {
      if( candidate.size() > 64 ) continue;
      const auto distance = editDistance( word, candidate );
      if( distance < bestDistance ) best = candidate, bestDistance = distance;
   }
   return best;
}

std::string suggestion( std::string_view word, const std::vector< std::string_view >& candidates ) {
   const auto best = nearest( word, candidates );
   return best.empty() ? "" : " (did you mean " + std::string( best ) + "?)";
}

}
