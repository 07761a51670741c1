// Names that C++, the framework or other generated members need.
#include "Checker.h"

#include "Names.h"

#include <algorithm>

namespace Kelc {

namespace {

bool isPlain( std::string_view name ) {
   return std::all_of( name.begin(), name.end(), []( char c ) { return c != '_'; } );
}

bool startsUpper( std::string_view name ) {
   return !name.empty() && name[ 0 ] >= 'A' && name[ 0 ] <= 'Z';
}

bool sameParameters( const Op& a, const Op& b ) {
   return std::equal( a.parameters.begin(), a.parameters.end(), b.parameters.begin(), b.parameters.end(),
                      []( const Parameter& x, const Parameter& y ) { return x.type.decl == y.type.decl; } );
}

}

void Checker::typeName( const Decl& decl ) {
   const Ident& name = decl.name;
   if( decl.isExtern() ) return;
   if( !startsUpper( name.text ) || !isPlain( name.text ) ) {
      error( name.span, "a type's name begins with a capital letter and has no underscore: " + quoted( name.text ) );
   }
}

void Checker::memberName( const Decl& decl, const Ident& name, const char* what ) {
   if( isReservedWord( name.text ) ) {
      error( name.span, quoted( name.text ) + " is a word of C++ and can't name " + what );
   } else if( startsUpper( name.text ) || !isPlain( name.text ) ) {
      error( name.span,
             std::string( what ) + "'s name begins with a small letter and has no underscore: " + quoted( name.text ) );
   } else if( isFrameworkName( decl.kind, name.text ) && std::string_view( what ) != "a parameter" ) {
      error( name.span, quoted( name.text ) + " is a member that the framework gives every type of this kind" );
   }
}

// Members of one class that would get the same name, inherited ones included. Operations may overload each other.
void Checker::clashes( const Decl& decl ) {
   std::map< std::string, const Attr* > seen;
   const Decl* d = decl.base.decl;
   for( int i = 0; d && i < maxTypeDepth; ++i, d = d->base.decl ) {
      for( const auto& attr : d->attrs ) {
         for( const auto& member : memberNames( *attr ) ) seen.emplace( member, attr.get() );
      }
   }
   for( const auto& attr : decl.attrs ) {
      if( attr->role == Role::narrow ) continue;
      for( const auto& member : memberNames( *attr ) ) {
         const auto [ at, isNew ] = seen.emplace( member, attr.get() );
         if( isNew ) continue;
         const bool same = at->second->name.text == attr->name.text;
         error( attr->name.span,
                same ? attr->name.text + " is already declared" :
                       attr->name.text + " gives its class a member " + member + ", and so does " + at->second->name.text )
            .note( at->second->name.span, same ? "it is declared here" : at->second->name.text + " is declared here" );
         break;
      }
   }
   for( const Op& op : decl.ops ) {
      const auto at = seen.find( op.name.text );
      if( at == seen.end() ) continue;
      error( op.name.span,
             "the operation has the name of a member that the attribute " + at->second->name.text + " gives its class" )
         .note( at->second->name.span, at->second->name.text + " is declared here" );
   }
}

void Checker::opClashes( const Decl& decl, const std::vector< Op >& ops ) {
   std::multimap< std::string_view, const Op* > seen;
   for( const Op& op : ops ) {
      memberName( decl, op.name, "an operation" );
      const auto [ from, to ] = seen.equal_range( op.name.text );
      const auto twin = std::find_if( from, to, [ & ]( const auto& other ) { return sameParameters( *other.second, op ); } );
      if( twin != to ) {
         error( op.name.span, op.name.text + " is already declared with the same parameters" )
            .note( twin->second->name.span, "it is declared here" );
      }
      seen.emplace( op.name.text, &op );
      std::map< std::string_view, const Ident* > parameters;
      for( const Parameter& p : op.parameters ) {
         memberName( decl, p.name, "a parameter" );
         if( !parameters.emplace( p.name.text, &p.name ).second )
            error( p.name.span, "two parameters are called " + p.name.text );
      }
   }
}

void Checker::names( Decl& decl ) {
   typeName( decl );
   for( const auto& attr : decl.attrs ) {
      if( !decl.isExtern() ) memberName( decl, attr->name, "an attribute" );
      if( !attr->watch ) continue;
      for( const auto& inner : attr->watch->attrs ) memberName( decl, inner->name, "an attribute" );
      opClashes( decl, attr->watch->ops );
   }
   clashes( decl );
   opClashes( decl, decl.ops );
}

}
