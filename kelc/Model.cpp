#include "Model.h"

#include <algorithm>

namespace Kelc {

namespace {

// The declaration and its bases, from the most derived one up.
std::vector< const Decl* > chain( const Decl& decl ) {
   std::vector< const Decl* > out;
   for( const Decl* d = &decl; d && out.size() <= maxTypeDepth; d = d->base.decl ) out.push_back( d );
   return out;
}

std::uint32_t aligned( std::uint32_t offset, std::uint32_t align ) {
   return ( offset + align - 1 ) / align * align;
}

}

const Attr* findAttr( const Decl& decl, std::string_view name ) {
   for( const Decl* d : chain( decl ) ) {
      for( const auto& attr : d->attrs ) {
         if( attr->name.text == name ) return attr.get();
      }
   }
   return nullptr;
}

const Op* findOp( const Decl& decl, std::string_view name, std::size_t parameters ) {
   for( const Decl* d : chain( decl ) ) {
      for( const Op& op : d->ops ) {
         if( op.name.text == name && op.parameters.size() == parameters ) return &op;
      }
   }
   return nullptr;
}

bool derivesFrom( const Decl& decl, const Decl& base ) {
   const auto all = chain( decl );
   return std::find( all.begin(), all.end(), &base ) != all.end();
}

const Attr* keyOf( const Decl& decl ) {
   for( const Decl* d : chain( decl ) ) {
      for( const auto& attr : d->attrs ) {
         if( attr->role == Role::key ) return attr.get();
      }
   }
   return nullptr;
}

bool isNamed( const Decl& decl ) {
   const auto all = chain( decl );
   return std::any_of( all.begin(), all.end(), []( const Decl* d ) { return d->named; } );
}

const TypeRef* nameTypeOf( const Decl& decl ) {
   for( const Decl* d : chain( decl ) ) {
      if( !d->nameType.empty() ) return &d->nameType;
   }
   return nullptr;
}

std::vector< const Attr* > constructorParameters( const Decl& decl ) {
   std::vector< const Attr* > out;
   auto all = chain( decl );
   std::reverse( all.begin(), all.end() );
   for( const Decl* d : all ) {
      if( d->hasBaseArgs ) out.clear();   // the list says what the base gets; the machine's own parameters say from whom
      for( const auto& attr : d->attrs ) {
         if( attr->role == Role::key || attr->role == Role::param ) out.push_back( attr.get() );
      }
      for( const Ident& param : d->params ) {
         if( const Attr* attr = findAttr( *d, param.text ); attr && attr->role != Role::key ) out.push_back( attr );
      }
   }
   return out;
}

const Decl* basisOf( const Decl& decl ) {
   const Decl* d = &decl;
   for( int i = 0; d && i < maxTypeDepth && ( d->kind == Kind::scalar || d->kind == Kind::wrapper ); ++i ) d = d->basis.decl;
   return d;
}

bool isOrdered( const Decl& decl ) {
   switch( decl.kind ) {
   case Kind::scalar:
   case Kind::wrapper: {
      const Decl* basis = basisOf( decl );
      return decl.orderByHand || !basis || basis->ordered;
   }
   default: return decl.ordered;
   }
}

bool isHashed( const Decl& decl ) {
   return decl.isValue() && decl.hash != HashRule::none;
}

std::vector< const Attr* > fieldsOf( const Decl& decl ) {
   std::vector< const Attr* > out;
   for( const auto& attr : decl.attrs ) {
      if( attr->role == Role::plain ) out.push_back( attr.get() );
   }
   return out;
}

static std::optional< Layout > compositeLayout( const Decl& decl ) {
   constexpr std::uint32_t limit = 64u << 10;
   Layout out;
   for( const Attr* attr : fieldsOf( decl ) ) {
      const Decl* type = attr->shape.element.decl;
      const auto field = type ? layoutOf( *type ) : std::nullopt;
      if( !field ) return std::nullopt;
      out.size = aligned( out.size, field->align ) + field->size;
      out.align = std::max( out.align, field->align );
      if( out.size > limit ) return std::nullopt;
   }
   out.size = aligned( out.size, out.align );
   return out;
}

// Remembered per type: a value may use another many times over on every level of nesting.
std::optional< Layout > layoutOf( const Decl& decl ) {
   if( decl.layout ) return *decl.layout;
   std::optional< Layout > out;
   if( decl.kind == Kind::enumeration ) {
      out = Layout{ 4, 4 };
   } else if( decl.kind == Kind::scalar || decl.kind == Kind::wrapper ) {
      const Decl* basis = basisOf( decl );
      if( basis && basis->kind == Kind::externValue ) out = layoutOf( *basis );
   } else if( decl.kind == Kind::externValue && decl.size ) {
      out = Layout{ *decl.size, std::min( decl.align.value_or( 1 ), 4u ) };
   } else if( decl.kind == Kind::composite ) {
      out = compositeLayout( decl );
   }
   decl.layout = out;
   return out;
}

std::vector< std::uint32_t > offsetsOf( const Decl& decl ) {
   std::vector< std::uint32_t > out;
   std::uint32_t at = 0;
   for( const Attr* attr : fieldsOf( decl ) ) {
      const auto field = layoutOf( *attr->shape.element.decl ).value();
      at = aligned( at, field.align );
      out.push_back( at );
      at += field.size;
   }
   return out;
}

const Attr* unfixedAttr( const Decl& decl ) {
   for( const Attr* attr : fieldsOf( decl ) ) {
      const Decl* type = attr->shape.element.decl;
      if( !type || layoutOf( *type ) ) continue;
      const Attr* inner = type->kind == Kind::composite ? unfixedAttr( *type ) : nullptr;
      return inner ? inner : attr;
   }
   return nullptr;
}

}
