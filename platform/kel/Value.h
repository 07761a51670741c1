#pragma once

#include <compare>
#include <cstddef>
#include <kel/Hash.h>
#include <kel/LogValue.h>
#include <kel/Text.h>
#include <kel/Type.h>

namespace [[gnu::visibility("default")]] Kel {

/// Base of every value type: copied, compared by its attributes, never virtual. It is empty, and a class of its own for each
/// type, so that values nest without padding.
template< class T >
class Value {
 public:
   static Type& _fwkType() { return T::_Type; }
   Type& fwkType() const { return T::_Type; }

   // For the defaulted comparisons of `T` alone: as templates they take no `T` for its base, or a value without an order would
   // compile with `<` and call all its instances equal.
   template< class U >
      requires std::is_same_v< U, Value >
   friend constexpr std::strong_ordering operator<=>( const U&, const U& ) { return std::strong_ordering::equal; }
   template< class U >
      requires std::is_same_v< U, Value >
   friend constexpr bool operator==( const U&, const U& ) { return true; }

 protected:
   Value() = default;
};

/// A type that is or derives from a value type, or an enumeration of ours.
template< class T >
concept ValueType = std::is_base_of_v< Value< T >, T >;
template< class T >
concept EnumType = std::is_enum_v< T > && requires { kelTypeOf( static_cast< const T* >( nullptr ) ); };

/// The same text as `valueToStrep`.
template< ValueType T >
std::ostream& operator<<( std::ostream& out, const T& value ) {
   TextOut text;
   print( T::_Type, &value, text );
   return out << text.view();
}

/// The bare name of the enumerator.
template< EnumType E >
std::ostream& operator<<( std::ostream& out, E value ) {
   return out << stringValue( value ).view();
}

/// Writes the value to an attribute log.
template< class T >
   requires( ValueType< T > || EnumType< T > || requires { requires T::_code == TypeCode::external; } )
LogOut& operator<<( LogOut& out, const T& value ) {
   logWrite( out, part( &value ) );
   return out;
}

}
