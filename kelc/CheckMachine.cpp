// State machines: parameters, what they watch, and which operation handles which event.
#include "Checker.h"

#include "Names.h"

#include <algorithm>

namespace Kelc {

namespace {

std::vector< std::string_view > attrNames( const Decl& decl ) {
   std::vector< std::string_view > out;
   const Decl* d = &decl;
   for( int i = 0; d && i < maxTypeDepth; ++i, d = d->base.decl ) {
      for( const auto& attr : d->attrs ) out.push_back( attr->name.text );
   }
   return out;
}

}

void Checker::machineParameters( Decl& decl ) {
   std::map< std::string_view, const Ident* > seen;
   for( const Ident& param : decl.params ) {
      const Attr* attr = findAttr( decl, param.text );
      if( !seen.emplace( param.text, &param ).second ) {
         error( param.span, param.text + " is given twice" );
      } else if( !attr ) {
         error( param.span, decl.name.text + " has no attribute " + param.text + suggestion( param.text, attrNames( decl ) ) );
      } else if( attr->shape.collection != Collection::none ||
                 ( attr->role != Role::plain && attr->role != Role::watch && attr->role != Role::param ) ) {
         error( param.span, param.text + " can't be a parameter: expected a value, a reference or one watched entity" )
            .note( attr->name.span, "it is declared here" );
      } else if( attr->owner == &decl ) {
         const_cast< Attr* >( attr )->isParameter = true;   // of this very declaration, which is ours to complete
      }
   }
   const Decl* base = decl.base.decl;
   if( decl.hasBaseArgs && base && constructorParameters( *base ).size() != decl.baseArgs.size() ) {
      error( decl.base.span,
             base->name.text + " takes " + std::to_string( constructorParameters( *base ).size() ) + " parameters" )
         .note( base->name.span, "it is declared here" );
   }
   for( const Ident& arg : decl.baseArgs ) {
      if( !seen.contains( arg.text ) ) error( arg.span, arg.text + " is no parameter of " + decl.name.text );
   }
}

void Checker::owner( Decl& decl, Attr& attr ) {
   const Decl* type = attr.shape.element.decl;
   if( attr.shape.collection != Collection::none || attr.shape.holding != Holding::value )
      error( attr.shape.span, "an owner is written owner NAME : MACHINE" );
   else if( type && !type->isMachine() )
      error( attr.shape.element.span, shown( type ) + " is no machine" ).note( type->name.span, "it is declared here" );
   for( const auto& other : decl.attrs ) {
      if( other.get() == &attr ) break;
      if( other->role == Role::owner )
         error( attr.name.span, decl.name.text + " has two owners" ).note( other->name.span, "the other one is declared here" );
   }
}

// Where a map of reactors takes its entities from.
void Checker::watchFrom( Decl& decl, Attr& attr ) {
   Watch& w = *attr.watch;
   const Shape& s = attr.shape;
   if( w.fromAttr.empty() ) {
      if( s.collection != Collection::none ) error( s.span, "expected from and the collection that the reactors follow" );
      return;
   }
   const Attr* from = findAttr( decl, w.fromAttr.text );
   const Decl* holder = &decl;
   if( from && !w.fromMember.empty() ) {
      holder = from->shape.element.decl;
      if( !holder ) return;
      from = findAttr( *holder, w.fromMember.text );
   }
   const Ident& last = w.fromMember.empty() ? w.fromAttr : w.fromMember;
   if( !from ) {
      error( last.span, holder->name.text + " has no attribute " + last.text + suggestion( last.text, attrNames( *holder ) ) )
         .note( holder->name.span, "it is declared here" );
   } else if( s.collection == Collection::none ) {
      error( last.span, "from stands behind a map" );
   } else if( from->shape.collection != Collection::map || from->shape.holding == Holding::value ) {
      error( last.span, last.text + " is no collection of entities" ).note( from->name.span, "it is declared here" );
   } else if( from->shape.holding == Holding::ref && !from->shape.byAttr ) {
      error( last.span, "reactors follow children, or references keyed by an attribute" )
         .note( from->name.span, last.text + " is declared here" );
   } else if( s.keyDecl && from->shape.keyDecl && s.keyDecl != from->shape.keyDecl ) {
      error( s.key.span,
             attr.name.text + " is keyed by " + s.key.text + " but " + last.text + " by " + shown( from->shape.keyDecl ) )
         .note( from->name.span, last.text + " is declared here" );
   } else if( s.element.decl && from->shape.element.decl && !derivesFrom( *from->shape.element.decl, *s.element.decl ) ) {
      error( s.element.span, last.text + " holds " + shown( from->shape.element.decl ) )
         .note( from->name.span, "it is declared here" );
   } else {
      w.from = from;
   }
}

void Checker::watch( Decl& decl, Attr& attr ) {
   const Decl* target = attr.shape.element.decl;
   Watch& w = *attr.watch;
   if( attr.silent || attr.unlogged )
      error( attr.name.span, "a machine's attributes are not logged, and reactors are always announced" );
   if( target && target->isValue() ) {
      error( attr.shape.element.span, shown( target ) + " is a value; only entities are watched" )
         .note( target->name.span, "it is declared here" );
      return;
   }
   if( attr.shape.collection != Collection::none ) keyType( attr );
   watchFrom( decl, attr );
   for( auto& inner : w.attrs ) {
      if( inner->role != Role::plain || inner->shape.collection != Collection::none )
         error( inner->name.span, "a reactor's own attributes are values and references" );
      else stored( decl, *inner );
   }
   ops( decl, w.ops );
   for( Handler& h : w.handlers ) handler( decl, &attr, h );
}

// Finds what the event means. Returns false when that is already an error; `key` is the type of the key that comes with the
// event.
bool Checker::event( Decl& machine, const Attr* watching, Handler& h, const Decl*& key ) {
   if( h.event.text == "start" || h.event.text == "gone" ) {
      if( h.argument ) error( h.argument->span, h.event.text + " comes without a key" );
      return !h.argument;
   }
   const Decl* source = watching ? watching->shape.element.decl : &machine;
   if( !source ) return false;
   h.attr = findAttr( *source, h.event.text );
   if( !h.attr ) {
      error( h.event.span,
             source->name.text + " has no attribute " + h.event.text + suggestion( h.event.text, attrNames( *source ) ) )
         .note( source->name.span, "it is declared here" );
      return false;
   }
   const bool isCollection = h.attr->shape.isCollection();
   if( !notifies( *h.attr ) ) {
      error( h.event.span,
             h.event.text + ( h.attr->silent ? " is silent: its changes are not announced" : " never changes by itself" ) )
         .note( h.attr->name.span, "it is declared here" );
   } else if( h.argument && !isCollection ) {
      error( h.argument->span, h.event.text + " is no collection, so it comes without a key" )
         .note( h.attr->name.span, "it is declared here" );
   } else {
      if( h.argument ) key = h.attr->shape.keyDecl;
      return true;
   }
   return false;
}

void Checker::handlerTarget( Decl& machine, const Attr* watching, Handler& h, const Decl* key ) {
   const std::size_t wanted = h.argument ? 1 : 0;
   const Op* sameName = nullptr;
   std::vector< std::string_view > names;
   if( watching ) {
      for( const Op& op : watching->watch->ops ) {
         names.push_back( op.name.text );
         if( op.name.text != h.op.text ) continue;
         sameName = &op;
         if( op.parameters.size() == wanted ) h.target = &op, h.inWatch = true;
      }
   }
   for( const Op& op : machine.ops ) {
      names.push_back( op.name.text );
      if( op.name.text == h.op.text && !sameName ) sameName = &op;
   }
   if( !h.target ) h.target = findOp( machine, h.op.text, wanted );
   if( !h.target ) {
      const std::string what = sameName ? h.op.text + ( wanted ? " takes no single key" : " needs a key" ) :
                                          "there is no operation " + h.op.text + suggestion( h.op.text, names );
      error( h.op.span, what ).note( sameName ? sameName->name.span : Span{}, "it is declared here" );
      return;
   }
   h.passesKey = wanted == 1;
   if( !wanted || !key ) return;
   const Parameter& p = h.target->parameters[ 0 ];
   if( p.type.decl && p.type.decl != key ) {
      error( h.argument->span,
             h.event.text + " comes with a key of type " + shown( key ) + " but " + h.op.text + " takes " + p.type.text )
         .note( p.name.span, "the parameter is declared here" );
   }
}

void Checker::handler( Decl& machine, const Attr* watching, Handler& h ) {
   const Decl* key = nullptr;
   if( event( machine, watching, h, key ) ) handlerTarget( machine, watching, h, key );
}

void Checker::machine( Decl& decl ) {
   if( !decl.isMachine() ) return;
   if( decl.unlogged ) error( decl.name.span, "a machine has no attribute log, so unlogged says nothing" );
   oneKey( decl );
   machineParameters( decl );
   for( auto& attr : decl.attrs ) {
      if( attr->role == Role::watch ) watch( decl, *attr );
      else if( attr->role == Role::owner ) owner( decl, *attr );
      else member( decl, *attr );
   }
   ops( decl, decl.ops );
   overrides( decl, decl.ops );
   for( Handler& h : decl.handlers ) handler( decl, nullptr, h );
}

}
