#include "Describe.h"
#include "Emit.h"
#include "Json.h"
#include "Model.h"
#include "Names.h"

namespace Kelc {

namespace {

void attribute( JsonWriter& json, const Attr& attr ) {
   json.beginObject();
   json.text( "name", attr.name.text );
   json.textIf( "role", describe( attr.role ) );
   json.textIf( "type", typeText( attr ) );
   json.textIf( "default", describe( attr.init ) );
   json.textIf( "max", describe( attr.max ) );
   json.trueIf( "storeThenCheck", attr.storeThenCheck );
   json.trueIf( "variable", attr.paramVar );
   json.trueIf( "silent", attr.silent );
   json.trueIf( "unlogged", attr.unlogged );
   if( attr.watch ) json.text( "reactor", reactorName( attr ) );
   json.textIf( "documentation", attr.doc );
   json.endObject();
}

void operations( JsonWriter& json, const std::vector< Op >& ops ) {
   if( ops.empty() ) return;
   json.beginArray( "operations" );
   for( const Op& op : ops ) {
      json.beginObject();
      json.text( "signature", describe( op ) );
      json.trueIf( "virtual", op.isVirtual );
      json.trueIf( "static", op.isStatic );
      json.trueIf( "const", op.isConst );
      json.textIf( "documentation", op.doc );
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
   enumerators( json, decl );
   if( !decl.attrs.empty() ) {
      json.beginArray( "attributes" );
      for( const auto& attr : decl.attrs ) attribute( json, *attr );
      json.endArray();
   }
   operations( json, decl.ops );
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
