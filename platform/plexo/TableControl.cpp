#include <algorithm>
#include <cstring>
#include <kel/Trace.h>
#include <plexo/TableControl.h>

// The record's layout is read from the attribute rows of its type, so the text that two processes compare is made by whoever
// makes the type. Bytes between the attributes are written as zero, so that equal records are equal bytes.
//
// Whatever a record's reader gets has passed its type's bounds: shared memory is no better a source than a frame.

namespace Plexo {

namespace {

Kel::TraceHandle& plexoTrace() {
   static Kel::TraceHandle& handle = Kel::traceHandle( "Plexo" );
   return handle;
}

U64 numberAt( const std::byte* at, std::size_t size ) noexcept {
   U64 v = 0;
   std::memcpy( &v, at, std::min( size, sizeof v ) );
   return v;
}

/// Whether some values of this number's bytes are none of its type's.
bool isBounded( const Kel::Type& type ) noexcept {
   return type.code() == Kel::TypeCode::boolean || ( type.code() == Kel::TypeCode::scalar && type.info().bounds.text );
}

}

TableControl::TableControl( Kel::Entity& owner, U16 attr, U32 ( *hash )( const void* ) )
      : owner_( owner ), attr_( attr ), layout_{ 0, 0, 0, hash, {} } {}

TableControl::~TableControl() = default;

// --- layout ----------------------------------------------------------------------------------------------------------------

void TableControl::describe() {
   if( layout_.recordBytes ) return;
   const Kel::Attr& row = owner_.fwkType().attr( attr_ );
   const Kel::Type& record = *row.type;
   mask_.assign( record.size(), 0 );
   text_ = std::string( record.qualifiedName() ) + '{';
   describe( record, 0, {} );
   text_.back() = '}';
   if( std::find( mask_.begin(), mask_.end(), 0 ) == mask_.end() ) mask_.clear();
   layout_.text = text_;
   layout_.keyOffset = record.attr( U16( row.keyAttr - 1 ) ).offset;
   layout_.keyBytes = U32( row.keyType->size() );
   layout_.recordBytes = U32( record.size() );
}

void TableControl::describe( const Kel::Type& type, U32 offset, const std::string& prefix ) {
   for( const Kel::Attr& row : type.ownAttrs() ) {
      if( row.kind != Kel::AttrKind::scalar ) continue;
      const std::string name = prefix + row.name;
      const U32 at = offset + row.offset;
      if( row.type->code() == Kel::TypeCode::composite ) {
         describe( *row.type, at, name + '.' );
         continue;
      }
      text_ += name + ':' + std::string( row.type->qualifiedName() ) + '@' + std::to_string( at ) + ',';
      std::fill_n( mask_.begin() + at, row.type->size(), U8( 0xff ) );
      if( isBounded( *row.type ) ) bounded_.push_back( { at, row.type, name } );
   }
}

void TableControl::tidy( void* record ) const noexcept {
   auto* bytes = static_cast< U8* >( record );
   for( std::size_t i = 0; i < mask_.size(); ++i ) bytes[ i ] &= mask_[ i ];
}

void TableControl::check( const void* record ) const {
   for( const Bounded& field : bounded_ ) {
      const U64 v = numberAt( static_cast< const std::byte* >( record ) + field.offset, field.type->size() );
      const Kel::Bounds& bounds = field.type->info().bounds;
      const bool good = field.type->code() == Kel::TypeCode::boolean ? v <= 1
                        : bounds.min < 0                             ? true
                                                                     : v >= U64( bounds.min ) && v <= bounds.max;
      if( !good ) refuseValue( field );
   }
}

void TableControl::refuseValue( const Bounded& field ) const {
   const char* text = field.type->info().bounds.text;
   throw CorruptionException( "table " + name_ + " is corrupted: " + field.name + ": " +
                              ( text ? text : "neither true nor false" ) );
}

// --- life ------------------------------------------------------------------------------------------------------------------

void TableControl::setUp( const TableSetup& setup ) {
   if( mode_ != TableMode::none ) throw Kel::InternalException( "table " + name_ + " is set up already; close it first" );
   if( setup.initialRecords == 0 ) {
      throw Kel::RangeException( "table " + setup.name + ": initial number of records is 0, must be at least 1" );
   }
   describe();
   name_ = setup.name;
   try {
      switch( setup.mode ) {
         case TableMode::writer:
            writer_ = std::make_unique< Writer >( layout_, setup.name, setup.initialRecords, setup.maxRecords, setup.directory );
            break;
         case TableMode::reader:
         case TableMode::shadow:
            reader_ = std::make_unique< Reader >( layout_, setup.name,
                                                  setup.mode == TableMode::shadow ? ReaderRole::shadow : ReaderRole::reader,
                                                  setup.directory );
            reader_->observerIs( this );
            break;
         case TableMode::none: throw Kel::RangeException( "table " + setup.name + " cannot be set up without a mode" );
      }
   } catch( ... ) {
      name_.clear();
      throw;
   }
   mode_ = setup.mode;
   if( writer_ && writer_->records() ) owner_.attrNotify( attr_ );
}

void TableControl::close() {
   reader_.reset();
   writer_.reset();
   mode_ = TableMode::none;
   name_.clear();
   corruptionTraced_ = false;
}

TableState TableControl::state() const noexcept {
   if( reader_ ) return reader_->state();
   if( !writer_ ) return TableState::connecting;
   return writer_->corruptReason().empty() ? TableState::live : TableState::degraded;
}

const std::string& TableControl::reason() const noexcept {
   if( reader_ ) return reader_->reason();
   static const std::string none;
   return writer_ ? writer_->corruptReason() : none;
}

U32 TableControl::records() const noexcept { return writer_ ? writer_->records() : reader_ ? reader_->records() : 0; }

void TableControl::corruptionDetected( const std::string& text ) {
   ++corruptions_;
   if( !corruptionTraced_ ) {
      if( auto t = plexoTrace().at( 0, "Plexo" ) ) t << " " << owner_.fullName() << ": " << text;
   }
   if( reader_ ) reader_->corruptIs( text );
   if( writer_ ) {
      const bool first = writer_->corruptReason().empty();
      writer_->corruptIs( text );
      if( first && stateHandler_ ) stateHandler_( TableState::degraded, text );
   }
   corruptionTraced_ = true;
   if( corruptionHandler_ ) corruptionHandler_( text );
}

void TableControl::onState( TableState state, const std::string& reason ) {
   corruptionTraced_ = false;
   if( stateHandler_ ) stateHandler_( state, reason );
}

// --- records ---------------------------------------------------------------------------------------------------------------

Writer& TableControl::writing() const {
   if( writer_ ) return *writer_;
   throw AssertionException( "write to table attribute " + std::string( owner_.fwkType().qualifiedName() ) + "::" +
                             owner_.fwkType().attr( attr_ ).name +
                             ( reader_ ? " of a reader" : " before it is set up as its table's writer" ) );
}

void TableControl::writeRefused( const CorruptionException& corruption ) const {
   writing().corruptIs( corruption.what() );
   throw AssertionException( std::string( "write to a corrupted table: " ) + corruption.what() );
}

bool TableControl::findRecord( const void* key, void* record ) const {
   const bool found = writer_ ? writer_->find( key, record ) : reader_ && reader_->find( key, record );
   if( found ) check( record );
   return found;
}

bool TableControl::nextRecord( U32& at, void* record ) const {
   const bool found = writer_ ? writer_->next( at, record ) : reader_ && reader_->next( at, record );
   if( found ) check( record );
   return found;
}

}
