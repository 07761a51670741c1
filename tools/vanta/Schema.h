#pragma once

#include <rapidjson/document.h>

#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace Tool {

/// The types that the schema files of a directory describe, as kelc wrote them: DIR/MODULE.json and DIR/LIBRARY/MODULE.json.
/// Nothing in a file is trusted; whatever can't be used throws `Failure` with `exitNotConnected`, one line that names the file.
class Schema {
 public:
   struct Type {
      std::string name;                ///< Qualified: "Bridging::VlanId".
      std::string module;
      std::string path;                ///< Of the file, for messages.
      const rapidjson::Value* value;   ///< A JSON object; lives as long as the schema.
   };

   explicit Schema( const std::string& directory );

   /// The type with this qualified name, or else all types whose qualified names end in it ("VlanId", "Input::VlanConfig").
   std::vector< const Type* > find( std::string_view name ) const;
   /// Names of types that somebody may have meant, the best first; at most three.
   std::vector< std::string > like( std::string_view name ) const;

 private:
   void read( const std::string& path );
   void take( const rapidjson::Value& types, const std::string& module, const std::string& path );

   std::deque< rapidjson::Document > documents_;
   std::vector< Type > types_;
};

/// Where the schema is, unless an option says so: VANTA_SCHEMA in the environment, or beside this program, as it was installed or
/// built.
std::string schemaDirectory();

/// A member of a JSON object that is a text; "" when there is none. Throws `Failure` when it is no text.
std::string_view textOf( const Schema::Type& type, const rapidjson::Value& object, const char* member );
/// A member that is a list of `rapidjson::kObjectType` or `rapidjson::kStringType`; null when there is none. Throws `Failure` when
/// it is anything else.
const rapidjson::Value* listOf( const Schema::Type& type, const rapidjson::Value& object, const char* member,
                                rapidjson::Type of );

}
