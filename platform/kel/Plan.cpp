#include <kel/Plan.h>

#include <algorithm>
#include <kel/Exception.h>
#include <list>
#include <mutex>

// Steps are added from the rows downwards: composites dissolve into their attributes, and what they print around those is put
// together as the text before each step.

namespace Kel {

namespace {

[[noreturn]] void noValue( const Type& type ) {
   throw InternalException( std::string( type.qualifiedName() ) + " is no value and has no text form" );
}

constexpr std::size_t numberText = 32;   // the longest is a double's, 24 characters

std::pair< U64, U64 > unsignedBounds( TypeCode code, const Bounds& declared ) {
   const U64 widest = code == TypeCode::u8 ? 0xff : code == TypeCode::u16 ? 0xffff : code == TypeCode::u32 ? ~U32( 0 ) : ~U64( 0 );
   if( !declared.text ) return { 0, widest };
   return { declared.min > 0 ? static_cast< U64 >( declared.min ) : 0, std::min( declared.max, widest ) };
}

}

Plan::Plan( const Type& type ) {
   add( type.code(), type, 0, type );
   room += texts_.size() + block;
   texts_.append( block, '\0' );
   // The text moved while it grew.
   const char* at = texts_.data();
   for( Step& step : steps ) {
      step.before = { at, step.before.size() };
      at += step.before.size();
   }
   end = { at, texts_.size() - block - cut_ };
}

void Plan::add( TypeCode code, const Type& type, U32 offset, const Type& scalar ) {
   if( code == TypeCode::scalar ) {
      const Attr& row = type.ownAttrs().front();
      return add( row.code, *row.type, offset + row.offset, type );
   }
   if( code >= TypeCode::entity ) noValue( type );
   if( code != TypeCode::composite ) {
      room += code == TypeCode::external ? type.info().external->maxText + 2 : numberText;
      const auto [ low, high ] = unsignedBounds( code, scalar.info().bounds );
      steps.push_back( { std::string_view( texts_ ).substr( cut_ ), &scalar, &type, offset, code, low, high - low } );
      cut_ = texts_.size();
      return;
   }
   texts_.append( "Value('" ).append( type.qualifiedName() ).append( "', ** {" );
   const char* separator = "'";
   for( const Attr& row : type.ownAttrs() ) {
      if( row.kind != AttrKind::scalar ) continue;
      texts_.append( separator ).append( row.nameView() ).append( "': " );
      add( row.code, *row.type, offset + row.offset, *row.type );
      separator = ", '";
   }
   texts_ += "})";
}

const Plan& Type::makePlan() const {
   // They outlive every library's clean-up, in which values may still be printed.
   static std::mutex mutex;
   static auto* const all = new std::list< Plan >;
   const std::lock_guard lock( mutex );
   if( !plan_ ) plan_ = &all->emplace_back( *this );
   return *plan_;
}

}
