#pragma once

#include <kel/String8.h>

namespace [[gnu::visibility("default")]] Kel {

/// The name of an entity, of a directory entry or of a configuration source. A string in every respect but its type.
class Name {
 public:
   Name() noexcept = default;
   Name( const char* text ) : text_( text ) {}
   Name( std::string_view text ) : text_( text ) {}
   Name( const std::string& text ) : text_( text ) {}
   Name( String8 text ) noexcept : text_( std::move( text ) ) {}

   const String8& stringValue() const noexcept { return text_; }
   operator const String8&() const noexcept { return text_; }
   std::string_view view() const noexcept { return text_.view(); }
   std::string str() const { return text_.str(); }
   const char* charPtr() const noexcept { return text_.charPtr(); }
   std::size_t bytes() const noexcept { return text_.bytes(); }
   bool empty() const noexcept { return text_.empty(); }
   U32 hash() const noexcept { return text_.hash(); }

   friend bool operator==( const Name& a, const Name& b ) noexcept { return a.text_ == b.text_; }
   friend bool operator==( const Name& a, const char* b ) noexcept { return a.text_ == b; }
   friend std::strong_ordering operator<=>( const Name& a, const Name& b ) noexcept { return a.text_ <=> b.text_; }
   /// The bytes as they are.
   template< class Traits >
   friend std::basic_ostream< char, Traits >& operator<<( std::basic_ostream< char, Traits >& out, const Name& name ) {
      return out << name.view();
   }

 private:
   String8 text_;
};

}
