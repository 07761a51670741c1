#pragma once

#include "Check.h"
#include "Model.h"

#include <map>

namespace Kelc {

/// The rules of the language. A name that can't be resolved is reported once; what depends on it is not judged.
class Checker {
 public:
   Checker( Program& program, Diagnostics& diagnostics ) : program_( program ), diagnostics_( diagnostics ) {}
   void run();

 private:
   Error& error( Span span, std::string text ) { return diagnostics_.error( span, std::move( text ) ); }

   // Names to declarations (Check.cpp)
   void forEach( void ( Checker::*rule )( Decl& ) );
   void visit( Decl& decl, void ( Checker::*rule )( Decl& ) );
   void resolve( TypeRef& type, const Decl& scope );
   void resolveDecl( Decl& decl );
   void resolveShape( Shape& shape, const Decl& scope );
   void resolveOp( Op& op, const Decl& scope );
   void resolveAttr( Attr& attr, const Decl& scope );
   void cutBases( Decl& decl );
   void cutValues( Decl& decl );
   int valueDepth( Decl& decl, std::vector< const Attr* >& path );
   void keysOfShapes( Decl& decl );
   void keyOfShape( Attr& attr );
   const Attr* elementAttr( Attr& attr );

   // Names (CheckNames.cpp)
   void names( Decl& decl );
   void typeName( const Decl& decl );
   void memberName( const Decl& decl, const Ident& name, const char* what );
   void clashes( const Decl& decl );
   void opClashes( const Decl& decl, const std::vector< Op >& ops );

   // Values (CheckValue.cpp)
   void value( Decl& decl );
   void scalar( Decl& decl );
   void scalarRange( Decl& decl, const Decl& basis );
   void wrapper( Decl& decl );
   void composite( Decl& decl );
   void enumeration( Decl& decl );
   void externValue( Decl& decl );
   void valueMember( Decl& decl, Attr& attr );
   void ops( const Decl& decl, const std::vector< Op >& ops );
   bool literal( const Decl& type, Literal& literal, const Decl* scope );
   bool integerLiteral( const Decl& type, const Literal& literal );
   bool listLiteral( const Decl& type, Literal& literal, const Decl* scope );
   bool namedLiteral( const Decl& type, Literal& literal, const Decl* scope );
   bool mismatch( const Literal& literal, const Decl& type, const std::string& expected );

   // Entities (CheckEntity.cpp)
   void entity( Decl& decl );
   void baseAndName( Decl& decl );
   void oneKey( Decl& decl );
   void member( Decl& decl, Attr& attr );
   void constant( Attr& attr );
   void stored( Decl& decl, Attr& attr );
   void parameter( Attr& attr );
   void limit( Decl& decl, Attr& attr );
   void view( Decl& decl, Attr& attr );
   void narrow( Decl& decl, Attr& attr );
   void sameCreation( const Attr& attr );
   bool elementKind( const Decl& decl, const Attr& attr );
   void child( const Decl& decl, const Attr& attr );
   void keyType( const Attr& attr );
   void table( const Attr& attr );
   void overrides( Decl& decl, std::vector< Op >& ops );

   // Machines (CheckMachine.cpp)
   void machine( Decl& decl );
   void machineParameters( Decl& decl );
   void owner( Decl& decl, Attr& attr );
   void watch( Decl& decl, Attr& attr );
   void watchFrom( Decl& decl, Attr& attr );
   void handler( Decl& machine, const Attr* watching, Handler& handler );
   bool event( Decl& machine, const Attr* watching, Handler& handler, const Decl*& key );
   void handlerTarget( Decl& machine, const Attr* watching, Handler& handler, const Decl* key );

   Program& program_;
   Diagnostics& diagnostics_;
   std::map< const Decl*, int > depths_;   ///< nesting of values; -1 while it is being computed
};

/// A type as a message names it: the shortest form that tells it apart.
std::string shown( const Decl* decl );
/// "VlanId::value" or "a type".
std::string typed( const Attr& attr );

}
