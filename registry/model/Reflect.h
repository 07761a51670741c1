#pragma once

#include "Model.h"

#include <gmock/gmock.h>
#include <kel/Entity.h>
#include <kel/GenericIf.h>
#include <kel/Registry.h>
#include <random>

// Any instance of any type, by reflection alone.
namespace Model {

using If = Kel::Ptr< Kel::GenericIf >;
using Ifs = std::vector< If >;

/// The type object with this name. Throws when the library has none.
Kel::Type& typeObject( const std::string& name );
/// Whether entities are named by values of this type as they are.
inline bool isName( const Kel::Type& type ) { return type.code() == Kel::TypeCode::name || type.code() == Kel::TypeCode::string8; }
/// How reflection tells one attribute, in the words of Model.txt.
std::string lineOf( const Kel::Attr& row, const Kel::Type& owner );

/// Random instances; each run of the program makes the same ones.
class Maker {
 public:
   /// Any value of the type, inside its declared range.
   If value( Kel::Type& type );
   /// One that differs from `other`.
   If valueUnlike( Kel::Type& type, const void* other );
   /// The constructor parameters of an entity type, in order. A child in a collection that is keyed by something else than its name gets none.
   Ifs parameters( const Kel::Type& type, const Kel::Type* keyType = nullptr );
   Kel::Ptr< Kel::Entity > entity( const Kel::Type& type );
   Kel::Ptr< Kel::Entity > entity( const Kel::Type& type, const Ifs& parameters );

 private:
   Kel::U64 number( Kel::U64 min, Kel::U64 max );
   std::string text( std::size_t max, Kel::U8 min = 0 );
   void plain( Kel::TypeCode code, void* at );
   void scalar( const Kel::Type& type, void* at );
   std::mt19937_64 random_{ 1 };
};

std::vector< const Kel::GenericIf* > pointers( const Ifs& all );
/// The text of the exception of type `E` that `action` throws; "nothing" when it throws none.
template< class E, class Action >
std::string thrown( const Action& action ) {
   try {
      action();
   } catch( const E& e ) {
      return e.what();
   }
   return "nothing";
}

/// One case per module, with the module's name.
struct PerModule : testing::TestWithParam< std::string > {
   static std::vector< std::string > names();
   const Module& module() const;
};

}
