#pragma once

#include "TestFdb.h"

#include <plexo/TestFiles.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace Bridging {

/// A process at one end of the table `table`: the program `fdb_peer` in the role "read" or "write", and the talk with it. A peer
/// that nobody talks to for a while ends by itself.
class Peer {
 public:
   Peer( const std::string& program, const char* role, const std::string& table ) {
      int ends[ 2 ];
      EXPECT_EQ( 0, socketpair( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends ) );
      pid_ = fork();
      if( pid_ == 0 ) {
         dup2( ends[ 1 ], 0 );
         dup2( ends[ 1 ], 1 );
         execl( program.c_str(), program.c_str(), role, table.c_str(), nullptr );
         _exit( 127 );
      }
      close( ends[ 1 ] );
      socket_ = ends[ 0 ];
   }
   Peer( const Peer& ) = delete;
   Peer& operator=( const Peer& ) = delete;
   ~Peer() {
      end( SIGKILL );
      close( socket_ );
   }
   /// Says one line; gives what is answered, without the "." at its end.
   std::string say( const std::string& line ) {
      const std::string text = line + "\n";
      EXPECT_EQ( ssize_t( text.size() ), send( socket_, text.data(), text.size(), MSG_NOSIGNAL ) );
      std::string answer;
      char buffer[ 4096 ];
      while( answer != ".\n" && !answer.ends_with( "\n.\n" ) ) {
         const ssize_t got = recv( socket_, buffer, sizeof buffer, 0 );
         if( got <= 0 ) {
            ADD_FAILURE() << "no answer to " << line;
            return "";
         }
         answer.append( buffer, std::size_t( got ) );
      }
      return answer.substr( 0, answer.size() - 2 );
   }
   void learn( Kel::U16 fid, const LearnedHost& host ) { say( "host " + std::to_string( fid ) + " " + textOf( host ) ); }
   void forget( Kel::U16 fid, const Quor::EthAddr& address ) {
      say( "gone " + std::to_string( fid ) + " " + address.stringValue().str() );
   }
   /// Ends the process by a signal, or by the end of its input; gives its exit status, or minus the signal that ended it.
   int end( int signal = 0 ) {
      if( pid_ <= 0 ) return 0;
      if( signal ) kill( pid_, signal );
      else shutdown( socket_, SHUT_WR );
      int status = 0;
      waitpid( std::exchange( pid_, -1 ), &status, 0 );
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : -WTERMSIG( status );
   }

 private:
   pid_t pid_ = -1;
   int socket_ = -1;
};

}
