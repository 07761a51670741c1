#pragma once

#include <cstring>
#include <kel/Type.h>
#include <string>
#include <string_view>
#include <vector>

namespace Kel {

/// What stands at an address, whatever its alignment.
template< class T >
T load( const void* at ) {
   T v;
   std::memcpy( &v, at, sizeof v );
   return v;
}

/// A value type's rows, flattened down to the plain attributes at their bottom, with the text that stands between them: how its
/// canonical form is printed and read back. It is made when a value of the type is first printed or parsed, and kept from then on
/// (`Type::plan`).
struct Plan {
   /// One plain attribute and the text before it.
   struct Step {
      std::string_view before;
      const Type* type;       ///< of the attribute, or the scalar type that it is the number or string of
      const Type* printed;    ///< of the attribute
      U32 offset;
      TypeCode code;          ///< of `printed`
      U64 low;                ///< an unsigned number is refused when `number - low` is above `span`
      U64 span;
   };

   /// Throws `InternalException` for a type that is no value or has an attribute that is none.
   explicit Plan( const Type& type );
   Plan( const Plan& ) = delete;
   Plan& operator=( const Plan& ) = delete;

   std::vector< Step > steps;
   std::string_view end;    ///< the text behind the last attribute
   std::size_t room = 0;    ///< no value's texts and numbers take more characters

   /// Texts may be copied in whole blocks of this size: so many bytes behind each can be read.
   static constexpr std::size_t block = 16;

 private:
   void add( TypeCode code, const Type& type, U32 offset, const Type& scalar );

   std::string texts_;
   std::size_t cut_ = 0;   ///< the text before this place belongs to a step
};

}
