#pragma once

#include <charconv>
#include <cstring>
#include <kel/Exception.h>
#include <kel/Type.h>
#include <memory>
#include <ostream>
#include <string>

// The canonical text form of values, a valid Python expression, and its parser.
namespace [[gnu::visibility("default")]] Kel {

/// Where text is written: a buffer that grows and can be used again after `clear()`.
class TextOut {
 public:
   std::string_view view() const { return { begin_.get(), static_cast< std::size_t >( at_ - begin_.get() ) }; }
   std::string str() const { return std::string( view() ); }
   void clear() { at_ = begin_.get(); }

   void append( std::string_view text ) {
      room( text.size() );
      std::memcpy( at_, text.data(), text.size() );
      at_ += text.size();
   }
   void append( char c ) {
      room( 1 );
      *at_++ = c;
   }
   template< class Number >
   void number( Number v ) {
      char* at = reserve( 32 );
      at_ = std::to_chars( at, at + 32, v ).ptr;
   }
   /// Room for `size` characters; `wrote` says how far they went.
   char* reserve( std::size_t size ) {
      room( size );
      return at_;
   }
   void wrote( char* end ) { at_ = end; }

 private:
   void room( std::size_t size ) {
      if( static_cast< std::size_t >( end_ - at_ ) < size ) [[unlikely]] grow( size );
   }
   void grow( std::size_t size );

   std::unique_ptr< char[] > begin_;
   char* at_ = nullptr;
   char* end_ = nullptr;
};

/// Writes the canonical form of a value of `type`.
void print( const Type& type, const void* value, TextOut& out );

/// Writes the bare form: an enumerator without its quotes, any other value in its canonical form.
void printBare( const Type& type, const void* value, TextOut& out );

/// Reads a value of `type` and leaves `from` behind it. Throws `RangeException` that tells the first fault in reading order.
void parse( const Type& type, void* value, TextIter& from, TextIter to );

/// Reads a value that is the whole of `text`; throws "junk at column N deserializing TYPE" for what is left over.
void parseWhole( const Type& type, void* value, std::string_view text );

/// The canonical form of a value as a string.
std::string textOf( const Type& type, const void* value );

/// The canonical text form of any value.
template< class T >
   requires( requires { Detail::TypeOf< T >::type(); } )
String8 valueToStrep( const T& value ) {
   TextOut out;
   print( typeOf< T >(), &value, out );
   return out.view();
}

/// The value whose canonical form is the whole of `text`. Throws `RangeException`.
template< class T >
T strepToValue( std::string_view text ) {
   T value{};
   parseWhole( typeOf< T >(), &value, text );
   return value;
}

/// The name of an enumerator, bare; a number outside the enumeration as "EntryType(19)".
template< class E >
   requires std::is_enum_v< E >
String8 stringValue( E value ) {
   TextOut out;
   printBare( typeOf< E >(), &value, out );
   return out.view();
}

/// The name of the enumerator with a number, or null.
[[gnu::visibility("hidden")]] const char* enumeratorName( const Type& type, U32 value );
/// The enumerator with this number or name. Throws `RangeException`, for a number with the enumeration's short name as its text.
U32 enumerator( const Type& type, U32 number );
U32 enumerator( const Type& type, std::string_view name );

/// The message of a range check over a scalar type's `value`; for the generated constructors.
[[noreturn, gnu::cold]] void refuse( const Type& type );

}
