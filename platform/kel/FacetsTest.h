#pragma once

#include <Facets/Facets.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

/// Runs `statement` and returns the text of the `Exception` that it throws; "nothing" when it throws none.
template< class Exception, class F >
std::string thrown( F statement ) {
   try {
      statement();
   } catch( const Exception& e ) {
      return e.what();
   }
   return "nothing";
}
