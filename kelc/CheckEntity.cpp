// Entities: their constructors, attributes and what the attributes refer to.
#include "Checker.h"

#include "Names.h"

#include <algorithm>

namespace Kelc {

namespace {

// True when a value, or one nested in it, has an attribute whose type is unknown; that is reported where it is declared.
bool hasUnknownType( const Decl& value ) {
   for( const Attr* attr : fieldsOf( value ) ) {
      const Decl* type = attr->shape.element.decl;
      if( !type || ( type->kind == Kind::composite && !layoutOf( *type ) && hasUnknownType( *type ) ) ) return true;
   }
   return false;
}

}

// A type constructed with a name says so itself, and names itself as its base does.
void Checker::baseAndName( Decl& decl ) {
   const Decl* type = decl.nameType.decl;
   if( type && ( type->kind != Kind::externValue || type->literals != LiteralForm::text ) ) {
      error( decl.nameType.span, "an entity's name is a Name or a String8" );
   }
   const Decl* base = decl.base.decl;
   if( !base ) return;
   if( base->isMachine() ) {
      error( decl.base.span, base->name.text + " is a machine and can't be an entity's base" )
         .note( base->name.span, "it is declared here" );
   } else if( isNamed( *base ) && !decl.named ) {
      error( decl.name.span, "the base " + base->name.text + " is constructed with a name: write " + decl.name.text + "( name )" )
         .note( base->name.span, "the base is declared here" );
   } else if( decl.named && !isNamed( *base ) ) {
      error( decl.name.span, "the base " + base->name.text + " is not constructed with a name" )
         .note( base->name.span, "the base is declared here" );
   } else if( decl.named && !decl.nameType.empty() ) {
      const TypeRef* inherited = nameTypeOf( *base );
      if( !inherited || inherited->decl != type )
         error( decl.nameType.span, "the base has a name of another type" )
            .note( base->name.span, "the base is declared here" );
   }
}

void Checker::oneKey( Decl& decl ) {
   const Attr* key = decl.base.decl ? keyOf( *decl.base.decl ) : nullptr;
   for( const auto& attr : decl.attrs ) {
      if( attr->role != Role::key ) continue;
      if( key )
         error( attr->name.span, decl.name.text + " has two keys" ).note( key->name.span, "the other key is declared here" );
      else key = attr.get();
   }
}

void Checker::constant( Attr& attr ) {
   const Decl* type = attr.shape.element.decl;
   if( attr.shape.element.empty() ) {
      error( attr.name.span, "expected the constant's type: const " + attr.name.text + " : TYPE = VALUE" );
   } else if( attr.silent || attr.unlogged ) {
      error( attr.name.span, "a constant is never announced or logged" );
   } else if( type && !type->isValue() ) {
      error( attr.shape.element.span, shown( type ) + " is no value" ).note( type->name.span, "it is declared here" );
   } else if( type ) {
      literal( *type, attr.init, nullptr );
   }
}

void Checker::parameter( Attr& attr ) {
   const Shape& s = attr.shape;
   const bool isKey = attr.role == Role::key;
   const char* what = isKey ? "a key" : "a constructor parameter";
   if( s.collection != Collection::none ) error( s.span, std::string( what ) + " can't be a collection" );
   else if( isKey && s.holding != Holding::value ) error( s.span, "a key is a value" );
   else if( isKey && s.element.decl && !isHashed( *s.element.decl ) ) keyType( attr );
   if( !attr.init.empty() ) error( attr.init.span, std::string( what ) + " has no default: it is always given" );
   if( attr.silent && !attr.paramVar ) error( attr.name.span, std::string( what ) + " never changes, so it is silent anyway" );
}

void Checker::keyType( const Attr& attr ) {
   const Decl* key = attr.role == Role::key ? attr.shape.element.decl : attr.shape.keyDecl;
   const Span at = !attr.shape.by.empty() ? attr.shape.by.span :
                   attr.role == Role::key ? attr.shape.element.span :
                                            attr.shape.key.span;
   if( !key ) return;
   if( !key->isValue() )
      error( at, shown( key ) + " is no value, so it can't be a key" ).note( key->name.span, "it is declared here" );
   else if( !isOrdered( *key ) )
      error( at, shown( key ) + " has no order, which every key needs: declare it ordered" )
         .note( key->name.span, "it is declared here" );
   else if( !attr.shape.ordered && !isHashed( *key ) )
      error( at, shown( key ) + " has no hash" ).note( key->name.span, "it is declared here" );
}

// That the element is a value, an entity or a machine, as the spelling says.
bool Checker::elementKind( const Decl& decl, const Attr& attr ) {
   const Shape& s = attr.shape;
   const Decl* type = s.element.decl;
   if( !type ) return false;
   if( s.holding == Holding::value ) {
      if( type->isValue() ) return true;
      const char* write = s.collection == Collection::none    ? "write ref "
                          : s.collection == Collection::map   ? "write ref or child before "
                          : "a queue, set or table holds values, not ";
      error( s.element.span, shown( type ) + " is no value: " + write + s.element.text )
         .note( type->name.span, "it is declared here" );
   } else if( type->isValue() ) {
      error( s.element.span, shown( type ) + " is a value, not an entity" ).note( type->name.span, "it is declared here" );
   } else if( s.holding == Holding::child && type->isMachine() && !decl.isMachine() ) {
      error( s.element.span, "only a machine has child machines" ).note( type->name.span, shown( type ) + " is declared here" );
   } else {
      return true;
   }
   return false;
}

// A child is found under its key; when it has none, under its name.
void Checker::child( const Decl& decl, const Attr& attr ) {
   const Shape& s = attr.shape;
   const Decl& type = *s.element.decl;
   const Attr* key = keyOf( type );
   if( s.collection == Collection::optional ) {
      if( key || !isNamed( type ) )
         error( s.element.span,
                "an optional child is created by its name: expected " + type.name.text + "( name ) without a key" )
            .note( type.name.span, "it is declared here" );
      return;
   }
   if( !s.keyDecl ) return;
   const TypeRef* nameType = nameTypeOf( type );
   const Decl* wanted = key              ? key->shape.element.decl :
                        !isNamed( type ) ? nullptr :
                        nameType         ? nameType->decl :
                                           program_.find( "Kel::Name" );
   if( key && wanted && wanted != s.keyDecl ) {
      error( s.key.span, attr.name.text + " is keyed by " + s.key.text + " but its child " + type.name.text + " has the key " +
                            typed( *key ) )
         .note( key->name.span, "the child's key is declared here" );
   } else if( !key && !isNamed( type ) ) {
      error( s.element.span, "the child " + type.name.text + " has neither a key nor a name" )
         .note( type.name.span, "the child is declared here" );
   } else if( !key && wanted && wanted != s.keyDecl ) {
      error( s.key.span, attr.name.text + " is keyed by " + s.key.text + " but its child " + type.name.text +
                            " is known by a name of type " + shown( wanted ) )
         .note( type.name.span, "the child is declared here" );
   }
   if( !type.isMachine() ) return;
   for( const auto& a : type.attrs ) {
      if( a->role == Role::owner && a->shape.element.decl && !derivesFrom( decl, *a->shape.element.decl ) ) {
         error( s.element.span, type.name.text + " is owned by " + shown( a->shape.element.decl ) )
            .note( a->name.span, "its owner is declared here" );
      }
   }
}

void Checker::table( const Attr& attr ) {
   const Decl& record = *attr.shape.element.decl;
   if( record.kind != Kind::composite ) {
      error( attr.shape.element.span, "the records of a table are values with attributes" )
         .note( record.name.span, shown( &record ) + " is declared here" );
   } else if( const Attr* bad = unfixedAttr( record ) ) {
      error( attr.shape.element.span, record.name.text + " has no fixed size, so it can't be a record in shared memory" )
         .note( bad->name.span, typed( *bad ) + " has none" );
   } else if( !layoutOf( record ) && !hasUnknownType( record ) ) {
      error( attr.shape.element.span, record.name.text + " is larger than 64 KiB" )
         .note( record.name.span, "it is declared here" );
   }
}

void Checker::stored( Decl& decl, Attr& attr ) {
   Shape& s = attr.shape;
   if( s.collection != Collection::none && !attr.init.empty() )
      error( attr.init.span, "a collection begins empty and has no default" );
   if( s.holding == Holding::ref && s.collection == Collection::none && !attr.init.empty() )
      error( attr.init.span, "a reference begins null and has no default" );
   if( !elementKind( decl, attr ) ) return;
   if( s.isCollection() && s.keyDecl ) {
      if( s.collection != Collection::queue ) {
         keyType( attr );
      } else if( s.keyDecl->literals != LiteralForm::integer || s.keyDecl->kind != Kind::externValue ||
                 s.keyDecl->range.min.negative ) {
         error( s.key.span, "a queue is indexed by U8, U16 or U32" );
      }
   }
   if( s.holding == Holding::child ) child( decl, attr );
   if( s.collection == Collection::table ) table( attr );
   const bool isValue = s.holding == Holding::value && s.collection == Collection::none;
   if( isValue && !attr.init.empty() ) literal( *s.element.decl, attr.init, &decl );
   if( !s.byAttr || s.holding != Holding::ref ) return;
   const bool fixed = s.byAttr->role == Role::key || ( s.byAttr->role == Role::param && !s.byAttr->paramVar );
   if( !fixed )
      error( s.by.span, s.by.text + " may change, so it can't key the references" )
         .note( s.byAttr->name.span, "it is declared here" );
}

// `= 0 max tapTruncationSizeMax`
void Checker::limit( Decl& decl, Attr& attr ) {
   const Decl* type = attr.shape.element.decl;
   if( attr.max.empty() || !type ) return;
   const bool fits = attr.role == Role::plain && attr.shape.collection == Collection::none && type->kind == Kind::externValue &&
                     type->literals == LiteralForm::integer;
   if( !fits ) error( attr.max.span, "max limits a stored whole number" );
   else literal( *type, attr.max, &decl );
}

void Checker::view( Decl& decl, Attr& attr ) {
   attr.viewAttr = findAttr( decl, attr.viewOf.text );
   std::vector< std::string_view > names;
   for( const auto& a : decl.attrs ) names.push_back( a->name.text );
   if( !attr.viewAttr ) {
      error( attr.viewOf.span, decl.name.text + " has no attribute " + attr.viewOf.text + suggestion( attr.viewOf.text, names ) );
      return;
   }
   const Decl* type = attr.viewAttr->shape.element.decl;
   if( !type ) return;
   if( type->kind != Kind::composite || attr.viewAttr->shape.isCollection() ) {
      error( attr.viewOf.span, attr.viewOf.text + " is no value with attributes" )
         .note( attr.viewAttr->name.span, "it is declared here" );
      return;
   }
   names.clear();
   for( const Attr* field : fieldsOf( *type ) ) {
      names.push_back( field->name.text );
      if( field->name.text == attr.viewMember.text ) attr.viewField = field;
   }
   if( attr.viewField ) {
      attr.shape.element = attr.viewField->shape.element;
      attr.shape.span = attr.viewMember.span;
   } else {
      error( attr.viewMember.span,
             shown( type ) + " has no attribute " + attr.viewMember.text + suggestion( attr.viewMember.text, names ) )
         .note( type->name.span, "it is declared here" );
   }
}

// A derived entity's collection of the same name, whose children are of a narrower type.
void Checker::narrow( Decl& decl, Attr& attr ) {
   attr.narrowed = decl.base.decl ? findAttr( *decl.base.decl, attr.name.text ) : nullptr;
   if( !attr.narrowed ) {
      error( attr.name.span, decl.base.decl ? "the base " + shown( decl.base.decl ) + " has no attribute " + attr.name.text :
                                              decl.name.text + " has no base whose attribute it could narrow" )
         .note( decl.base.decl ? decl.base.decl->name.span : Span{}, "the base is declared here" );
      return stored( decl, attr );
   }
   const Shape& wide = attr.narrowed->shape;
   if( !attr.narrowed->isVirtual )
      error( attr.name.span, "the base does not declare " + attr.name.text + " virtual, so it can't be narrowed" )
         .note( attr.narrowed->name.span, "it is declared here" );
   const Shape& s = attr.shape;
   if( wide.collection != s.collection || wide.holding != s.holding || wide.ordered != s.ordered ||
       ( wide.keyDecl && s.keyDecl && wide.keyDecl != s.keyDecl ) ) {
      error( s.span, attr.name.text + " is another kind of collection than the base's" )
         .note( attr.narrowed->shape.span, "the base declares it here" );
   } else if( wide.element.decl && s.element.decl && !derivesFrom( *s.element.decl, *wide.element.decl ) ) {
      error( s.element.span, shown( s.element.decl ) + " does not derive from " + shown( wide.element.decl ) )
         .note( attr.narrowed->shape.element.span, "which the base holds here" );
   }
   stored( decl, attr );
   sameCreation( attr );
}

// A narrower child is made by the hook of the wider one, so it takes the same parameters.
void Checker::sameCreation( const Attr& attr ) {
   const Decl* child = attr.shape.element.decl;
   const Decl* wide = attr.narrowed->shape.element.decl;
   if( !child || !wide || attr.shape.holding != Holding::child || !derivesFrom( *child, *wide ) ) return;
   const auto own = constructorParameters( *child ), base = constructorParameters( *wide );
   if( own.size() == base.size() && isNamed( *child ) == isNamed( *wide ) ) return;
   error( attr.shape.element.span, child->name.text + " is not constructed with the same parameters as " + wide->name.text )
      .note( own.size() > base.size() ? own.back()->name.span : wide->name.span,
             own.size() > base.size() ? "it adds this one" : wide->name.text + " is declared here" );
}

void Checker::member( Decl& decl, Attr& attr ) {
   switch( attr.role ) {
   case Role::constant: return constant( attr );
   case Role::derivedView: return view( decl, attr );
   case Role::derivedByHand:
      if( attr.shape.collection != Collection::none )
         return void( error( attr.shape.span, "a derived attribute is a value or a reference" ) );
      return void( elementKind( decl, attr ) );
   case Role::key:
   case Role::param: parameter( attr ); return void( elementKind( decl, attr ) );
   case Role::narrow: return narrow( decl, attr );
   case Role::watch:
   case Role::owner: return void( error( attr.name.span, "only a machine watches entities or has an owner" ) );
   case Role::plain: break;
   }
   if( attr.isVirtual && attr.shape.holding != Holding::child )
      error( attr.name.span, "only a collection of children can be narrowed, so only one is virtual" );
   stored( decl, attr );
   limit( decl, attr );
}

void Checker::overrides( Decl& decl, std::vector< Op >& ops ) {
   const Decl* base = decl.base.decl;
   for( Op& op : ops ) {
      const Op* inherited = base ? findOp( *base, op.name.text, op.parameters.size() ) : nullptr;
      if( !inherited ) continue;
      if( inherited->isVirtual ) op.overrides = true;
      else
         error( op.name.span, "the base has an operation " + op.name.text + " that is not virtual" )
            .note( inherited->name.span, "it is declared here" );
   }
}

void Checker::entity( Decl& decl ) {
   if( !decl.isEntity() ) return;
   if( decl.kind == Kind::entity && !isNamed( decl ) && !keyOf( decl ) && !decl.base.decl ) {
      error( decl.name.span,
             decl.name.text + " has neither a name nor a key: write " + decl.name.text + "( name ), or declare a key" );
   }
   baseAndName( decl );
   oneKey( decl );
   for( auto& attr : decl.attrs ) member( decl, *attr );
   ops( decl, decl.ops );
   overrides( decl, decl.ops );
}

}
