#include <kel/GenericIf.h>

#include <kel/LogStream.h>
#include <kel/Machine.h>

namespace Kel {

GenericIf::GenericIf( Type& type, void* object, bool isConst )
    : type_( type ), object_( object ), const_( isConst ), owned_( false ) {
   if( type.isValue() || !object ) return;
   auto* held = static_cast< PtrInterface* >( object );
   if( held->referenceCount() ) held_ = held;
}

GenericIf::GenericIf( Type& type, const void* value ) : type_( type ), const_( false ), owned_( true ) {
   object_ = ::operator new( type.size() );
   if( value ) type.info().values->copyConstruct( object_, value );
   else type.info().values->construct( object_ );
}

const void* Detail::checkedArgument( const GenericIf* argument, const Type& wanted ) {
   if( !argument ) throw RangeException( "no " + std::string( wanted.qualifiedName() ) + " given" );
   return argument->checked( wanted );
}

GenericIf::~GenericIf() {
   if( !owned_ ) return;
   type_.info().values->destroy( object_ );
   ::operator delete( object_ );
}

void* GenericIf::mutableObject() {
   if( const_ ) throw ConstException( "attempting to modify a const instance" );
   return object_;
}

void GenericIf::wrongType( const Type& given, const Type& wanted ) {
   throw RangeException( std::string( given.qualifiedName() ) + " given where " + std::string( wanted.qualifiedName() ) +
                         " is wanted" );
}

const void* GenericIf::checked( const Type& wanted ) const {
   const void* p = voidPtrIs( wanted );
   if( !p ) wrongType( type_, wanted );
   return p;
}

void* GenericIf::voidPtrIs( const Type& wanted ) const {
   if( &type_ == &wanted ) return object_;
   // A time is a double under another name.
   if( type_.isValue() ) return type_.code() == TypeCode::f64 && wanted.code() == TypeCode::f64 ? object_ : nullptr;
   // An adapter may know only a base of what it wraps.
   const Type& actual = type_.isEntity() ? entity().fwkType() : static_cast< Machine* >( object_ )->fwkType();
   return actual.derivesFrom( wanted ) ? object_ : nullptr;
}

void GenericIf::kelDoZombieReactors( bool run ) {
   if( run && type_.isEntity() ) static_cast< Entity* >( mutableObject() )->zombieIs();
}

void GenericIf::hasNotificationActiveIs( bool on ) {
   if( type_.code() == TypeCode::machine ) static_cast< Machine* >( mutableObject() )->hasNotificationActiveIs( on );
}

Ptr< GenericIf > GenericIf::clone() {
   if( !type_.isValue() ) return type_.genericIf( object_, const_ );
   return Ptr< GenericIf >( new OwnedValueIf( type_, object_, false ) );
}

Ptr< const GenericIf > GenericIf::clone() const {
   if( !type_.isValue() ) return type_.genericIf( object_, true );
   return Ptr< const GenericIf >( new OwnedValueIf( type_, object_, true ) );
}

String8 GenericIf::strRep() const {
   if( type_.isEntity() ) return entity().fullName();
   if( !type_.isValue() ) return type_.qualifiedName();
   TextOut out;
   print( type_, object_, out );
   return out.view();
}

void GenericIf::genericIfListConstructor( std::span< const GenericIf* const > list ) {
   if( type_.code() != TypeCode::composite && type_.code() != TypeCode::scalar ) {
      throw InternalException( std::string( type_.qualifiedName() ) + " is not built from a list" );
   }
   OwnedValueIf made( type_, nullptr, false );
   auto given = list.begin();
   for( U16 i = 0; i < type_.attrCount(); ++i ) {
      const Attr& row = type_.attr( i );
      if( row.kind != AttrKind::scalar ) continue;
      if( given == list.end() ) throw RangeException( std::string( type_.qualifiedName() ) + ": no value given for " + row.name );
      made.setAttribute( i, row, Detail::checkedArgument( *given++, *row.type ) );
   }
   if( given != list.end() )
      throw RangeException( std::string( type_.qualifiedName() ) + ": more values given than it has attributes" );
   type_.info().values->assign( mutableObject(), made.object() );
}

namespace {

[[noreturn]] void notSettable( const Type& type, const Attr& row ) {
   throw ConstException( std::string( type.qualifiedName() ) + "::" + row.name + " can't be set" );
}

}

void GenericIf::setAttribute( U16 attribute, const Attr& row, const void* value ) {
   void* target = mutableObject();
   // What a machine's setters do beyond storing is not known here, so none of its attributes is writable.
   if( !type_.isValue() && !row.has( KelAttrIntrospectionFlags::writable ) ) notSettable( type_, row );
   if( type_.isEntity() ) return static_cast< Entity* >( target )->attrIs( attribute, value );
   // A scalar's own attribute is a plain number, so its range is checked here.
   if( type_.code() == TypeCode::scalar ) {
      LogOut bytes;
      write( *row.type, value, bytes );
      LogIn in( bytes.bytes() );
      return read( type_, target, in );
   }
   row.type->info().values->assign( static_cast< char* >( target ) + row.offset, value );
}

namespace {

void give( Ptr< GenericIf >* result, Type& type, const void* value ) {
   if( result ) *result = new OwnedValueIf( type, value, false );
}

void giveEntity( Ptr< GenericIf >* result, const Ptr< Entity >& entity, bool isConst ) {
   if( result ) *result = entity ? entity->fwkType().genericIf( entity.ptr(), isConst ) : nullptr;
}

// A machine's references may be to machines, which are no entities.
void giveReferred( Ptr< GenericIf >* result, const Type& declared, void* member, bool isConst ) {
   if( declared.isEntity() ) return giveEntity( result, *static_cast< Ptr< Entity >* >( member ), isConst );
   const auto& machine = *static_cast< Ptr< Machine >* >( member );
   if( result ) *result = machine ? machine->fwkType().genericIf( machine.ptr(), isConst ) : nullptr;
}

bool ofEntities( const Attr& row ) {
   return row.kind == AttrKind::childMap || row.kind == AttrKind::refMap || row.kind == AttrKind::reactorMap;
}

[[noreturn]] void unsuitable( const Type& type, const Attr& row ) {
   throw InternalException( "operation does not apply to " + std::string( type.qualifiedName() ) + "::" + row.name );
}

}

void GenericIf::attributeOp( const AttributeOp& op, const GenericIf* argument, Ptr< GenericIf >* result ) {
   if( op.attribute >= type_.attrCount() ) {
      throw RangeException( std::string( type_.qualifiedName() ) + " has no attribute number " + std::to_string( op.attribute ) );
   }
   const Attr& row = type_.attr( op.attribute );
   // The result of an earlier operation may be the argument or the key of this one.
   const Ptr< GenericIf > former = result ? std::move( *result ) : nullptr;
   switch( row.kind ) {
   case AttrKind::map:
   case AttrKind::queue:
   case AttrKind::childMap:
   case AttrKind::refMap:
   case AttrKind::table: return collectionOp( op, row, argument, result );
   case AttrKind::ref:
   case AttrKind::child:
   case AttrKind::reactor: return entityOp( op, row, argument, result );
   case AttrKind::reactorMap:
   case AttrKind::control: return unsuitable( type_, row );
   case AttrKind::operation: {
      if( op.kind != AttributeOp::Kind::invoke ) unsuitable( type_, row );
      if( op.arguments.size() != row.parameters ) {
         throw RangeException( std::string( type_.qualifiedName() ) + "::" + row.name + " takes " +
                               std::to_string( row.parameters ) + " arguments" );
      }
      const bool changes = row.has( KelAttrIntrospectionFlags::writable );
      const Ptr< GenericIf > returned = row.extra.operation( changes ? mutableObject() : object_, op.arguments.data() );
      if( result ) *result = returned;
      return;
   }
   default: return valueOp( op, row, argument, result );
   }
}

void GenericIf::valueOp( const AttributeOp& op, const Attr& row, const GenericIf* argument, Ptr< GenericIf >* result ) {
   switch( op.kind ) {
   case AttributeOp::Kind::get:
      if( row.kind == AttrKind::constant ) {
         if( row.code != TypeCode::string8 ) return give( result, *row.type, row.extra.constant );
         const String8 text( *static_cast< const char* const* >( row.extra.constant ) );
         return give( result, *row.type, &text );
      }
      if( row.kind == AttrKind::derived ) {
         Ptr< OwnedValueIf > value( new OwnedValueIf( *row.type, nullptr, false ) );
         row.extra.derived( object_, value->storage() );
         if( result ) *result = value;
         return;
      }
      return give( result, *row.type, static_cast< const char* >( object_ ) + row.offset );
   case AttributeOp::Kind::set:
      if( row.kind != AttrKind::scalar ) notSettable( type_, row );
      if( !argument ) throw RangeException( "no value given for " + std::string( type_.qualifiedName() ) + "::" + row.name );
      return setAttribute( op.attribute, row, argument->checked( *row.type ) );
   case AttributeOp::Kind::notify:
      if( type_.isEntity() && row.kind == AttrKind::scalar ) return entity().attrNotify( op.attribute );
      [[fallthrough]];
   default: unsuitable( type_, row );
   }
}

void GenericIf::entityOp( const AttributeOp& op, const Attr& row, const GenericIf* argument, Ptr< GenericIf >* result ) {
   char* member = static_cast< char* >( object_ ) + row.offset;
   switch( op.kind ) {
   case AttributeOp::Kind::get:
      if( row.kind == AttrKind::reactor ) return unsuitable( type_, row );
      return giveReferred( result, *row.type, member, const_ );
   case AttributeOp::Kind::set: {
      if( row.kind != AttrKind::ref ) unsuitable( type_, row );
      if( !type_.isEntity() ) notSettable( type_, row );
      const Ptr< Entity > value( argument ? static_cast< Entity* >( const_cast< void* >( argument->checked( *row.type ) ) )
                                          : nullptr );
      return setAttribute( op.attribute, row, &value );
   }
   case AttributeOp::Kind::create: {
      if( row.kind != AttrKind::child ) unsuitable( type_, row );
      if( op.arguments.size() != 1 )
         throw RangeException( std::string( type_.qualifiedName() ) + "::" + row.name + " is created by a name" );
      auto& owner = *static_cast< Entity* >( mutableObject() );
      const auto& name = *static_cast< const Name* >( Detail::checkedArgument( op.arguments[ 0 ], BuiltIn::name ) );
      return giveEntity( result, owner.newOptionalAt( op.attribute, name ), false );
   }
   case AttributeOp::Kind::del:
      if( row.kind != AttrKind::child ) unsuitable( type_, row );
      return static_cast< Entity* >( mutableObject() )->delOptionalAt( op.attribute );
   default: unsuitable( type_, row );
   }
}

void GenericIf::collectionOp( const AttributeOp& op, const Attr& row, const GenericIf* argument, Ptr< GenericIf >* result ) {
   const CollectionOps& ops = *row.extra.collection;
   void* map = static_cast< char* >( object_ ) + row.offset;
   const void* key = op.key ? op.key->checked( *row.keyType ) : nullptr;
   const auto needKey = [ & ] {
      if( !key ) throw RangeException( "no key given for " + std::string( type_.qualifiedName() ) + "::" + row.name );
   };
   switch( op.kind ) {
   case AttributeOp::Kind::get: {
      needKey();
      const void* found = ops.find( map, key );
      if( !found ) return;
      if( ofEntities( row ) ) return giveEntity( result, *static_cast< const Ptr< Entity >* >( found ), const_ );
      return give( result, *row.type, found );
   }
   case AttributeOp::Kind::count: {
      const auto count = static_cast< U32 >( ops.size( map ) );
      return give( result, BuiltIn::u32, &count );
   }
   case AttributeOp::Kind::next: {
      Ptr< OwnedValueIf > next( new OwnedValueIf( *row.keyType, nullptr, false ) );
      if( ops.next( map, key, next->storage() ) && result ) *result = next;
      return;
   }
   case AttributeOp::Kind::notify: return key ? entity().attrNotify( op.attribute, key ) : entity().attrNotify( op.attribute );
   default: break;
   }
   auto& owner = *static_cast< Entity* >( mutableObject() );
   switch( op.kind ) {
   case AttributeOp::Kind::set: {
      if( row.kind == AttrKind::childMap ) {
         // Its children are created here; nobody hands one in.
         if( !argument ) throw RangeException( "null ValidPtr" );
         unsuitable( type_, row );
      }
      if( !argument ) {
         if( row.kind == AttrKind::refMap ) owner.nullRefused( op.attribute );
         throw RangeException( "no value given for " + std::string( type_.qualifiedName() ) + "::" + row.name );
      }
      const void* value = argument->checked( *row.type );
      if( row.keyAttr )
         key = static_cast< const char* >( value ) + row.type->attr( static_cast< U16 >( row.keyAttr - 1 ) ).offset;
      needKey();
      if( row.kind != AttrKind::refMap ) return ops.set( owner, op.attribute, map, key, value );
      const Ptr< Entity > reference( static_cast< Entity* >( const_cast< void* >( value ) ) );
      return ops.set( owner, op.attribute, map, key, &reference );
   }
   case AttributeOp::Kind::create: return create( op, row, result );
   case AttributeOp::Kind::del: needKey(); ops.erase( owner, op.attribute, map, key ); return;
   case AttributeOp::Kind::delAll: {
      OwnedValueIf at( *row.keyType, nullptr, false );
      while( ops.next( map, nullptr, at.storage() ) ) ops.erase( owner, op.attribute, map, at.object() );
      return;
   }
   case AttributeOp::Kind::enq:
      if( !ops.enq || !argument ) unsuitable( type_, row );
      return ops.enq( owner, op.attribute, map, argument->checked( *row.type ) );
   case AttributeOp::Kind::deq: {
      if( !ops.deq ) unsuitable( type_, row );
      Ptr< OwnedValueIf > head( new OwnedValueIf( *row.type, nullptr, false ) );
      ops.deq( owner, op.attribute, map, head->storage() );
      if( result ) *result = head;
      return;
   }
   default: unsuitable( type_, row );
   }
}

// The arguments are the child's constructor parameters in order, its key among them where it has one; a child that is keyed by a
// name has that first.
void GenericIf::create( const AttributeOp& op, const Attr& row, Ptr< GenericIf >* result ) {
   if( row.kind != AttrKind::childMap || !entity().kelChildType( op.attribute ).info().make ) unsuitable( type_, row );
   auto& owner = *static_cast< Entity* >( mutableObject() );
   giveEntity( result, owner.newChildAt( op.attribute, op.arguments ), false );
}

}
