#include "Reference.h"

#include "Describe.h"
#include "EmitParts.h"
#include "MachineParts.h"
#include "Model.h"
#include "Names.h"

namespace Kelc {

namespace {

std::string literalText( const Literal& l ) {
   if( !l.span.source ) return describe( l );
   const std::string_view written = l.span.source->text().substr( l.span.begin, l.span.end - l.span.begin );
   return l.kind == Literal::Kind::integer && written.starts_with( "0x" ) ? std::string( written ) : describe( l );
}

std::string zeroText( const Decl& decl ) {
   if( decl.kind == Kind::scalar ) return decl.init.empty() ? zeroText( *basisOf( decl ) ) : literalText( decl.init );
   if( decl.kind == Kind::enumeration ) {
      for( const Enumerator& e : decl.enumerators ) {
         if( e.value == 0 ) return e.name.text;
      }
      return decl.enumerators.empty() ? "" : decl.enumerators.front().name.text;
   }
   switch( decl.literals ) {
   case LiteralForm::boolean: return "false";
   case LiteralForm::integer:
   case LiteralForm::real: return "0";
   case LiteralForm::text: return decl.size ? "" : "\"\""; // a text of fixed size, such as an address, is not empty
   case LiteralForm::none: break;
   }
   return "";
}

std::string scopeOf( const Decl& decl ) {
   return decl.outer ? decl.outer->qualifiedName() + "::" : decl.nameSpace.empty() ? "" : decl.nameSpace + "::";
}

std::string parameter( const std::string& name, const std::string& type ) { return name + " : " + type; }

// The parameters of a constructor or factory, without the name where a collection makes it of the key.
Strings parametersOf( const Decl& decl, bool asChild ) {
   Strings out;
   if( isNamed( decl ) && !( asChild && keyOf( decl ) ) ) {
      const TypeRef* type = nameTypeOf( decl );
      out.push_back( parameter( "name", type ? describe( *type ) : "Kel::Name" ) );
   }
   for( const Attr* attr : constructorParameters( decl ) ) out.push_back( parameter( attr->name.text, typeText( *attr ) ) );
   if( const Attr* owner = Machines::ownerOf( decl ); owner && !asChild )
      out.push_back( parameter( owner->name.text, typeText( *owner ) ) );
   return out;
}

Strings valueCreation( const Decl& decl ) {
   const std::string name = decl.qualifiedName();
   if( decl.kind == Kind::enumeration )
      return { name + "Instance( number : Kel::U32 )", name + "Instance( name : Kel::String8 )" };
   if( decl.kind != Kind::composite ) return { name + "()", name + "( value : " + describe( decl.basis ) + " )" };
   Strings parameters;
   for( const Attr* attr : fieldsOf( decl ) ) parameters.push_back( parameter( attr->name.text, typeText( *attr ) ) );
   return { name + "()", name + inParens( parameters ) };
}

void valueMessages( const Decl& decl, std::vector< Message >& out ) {
   const std::string name = decl.name.text;
   if( decl.kind == Kind::scalar ) {
      const Decl& basis = *basisOf( decl );
      if( const std::string text = boundsText( decl ); !text.empty() ) {
         out.push_back( { text, decl.range.isMax ? "a text that is too long" : "a value outside of the bounds" } );
      } else if( basis.literals == LiteralForm::integer ) {
         for( const auto& [ sign, bound ] : { std::pair( " < ", &basis.range.min ), std::pair( " > ", &basis.range.max ) } )
            out.push_back( { name + "::value" + sign + describe( *bound ) + " not allowed", "such a number, read from text" } );
      }
   }
   if( decl.kind == Kind::wrapper )
      out.push_back( { "'TEXT' is no " + describe( decl.basis ), "text that is none, read as a value" } );
   if( decl.kind == Kind::enumeration ) {
      out.push_back( { name, "a number that no enumerator has" } );
      out.push_back( { name + " has no such value: NAME", "a name that no enumerator has" } );
   }
   if( decl.kind == Kind::composite ) {
      out.push_back( { name + "::ATTRIBUTE: TEXT", "text in which an attribute's value is refused with TEXT" } );
      out.push_back( { name + " has no such attribute: NAME", "text with another attribute" } );
   }
   out.push_back( { "premature end of value type " + name, "text that ends too early" } );
   out.push_back( { "junk at column COLUMN deserializing " + decl.qualifiedName(), "text that goes on behind the value" } );
}

bool refusesNull( const Decl& decl, const Attr& attr ) {
   if( attr.role == Role::watch ) return true;
   if( attr.shape.holding != Holding::ref || !isWritable( attr ) ) return false;
   return attr.shape.nonnull || ( attr.shape.byAttr && ( decl.isMachine() || decl.isEntity() ) );
}

// An immutable constructor parameter, base's included, that a second creation under the same key must repeat.
void reinstantiations( const Decl& decl, std::vector< Message >& out ) {
   if( decl.isMachine() && !Machines::ownerOf( decl ) ) return; // nobody creates it by a key
   const std::string what = std::string( "Reinstantiating the " ) + ( decl.isMachine() ? "pointer interface" : "entity with name NAME" );
   for( const Attr* attr : constructorParameters( decl ) ) {
      if( attr->role == Role::key || attr->paramVar ) continue;
      out.push_back( { what + " where constructor parameter attribute _" + attr->name.text +
                          " has a different value of NEW than the current value of OLD not allowed",
                       "the same child, created again with another `" + attr->name.text + "`" } );
   }
}

void objectMessages( const Decl& decl, std::vector< Message >& out ) {
   for( const auto& attr : decl.attrs ) {
      if( !attr->max.empty() ) {
         const std::string still = attr->storeThenCheck ? ", which is stored all the same and not announced" : "";
         out.push_back( { limitText( decl, *attr ), "a greater `" + attr->name.text + "`" + still } );
      }
      const std::string& foo = attr->name.text;
      if( refusesNull( decl, *attr ) )
         out.push_back( { "null _" + foo + " parameter to mutator for " + decl.qualifiedName() + "::" + foo + " not allowed",
                          "null, given to `" + foo + "Is()`" } );
   }
   reinstantiations( decl, out );
}

std::string runs( const Handler& h, const Attr* watching ) {
   return ( h.inWatch && watching ? reactorName( *watching ) + "::" : "" ) + h.op.text;
}

std::string eventText( const Handler& h ) {
   return h.event.text + ( h.argument ? "( " + h.argument->text + " )" : "" );
}

}

std::string defaultText( const Attr& attr ) {
   if( !attr.init.empty() ) return literalText( attr.init );
   if( attr.role != Role::plain || attr.isParameter || attr.shape.collection != Collection::none ) return "";
   return attr.shape.holding == Holding::ref ? "null" : zeroText( *attr.shape.element.decl );
}

std::string noteText( const Attr& attr ) {
   std::string notes;
   auto note = [ & ]( const std::string& text ) { notes += ( notes.empty() ? "" : ", " ) + text; };
   if( attr.role == Role::constant ) note( "constant" );
   if( attr.role == Role::key ) note( "the key, immutable" );
   if( attr.role == Role::owner ) note( "the owner" );
   if( attr.role == Role::narrow ) note( "the base's collection, with children of this type" );
   if( attr.role == Role::param ) note( attr.paramVar ? "constructor parameter" : "constructor parameter, immutable" );
   if( attr.role == Role::plain && attr.isParameter ) note( "constructor parameter" );
   if( attr.role == Role::derivedView ) note( "that of " + attr.viewOf.text );
   if( attr.role == Role::derivedByHand ) note( "computed on each read" );
   if( attr.role == Role::watch ) note( attr.isParameter ? "constructor parameter, watched" : "watched" );
   if( const std::string from = followedText( attr ); !from.empty() ) note( "one reactor per entry of " + from );
   if( attr.shape.collection == Collection::table ) note( "attached through " + attr.name.text + "Control()" );
   if( !attr.max.empty() ) note( "at most " + describe( attr.max ) );
   if( attr.storeThenCheck ) note( "stored even when refused" );
   if( attr.silent ) note( "changes are not announced" );
   if( attr.unlogged ) note( "not in the attribute log" );
   return notes;
}

std::string followedText( const Attr& attr ) {
   if( !attr.watch || attr.watch->fromAttr.empty() ) return "";
   return attr.watch->fromAttr.text + ( attr.watch->fromMember.empty() ? "" : "." + attr.watch->fromMember.text );
}

Strings creation( const Decl& decl ) {
   if( decl.isExtern() ) return {};
   if( decl.isValue() ) return valueCreation( decl );
   Strings out{ scopeOf( decl ) + factoryName( decl ) + inParens( parametersOf( decl, false ) ) };
   for( const auto& holder : decl.module->decls ) {
      for( const auto& attr : holder->attrs ) {
         if( attr->shape.holding == Holding::child && attr->shape.element.decl == &decl )
            out.push_back( holder->qualifiedName() + "::new" + upperFirst( attr->name.text ) +
                           inParens( parametersOf( decl, true ) ) );
      }
   }
   return out;
}

Strings notifications( const Decl& decl ) {
   Strings out;
   if( decl.kind != Kind::entity ) return out;
   for( const auto& attr : decl.attrs ) {
      if( !notifies( *attr ) || attr->role == Role::narrow ) continue;
      const std::string on = "on" + upperFirst( attr->name.text );
      if( attr->shape.isCollection() ) out.push_back( on + "( key : " + attr->shape.keyDecl->qualifiedName() + " )" );
      out.push_back( on + "()" );
      if( attr->shape.isCollection() ) out.push_back( on + "kelImmediate()" );
   }
   return out;
}

std::vector< Message > messages( const Decl& decl ) {
   std::vector< Message > out;
   if( decl.isExtern() ) return out;
   if( decl.isValue() ) valueMessages( decl, out );
   else objectMessages( decl, out );
   return out;
}

std::vector< Reaction > reactions( const Decl& decl ) {
   std::vector< Reaction > out;
   for( const auto& attr : decl.attrs ) {
      if( !attr->watch ) continue;
      for( const Handler& h : attr->watch->handlers )
         out.push_back( { attr->name.text + ": " + eventText( h ), runs( h, attr.get() ) } );
   }
   for( const Handler& h : decl.handlers ) out.push_back( { eventText( h ), runs( h, nullptr ) } );
   const bool saysStart = !Machines::handlersOf( decl.handlers, "start" ).empty();
   if( decl.kind == Kind::machine && !saysStart && findOp( decl, "handleInitialized", 0 ) )
      out.push_back( { "start", "handleInitialized" } );
   return out;
}

std::vector< ListedOp > operationsOf( const Decl& decl ) {
   std::vector< ListedOp > out;
   for( const Op& op : decl.ops ) out.push_back( { describe( op ), &op } );
   for( const auto& attr : decl.attrs ) {
      if( !attr->watch ) continue;
      for( const Op& op : attr->watch->ops ) out.push_back( { reactorName( *attr ) + "::" + describe( op ), &op } );
   }
   return out;
}

std::vector< Inheritance > inherited( const Decl& decl ) {
   std::vector< Inheritance > out;
   const Decl* base = decl.base.decl;
   for( int i = 0; base && i < maxTypeDepth; ++i, base = base->base.decl ) {
      Strings names;
      for( const auto& attr : base->attrs ) names.push_back( attr->name.text );
      if( !names.empty() ) out.push_back( { base, names } );
   }
   return out;
}

}
