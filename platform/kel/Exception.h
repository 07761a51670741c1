#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace [[gnu::visibility("default")]] Kel {

/// Base of everything that the framework and generated code throw. `what()` is the full text for people.
class Exception : public std::exception {
 public:
   explicit Exception( std::string text ) : text_( std::move( text ) ) {}
   const char* what() const noexcept override { return text_.c_str(); }

 private:
   std::string text_;
};

/// A value outside its declared range, a null where none may be, or text that does not parse.
class RangeException : public Exception {
 public:
   using Exception::Exception;
};

/// A write through a reflection adapter that wraps a const instance.
class ConstException : public Exception {
 public:
   using Exception::Exception;
};

/// Misuse of the framework by its caller.
class InternalException : public Exception {
 public:
   using Exception::Exception;
};

/// A name that is taken by an entity built from other constructor parameters.
class NameInUseException : public Exception {
 public:
   using Exception::Exception;
};

/// An entity tree that is not as the caller expects: a wrong type under a name, a write through a read-only proxy.
class FrameworkException : public Exception {
 public:
   using Exception::Exception;
};

/// Tells of a system call that has failed: `what`, and the system's reason.
[[noreturn]] inline void throwErrno( const std::string& what ) { throw Exception( what + ": " + std::strerror( errno ) ); }

}
