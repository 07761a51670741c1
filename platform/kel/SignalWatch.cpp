#include <kel/Activity.h>

#include <csignal>
#include <kel/Exception.h>
#include <kel/UniqueFd.h>
#include <string>
#include <sys/signalfd.h>
#include <utility>

namespace Kel {

struct SignalWatch::State {
   sigset_t newlyBlocked;
   std::shared_ptr< UniqueFd > fd; // shared with the callback, which may destroy the signal watch
   Activity::Watch watch;
};

SignalWatch::SignalWatch( Activity& activity, std::initializer_list< int > signals, std::function< void( int ) > callback )
    : state_( std::make_unique< State >() ) {
   sigset_t wanted, before;
   ::sigemptyset( &wanted );
   for( const int s : signals )
      if( ::sigaddset( &wanted, s ) != 0 ) throwErrno( "Kel::Activity: signal " + std::to_string( s ) + " can't be watched" );
   state_->fd = std::make_shared< UniqueFd >( ::signalfd( -1, &wanted, SFD_NONBLOCK | SFD_CLOEXEC ) );
   if( !*state_->fd ) throwErrno( "Kel::Activity: its signal descriptor can't be made" );
   auto readOne = [ fd = state_->fd, callback = std::move( callback ) ]( FdEvents ) {
      signalfd_siginfo info;
      if( ::read( fd->get(), &info, sizeof info ) == static_cast< ssize_t >( sizeof info ) )
         callback( static_cast< int >( info.ssi_signo ) );
   };
   state_->watch = activity.watch( state_->fd->get(), FdEvents::reading(), std::move( readOne ) );
   ::pthread_sigmask( SIG_BLOCK, &wanted, &before );
   state_->newlyBlocked = wanted;
   for( const int s : signals )
      if( ::sigismember( &before, s ) == 1 ) ::sigdelset( &state_->newlyBlocked, s );
}

SignalWatch::~SignalWatch() {
   state_->watch.close();
   ::pthread_sigmask( SIG_UNBLOCK, &state_->newlyBlocked, nullptr );
}

}
