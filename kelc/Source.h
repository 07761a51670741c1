#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Kelc {

/// One definition file in memory. Lines and columns are computed only when somebody asks.
class Source {
 public:
   /// A place in the text as people count: line and column start at 1, the column counts bytes.
   struct Place {
      std::uint32_t line;
      std::uint32_t column;
      std::string_view lineText; ///< without its line end
   };

   Source( std::string path, std::string text ) : path_( std::move( path ) ), text_( std::move( text ) ) {}
   Source( const Source& ) = delete;
   Source& operator=( const Source& ) = delete;

   const std::string& path() const { return path_; }
   std::string_view text() const { return text_; }
   Place place( std::uint32_t offset ) const;

 private:
   std::string path_;
   std::string text_;
};

/// A stretch of a definition file, [begin, end). Without a source it is nowhere.
struct Span {
   const Source* source = nullptr;
   std::uint32_t begin = 0;
   std::uint32_t end = 0;
};

/// Reads a regular file. Returns false with the reason in `why`; a directory, a pipe or a file over 1 MiB is refused.
bool readFile( const std::string& path, std::string& text, std::string& why );

}
