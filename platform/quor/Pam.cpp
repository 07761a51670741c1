#include <quor/Pam.h>

#include <kel/GenericIf.h>

namespace Quor {

constinit Kel::Type Pam::_Type{ Kel::objectInfo< Pam, Kel::Machine >( "Quor::Pam", {} ) };

PamNotifiee::~PamNotifiee() {
   if( pam_ ) pam_->notifiee_ = nullptr;
}

Pam::~Pam() {
   if( notifiee_ ) notifiee_->pam_ = nullptr;
}

void Pam::alreadyAttached() { throw Kel::InternalException( "packet endpoint or its notifiee is already attached" ); }

void Pam::notifieeIs( PamNotifiee* notifiee ) {
   if( notifiee == notifiee_ ) return;
   if( notifiee && ( notifiee_ || notifiee->pam_ ) ) alreadyAttached();
   if( notifiee_ ) notifiee_->pam_ = nullptr;
   notifiee_ = notifiee;
   if( notifiee ) notifiee->pam_ = this;
}

}
