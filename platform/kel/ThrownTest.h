#pragma once

#include <kel/Exception.h>
#include <string>

/// Runs `statement` and returns the text of the `Exception` that it throws; "nothing" when it throws none.
template< class Exception = Kel::RangeException, class F >
std::string thrown( F statement ) {
   try {
      statement();
   } catch( const Exception& e ) {
      return e.what();
   }
   return "nothing";
}
