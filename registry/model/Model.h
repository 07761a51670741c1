#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

// Model.txt as it is read; its head explains the words.
namespace Model {

using Words = std::vector< std::string >;

struct Attribute {
   std::string role, name;
   std::string collection;   ///< empty for a plain attribute
   std::string key;
   std::string holding;      ///< empty for a value
   std::string type;
   std::string by;
   std::optional< std::string > start;   ///< the text of a fresh instance's value
   std::string refused, refusal;         ///< a number that the setter refuses, and the exception's text
   Words parameters;                     ///< of an operation

   bool isParameter() const { return role == "key" || role.starts_with( "param" ); }
   /// The pattern of how reflection tells it, as `lineOf` writes that.
   std::string line( bool ofMachine ) const;
};

struct Type {
   std::string kind, name, base, start;
   std::string takes;        ///< "name", "string" or empty
   std::string held, min, max, refusal;
   Words parameters;         ///< of a machine's constructor
   Words again;
   std::set< std::string > words;
   std::vector< Attribute > attributes;
   std::vector< std::pair< unsigned, std::string > > enumerators;

   bool is( const std::string& word ) const { return words.contains( word ); }
   bool isValue() const { return kind != "entity" && kind != "machine"; }
   std::string shortName() const { return name.substr( name.rfind( ':' ) + 1 ); }
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
