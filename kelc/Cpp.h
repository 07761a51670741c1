#pragma once

#include "Ast.h"

#include <string>
#include <vector>

// How the parts of a definition are spelled in C++. Every type name is `::`-rooted, so that it means the same in every namespace.
namespace Kelc {

/// Text that is put together line by line.
class Writer {
 public:
   void line( const std::string& text ) { out_ += text.empty() ? "\n" : std::string( depth_ * 3, ' ' ) + text + "\n"; }
   /// Two short members of one kind on one line, where it can hold both.
   void pair( const std::string& a, const std::string& b );
   /// The parts, as many on a line as it can hold.
   void filled( const std::vector< std::string >& parts, const char* separator );
   /// A line at the depth of an access label.
   void label( const std::string& text ) { out_ += std::string( depth_ * 3 - 2, ' ' ) + text + "\n"; }
   void blank() {
      if( !out_.empty() && !out_.ends_with( "\n\n" ) && !out_.ends_with( "{\n" ) ) out_ += '\n';
   }
   /// `///` lines; nothing without documentation.
   void doc( const std::string& text );
   void in() { ++depth_; }
   void out() { --depth_; }
   const std::string& str() const { return out_; }

 private:
   std::string out_;
   std::size_t depth_ = 0;
};

/// `::Bridging::VlanId`, `bool`.
std::string cppType( const Decl& decl );
/// The class or enumeration by its name inside its own namespace: `Outer::Inner` for a nested one.
std::string localName( const Decl& decl );
/// How a value stands in a value type: 64-bit fields are aligned to 4 bytes in either word size.
std::string fieldType( const Decl& decl );
/// How a value is passed: numbers, those of scalar types too, booleans and enumerations by value, anything else by reference.
std::string paramType( const Decl& decl );
/// How a stored value is returned: by value when it is no larger than 8 bytes.
std::string returnType( const Decl& decl );
/// `::Kel::Ptr< const X >`.
std::string ptrType( const Decl& decl, bool isConst );
/// The type object: `::Bridging::VlanId::_Type`, `::Bridging::EntryType_Type`.
std::string typeObject( const Decl& decl );

/// What an attribute holds when it is no collection: a value or a `Ptr`.
std::string heldType( const Attr& attr );
std::string heldParam( const Attr& attr );
std::string heldReturn( const Attr& attr );

/// True for numbers, booleans and enumerations.
bool isPlainNumber( const Decl& decl );
/// True when a value needs the 4-aligned form of its 64-bit type in a value type.
bool isWide( const Decl& decl );

/// A C++ string literal.
std::string cppText( std::string_view text );
/// An expression for a default or constant of this type.
std::string expression( const Decl& type, const Literal& literal );
/// What a value of this type is without a default: zero, or an enumeration's first enumerator.
std::string zero( const Decl& type );
/// ` = 300`, `{ 1006, 4094 }` or nothing: the initialiser of a member.
std::string memberInit( const Decl& type, const Literal& init );
/// A whole number of a basis type with its suffix.
std::string cppNumber( const Literal& literal );

/// `handleLearnedHost( const ::Quor::EthAddr& addr )` with the result's type before it.
std::string opDeclaration( const Op& op );
/// The types of an operation's parameters, with a comma between them.
std::string opParameterTypes( const Op& op );

std::string joined( const std::vector< std::string >& parts, const char* separator = ", " );
/// `( a, b )` or `()`.
std::string inParens( const std::vector< std::string >& parts );

}
