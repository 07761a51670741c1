#include "Schema.h"

#include "Cli.h"
#include "InputFile.h"

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <tuple>
#include <utility>

// A file is scanned without recursion first, and refused when it nests deeper than any schema does: what walks a document
// afterwards, our own functions and RapidJSON's, recurses.

namespace Tool {

namespace {

namespace fs = std::filesystem;

constexpr unsigned parseFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag;
constexpr int mostDepth = 32;
constexpr std::uint64_t format = 1;

struct DepthLimit : rapidjson::BaseReaderHandler< rapidjson::UTF8<>, DepthLimit > {
   bool StartObject() { return ++depth <= mostDepth; }
   bool StartArray() { return ++depth <= mostDepth; }
   bool EndObject( rapidjson::SizeType ) { return --depth >= 0; }
   bool EndArray( rapidjson::SizeType ) { return --depth >= 0; }
   int depth = 0;
};

[[noreturn]] void fail( const std::string& path, const std::string& reason ) {
   throw Failure( exitNotConnected, "cannot read '" + path + "': " + reason );
}

std::string errorText( const rapidjson::ParseResult& result ) {
   if( result.Code() == rapidjson::kParseErrorTermination ) return "it nests deeper than any schema";
   return std::string( "at byte " ) + std::to_string( result.Offset() ) + ": " + rapidjson::GetParseError_En( result.Code() );
}

const rapidjson::Value* memberOf( const rapidjson::Value& object, const char* name ) {
   const auto found = object.FindMember( name );
   return found == object.MemberEnd() ? nullptr : &found->value;
}

std::vector< std::string > schemaFiles( const std::string& directory ) {
   std::vector< std::string > files;
   std::error_code error;
   auto each = [ & ]( const fs::path& in, auto visit ) {
      for( fs::directory_iterator at( in, error ), end; !error && at != end; at.increment( error ) ) visit( at->path() );
      if( error ) throw Failure( exitNotConnected, "cannot read the schema directory '" + in.string() + "': " + error.message() );
   };
   auto take = [ & ]( const fs::path& path ) {
      if( path.extension() == ".json" ) files.push_back( path.string() );
   };
   each( directory, [ & ]( const fs::path& path ) {
      std::error_code unknown;
      if( fs::is_directory( path, unknown ) ) each( path, take );
      else take( path );
   } );
   std::sort( files.begin(), files.end() );
   return files;
}

std::string small( std::string_view text ) {
   std::string out( text );
   for( char& c : out ) c = c >= 'A' && c <= 'Z' ? static_cast< char >( c - 'A' + 'a' ) : c;
   return out;
}

/// How many letters must be put in, left out or changed to make one text of the other.
std::size_t distance( std::string_view a, std::string_view b ) {
   std::vector< std::size_t > row( b.size() + 1 );
   std::iota( row.begin(), row.end(), std::size_t( 0 ) );
   for( std::size_t i = 0; i < a.size(); ++i ) {
      std::size_t diagonal = std::exchange( row[ 0 ], i + 1 );
      for( std::size_t j = 0; j < b.size(); ++j ) {
         const std::size_t changed = diagonal + ( a[ i ] != b[ j ] );
         diagonal = row[ j + 1 ];
         row[ j + 1 ] = std::min( { changed, diagonal + 1, row[ j ] + 1 } );
      }
   }
   return row.back();
}

std::string_view shortName( std::string_view name ) {
   const auto at = name.rfind( "::" );
   return at == name.npos ? name : name.substr( at + 2 );
}

}

Schema::Schema( const std::string& directory ) {
   for( const std::string& path : schemaFiles( directory ) ) read( path );
   if( types_.empty() ) throw Failure( exitNotConnected, "the schema directory '" + directory + "' describes no type" );
}

void Schema::read( const std::string& path ) {
   InputFile file( path );
   const std::string text = file.bytesAt( 0, file.size(), "its content" );
   rapidjson::MemoryStream scanned( text.data(), text.size() ), parsed( text.data(), text.size() );
   DepthLimit limit;
   if( const auto result = rapidjson::Reader().Parse< parseFlags >( scanned, limit ); !result ) fail( path, errorText( result ) );

   rapidjson::Document& document = documents_.emplace_back();
   if( document.ParseStream< parseFlags >( parsed ); document.HasParseError() ) fail( path, errorText( document ) );
   if( !document.IsObject() ) fail( path, "it is no schema" );
   const auto* version = memberOf( document, "format" );
   if( !version || !version->IsUint64() ) fail( path, "it is no schema: it has no format" );
   if( version->GetUint64() != format ) {
      fail( path, "it has format " + std::to_string( version->GetUint64() ) + ", this program reads format " +
                     std::to_string( format ) );
   }
   const Type whole{ "", "", path, &document };
   const std::string module( textOf( whole, document, "module" ) );
   if( const auto* types = listOf( whole, document, "types", rapidjson::kObjectType ) ) take( *types, module, path );
}

void Schema::take( const rapidjson::Value& types, const std::string& module, const std::string& path ) {
   for( const rapidjson::Value& value : types.GetArray() ) {
      Type type{ "", module, path, &value };
      type.name = textOf( type, value, "name" );
      if( type.name.empty() ) fail( path, "a type in it has no name" );
      types_.push_back( type );
      if( const auto* nested = listOf( type, value, "nested", rapidjson::kObjectType ) ) take( *nested, module, path );
   }
}

std::vector< const Schema::Type* > Schema::find( std::string_view name ) const {
   std::vector< const Type* > out;
   const std::string end = "::" + std::string( name );
   for( const Type& type : types_ ) {
      if( type.name == name ) return { &type };
      if( type.name.ends_with( end ) ) out.push_back( &type );
   }
   return out;
}

std::vector< std::string > Schema::like( std::string_view name ) const {
   if( name.size() > 200 ) return {};
   const std::string wanted = small( name ), wantedShort = small( shortName( name ) );
   std::vector< std::tuple< std::size_t, std::size_t, std::string > > near;
   for( const Type& type : types_ ) {
      const std::string whole = small( type.name.substr( 0, 200 ) );
      const std::size_t wholeAway = distance( wanted, whole );
      const std::size_t away = std::min( wholeAway, distance( wantedShort, shortName( whole ) ) );
      if( away <= 1 + wantedShort.size() / 4 ) near.emplace_back( away, wholeAway, type.name );
   }
   std::sort( near.begin(), near.end() );
   near.erase( std::unique( near.begin(), near.end() ), near.end() );
   std::vector< std::string > out;
   near.resize( std::min< std::size_t >( near.size(), 3 ) );
   for( const auto& found : near ) out.push_back( std::get< std::string >( found ) );
   return out;
}

std::string schemaDirectory() {
   if( const char* named = std::getenv( "VANTA_SCHEMA" ); named && *named ) return named;
   std::error_code error;
   const fs::path program = fs::read_symlink( "/proc/self/exe", error ).parent_path();
   const fs::path installed = ( program / VANTA_SCHEMA_FROM_BIN ).lexically_normal();
   return fs::is_directory( installed, error ) ? installed : ( program / "../schema" ).lexically_normal();
}

std::string_view textOf( const Schema::Type& type, const rapidjson::Value& object, const char* member ) {
   const auto* value = memberOf( object, member );
   if( !value ) return {};
   if( !value->IsString() ) fail( type.path, std::string( "a member \"" ) + member + "\" in it is no text" );
   return { value->GetString(), value->GetStringLength() };
}

const rapidjson::Value* listOf( const Schema::Type& type, const rapidjson::Value& object, const char* member,
                                rapidjson::Type of ) {
   const auto* value = memberOf( object, member );
   if( !value ) return nullptr;
   const auto isElement = [ of ]( const rapidjson::Value& v ) { return v.GetType() == of; };
   if( !value->IsArray() || !std::all_of( value->Begin(), value->End(), isElement ) ) {
      fail( type.path, std::string( "a member \"" ) + member + "\" in it is no list of " +
                          ( of == rapidjson::kObjectType ? "objects" : "texts" ) );
   }
   return value;
}

}
