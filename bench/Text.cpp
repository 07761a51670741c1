#include <Vanta/VlanId.h>
#include <array>
#include <benchmark/benchmark.h>
#include <cstring>
#include <kel/Text.h>
#include <rapidjson/document.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <string>

// The same two fields as text: a `VlanXlateKey` in its canonical form, an object of two numbers in JSON. Buffers, readers and documents
// are used again from turn to turn, and every parse ends in a key whose range has been checked.

namespace {

using Bridging::VlanXlateKey;
using Kel::U16;

constexpr std::size_t count = 64;

VlanXlateKey keyOf( std::size_t turn ) {
   const auto n = static_cast< U16 >( turn % count );
   return VlanXlateKey( static_cast< U16 >( 100 + 61 * n ), static_cast< U16 >( 7 * n ) );
}

std::array< VlanXlateKey, count > keys() {
   std::array< VlanXlateKey, count > all;
   for( std::size_t i = 0; i < count; ++i ) all[ i ] = keyOf( i );
   return all;
}

void jsonOf( const VlanXlateKey& key, rapidjson::StringBuffer& buffer, rapidjson::Writer< rapidjson::StringBuffer >& writer ) {
   buffer.Clear();
   writer.Reset( buffer );
   writer.StartObject();
   writer.Key( "outerVid", 8 );
   writer.Uint( key.outerVid().value() );
   writer.Key( "innerVid", 8 );
   writer.Uint( key.innerVid().value() );
   writer.EndObject();
}

std::array< std::string, count > jsonTexts() {
   rapidjson::StringBuffer buffer;
   rapidjson::Writer< rapidjson::StringBuffer > writer( buffer );
   std::array< std::string, count > all;
   for( std::size_t i = 0; i < count; ++i ) {
      jsonOf( keyOf( i ), buffer, writer );
      all[ i ] = buffer.GetString();
   }
   return all;
}

void printVanta( benchmark::State& state ) {
   const auto all = keys();
   Kel::TextOut out;
   std::size_t turn = 0;
   for( auto _ : state ) {
      out.clear();
      Kel::print( VlanXlateKey::_Type, &all[ turn++ % count ], out );
      benchmark::DoNotOptimize( out.view().data() );
      benchmark::ClobberMemory();
   }
   state.counters[ "bytes" ] = static_cast< double >( out.view().size() );
}

void printRapidJson( benchmark::State& state ) {
   const auto all = keys();
   rapidjson::StringBuffer buffer;
   rapidjson::Writer< rapidjson::StringBuffer > writer( buffer );
   std::size_t turn = 0;
   for( auto _ : state ) {
      jsonOf( all[ turn++ % count ], buffer, writer );
      benchmark::DoNotOptimize( buffer.GetString() );
      benchmark::ClobberMemory();
   }
   state.counters[ "bytes" ] = static_cast< double >( buffer.GetSize() );
}

// Parses each text in turn with `parse( text )` and checks the last key.
template< class Texts, class Parse >
void parsing( benchmark::State& state, const Texts& texts, Parse parse ) {
   std::size_t turn = 0;
   VlanXlateKey key;
   for( auto _ : state ) {
      key = parse( texts[ turn++ % count ] );
      benchmark::DoNotOptimize( key );
   }
   if( key != keyOf( turn - 1 ) ) state.SkipWithError( "parsed to another key" );
}

void parseVanta( benchmark::State& state ) {
   std::array< std::string, count > texts;
   for( std::size_t i = 0; i < count; ++i ) texts[ i ] = Kel::valueToStrep( keyOf( i ) ).str();
   parsing( state, texts, []( const std::string& text ) { return Kel::strepToValue< VlanXlateKey >( text ); } );
}

struct KeyHandler : rapidjson::BaseReaderHandler< rapidjson::UTF8<>, KeyHandler > {
   U16 outerVid = 1;
   U16 innerVid = 0;
   U16* field = nullptr;

   bool StartObject() { return true; }
   bool EndObject( rapidjson::SizeType ) { return true; }
   bool Default() { return false; }
   bool Key( const char* name, rapidjson::SizeType size, bool ) {
      if( size == 8 && !std::memcmp( name, "outerVid", 8 ) ) field = &outerVid;
      else if( size == 8 && !std::memcmp( name, "innerVid", 8 ) ) field = &innerVid;
      else return false;
      return true;
   }
   bool Uint( unsigned v ) {
      if( !field || v > 0xffff ) return false;
      *field = static_cast< U16 >( v );
      return true;
   }
};

void parseSax( benchmark::State& state ) {
   rapidjson::Reader reader;
   parsing( state, jsonTexts(), [ &reader ]( const std::string& text ) {
      rapidjson::StringStream stream( text.c_str() );
      KeyHandler handler;
      reader.Parse( stream, handler );
      return VlanXlateKey( handler.outerVid, handler.innerVid );
   } );
}

// Strings stay in the text, which is spoilt; so it is copied first.
void parseInsitu( benchmark::State& state ) {
   rapidjson::Reader reader;
   std::array< char, 64 > text;
   parsing( state, jsonTexts(), [ & ]( const std::string& original ) {
      std::memcpy( text.data(), original.c_str(), original.size() + 1 );
      rapidjson::InsituStringStream stream( text.data() );
      KeyHandler handler;
      reader.Parse< rapidjson::kParseInsituFlag >( stream, handler );
      return VlanXlateKey( handler.outerVid, handler.innerVid );
   } );
}

void parseDocument( benchmark::State& state ) {
   std::array< char, 4096 > memory;
   rapidjson::MemoryPoolAllocator<> allocator( memory.data(), memory.size() );
   rapidjson::Document document( &allocator );
   parsing( state, jsonTexts(), [ & ]( const std::string& text ) {
      document.SetNull();
      allocator.Clear();
      document.Parse( text.c_str(), text.size() );
      return VlanXlateKey( static_cast< U16 >( document[ "outerVid" ].GetUint() ), static_cast< U16 >( document[ "innerVid" ].GetUint() ) );
   } );
}

BENCHMARK( printVanta )->Name( "text-print/vanta" );
BENCHMARK( printRapidJson )->Name( "text-print/rapidjson" );
BENCHMARK( parseVanta )->Name( "text-parse/vanta" );
BENCHMARK( parseSax )->Name( "text-parse/rapidjson-sax" );
BENCHMARK( parseInsitu )->Name( "text-parse/rapidjson-insitu" );
BENCHMARK( parseDocument )->Name( "text-parse/rapidjson-document" );

}
