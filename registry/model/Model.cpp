#include "Model.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace Model {

namespace {

Words split( const std::string& text ) {
   std::istringstream in( text );
   return { std::istream_iterator< std::string >( in ), {} };
}

std::smatch matched( const std::string& line, const std::regex& form ) {
   std::smatch parts;
   if( !std::regex_match( line, parts, form ) ) throw std::runtime_error( "not understood: " + line );
   return parts;
}

Type type( const std::string& line ) {
   static const std::regex form( R"((enum|scalar|value|wrapped|entity|machine) ([\w:]+)(?:\( (.*) \))?)"
                                 R"((?: : (\S+))?((?: [\w.]+)*)(?: = (.*))?)" );
   const auto parts = matched( line, form );
   Type t;
   t.kind = parts[ 1 ];
   t.name = parts[ 2 ];
   t.parameters = parts[ 3 ];
   t.base = parts[ 4 ];
   t.start = parts[ 6 ];
   for( const std::string& word : split( parts[ 5 ] ) ) {
      const auto dots = word.find( ".." );
      if( dots == std::string::npos ) {
         t.words.insert( word );
      } else {
         t.min = word.substr( 0, dots );
         t.max = word.substr( dots + 2 );
      }
   }
   return t;
}

Attribute attribute( const std::string& line ) {
   static const std::regex form( R"( +(?:(key|param|paramvar|const|derived|any|control|narrow|inherited|owner|op) )?([\w*]+))"
                                 R"((?: :(?: (map|ordered|queue|table) (\S+) ->)?(?: (ref|nonnull|child|optional|watch|to))?)"
                                 R"( ([\w:]+)(?: by (\w+))?(?: = (.*))?)?)" );
   const auto parts = matched( line, form );
   Attribute a{ parts[ 1 ], parts[ 2 ], parts[ 3 ], parts[ 4 ], parts[ 5 ], parts[ 6 ], parts[ 7 ], {}, {}, {} };
   if( parts[ 8 ].matched ) a.start = parts[ 8 ];
   return a;
}

void member( Type& t, const std::string& line ) {
   static const std::regex refusal( R"( +refuses (.*))" ), limit( R"( +refuses (\d+) (.*))" );
   const Words words = split( line );
   std::smatch parts;
   if( t.kind == "enum" ) {
      for( std::size_t i = 0; i < words.size(); i += 2 ) {
         t.enumerators.emplace_back( std::stoul( words[ i ] ), words.at( i + 1 ) );
      }
   } else if( words[ 0 ] == "again" ) {
      t.again.assign( words.begin() + 1, words.end() );
   } else if( std::regex_match( line, parts, limit ) ) {
      t.attributes.back().refused = parts[ 1 ];
      t.attributes.back().refusal = parts[ 2 ];
   } else if( std::regex_match( line, parts, refusal ) ) {
      t.refusal = parts[ 1 ];
   } else {
      t.attributes.push_back( attribute( line ) );
   }
}

std::vector< Module > load( const std::string& path ) {
   std::ifstream in( path );
   std::vector< Module > all;
   int number = 0;
   for( std::string line; std::getline( in, line ); ) try {
      ++number;
      if( line.empty() || line[ 0 ] == '#' ) continue;
      if( line.starts_with( "module " ) ) all.push_back( { line.substr( 7 ), {} } );
      else if( line[ 0 ] != ' ' ) all.at( all.size() - 1 ).types.push_back( type( line ) );
      else member( all.at( all.size() - 1 ).types.at( all.back().types.size() - 1 ), line );
   } catch( const std::exception& e ) {
      throw std::runtime_error( path + ":" + std::to_string( number ) + ": " + e.what() );
   }
   if( all.empty() ) throw std::runtime_error( path + " can't be read" );
   return all;
}

}

std::string Attribute::line( bool ofMachine ) const {
   const bool isPlain = role.empty() || role == "narrow" || role == "inherited";
   std::string out = role == "any" ? "..." : role == "key" ? "param " : isPlain ? "" : role + " ";
   out += name == "*" ? "..." : name;
   if( role == "control" ) return out + "...";
   if( role == "op" ) return out + ( type.empty() ? " 0" : " 1" );
   out += " : ";
   if( !collection.empty() ) out += collection + " " + key + " -> ";
   if( holding == "to" ) out += "... ";
   else if( !holding.empty() && !( ofMachine && !collection.empty() ) ) out += holding + " ";
   return out + type + ( by.empty() || !holding.empty() ? "" : " by " + by );
}

const Attribute* Type::attribute( const std::string& wanted ) const {
   const auto at = std::find_if( attributes.begin(), attributes.end(), [ & ]( const Attribute& a ) { return a.name == wanted; } );
   return at == attributes.end() ? nullptr : &*at;
}

const std::vector< Module >& modules() {
   static const std::vector< Module > all = load( MODEL_TXT );
   return all;
}

const Type* find( const std::string& name ) {
   for( const Module& module : modules() ) {
      for( const Type& type : module.types ) {
         if( type.name == name ) return &type;
      }
   }
   return nullptr;
}

bool matches( const std::string& pattern, const std::string& text ) {
   const auto dots = pattern.find( "..." );
   if( dots == std::string::npos ) return pattern == text;
   if( text.compare( 0, dots, pattern, 0, dots ) != 0 ) return false;
   for( std::size_t at = dots; at <= text.size(); ++at ) {
      if( matches( pattern.substr( dots + 3 ), text.substr( at ) ) ) return true;
   }
   return false;
}

}
