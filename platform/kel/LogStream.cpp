#include <kel/LogStream.h>
#include <kel/Type.h>

#include <algorithm>

namespace Kel {

void LogOut::grow( std::size_t size ) {
   const std::size_t used = this->size();
   const std::size_t capacity = std::max( std::size_t( 256 ), std::max( used + size + 8, used * 2 ) );
   std::unique_ptr< U8[] > bigger( new U8[ capacity ] );
   if( used ) std::memcpy( bigger.get(), begin_.get(), used );
   begin_ = std::move( bigger );
   at_ = begin_.get() + used;
   end_ = begin_.get() + capacity;
}

void LogIn::premature() { throw RangeException( "premature end of attribute log" ); }

void LogIn::tooWide() { throw RangeException( "number in attribute log is too wide or not in its shortest form" ); }

void LogIn::noBoolean() { throw RangeException( "boolean in attribute log is neither 0 nor 1" ); }

namespace {

const ValueOps& opsOf( const Type& type ) {
   if( !type.isValue() ) [[unlikely]]
      throw InternalException( std::string( type.qualifiedName() ) + " is no value and can't be logged as one" );
   return *type.info().values;
}

}

void write( const Type& type, const void* value, LogOut& out ) { opsOf( type ).write( value, out ); }

void read( const Type& type, void* value, LogIn& in ) { opsOf( type ).read( value, in ); }

}
