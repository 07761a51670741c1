#include "Names.h"

#include <algorithm>
#include <array>

namespace Kelc {

std::string upperFirst( std::string_view name ) {
   std::string out( name );
   if( !out.empty() && out[ 0 ] >= 'a' && out[ 0 ] <= 'z' ) out[ 0 ] = static_cast< char >( out[ 0 ] - 'a' + 'A' );
   return out;
}

std::string lowerFirst( std::string_view name ) {
   std::string out( name );
   if( !out.empty() && out[ 0 ] >= 'A' && out[ 0 ] <= 'Z' ) out[ 0 ] = static_cast< char >( out[ 0 ] - 'A' + 'a' );
   return out;
}

std::string reactorName( const Attr& attr ) {
   return attr.watch && !attr.watch->reactor.empty() ? attr.watch->reactor.text : "Kel" + upperFirst( attr.name.text );
}

bool isWritable( const Attr& attr ) {
   return attr.role == Role::plain || attr.role == Role::narrow || attr.role == Role::watch ||
          ( attr.role == Role::param && attr.paramVar );
}

bool notifies( const Attr& attr ) {
   return isWritable( attr ) && !attr.silent;
}

std::vector< std::string > memberNames( const Attr& attr ) {
   const std::string& foo = attr.name.text;
   const std::string upper = upperFirst( foo );
   std::vector< std::string > out{ foo };
   if( !isWritable( attr ) ) return out;
   out.push_back( foo + "Is" );
   if( attr.shape.collection == Collection::optional ) {
      for( const char* suffix : { "Del" } ) out.push_back( foo + suffix );
      out.push_back( "new" + upper );
   } else if( attr.shape.isCollection() ) {
      for( const char* suffix : { "Del", "DelAll", "Notify", "NotifyCollection", "Count", "Iter", "IterConst" } )
         out.push_back( foo + suffix );
      out.push_back( "new" + upper );
   }
   if( attr.shape.collection == Collection::queue ) out.insert( out.end(), { foo + "Enq", foo + "Deq" } );
   if( attr.shape.collection == Collection::table ) out.insert( out.end(), { foo + "Commit", foo + "Control", foo + "Direct" } );
   if( attr.role == Role::watch ) out.push_back( reactorName( attr ) );
   if( notifies( attr ) ) out.push_back( "on" + upper );
   if( notifies( attr ) && attr.shape.isCollection() ) out.push_back( "on" + upper + "kelImmediate" );
   return out;
}

bool isReservedWord( std::string_view name ) {
   static const std::array words{
      "alignas", "alignof", "and", "and_eq", "asm", "auto", "bitand", "bitor", "bool", "break", "case", "catch", "char",
      "char16_t", "char32_t", "char8_t", "class", "co_await", "co_return", "co_yield", "compl", "concept", "const",
      "const_cast", "consteval", "constexpr", "constinit", "continue", "decltype", "default", "delete", "do", "double",
      "dynamic_cast", "else", "enum", "explicit", "export", "extern", "false", "float", "for", "friend", "goto", "if",
      "inline", "int", "long", "mutable", "namespace", "new", "noexcept", "not", "not_eq", "nullptr", "operator", "or",
      "or_eq", "private", "protected", "public", "register", "reinterpret_cast", "requires", "return", "short", "signed",
      "sizeof", "static", "static_assert", "static_cast", "struct", "switch", "template", "this", "thread_local", "throw",
      "true", "try", "typedef", "typeid", "typename", "union", "unsigned", "using", "virtual", "void", "volatile",
      "wchar_t", "while", "xor", "xor_eq" };
   return std::binary_search( words.begin(), words.end(), name );
}

bool isFrameworkName( Kind kind, std::string_view name ) {
   static const std::array values{ "hash", "fwkType", "fwk", "valueType" };
   static const std::array entities{ "name", "parent", "fwkType", "fullName", "entity", "kelImmediate", "hasNotificationActive",
                                    // what generated bodies call
                                    "at", "set", "setAt", "setIn", "setRef", "setRefIn", "newChild", "newOptional", "delAll",
                                    "delAt", "delFrom", "delOptional", "enqIn", "deqFrom", "changed", "changedKey", "attrNotify",
                                    "attrLog", "changeCount" };
   auto contains = [ name ]( const auto& names ) { return std::find( names.begin(), names.end(), name ) != names.end(); };
   if( kind == Kind::entity || kind == Kind::externEntity ) return contains( entities );
   if( kind == Kind::machine || kind == Kind::externMachine ) return name == "fwkType" || name == "hasNotificationActive";
   return contains( values );
}

}
