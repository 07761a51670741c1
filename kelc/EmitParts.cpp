// What values, entities and machines have in common.
#include "EmitParts.h"

#include "Model.h"
#include "Names.h"

#include <algorithm>

namespace Kelc {

using Strings = std::vector< std::string >;

void typeMembers( Writer& w, const Decl& decl ) {
   const char* code = decl.kind == Kind::composite ? "composite" : "scalar";
   w.line( "using GenericIf_ = ::Kel::GenericIfOf< " + decl.name.text + " >;" );
   if( decl.isValue() ) w.line( std::string( "static constexpr ::Kel::TypeCode _code = ::Kel::TypeCode::" ) + code + ";" );
   w.line( "static ::Kel::Type _Type;" );
   if( decl.isValue() ) return;
   w.pair( "static ::Kel::Type& _fwkType() { return _Type; }", "::Kel::Type& fwkType() const override { return _Type; }" );
}

void nestedClasses( Writer& w, const Decl& decl ) {
   for( const auto& nested : decl.nested ) {
      if( nested->kind == Kind::enumeration ) enumClass( w, *nested );
      else valueClass( w, *nested );
   }
}

void nestedObjects( Writer& w, const Decl& decl ) {
   for( const auto& nested : decl.nested ) {
      if( nested->kind == Kind::enumeration ) enumObject( w, *nested );
      else valueObject( w, *nested );
   }
}

void opMembers( Writer& w, const std::vector< Op >& ops ) {
   for( const Op& op : ops ) {
      w.doc( op.doc );
      const char* before = op.isStatic ? "static " : op.isVirtual && !op.overrides ? "virtual " : "";
      w.line( before + opDeclaration( op ) + ( op.overrides ? " override" : "" ) + ";" );
   }
}

std::string rowType( const Decl& decl ) {
   return cppType( decl );
}

std::string rowExtra( const Decl& decl ) {
   return decl.qualifiedName() == "Kel::Seconds" ? ", &::Kel::BuiltIn::seconds" : "";
}

bool rows( Writer& w, const Decl& decl, const Strings& all ) {
   if( all.empty() ) return false;
   w.line( "constinit const ::Kel::Attr " + localName( decl ) + "::attrs_[] = {" );
   for( const auto& row : all ) w.line( "   " + row + "," );
   w.line( "};" );
   return true;
}

// A handler takes values and returns nothing that reflection could give back.
std::vector< const Op* > reflectedOps( const Decl& decl ) {
   std::vector< const Op* > out;
   for( const Op& op : decl.ops ) {
      const bool fits = !op.isStatic && !op.overrides &&
                        std::all_of( op.parameters.begin(), op.parameters.end(),
                                     []( const Parameter& p ) { return !p.isRef && !p.isOut && p.type.decl->isValue(); } );
      const bool known =
         std::any_of( out.begin(), out.end(), [ & ]( const Op* other ) { return other->name.text == op.name.text; } );
      if( fits && !known ) out.push_back( &op );
   }
   return out;
}

std::string opRow( const Decl& decl, const Op& op ) {
   const std::string owner = localName( decl );
   std::string address = "&" + owner + "::" + op.name.text;
   const auto overloads =
      std::count_if( decl.ops.begin(), decl.ops.end(), [ & ]( const Op& other ) { return other.name.text == op.name.text; } );
   if( overloads > 1 ) {
      const std::string result = opDeclaration( op ).substr( 0, opDeclaration( op ).find( " " + op.name.text + "(" ) );
      address = "static_cast< " + result + " ( " + owner + "::* )( " + opParameterTypes( op ) + " )" +
                ( op.isConst ? " const" : "" ) + " >( " + address + " )";
   }
   std::string arguments = owner + ", " + address;
   for( const Parameter& p : op.parameters ) arguments += ", " + cppType( *p.type.decl );
   return "::Kel::operationAttr< " + arguments + " >( \"" + op.name.text + "\" )";
}

void openClass( Writer& w, const Decl& decl, const Strings& rowNames ) {
   const std::string base = baseClass( decl );
   w.doc( decl.doc );
   w.line( "class " + decl.name.text + " : public " + base + " {" );
   w.in();
   w.label( "public:" );
   nestedClasses( w, decl );
   std::string all;
   for( const auto& name : rowNames ) all += name + ( all.empty() ? " = " + base + "::Attr_::count_, " : ", " );
   w.line( "struct Attr_ : " + base + "::Attr_ { enum : ::Kel::U16 { " + all +
           ( rowNames.empty() ? "count_ = " + base + "::Attr_::count_" : "count_" ) + " }; };" );
}

void typeObjectOf( Writer& w, const Decl& decl, Strings all, const std::string& info, const Strings& parameters ) {
   const std::string name = localName( decl );
   for( const Op* op : reflectedOps( decl ) ) all.push_back( opRow( decl, *op ) );
   w.line( "// --- " + name );
   nestedObjects( w, decl );
   const bool hasRows = rows( w, decl, all );
   Strings arguments{ name, baseClass( decl ) };
   arguments.insert( arguments.end(), parameters.begin(), parameters.end() );
   w.line( "constinit ::Kel::Type " + name + "::_Type{ ::Kel::" + info + "< " + joined( arguments ) + " >( \"" + decl.qualifiedName() + "\", " +
           ( hasRows ? "attrs_" : "{}" ) + " ) };" );
}

std::string baseClass( const Decl& decl ) {
   if( decl.base.decl ) return cppType( *decl.base.decl );
   return decl.isMachine() ? "::Kel::Machine" : "::Kel::Entity";
}

std::string nameType( const Decl& decl ) {
   const TypeRef* type = nameTypeOf( decl );
   return type ? cppType( *type->decl ) : "::Kel::Name";
}

Strings constructorDeclaration( const Decl& decl ) {
   Strings out;
   if( isNamed( decl ) ) out.push_back( "const " + nameType( decl ) + "& name" );
   for( const Attr* attr : constructorParameters( decl ) ) out.push_back( heldParam( *attr ) + " " + attr->name.text );
   return out;
}

Strings constructorArguments( const Decl& decl ) {
   Strings out;
   if( isNamed( decl ) ) out.push_back( "name" );
   for( const Attr* attr : constructorParameters( decl ) ) out.push_back( attr->name.text );
   return out;
}

std::string factoryName( const Decl& decl ) {
   return lowerFirst( decl.name.text ) + "Factory";
}

}
