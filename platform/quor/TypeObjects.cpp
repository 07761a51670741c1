#include <kel/GenericIf.h>
#include <kel/LogStream.h>
#include <kel/Value.h>
#include <quor/EthDevPam.h>
#include <quor/IntfId.h>
#include <quor/IpAddr.h>
#include <quor/PamMuxDemux.h>

// The type objects of the hand-written value types, with their text and attribute-log forms.

namespace Quor {

namespace {

template< class T >
constexpr Kel::ExternalOps externalOps( void ( *write )( const void*, Kel::LogOut& ) = nullptr,
                                        void ( *read )( void*, Kel::LogIn& ) = nullptr ) {
   return { T::maxText, []( const void* v, char* to ) { return static_cast< const T* >( v )->print( to ); },
            []( void* v, const char*& from, const char* to ) { return T::parse( from, to, *static_cast< T* >( v ) ); }, write,
            read };
}

template< class T >
constexpr Kel::TypeInfo externalType( const char* name, const Kel::ExternalOps& ops ) {
   return { .qualifiedName = name,
            .code = Kel::TypeCode::external,
            .size = sizeof( T ),
            .values = &Kel::valueOps< T >,
            .external = &ops,
            .wrap = &Kel::makeGenericIf< T > };
}

constexpr Kel::ExternalOps ethAddrOps = externalOps< EthAddr >();
constexpr Kel::ExternalOps intfIdOps = externalOps< IntfId >();

// The version, then as many bytes as its addresses have.
constexpr Kel::ExternalOps ipAddrOps = externalOps< IpAddr >(
   []( const void* v, Kel::LogOut& out ) {
      const auto& address = *static_cast< const IpAddr* >( v );
      out.u8( address.isV4() ? 4 : address.isV6() ? 6 : 0 );
      out.raw( address.bytes().data(), address.bytes().size() );
   },
   []( void* v, Kel::LogIn& in ) {
      auto& address = *static_cast< IpAddr* >( v );
      switch( const Kel::U8 version = in.u8() ) {
      case 0: address = IpAddr(); break;
      case 4: address = IpAddr( std::span< const Kel::U8, 4 >( in.raw( 4 ), 4 ) ); break;
      case 6: address = IpAddr( std::span< const Kel::U8, 16 >( in.raw( 16 ), 16 ) ); break;
      default: throw Kel::RangeException( "IP version " + std::to_string( version ) + " in attribute log" );
      }
   } );

}

EthAddr::EthAddr( Kel::TextIter& from, Kel::TextIter to ) { Kel::parse( _Type, this, from, to ); }
EthAddr::EthAddr( Kel::LogIn& in ) { Kel::read( _Type, this, in ); }
constinit Kel::Type EthAddr::_Type{ externalType< EthAddr >( "Quor::EthAddr", ethAddrOps ) };
IntfId::IntfId( Kel::TextIter& from, Kel::TextIter to ) { Kel::parse( _Type, this, from, to ); }
IntfId::IntfId( Kel::LogIn& in ) { Kel::read( _Type, this, in ); }
constinit Kel::Type IntfId::_Type{ externalType< IntfId >( "Quor::IntfId", intfIdOps ) };
IpAddr::IpAddr( Kel::TextIter& from, Kel::TextIter to ) { Kel::parse( _Type, this, from, to ); }
IpAddr::IpAddr( Kel::LogIn& in ) { Kel::read( _Type, this, in ); }
constinit Kel::Type IpAddr::_Type{ externalType< IpAddr >( "Quor::IpAddr", ipAddrOps ) };

namespace {

[[gnu::constructor( 150 )]] void nameTypes() {
   for( Kel::Type* type :
        { &EthAddr::_Type, &IntfId::_Type, &IpAddr::_Type, &Pam::_Type, &PamMuxDemux::_Type, &EthDevPam::_Type } )
      type->typeNodeIs( type->info().qualifiedName );
}

}

}
