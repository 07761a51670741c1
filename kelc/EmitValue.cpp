// Enumerations and value types.
#include "EmitParts.h"

#include "Describe.h"
#include "Model.h"
#include "Names.h"

#include <algorithm>

namespace Kelc {

namespace {

using Strings = std::vector< std::string >;

// The one word before free functions that a nested type has to have inside its class.
const char* scopeWord( const Decl& decl, const char* nested, const char* free ) {
   return decl.outer ? nested : free;
}

bool isConstantExpression( const Attr& attr ) {
   const Decl& type = *attr.shape.element.decl;
   if( type.kind == Kind::scalar ) return isPlainNumber( *basisOf( type ) );
   if( type.qualifiedName() == "Kel::String8" ) return attr.init.text.find( '\0' ) == std::string::npos;
   return isPlainNumber( type );
}

// The bounds that a scalar checks: none where its basis has the same.
struct Bounds {
   const Literal* min = nullptr;
   const Literal* max = nullptr;
};

Bounds boundsOf( const Decl& decl ) {
   auto differs = []( const Literal& a, const Literal& b ) {
      return !a.empty() && ( a.number != b.number || a.negative != b.negative );
   };
   const Range& basis = decl.basis.decl->range;
   Bounds out;
   if( differs( decl.range.min, basis.min ) ) out.min = &decl.range.min;
   if( decl.range.isMax || differs( decl.range.max, basis.max ) ) out.max = decl.range.max.empty() ? nullptr : &decl.range.max;
   return out;
}

}

std::string boundsText( const Decl& decl ) {
   const auto [ min, max ] = boundsOf( decl );
   const std::string name = decl.name.text;
   if( decl.range.isMax ) return name + "::bytes > " + describe( *max ) + " not allowed";
   if( min && max ) return name + "::value < " + describe( *min ) + " or > " + describe( *max ) + " not allowed";
   if( max ) return name + "::value > " + describe( *max ) + " not allowed";
   if( !min ) return "";
   Literal below = *min;   // "<= 0" for a lower bound of 1
   if( below.negative && below.number ) ++below.number;
   else if( below.number ) --below.number;
   else below.negative = true, below.number = 1;
   return name + "::value <= " + describe( below ) + " not allowed";
}

namespace {

// True when the number in `value` is refused. Two bounds of an unsigned number take one comparison.
std::string refusal( const Decl& decl ) {
   const auto [ min, max ] = boundsOf( decl );
   if( decl.range.isMax ) return "value_.bytes() > " + cppNumber( *max );
   const Decl& basis = *decl.basis.decl;
   if( min && max && !basis.range.min.negative && basis.size != 8u ) {
      return "static_cast< " + cppType( basis ) + " >( value - " + cppNumber( *min ) + " ) > " +
             std::to_string( max->number - min->number ) + ( basis.size == 4u ? "u" : "" );
   }
   Strings parts;
   const char* suffix = basis.range.min.negative || basis.size != 4u ? "" : "u";
   if( min ) parts.push_back( "value < " + cppNumber( *min ) + suffix );
   if( max ) parts.push_back( "value > " + cppNumber( *max ) + suffix );
   return joined( parts, " || " );
}

void readers( Writer& w, const std::string& name ) {
   w.line( name + "( ::Kel::TextIter& from, ::Kel::TextIter to ) { ::Kel::parse( _Type, this, from, to ); }" );
   w.line( "explicit " + name + "( ::Kel::LogIn& in ) { ::Kel::read( _Type, this, in ); }" );
}

void comparisons( Writer& w, const Decl& decl ) {
   const std::string name = decl.name.text;
   if( decl.orderByHand ) {
      w.line( "::std::strong_ordering operator<=>( const " + name + "& other ) const;" );
      w.line( "friend bool operator==( const " + name + "&, const " + name + "& ) = default;" );
   } else {
      w.line( std::string( "friend " ) + ( isOrdered( decl ) ? "auto operator<=>" : "bool operator==" ) + "( const " + name +
              "&, const " + name + "& ) = default;" );
   }
   if( decl.testable ) w.line( "bool operator!() const { return *this == " + name + "(); }" );
}

void hash( Writer& w, const Decl& decl, const Strings& members ) {
   if( decl.hash == HashRule::byHand ) w.line( "::Kel::U32 hash() const;" );
   else if( decl.hash == HashRule::generated && decl.kind == Kind::composite )
      w.line( "::Kel::U32 hash() const { return ::Kel::hashAll" + inParens( members ) + "; }" );
   else if( decl.hash == HashRule::generated )
      w.line( "::Kel::U32 hash() const { return ::Kel::hashOf( " + members.front() + " ); }" );
}

// What the attribute log is made of.
void parts( Writer& w, const Strings& members ) {
   Strings all;
   for( const std::string& member : members ) all.push_back( "::Kel::part( &" + member + " )" );
   w.line( "template< class Visit > auto kelParts( Visit visit ) const { return visit" + inParens( all ) + "; }" );
}

void scalarMembers( Writer& w, const Decl& decl ) {
   const std::string name = decl.name.text;
   const Decl& basis = *decl.basis.decl;
   const std::string check = refusal( decl ), message = boundsText( decl );
   const bool isText = basis.literals == LiteralForm::text;
   const std::string body = check.empty() ? " {}" : " { if( " + check + " ) ::Kel::refuse( _Type ); }";
   w.line( std::string( isText ? "" : "constexpr " ) + name + "() = default;" );
   if( !message.empty() ) w.line( "/// Throws `RangeException` \"" + message + "\"." );
   w.line( ( isText ? "" : "constexpr " ) + name + "( " + paramType( basis ) + " value ) : value_( value )" + body );
   if( isText ) w.line( name + "( const char* value ) : " + name + "( " + cppType( basis ) + "( value ) ) {}" );
   readers( w, name );
   w.line( std::string( isText ? "" : "constexpr " ) + returnType( basis ) + " value() const { return value_; }" );
   if( isText ) w.line( "operator const " + cppType( basis ) + "&() const { return value_; }" );
   comparisons( w, decl );
   hash( w, decl, { isWide( basis ) ? cppType( basis ) + "( value_ )" : "value_" } );
   parts( w, { "value_" } );
}

void wrapperMembers( Writer& w, const Decl& decl ) {
   const std::string name = decl.name.text;
   const Decl& basis = *decl.basis.decl;
   w.line( name + "() = default;" );
   w.line( name + "( " + paramType( basis ) + " value ) : value_( value ) {}" );
   if( basis.literals == LiteralForm::text )
      w.line( "explicit " + name + "( const ::Kel::String8& text ) : value_( text.view() ) {}" );
   readers( w, name );
   w.line( "static " + name + " sequenceToValue( ::Kel::TextIter& from, ::Kel::TextIter to ) { return " + name +
           "( from, to ); }" );
   w.line( returnType( basis ) + " value() const { return value_; }" );
   w.line( "operator " + cppType( basis ) + "() const { return value_; }" );
   comparisons( w, decl );
   hash( w, decl, { "value_" } );
   parts( w, { "value_" } );
}

void compositeMembers( Writer& w, const Decl& decl ) {
   const std::string name = decl.name.text;
   Strings parameters, inits, hashed, members;
   for( const Attr* attr : fieldsOf( decl ) ) {
      const Decl& type = *attr->shape.element.decl;
      parameters.push_back( paramType( type ) + " " + attr->name.text );
      inits.push_back( attr->name.text + "_( " + attr->name.text + " )" );
      hashed.push_back( isWide( type ) ? cppType( type ) + "( " + attr->name.text + "_ )" : attr->name.text + "_" );
      members.push_back( attr->name.text + "_" );
   }
   w.line( name + "() = default;" );
   w.line( ( parameters.size() == 1 ? "explicit " : "" ) + name + inParens( parameters ) + " : " + joined( inits ) + " {}" );
   readers( w, name );
   for( const Attr* attr : fieldsOf( decl ) ) {
      const Decl& type = *attr->shape.element.decl;
      const std::string foo = attr->name.text;
      w.doc( attr->doc );
      w.line( returnType( type ) + " " + foo + "() const { return " + foo + "_; }" );
      w.line( "void " + foo + "Is( " + paramType( type ) + " v ) { " + foo + "_ = v; }" );
   }
   comparisons( w, decl );
   hash( w, decl, hashed );
   parts( w, members );
}

void valueFields( Writer& w, const Decl& decl ) {
   if( decl.kind != Kind::composite ) {
      const Decl& basis = *decl.basis.decl;
      w.line( fieldType( basis ) + " value_" + ( decl.kind == Kind::wrapper ? "" : memberInit( basis, decl.init ) ) + ";" );
   }
   for( const Attr* attr : fieldsOf( decl ) ) {
      const Decl& type = *attr->shape.element.decl;
      w.line( fieldType( type ) + " " + attr->name.text + "_" + memberInit( type, attr->init ) + ";" );
   }
}

// The layout that other processes rely on, asserted against what the C++ compiler makes of the class.
void layoutAssertion( Writer& w, const Decl& decl ) {
   const auto layout = layoutOf( decl );
   if( !layout ) return;
   Strings parts{ "sizeof( " + localName( decl ) + " ) == " + std::to_string( layout->size ) };
   if( decl.kind == Kind::composite ) {
      const auto offsets = offsetsOf( decl );
      const auto fields = fieldsOf( decl );
      for( std::size_t i = 0; i < fields.size(); ++i )
         parts.push_back( "offsetof( " + localName( decl ) + ", " + fields[ i ]->name.text +
                          "_ ) == " + std::to_string( offsets[ i ] ) );
   }
   w.line( "struct " + localName( decl ) + "::Layout_ { static_assert( " + joined( parts, " && " ) + " ); };" );
}

std::string boundsInit( const Decl& decl ) {
   const std::string text = decl.kind == Kind::scalar ? boundsText( decl ) : "";
   if( text.empty() ) return "";
   const auto [ min, max ] = boundsOf( decl );
   const Range& basis = decl.basis.decl->range;
   const Literal* low = min ? min : basis.min.empty() ? nullptr : &basis.min;
   const Literal* high = max ? max : &basis.max;
   return ", { " + ( decl.range.isMax || !low ? "0" : cppNumber( *low ) ) + ", " + cppNumber( *high ) + ", " +
          cppText( text ) + " }";
}

}

void enumClass( Writer& w, const Decl& decl ) {
   const std::string name = decl.name.text;
   w.doc( decl.doc );
   w.line( "enum class " + name + " : ::Kel::U32 {" );
   w.in();
   for( const Enumerator& e : decl.enumerators ) {
      w.doc( e.doc );
      w.line( e.name.text + " = " + std::to_string( e.value ) + ( e.value > 0x7fffffffu ? "u" : "" ) + "," );
   }
   w.out();
   w.line( "};" );
   w.line( scopeWord( decl, "static ", "extern " ) + ( "::Kel::Type " + name + "_Type;" ) );
   w.line( scopeWord( decl, "friend ", "" ) +
           ( "constexpr ::Kel::Type* kelTypeOf( const " + name + "* ) { return &" + name + "_Type; }" ) );
   const std::string cast = "static_cast< " + name + " >( ::Kel::enumerator( " + name + "_Type, ";
   const char* storage = scopeWord( decl, "static ", "inline " );
   w.line( "/// The enumerator with this number or name. Throws `RangeException`, for a number with the text \"" + name + "\"." );
   w.line( storage + name + " " + name + "Instance( unsigned number ) { return " + cast + "number ) ); }" );
   w.line( storage + name + " " + name + "Instance( const ::Kel::String8& name ) { return " + cast + "name.view() ) ); }" );
}

void enumObject( Writer& w, const Decl& decl ) {
   auto sorted = std::vector< const Enumerator* >();
   for( const Enumerator& e : decl.enumerators ) sorted.push_back( &e );
   std::sort( sorted.begin(), sorted.end(), []( auto* a, auto* b ) { return a->value < b->value; } );
   Strings names;
   for( const Enumerator* e : sorted )
      names.push_back( "{ " + std::to_string( e->value ) + ( e->value > 0x7fffffffu ? "u" : "" ) + ", \"" + e->name.text +
                       "\" }" );
   std::string table = localName( decl );
   for( auto at = table.find( "::" ); at != std::string::npos; at = table.find( "::" ) ) table.replace( at, 2, "_" );
   table += "_names";
   w.line( "static constexpr ::Kel::Enumerator " + table + "[] = { " + joined( names ) + " };" );
   w.line( "constinit ::Kel::Type " + localName( decl ) + "_Type{ ::Kel::enumInfo< " + localName( decl ) + " >( \"" + decl.qualifiedName() +
           "\", " + table + " ) };" );
}

void valueClass( Writer& w, const Decl& decl ) {
   const std::string name = decl.name.text;
   w.doc( decl.doc );
   w.line( "class " + name + " : public ::Kel::Value< " + name + " > {" );
   w.in();
   w.label( "public:" );
   nestedClasses( w, decl );
   for( const auto& attr : decl.attrs ) {
      if( attr->role == Role::constant ) constantMember( w, *attr );
   }
   if( decl.kind == Kind::scalar ) scalarMembers( w, decl );
   else if( decl.kind == Kind::wrapper ) wrapperMembers( w, decl );
   else compositeMembers( w, decl );
   opMembers( w, decl.ops );
   typeMembers( w, decl );
   w.label( "private:" );
   if( layoutOf( decl ) ) w.line( "struct Layout_;" );
   w.line( "static const ::Kel::Attr attrs_[];" );
   valueFields( w, decl );
   w.out();
   w.line( "};" );
}

void valueObject( Writer& w, const Decl& decl ) {
   const std::string name = localName( decl );
   Strings all;
   auto row = [ & ]( const Decl& type, const std::string& attr ) {
      all.push_back( "::Kel::attr< " + rowType( type ) + " >( \"" + attr + "\", offsetof( " + name + ", " + attr + "_ )" +
                     ( rowExtra( type ).empty() ? "" : ", 0" + rowExtra( type ) ) + " )" );
   };
   if( decl.kind != Kind::composite ) row( *decl.basis.decl, "value" );
   for( const auto& attr : decl.attrs ) {
      if( attr->role == Role::constant ) all.push_back( constantRow( *attr ) );
      else row( *attr->shape.element.decl, attr->name.text );
   }
   w.line( "// --- " + name );
   nestedObjects( w, decl );
   rows( w, decl, all );
   w.line( "constinit ::Kel::Type " + name + "::_Type{ ::Kel::valueInfo< " + name + " >( \"" + decl.qualifiedName() + "\", attrs_" +
           boundsInit( decl ) + " ) };" );
   layoutAssertion( w, decl );
}

void constantMember( Writer& w, const Attr& attr ) {
   const Decl& type = *attr.shape.element.decl;
   w.doc( attr.doc );
   if( !isConstantExpression( attr ) ) {
      w.line( "static " + cppType( type ) + " " + attr.name.text + "() { return " + expression( type, attr.init ) + "; }" );
   } else {
      const std::string value =
         type.qualifiedName() == "Kel::String8" ? cppText( attr.init.text ) : expression( type, attr.init );
      w.line( "static constexpr ::Kel::Constant< " + cppType( type ) + " > " + attr.name.text + "{ " + value + " };" );
   }
}

std::string constantRow( const Attr& attr ) {
   if( isConstantExpression( attr ) ) return "::Kel::constantAttr( \"" + attr.name.text + "\", &" + attr.name.text + " )";
   const std::string owner = localName( *attr.owner );
   return "::Kel::derivedAttr< " + owner + ", &" + owner + "::" + attr.name.text + " >( \"" + attr.name.text +
          "\", ::Kel::KelAttrIntrospectionFlags::nonInstantiating )";
}

}
