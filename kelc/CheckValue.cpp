// Value types and the literals that stand for values.
#include "Checker.h"

#include <algorithm>

namespace Kelc {

namespace {

/// An integer with its sign apart, so that all of U64 and S64 fit.
struct Number {
   bool negative;
   std::uint64_t magnitude;
};

Number numberOf( const Literal& literal ) {
   return { literal.negative && literal.number, literal.number };
}

bool less( Number a, Number b ) {
   if( a.negative != b.negative ) return a.negative;
   return a.negative ? a.magnitude > b.magnitude : a.magnitude < b.magnitude;
}

std::string text( const Literal& literal ) {
   return ( literal.negative ? "-" : "" ) + std::to_string( literal.number );
}

// The bounds of an integer type: its own where it has any, else those of what it is made of.
const Literal* bound( const Decl& decl, Literal Range::*which ) {
   const Decl* d = &decl;
   for( int i = 0; d && i < maxTypeDepth; ++i, d = d->basis.decl ) {
      if( !( d->range.*which ).empty() ) return &( d->range.*which );
   }
   return nullptr;
}

const char* formName( Literal::Kind kind ) {
   switch( kind ) {
   case Literal::Kind::integer: return "a number";
   case Literal::Kind::real: return "a number with a point";
   case Literal::Kind::text: return "a text";
   case Literal::Kind::boolean: return "true or false";
   case Literal::Kind::list: return "a list";
   default: return "a name";
   }
}

}

bool Checker::mismatch( const Literal& literal, const Decl& type, const std::string& expected ) {
   error( literal.span, shown( &type ) + " takes " + expected + ", not " + formName( literal.kind ) );
   return false;
}

bool Checker::integerLiteral( const Decl& type, const Literal& literal ) {
   if( literal.kind != Literal::Kind::integer ) return mismatch( literal, type, "a number" );
   const Literal* min = bound( type, &Range::min );
   const Literal* max = bound( type, &Range::max );
   const bool low = min && less( numberOf( literal ), numberOf( *min ) );
   const bool high = max && less( numberOf( *max ), numberOf( literal ) );
   if( !low && !high ) return true;
   error( literal.span, text( literal ) + " is not in " + ( min ? text( *min ) : "" ) + ".." + ( max ? text( *max ) : "" ) +
                           ", the range of " + shown( &type ) )
      .note( type.name.span, shown( &type ) + " is declared here" );
   return false;
}

bool Checker::listLiteral( const Decl& type, Literal& value, const Decl* scope ) {
   const auto fields = fieldsOf( type );
   if( value.kind != Literal::Kind::list ) return mismatch( value, type, "a list in braces" );
   if( value.items.size() > fields.size() ) {
      error( value.items[ fields.size() ].span, shown( &type ) + " has only " + std::to_string( fields.size() ) +
                                                   ( fields.size() == 1 ? " attribute" : " attributes" ) )
         .note( type.name.span, "it is declared here" );
      return false;
   }
   bool good = true;
   for( std::size_t i = 0; i < value.items.size(); ++i ) {
      const Decl* field = fields[ i ]->shape.element.decl;
      if( field && !literal( *field, value.items[ i ], scope ) ) good = false;
   }
   return good;
}

// An enumerator, or a constant of the type that the literal stands in.
bool Checker::namedLiteral( const Decl& type, Literal& value, const Decl* scope ) {
   for( const Enumerator& e : type.enumerators ) {
      if( e.name.text == value.text ) return value.enumerator = &e, true;
   }
   const Attr* constant = scope ? findAttr( *scope, value.text ) : nullptr;
   if( constant && constant->role == Role::constant ) {
      if( constant->shape.element.decl == &type ) return value.constant = constant, true;
      error( value.span, value.text + " is a constant of type " + constant->shape.element.text + ", not " + shown( &type ) )
         .note( constant->name.span, "it is declared here" );
      return false;
   }
   std::vector< std::string_view > names;
   for( const Enumerator& e : type.enumerators ) names.push_back( e.name.text );
   const bool isEnum = type.kind == Kind::enumeration;
   error( value.span, isEnum ? shown( &type ) + " has no enumerator " + value.text + suggestion( value.text, names )
                             : quoted( value.text ) + " is no constant of this type" )
      .note( isEnum ? type.name.span : Span{}, shown( &type ) + " is declared here" );
   return false;
}

bool Checker::literal( const Decl& type, Literal& value, const Decl* scope ) {
   if( value.kind == Literal::Kind::name ) return namedLiteral( type, value, scope );
   if( type.kind == Kind::enumeration ) return mismatch( value, type, "the name of an enumerator" );
   if( type.kind == Kind::composite ) return listLiteral( type, value, scope );
   const Decl* basis = basisOf( type );
   if( !basis || basis->kind != Kind::externValue ) return true;
   switch( basis->literals ) {
   case LiteralForm::integer: return integerLiteral( type, value );
   case LiteralForm::boolean: return value.kind == Literal::Kind::boolean || mismatch( value, type, "true or false" );
   case LiteralForm::real:
      return value.kind == Literal::Kind::real || value.kind == Literal::Kind::integer || mismatch( value, type, "a number" );
   case LiteralForm::text:
      if( value.kind != Literal::Kind::text ) return mismatch( value, type, "a text between quotes" );
      if( type.range.isMax && value.text.size() > type.range.max.number ) {
         error( value.span, "this text has " + std::to_string( value.text.size() ) + " bytes; " + shown( &type ) + " takes " +
                               text( type.range.max ) )
            .note( type.range.max.span, "as is declared here" );
         return false;
      }
      return true;
   case LiteralForm::none: break;
   }
   error( value.span, "no value of " + shown( basis ) + " can be written in a definition" );
   return false;
}

void Checker::scalarRange( Decl& decl, const Decl& basis ) {
   Range& range = decl.range;
   if( range.empty() ) return;
   const bool isText = basis.literals == LiteralForm::text;
   const Span at = range.max.empty() ? range.min.span : range.max.span;
   if( isText != range.isMax ) {
      error( at, isText ? "a string is bounded by its bytes: expected max N" :
                          "max N bounds the bytes of a string: expected in MIN..MAX" );
   } else if( !isText && basis.literals != LiteralForm::integer ) {
      error( at, "only whole numbers have bounds; " + shown( &basis ) + " is none" )
         .note( basis.name.span, "it is declared here" );
   } else if( isText ) {
      const bool good =
         range.max.kind == Literal::Kind::integer && !range.max.negative && range.max.number && range.max.number <= 0xffffffffu;
      if( !good ) error( at, "expected a number of bytes from 1 to 4294967295" );
   } else {
      if( !range.min.empty() && !integerLiteral( basis, range.min ) ) return;
      if( !range.max.empty() && !integerLiteral( basis, range.max ) ) return;
      if( range.min.empty() || range.max.empty() || !less( numberOf( range.max ), numberOf( range.min ) ) ) return;
      error( range.max.span, "the upper bound is below the lower one" ).note( range.min.span, "the lower bound stands here" );
   }
}

void Checker::scalar( Decl& decl ) {
   const Decl* basis = decl.basis.decl;
   if( !basis ) return;
   const bool fits =
      basis->kind == Kind::externValue && ( basis->literals == LiteralForm::integer || basis->literals == LiteralForm::real ||
                                            basis->literals == LiteralForm::text );
   if( !fits ) {
      error( decl.basis.span,
             shown( basis ) + " is neither a number nor a string: expected U8 to U64, S8 to S64, Seconds, String8 or Name" )
         .note( basis->name.span, "it is declared here" );
      return;
   }
   if( decl.orderByHand ) error( decl.name.span, "a scalar is ordered by its number or string, not by hand" );
   scalarRange( decl, *basis );
   if( !decl.init.empty() ) return void( literal( decl, decl.init, &decl ) );
   const Literal* min = basis->literals == LiteralForm::integer ? bound( decl, &Range::min ) : nullptr;
   const Literal* max = basis->literals == LiteralForm::integer ? bound( decl, &Range::max ) : nullptr;
   const Number zero{ false, 0 };
   if( ( min && less( zero, numberOf( *min ) ) ) || ( max && less( numberOf( *max ), zero ) ) ) {
      error( decl.name.span, shown( &decl ) + " can't begin as 0, which is out of its range: give its default with = N" )
         .note( min ? min->span : max->span, "the bound stands here" );
   }
}

void Checker::wrapper( Decl& decl ) {
   const Decl* basis = decl.basis.decl;
   if( !basis || basis->kind == Kind::externValue ) return;
   error( decl.basis.span, shown( basis ) + " can't be wrapped: expected an extern value type" )
      .note( basis->name.span, "it is declared here" );
}

void Checker::composite( Decl& decl ) {
   if( fieldsOf( decl ).empty() ) error( decl.name.span, decl.name.text + " has no attribute; a value needs at least one" );
   for( const Attr* attr : fieldsOf( decl ) ) {
      const Decl* type = attr->shape.element.decl;
      if( !type || !type->isValue() ) continue;
      if( decl.ordered && !decl.orderByHand && !isOrdered( *type ) ) {
         error( attr->shape.element.span, decl.name.text + " is ordered but " + typed( *attr ) + " has no order" )
            .note( type->name.span, shown( type ) + " is declared here" );
      } else if( decl.hash == HashRule::generated && !isHashed( *type ) ) {
         error( attr->shape.element.span,
                typed( *attr ) + " has no hash: declare " + decl.name.text + " with no hash or hash by hand" )
            .note( type->name.span, shown( type ) + " is declared here" );
      }
   }
}

void Checker::enumeration( Decl& decl ) {
   std::map< std::string_view, const Enumerator* > names;
   std::map< std::uint32_t, const Enumerator* > numbers;
   for( const Enumerator& e : decl.enumerators ) {
      memberName( decl, e.name, "an enumerator" );
      const auto [ byName, newName ] = names.emplace( e.name.text, &e );
      const auto [ byNumber, newNumber ] = numbers.emplace( e.value, &e );
      if( !newName ) {
         error( e.name.span, e.name.text + " is already declared" ).note( byName->second->name.span, "it is declared here" );
      } else if( !newNumber ) {
         error( e.name.span,
                e.name.text + " has the number " + std::to_string( e.value ) + ", as has " + byNumber->second->name.text )
            .note( byNumber->second->name.span, byNumber->second->name.text + " is declared here" );
      }
   }
   if( decl.enumerators.empty() ) error( decl.name.span, decl.name.text + " has no enumerator" );
}

void Checker::externValue( Decl& decl ) {
   for( const Literal* bound : { &decl.range.min, &decl.range.max } ) {
      if( !bound->empty() && bound->kind != Literal::Kind::integer ) error( bound->span, "expected a whole number" );
   }
   if( decl.size && ( *decl.size == 0 || *decl.size > 65536 ) ) error( decl.name.span, "the size is not in 1..65536" );
   if( decl.align && *decl.align != 1 && *decl.align != 2 && *decl.align != 4 && *decl.align != 8 ) {
      error( decl.name.span, "the alignment is none of 1, 2, 4 and 8" );
      decl.align = 1;
   }
}

void Checker::valueMember( Decl& decl, Attr& attr ) {
   if( attr.role == Role::constant ) return constant( attr );
   const bool inComposite = decl.kind == Kind::composite;
   const bool plain =
      attr.role == Role::plain && attr.shape.collection == Collection::none && attr.shape.holding == Holding::value;
   const Decl* type = attr.shape.element.decl;
   if( !inComposite ) {
      error( attr.name.span, decl.name.text + " holds one " +
                                ( decl.kind == Kind::scalar ? "number or string" : "identifier" ) +
                                "; only constants and operations stand in its braces" );
   } else if( !plain || attr.silent || attr.unlogged || !attr.max.empty() ) {
      error( attr.name.span, "an attribute of a value is written NAME : TYPE or NAME : TYPE = DEFAULT, nothing else" );
   } else if( type && !type->isValue() ) {
      error( attr.shape.element.span, shown( type ) + " is no value, so it can't stand in one" )
         .note( type->name.span, "it is declared here" );
   } else if( type && !attr.init.empty() ) {
      literal( *type, attr.init, &decl );
   }
}

void Checker::ops( const Decl& decl, const std::vector< Op >& ops ) {
   for( const Op& op : ops ) {
      if( op.isStatic && ( op.isVirtual || op.isConst ) )
         error( op.name.span, "a static operation is neither virtual nor const" );
      if( op.isVirtual && decl.isValue() ) error( op.name.span, "a value has no virtual operations" );
      for( const Parameter& p : op.parameters ) {
         const Decl* type = p.type.decl;
         if( !type ) continue;
         if( p.isRef && type->isValue() ) error( p.type.span, shown( type ) + " is a value and is not passed by ref" );
         if( !p.isRef && !p.isOut && !type->isValue() )
            error( p.type.span, shown( type ) + " is passed by reference: write ref " + p.type.text );
      }
      const Decl* result = op.result.type.decl;
      if( result && result->isValue() == op.result.isRef ) {
         error( op.result.type.span, op.result.isRef ?
                                        shown( result ) + " is a value and is not returned by ref" :
                                        shown( result ) + " is returned by reference: write ref " + op.result.type.text );
      }
   }
}

void Checker::value( Decl& decl ) {
   if( !decl.isValue() ) return;
   switch( decl.kind ) {
   case Kind::scalar: scalar( decl ); break;
   case Kind::wrapper: wrapper( decl ); break;
   case Kind::composite: composite( decl ); break;
   case Kind::enumeration: enumeration( decl ); break;
   default: externValue( decl ); break;
   }
   for( auto& attr : decl.attrs ) valueMember( decl, *attr );
   ops( decl, decl.ops );
}

}
