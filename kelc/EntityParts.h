#pragma once

#include "EmitParts.h"

#include "Model.h"
#include "Names.h"

// What the class of an entity and its source both need to know.
namespace Kelc::Entities {

using Strings = std::vector< std::string >;

/// Names that several functions need of one attribute.
struct Member {
   explicit Member( const Attr& a )
       : attr( a ), shape( a.shape ), foo( a.name.text ), upper( upperFirst( foo ) ), slot( foo + "_" ),
         index( "Attr_::" + foo ) {
      if( !shape.isCollection() ) return;
      key = cppType( *shape.keyDecl );
      keyParam = paramType( *shape.keyDecl );
      map = upper + "Map_";
   }
   const Attr& attr;
   const Shape& shape;
   std::string foo, upper, slot, index;
   std::string key, keyParam, map;
};

inline bool hasRow( const Attr& attr ) { return attr.role != Role::narrow; }
/// True when the setter stands in the source, since it checks a limit.
inline bool hasHandSetter( const Attr& attr ) { return !attr.max.empty(); }

/// What a setter hands to `set`. It names its callback, so that reactors need not look it up.
std::string setArguments( const Member& m );
/// The attributes that notifiees hear of.
std::vector< const Attr* > announced( const Decl& decl );

}
