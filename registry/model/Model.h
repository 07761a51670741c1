#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

// Model.txt as it is read; its head explains the words.
namespace Model {

using Words = std::vector< std::string >;

struct Attribute {
   std::string role, name;
   std::string collection, key;          ///< empty for a plain attribute
   std::string holding, type, by;        ///< `holding` is empty for a value
   std::optional< std::string > start;   ///< the text of a fresh instance's value
   std::string refused, refusal;         ///< a number that the setter refuses, and the exception's text

   /// The pattern of how reflection tells it, as `lineOf` writes that.
   std::string line( bool ofMachine ) const;
};

struct Type {
   std::string kind, name;
   std::string parameters;   ///< what stands between the parentheses
   std::string base;         ///< of a scalar and a wrapped identifier: what it holds
   std::set< std::string > words;
   std::string min, max, refusal, start;
   Words again;
   std::vector< Attribute > attributes;
   std::vector< std::pair< unsigned, std::string > > enumerators;

   bool isValue() const { return kind != "entity" && kind != "machine"; }
   std::string shortName() const { return name.substr( name.rfind( ':' ) + 1 ); }
   const Attribute* attribute( const std::string& wanted ) const;
};

struct Module {
   std::string name;
   std::vector< Type > types;
};

/// The whole table. Throws `std::runtime_error` with the line that it can't read.
const std::vector< Module >& modules();
/// The type with this name, or null.
const Type* find( const std::string& name );
/// Whether `text` is `pattern`, in which three dots stand for any text.
bool matches( const std::string& pattern, const std::string& text );

}
