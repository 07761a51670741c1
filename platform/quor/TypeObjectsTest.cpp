#include <gtest/gtest.h>
#include <kel/GenericIf.h>
#include <cstring>
#include <kel/Value.h>
#include <kel/Registry.h>
#include <quor/EthAddr.h>
#include <quor/IntfId.h>
#include <quor/IpAddr.h>
#include <vector>

// The framework's view of the hand-written value types: found by name, printed, parsed, and with one layout in the attribute log.

namespace {

template< class T >
void check( const char* typeName, const char* name, const char* text, const std::vector< Kel::U8 >& bytes ) {
   SCOPED_TRACE( text );
   Kel::Type* type = Kel::TypeRegistry::instance().type( typeName );
   ASSERT_EQ( type, &T::_Type );
   const T value( ( std::string_view( name ) ) );
   EXPECT_EQ( Kel::valueToStrep( value ).str(), text );
   EXPECT_EQ( Kel::strepToValue< T >( text ), value );
   Kel::LogOut out;
   out << value;
   EXPECT_EQ( std::vector< Kel::U8 >( out.bytes().begin(), out.bytes().end() ), bytes );
   T back;
   Kel::LogIn in( bytes );
   Kel::read( *type, &back, in );
   EXPECT_EQ( back, value );
   Kel::LogIn again( bytes );
   EXPECT_EQ( T( again ), value );
   Kel::TextIter from( text );
   EXPECT_EQ( T( from, Kel::TextIter( text + std::strlen( text ) ) ), value );
   EXPECT_EQ( *from.ptr(), 0 );
   // Every cut is noticed, and nothing behind it is read.
   for( std::size_t n = 0; n < bytes.size(); ++n ) {
      const std::vector< Kel::U8 > cut( bytes.begin(), bytes.begin() + static_cast< std::ptrdiff_t >( n ) );
      Kel::LogIn some( cut );
      EXPECT_THROW( Kel::read( *type, &back, some ), Kel::RangeException ) << n;
   }
   EXPECT_THROW( Kel::strepToValue< T >( "'no such thing'" ), Kel::RangeException );
   EXPECT_EQ( type->genericIf( Kel::String8( text ), false )->template as< T >(), value );
}

TEST( TypeObjectsTest, TextAndLogForms ) {
   check< Quor::EthAddr >( "Quor::EthAddr", "02:00:00:00:00:01", "'02:00:00:00:00:01'", { 2, 0, 0, 0, 0, 1 } );
   check< Quor::IntfId >( "Quor::IntfId", "Ethernet3", "'Ethernet3'", { 0x80, 0xc0, 0 } );
   check< Quor::IntfId >( "Quor::IntfId", "", "''", { 0, 0 } );
   check< Quor::IpAddr >( "Quor::IpAddr", "192.0.2.1", "'192.0.2.1'", { 4, 192, 0, 2, 1 } );
   check< Quor::IpAddr >( "Quor::IpAddr", "2001:db8::1", "'2001:db8::1'",
                          { 6, 0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1 } );
   check< Quor::IpAddr >( "Quor::IpAddr", "", "''", { 0 } );
   const Kel::U8 badVersion[] = { 5, 1, 2, 3, 4 };
   Quor::IpAddr address;
   Kel::LogIn in( badVersion );
   EXPECT_THROW( Kel::read( Quor::IpAddr::_Type, &address, in ), Kel::RangeException );
}

}
