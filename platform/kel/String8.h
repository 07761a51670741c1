#pragma once

#include <compare>
#include <cstring>
#include <kel/Exception.h>
#include <kel/Hash.h>
#include <kel/RefCount.h>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace [[gnu::visibility("default")]] Kel {

/// An immutable string of 8-bit characters, shared by its copies: a copy is a reference count, an empty string costs nothing.
/// It may hold any byte, NUL included.
class String8 {
 public:
   String8() noexcept = default;
   String8( std::string_view text ) : rep_( make( text ) ) {}
   String8( const char* text ) : String8( std::string_view( text ? text : "" ) ) {}
   String8( const std::string& text ) : String8( std::string_view( text ) ) {}
   String8( const String8& other ) noexcept : rep_( other.rep_ ) {
      if( rep_ ) rep_->references.increment();
   }
   String8( String8&& other ) noexcept : rep_( std::exchange( other.rep_, nullptr ) ) {}
   String8& operator=( String8 other ) noexcept {
      std::swap( rep_, other.rep_ );
      return *this;
   }
   ~String8() {
      if( rep_ && rep_->references.decrement() ) ::operator delete( rep_ );
   }

   const char* data() const noexcept { return rep_ ? rep_->text() : ""; }
   /// NUL-terminated; equals `data()`.
   const char* charPtr() const noexcept { return data(); }
   std::size_t bytes() const noexcept { return rep_ ? rep_->size : 0; }
   std::size_t size() const noexcept { return bytes(); }
   bool empty() const noexcept { return rep_ == nullptr; }
   std::string_view view() const noexcept { return { data(), bytes() }; }
   operator std::string_view() const noexcept { return view(); }
   std::string str() const { return std::string( view() ); }

   U32 hash() const noexcept { return murmur3( data(), bytes() ); }

   friend bool operator==( const String8& a, const String8& b ) noexcept { return a.rep_ == b.rep_ || a.view() == b.view(); }
   friend bool operator==( const String8& a, std::string_view b ) noexcept { return a.view() == b; }
   friend bool operator==( const String8& a, const char* b ) noexcept { return a.view() == b; }
   friend bool operator==( const String8& a, const std::string& b ) noexcept { return a.view() == b; }
   /// Byte-wise, as unsigned characters.
   friend std::strong_ordering operator<=>( const String8& a, const String8& b ) noexcept { return a.view() <=> b.view(); }
   /// The bytes as they are.
   template< class Traits >
   friend std::basic_ostream< char, Traits >& operator<<( std::basic_ostream< char, Traits >& out, const String8& text ) {
      return out << text.view();
   }
   friend String8 operator+( const String8& a, std::string_view b ) { return String8( a.str().append( b ) ); }

 private:
   struct Rep {
      RefCount references;
      U32 size;
      char* text() noexcept { return reinterpret_cast< char* >( this + 1 ); }
   };

   static Rep* make( std::string_view text ) {
      if( text.empty() ) return nullptr;
      if( text.size() > 0xffffffffu ) throw RangeException( "String8::bytes > 4294967295 not allowed" );
      auto* rep = ::new( ::operator new( sizeof( Rep ) + text.size() + 1 ) ) Rep;
      rep->size = static_cast< U32 >( text.size() );
      rep->references.increment();
      std::memcpy( rep->text(), text.data(), text.size() );
      rep->text()[ text.size() ] = 0;
      return rep;
   }

   Rep* rep_ = nullptr;
};

/// The same type by the shorter name that interfaces written by hand use, such as the packet modules.
using String = String8;

}
