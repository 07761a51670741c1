#pragma once

#include <kel/Types.h>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Bench {

/// What a child tells: a number, and when it came to know it.
struct Report {
   Kel::U64 number;
   Kel::U64 at;   ///< nanoseconds of the monotonic clock, which all processes share
};

/// Nanoseconds of the monotonic clock.
Kel::U64 now();

/// A process beside the benchmark. It has a pipe from us on its standard input, which ends with us, and one to us on its standard
/// output; it is terminated with this object.
class Child {
 public:
   /// Runs `arguments[ 0 ]`, a path or a name that PATH knows. Throws `std::runtime_error` when it can't.
   explicit Child( const std::vector< std::string >& arguments );
   Child( const Child& ) = delete;
   Child& operator=( const Child& ) = delete;
   ~Child();

   /// Waits for the next report. Throws `std::runtime_error` when the child ends or says nothing for ten seconds.
   Report next();

 private:
   std::string name_;
   pid_t pid_ = -1;
   int to_ = -1;
   int from_ = -1;
};

/// The path of another program of the benchmarks.
std::string programPath( const std::string& name );

/// A directory of our own that goes with this object and all that is in it.
class TemporaryDirectory {
 public:
   /// Makes it in `parent`. Throws `std::runtime_error`.
   explicit TemporaryDirectory( const std::string& parent );
   TemporaryDirectory( const TemporaryDirectory& ) = delete;
   TemporaryDirectory& operator=( const TemporaryDirectory& ) = delete;
   ~TemporaryDirectory();
   const std::string& path() const { return path_; }

 private:
   std::string path_;
};

}
