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
/// How reflection tells one attribute, in the words of Model.txt.
std::string lineOf( const Kel::Attr& row, const Kel::Type& owner );

/// Random instances; each run of the program makes the same ones.
class Maker {
 public:
   /// Any value of the type, inside its declared range.
   If value( Kel::Type& type );
   /// One that differs from `other`.
   If valueUnlike( Kel::Type& type, const void* other );
   /// The constructor parameters of an entity type, in order. A child under keys of `keyType` gets no name but its key.
   Ifs parameters( const Kel::Type& type, const Kel::Type* keyType = nullptr );
   Kel::Ptr< Kel::Entity > entity( const Kel::Type& type ) { return entity( type, parameters( type ) ); }
   Kel::Ptr< Kel::Entity > entity( const Kel::Type& type, const Ifs& parameters );

 private:
   Kel::U64 number( Kel::U64 min, Kel::U64 max );
   std::string text( std::size_t max, Kel::U8 min = 0 );
   void plain( const Kel::Type& type, void* at );
   void scalar( const Kel::Type& type, void* at );
   void external( const Kel::Type& type, void* at );
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

/// How a case tells its module.
inline void PrintTo( const Module& module, std::ostream* out ) { *out << module.name; }
/// One case per module of the table.
struct PerModule : testing::TestWithParam< Module > {
   static std::string name( const testing::TestParamInfo< Module >& of ) { return of.param.name; }
};

}
