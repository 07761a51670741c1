#include "Model.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Model {

namespace {

Words split( const std::string& text ) {
   std::istringstream in( text );
   Words out;
   for( std::string word; in >> word; ) out.push_back( word );
   return out;
}

// Takes the first word off.
std::string next( Words& words ) {
   if( words.empty() ) throw std::runtime_error( "something is missing at the end" );
   const std::string word = words.front();
   words.erase( words.begin() );
   return word;
}

bool oneOf( const std::string& word, const std::set< std::string >& all ) { return all.contains( word ); }

// What stands behind " = ", which is taken off.
std::optional< std::string > start( std::string& line ) {
   const auto at = line.find( " = " );
   if( at == std::string::npos ) return {};
   const std::string text = line.substr( at + 3 );
   line.erase( at );
   return text;
}

Attribute attribute( std::string line ) {
   static const std::set< std::string > roles = { "key", "param", "paramvar", "const", "derived", "any", "control", "narrow", "inherited", "owner", "op" };
   static const std::set< std::string > holdings = { "ref", "nonnull", "child", "optional", "watch", "to" };
   Attribute a;
   a.start = start( line );
   Words words = split( line );
   if( words.size() > 1 && words[ 1 ] != ":" && oneOf( words[ 0 ], roles ) ) a.role = next( words );
   a.name = next( words );
   if( words.empty() && oneOf( a.role, { "op", "control" } ) ) return a;
   if( next( words ) != ":" ) throw std::runtime_error( "no \":\" behind the attribute's name" );
   if( a.role == "op" ) {
      a.parameters = words;
      return a;
   }
   if( oneOf( words.at( 0 ), { "map", "ordered", "queue", "table" } ) ) {
      a.collection = next( words );
      a.key = next( words );
      if( next( words ) != "->" ) throw std::runtime_error( "no \"->\" behind the key's type" );
   }
   if( oneOf( words.at( 0 ), holdings ) ) a.holding = next( words );
   a.type = next( words );
   if( !words.empty() && next( words ) == "by" ) a.by = next( words );
   if( !words.empty() ) throw std::runtime_error( words[ 0 ] + " is not understood" );
   return a;
}

// "( a, b )" behind a type's name.
Words parameters( std::string& line ) {
   const auto open = line.find( '(' ), close = line.find( ')' );
   if( open == std::string::npos ) return {};
   std::string inside = line.substr( open + 1, close - open - 1 );
   std::replace( inside.begin(), inside.end(), ',', ' ' );
   line.erase( open, close - open + 1 );
   return split( inside );
}

Type type( std::string line ) {
   Type t;
   t.start = start( line ).value_or( "" );
   const Words given = parameters( line );
   Words words = split( line );
   t.kind = next( words );
   t.name = next( words );
   if( t.kind == "machine" ) t.parameters = given;
   else if( !given.empty() ) t.takes = given[ 0 ];
   if( !words.empty() && words[ 0 ] == ":" ) {
      next( words );
      ( t.kind == "scalar" || t.kind == "wrapped" ? t.held : t.base ) = next( words );
   }
   for( const std::string& word : words ) {
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

void member( Type& t, const std::string& line ) {
   Words words = split( line );
   if( t.kind == "enum" ) {
      while( !words.empty() ) {
         const auto number = static_cast< unsigned >( std::stoul( next( words ) ) );
         t.enumerators.emplace_back( number, next( words ) );
      }
   } else if( words[ 0 ] == "again" ) {
      t.again.assign( words.begin() + 1, words.end() );
   } else if( words[ 0 ] == "refuses" && t.attributes.empty() ) {
      t.refusal = line.substr( line.find( words[ 1 ] ) );
   } else if( words[ 0 ] == "refuses" ) {
      t.attributes.back().refused = words[ 1 ];
      t.attributes.back().refusal = line.substr( line.find( words[ 2 ] ) );
   } else {
      t.attributes.push_back( attribute( line ) );
   }
}

std::vector< Module > load( const std::string& path ) {
   std::ifstream in( path );
   std::vector< Module > all;
   std::string line;
   for( int number = 1; std::getline( in, line ); ++number ) {
      if( line.empty() || line[ 0 ] == '#' ) continue;
      try {
         if( line.starts_with( "module " ) ) all.push_back( { line.substr( 7 ), {} } );
         else if( line[ 0 ] != ' ' ) all.at( all.size() - 1 ).types.push_back( type( line ) );
         else member( all.at( all.size() - 1 ).types.at( all.back().types.size() - 1 ), line );
      } catch( const std::exception& e ) {
         throw std::runtime_error( path + ":" + std::to_string( number ) + ": " + e.what() );
      }
   }
   if( all.empty() ) throw std::runtime_error( path + " can't be read" );
   return all;
}

}

std::string Attribute::line( bool ofMachine ) const {
   const bool isPlain = role.empty() || role == "narrow" || role == "inherited";
   std::string out = role == "any" ? "..." : role == "key" ? "param " : isPlain ? "" : role + " ";
   out += name == "*" ? "..." : name;
   if( role == "control" ) return out;
   if( role == "op" ) return out + " " + std::to_string( parameters.size() );
   out += " : ";
   if( !collection.empty() ) out += ( collection == "ordered" ? "map " : collection + " " ) + key + " -> ";
   if( holding == "to" ) out += "... ";
   else if( !holding.empty() && !( ofMachine && !collection.empty() ) ) out += holding + " ";
   return out + type + ( by.empty() || !holding.empty() ? "" : " by " + by );
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
   const std::string rest = pattern.substr( dots + 3 );
   for( std::size_t at = dots; at <= text.size(); ++at ) {
      if( matches( rest, text.substr( at ) ) ) return true;
   }
   return false;
}

}
