#pragma once

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>
#include <string_view>
#include <vector>

namespace Tool {

/// Writes to standard output and ends the command when nobody can read it any more: without a word when the reader has gone,
/// with the system's reason when the device refuses.
void print( std::string_view text );
void flushOutput();

/// Text with its control characters and its bytes outside ASCII as \xNN: what a file holds must not steer a terminal.
std::string printable( std::string_view text );

/// True when standard output is a terminal that wants colours (https://no-color.org).
bool colours();
/// The text in one of the terminal's colours, or as it is.
std::string bold( std::string_view text );
std::string red( std::string_view text );
std::string green( std::string_view text );

/// How many columns a line may have: those of the terminal, or no end of them where standard output is none.
std::size_t outputWidth();
/// Text as lines of at most `width` columns, broken between words, and inside of one that is longer; an empty line parts
/// paragraphs.
std::vector< std::string > wrapped( std::string_view text, std::size_t width );

/// A local date and time to the second, or to the millisecond; "-" for 0.
std::string dateTime( double secondsSinceEpoch, bool withMilliseconds = false );

/// Aligned columns under a heading.
class Table {
 public:
   enum Align { left, right };
   struct Column {
      std::string heading;
      Align align = left;
   };
   explicit Table( std::vector< Column > columns );
   /// One cell per column.
   void row( const std::vector< std::string >& cells );
   void print() const;

 private:
   std::string line( std::string_view packed ) const;

   std::vector< Column > columns_;
   std::vector< std::size_t > widths_;
   std::string cells_; ///< All rows, each cell ended by a NUL: a million rows stay one allocation.
};

/// Columns for texts of any length: cells are wrapped so that the table fits the terminal.
class WrappedTable {
 public:
   explicit WrappedTable( std::vector< std::string > headings ) { rows_.push_back( std::move( headings ) ); }
   /// One cell per column.
   void row( std::vector< std::string > cells ) { rows_.push_back( std::move( cells ) ); }
   void print() const;

 private:
   std::vector< std::size_t > widths() const;

   std::vector< std::vector< std::string > > rows_;
};

/// Builds one JSON text. A double that JSON can't hold becomes null; bytes that are not UTF-8 are replaced.
class Json {
 public:
   Json& object() { return also( writer_.StartObject() ); }
   Json& endObject() { return also( writer_.EndObject() ); }
   Json& array() { return also( writer_.StartArray() ); }
   Json& endArray() { return also( writer_.EndArray() ); }
   Json& key( std::string_view name ) { return also( writer_.Key( name.data(), rapidjson::SizeType( name.size() ) ) ); }
   Json& value( std::string_view text );
   Json& value( const char* text ) { return value( std::string_view( text ) ); }
   Json& value( const std::string& text ) { return value( std::string_view( text ) ); }
   Json& value( std::uint64_t number ) { return also( writer_.Uint64( number ) ); }
   Json& value( std::uint32_t number ) { return also( writer_.Uint( number ) ); }
   Json& value( std::int64_t number ) { return also( writer_.Int64( number ) ); }
   Json& value( int number ) { return also( writer_.Int( number ) ); }
   Json& value( std::nullptr_t ) { return also( writer_.Null() ); }
   Json& value( bool truth ) { return also( writer_.Bool( truth ) ); }
   Json& value( double number );
   template< class T >
   Json& member( std::string_view name, const T& v ) {
      return key( name ).value( v );
   }
   std::string_view text() const { return { buffer_.GetString(), buffer_.GetSize() }; }
   /// Prints the text as one line and starts a new one.
   void printLine();

 private:
   Json& also( bool ) { return *this; }

   rapidjson::StringBuffer buffer_;
   rapidjson::Writer< rapidjson::StringBuffer > writer_{ buffer_ };
};

}
