#include "Child.h"

#include <Vanta/FdbStatusSm.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <hiredis/hiredis.h>
#include <kel/Activity.h>
#include <unistd.h>

// The process that hears of changes. It sleeps until one comes, and reports it when it has it.
//
//   vanta-bench-follow tree TABLE DIRECTORY HOSTS    its own Bridging::Status, kept in step with a table; reports the moves of a changed
//                                                    host once it has as many hosts, and 0 once it has found the table
//   vanta-bench-follow redis SOCKET CHANNEL          a subscriber of a Redis channel; reports the number in a message, and 0 once it has
//                                                    subscribed

namespace {

void report( Kel::U64 number ) {
   const Bench::Report r{ number, Bench::now() };
   if( write( STDOUT_FILENO, &r, sizeof r ) != sizeof r ) std::exit( 1 );
}

class Hosts : public Bridging::FdbStatus::NotifieeConst {
 public:
   Hosts( const Kel::Ptr< const Bridging::FdbStatus >& fdb, std::size_t wanted ) : NotifieeConst( fdb ), wanted_( wanted ) {}
   using NotifieeConst::onLearnedHost;
   void onLearnedHost( const Quor::EthAddr& address ) override {
      if( notifier()->learnedHostCount() >= wanted_ ) report( notifier()->learnedHost( address ).moves() );
   }

 private:
   std::size_t wanted_;
};

class Fdbs : public Bridging::Status::NotifieeConst {
 public:
   Fdbs( const Kel::Ptr< const Bridging::Status >& status, std::size_t wanted ) : NotifieeConst( status ), wanted_( wanted ) {}
   using NotifieeConst::onFdbStatus;
   void onFdbStatus( Bridging::Fid fid ) override {
      const auto fdb = notifier()->fdbStatus( fid );
      hosts_ = fdb ? new Hosts( fdb, wanted_ ) : nullptr;
   }

 private:
   std::size_t wanted_;
   Kel::Ptr< Hosts > hosts_;
};

int followTable( const char* name, const char* directory, std::size_t wanted ) {
   Kel::Activity activity;
   const auto status = Bridging::statusFactory( "status" );
   const Kel::Ptr< Fdbs > fdbs( new Fdbs( status, wanted ) );
   const auto table = Plexo::Bridging::statusFactory( "table" );
   auto& control = table->plexoFdbStatusControl();
   control.setUp( { .name = name, .mode = Plexo::TableMode::reader, .directory = directory } );
   control.attach( activity );
   const auto reader = Bridging::readerFdbStatusSmFactory( status, table );
   const auto parent = activity.watch( STDIN_FILENO, Kel::FdEvents::reading(), [ &activity ]( Kel::FdEvents ) { activity.stop(); } );
   while( control.state() != Plexo::TableState::live ) activity.runFor( std::chrono::milliseconds( 1 ) );
   report( 0 );
   activity.run();
   return 0;
}

int followRedis( const char* socket, const char* channel ) {
   redisContext* redis = redisConnectUnix( socket );
   if( !redis || redis->err ) {
      std::fprintf( stderr, "vanta-bench-follow: %s: %s\n", socket, redis ? redis->errstr : "out of memory" );
      return 1;
   }
   freeReplyObject( redisCommand( redis, "SUBSCRIBE %s", channel ) );
   report( 0 );
   void* reply;
   while( redisGetReply( redis, &reply ) == REDIS_OK ) {
      const auto* message = static_cast< redisReply* >( reply );
      if( message->type == REDIS_REPLY_ARRAY && message->elements == 3 && message->element[ 2 ]->str ) {
         report( std::strtoull( message->element[ 2 ]->str, nullptr, 10 ) );
      }
      freeReplyObject( reply );
   }
   return 0;
}

}

int main( int argc, char** argv ) {
   if( argc == 5 && !std::strcmp( argv[ 1 ], "tree" ) ) return followTable( argv[ 2 ], argv[ 3 ], std::strtoul( argv[ 4 ], nullptr, 10 ) );
   if( argc == 4 && !std::strcmp( argv[ 1 ], "redis" ) ) return followRedis( argv[ 2 ], argv[ 3 ] );
   std::fprintf( stderr, "usage: vanta-bench-follow tree TABLE DIRECTORY HOSTS | redis SOCKET CHANNEL\n" );
   return 2;
}
