#include "Describe.h"
#include "Emit.h"
#include "Json.h"
#include "Model.h"
#include "Names.h"
#include "Reference.h"

namespace Kelc {

namespace {

void attribute( JsonWriter& json, const Attr& attr ) {
   json.beginObject();
   json.text( "name", attr.name.text );
   json.textIf( "role", describe( attr.role ) );
   json.textIf( "type", typeText( attr ) );
   json.textIf( "default", defaultText( attr ) );
   json.textIf( "max", describe( attr.max ) );
   json.trueIf( "storeThenCheck", attr.storeThenCheck );
   json.trueIf( "variable", attr.paramVar );
   json.trueIf( "silent", attr.silent );
   json.trueIf( "unlogged", attr.unlogged );
   if( attr.watch ) json.text( "reactor", reactorName( attr ) ), json.textIf( "from", followedText( attr ) );
   json.textIf( "note", noteText( attr ) );
   json.textIf( "documentation", attr.doc );
   json.endObject();
}

void operations( JsonWriter& json, const std::vector< ListedOp >& ops ) {
   if( ops.empty() ) return;
   json.beginArray( "operations" );
   for( const auto& [ signature, op ] : ops ) {
      json.beginObject();
      json.text( "signature", signature );
      json.trueIf( "virtual", op->isVirtual );
      json.trueIf( "static", op->isStatic );
      json.trueIf( "const", op->isConst );
      json.textIf( "documentation", op->doc );
      json.endObject();
   }
   json.endArray();
}

void texts( JsonWriter& json, const char* key, const Strings& all ) {
   if( all.empty() ) return;
   json.beginArray( key );
   for( const std::string& text : all ) json.text( {}, text );
   json.endArray();
}

// Objects of two texts each.
template< class T >
void pairs( JsonWriter& json, const char* key, const std::vector< T >& all, const char* first, const char* second ) {
   if( all.empty() ) return;
   json.beginArray( key );
   for( const auto& [ a, b ] : all ) {
      json.beginObject();
      json.text( first, a );
      json.text( second, b );
      json.endObject();
   }
   json.endArray();
}

void inheritance( JsonWriter& json, const Decl& decl ) {
   const auto all = inherited( decl );
   if( all.empty() ) return;
   json.beginArray( "inherited" );
   for( const auto& [ from, attributes ] : all ) {
      json.beginObject();
      json.text( "from", from->qualifiedName() );
      texts( json, "attributes", attributes );
      json.endObject();
   }
   json.endArray();
}

void enumerators( JsonWriter& json, const Decl& decl ) {
   if( decl.enumerators.empty() ) return;
   json.beginArray( "enumerators" );
   for( const Enumerator& e : decl.enumerators ) {
      json.beginObject();
      json.text( "name", e.name.text );
      json.number( "value", e.value );
      json.textIf( "documentation", e.doc );
      json.endObject();
   }
   json.endArray();
}

void type( JsonWriter& json, const Decl& decl ) {
   json.beginObject();
   json.text( "name", decl.qualifiedName() );
   json.text( "kind", describe( decl.kind ) );
   json.textIf( "basis", describe( decl.basis ) );
   json.textIf( "base", describe( decl.base ) );
   json.textIf( "range", describe( decl.range ) );
   json.textIf( "default", describe( decl.init ) );
   json.trueIf( "named", decl.named );
   if( decl.isValue() ) json.boolean( "ordered", isOrdered( decl ) ), json.boolean( "hashed", isHashed( decl ) );
   if( const auto layout = decl.isValue() ? layoutOf( decl ) : std::nullopt )
      json.number( "size", layout->size ), json.number( "align", layout->align );
   json.textIf( "header", decl.header );
   json.textIf( "documentation", decl.doc );
   json.number( "line", decl.name.span.source->place( decl.name.span.begin ).line );
   texts( json, "creation", creation( decl ) );
   enumerators( json, decl );
   if( !decl.attrs.empty() ) {
      json.beginArray( "attributes" );
      for( const auto& attr : decl.attrs ) attribute( json, *attr );
      json.endArray();
   }
   inheritance( json, decl );
   operations( json, operationsOf( decl ) );
   pairs( json, "reactions", reactions( decl ), "on", "runs" );
   texts( json, "notifications", notifications( decl ) );
   pairs( json, "messages", messages( decl ), "text", "when" );
   if( !decl.nested.empty() ) {
      json.beginArray( "nested" );
      for( const auto& nested : decl.nested ) type( json, *nested );
      json.endArray();
   }
   json.endObject();
}

}

std::string emitJson( const Module& module ) {
   JsonWriter json;
   json.beginObject();
   json.number( "format", 1 );
   json.text( "module", module.name.text );
   json.textIf( "documentation", module.doc );
   json.textIf( "trace", module.trace );
   json.beginArray( "imports" );
   for( const Import& import : module.imports ) json.text( {}, import.path );
   json.endArray();
   json.beginArray( "types" );
   for( const auto& decl : module.decls ) type( json, *decl );
   json.endArray();
   json.endObject();
   return std::move( json ).str();
}

}
