#pragma once

#include "Source.h"

#include <deque>
#include <string>
#include <vector>

namespace Kelc {

/// One error of a definition, with the places that contradict it.
class Error {
 public:
   Error( Span span, std::string text ) : span_( span ), text_( std::move( text ) ) {}
   /// Adds a place that explains the error. A span that is nowhere is passed over.
   Error& note( Span span, std::string text );
   Span span() const { return span_; }
   std::string str() const;

 private:
   struct Note {
      Span span;
      std::string text;
   };
   Span span_;
   std::string text_;
   std::vector< Note > notes_;
};

/// Collects all errors of a run and prints them in file order: files as they were first read, then by position.
class Diagnostics {
 public:
   /// Sources are ordered by their first mention here.
   void sourceIs( const Source* source ) { sources_.push_back( source ); }
   /// The reference stays valid. A second error at the very same place is counted as the first one's consequence and dropped
   /// when the text is printed.
   Error& error( Span span, std::string text );
   bool any() const { return !errors_.empty(); }
   std::size_t count() const { return errors_.size(); }
   /// The whole report; after `limit` errors one line says how many are left.
   std::string str( std::size_t limit = 100 ) const;

 private:
   std::vector< const Source* > sources_;
   std::deque< Error > errors_;
};

/// `'text'`, shortened and with unprintable bytes shown as \xNN: fit for an error message.
std::string quoted( std::string_view text );

/// The candidate nearest to `word` by spelling, or an empty view when none is near enough to be meant.
std::string_view nearest( std::string_view word, const std::vector< std::string_view >& candidates );

/// " (did you mean X?)" or nothing.
std::string suggestion( std::string_view word, const std::vector< std::string_view >& candidates );

}
