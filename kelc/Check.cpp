// Three passes over all declarations: resolve every type name; cut what must not be circular (bases, values) or too deep, so
// that the questions of Model.h end; judge each declaration by the rules of its kind.
#include "Checker.h"

#include "Names.h"

namespace Kelc {

std::string shown( const Decl* decl ) {
   return decl ? decl->name.text : "an unknown type";
}

std::string typed( const Attr& attr ) {
   return attr.name.text + " : " + ( attr.shape.element.empty() ? shown( attr.shape.keyDecl ) : attr.shape.element.text );
}

void check( Program& program, Diagnostics& diagnostics ) {
   Checker( program, diagnostics ).run();
}

void Checker::run() {
   program_.declare();
   forEach( &Checker::resolveDecl );
   forEach( &Checker::cutBases );
   forEach( &Checker::cutValues );
   forEach( &Checker::keysOfShapes );
   forEach( &Checker::names );
   forEach( &Checker::value );
   forEach( &Checker::entity );
   forEach( &Checker::machine );
}

void Checker::visit( Decl& decl, void ( Checker::*rule )( Decl& ) ) {
   for( auto& nested : decl.nested ) visit( *nested, rule );
   ( this->*rule )( decl );
}

void Checker::forEach( void ( Checker::*rule )( Decl& ) ) {
   for( const auto& module : program_.modules() ) {
      for( const auto& decl : module->decls ) visit( *decl, rule );
   }
}

void Checker::resolve( TypeRef& type, const Decl& scope ) {
   if( type.empty() ) return;
   std::string hidden;
   type.decl = program_.lookup( type.text, &scope, scope.nameSpace, &hidden );
   if( type.decl ) return;
   if( !hidden.empty() ) {
      const auto first = type.text.substr( 0, type.text.find( "::" ) );
      error( type.span, "unknown type " + type.text + ": inside " + scope.nameSpace + " the name " + first + " means " +
                           hidden + "; write ::" + type.text );
   } else {
      error( type.span, "unknown type " + type.text + suggestion( type.text, program_.typeNames() ) );
   }
}

void Checker::resolveShape( Shape& shape, const Decl& scope ) {
   resolve( shape.key, scope );
   resolve( shape.element, scope );
}

void Checker::resolveOp( Op& op, const Decl& scope ) {
   for( Parameter& p : op.parameters ) resolve( p.type, scope );
   resolve( op.result.type, scope );
}

void Checker::resolveAttr( Attr& attr, const Decl& scope ) {
   resolveShape( attr.shape, scope );
   if( !attr.watch ) return;
   for( auto& inner : attr.watch->attrs ) resolveAttr( *inner, scope );
   for( Op& op : attr.watch->ops ) resolveOp( op, scope );
}

void Checker::resolveDecl( Decl& decl ) {
   resolve( decl.basis, decl );
   resolve( decl.base, decl );
   resolve( decl.nameType, decl );
   for( auto& attr : decl.attrs ) resolveAttr( *attr, decl );
   for( Op& op : decl.ops ) resolveOp( op, decl );
   if( decl.kind != Kind::scalar ) return;
   for( auto& attr : decl.attrs ) {
      if( attr->role == Role::constant && attr->shape.element.empty() ) attr->shape.element = decl.basis;
   }
}

// A base that is no entity, a circle of bases or too long a chain of them is reported and taken away.
void Checker::cutBases( Decl& decl ) {
   Decl* base = decl.base.decl;
   if( !base ) return;
   const bool fits = base->isEntity() || base->isMachine();
   if( !fits ) {
      error( decl.base.span, decl.base.text + " can't be a base: it is no entity" )
         .note( base->name.span, "it is declared here" );
      decl.base.decl = nullptr;
      return;
   }
   int depth = 0;
   for( const Decl* d = base; d; d = d->base.decl ) {
      if( d != &decl && ++depth <= maxTypeDepth ) continue;
      error( decl.base.span,
             d == &decl ? decl.name.text + " derives from itself" : "more than " + std::to_string( maxTypeDepth ) + " bases" )
         .note( base->base.span, "through this base" );
      decl.base.decl = nullptr;
      return;
   }
}

// How deep a value nests. An attribute that closes a circle or nests too deep is reported and loses its type.
int Checker::valueDepth( Decl& decl, std::vector< const Attr* >& path ) {
   const auto [ at, isNew ] = depths_.emplace( &decl, -1 );
   if( !isNew ) return at->second;
   int depth = 0;
   auto follow = [ & ]( TypeRef& type, const Attr* attr ) {
      if( !type.decl || !type.decl->isValue() ) return;
      path.push_back( attr );
      const int inner = path.size() > maxTypeDepth ? maxTypeDepth : valueDepth( *type.decl, path );
      path.pop_back();
      if( inner >= 0 && inner < maxTypeDepth ) return void( depth = std::max( depth, inner + 1 ) );
      const bool circle = inner < 0;
      Error& e = error( type.span, circle ? shown( &decl ) + " contains itself" :
                                            "values nest more than " + std::to_string( maxTypeDepth ) + " deep" );
      if( circle && !path.empty() && path.back() ) e.note( path.back()->shape.element.span, "it is contained here" );
      type.decl = nullptr;
   };
   if( decl.kind == Kind::scalar || decl.kind == Kind::wrapper ) follow( decl.basis, nullptr );
   for( auto& attr : decl.attrs ) {
      if( decl.kind == Kind::composite && attr->role == Role::plain ) follow( attr->shape.element, attr.get() );
   }
   depths_[ &decl ] = depth;
   return depth;
}

void Checker::cutValues( Decl& decl ) {
   std::vector< const Attr* > path;
   if( decl.isValue() ) valueDepth( decl, path );
}

// The attribute that keys the elements of `map of V by attr`.
const Attr* Checker::elementAttr( Attr& attr ) {
   Shape& s = attr.shape;
   const Attr* by = findAttr( *s.element.decl, s.by.text );
   if( by ) return by;
   std::vector< std::string_view > names;
   for( const auto& a : s.element.decl->attrs ) names.push_back( a->name.text );
   error( s.by.span, shown( s.element.decl ) + " has no attribute " + s.by.text + suggestion( s.by.text, names ) )
      .note( s.element.decl->name.span, "it is declared here" );
   return nullptr;
}

void Checker::keyOfShape( Attr& attr ) {
   Shape& s = attr.shape;
   s.keyDecl = s.key.decl;
   if( !s.by.empty() && s.element.decl ) {
      s.byAttr = elementAttr( attr );
      if( s.byAttr ) s.keyDecl = s.byAttr->shape.element.decl;
   }
   if( s.collection == Collection::queue && s.key.empty() ) s.keyDecl = program_.find( "Kel::U32" );
   if( s.collection == Collection::set ) s.element.decl = program_.find( "bool" );
}

void Checker::keysOfShapes( Decl& decl ) {
   for( auto& attr : decl.attrs ) keyOfShape( *attr );
}

}
