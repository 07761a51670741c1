#pragma once

#include <string>
#include <string_view>

// Pieces of a page in Markdown.
namespace Kelc {

/// A comment's text, without what Markdown would read as its own. Each paragraph stands on one line; between two of them is
/// `gap`: a table's cell or a list's item has its own.
std::string prose( std::string_view text, const char* gap = "\n\n" );

inline constexpr char cellGap[] = "<br><br>";
inline constexpr char itemGap[] = "\n\n  ";

/// Text as code, fit for a cell of a table too; nothing for nothing.
std::string code( std::string_view text );

/// The first sentence of a comment.
std::string_view firstSentence( std::string_view text );

}
