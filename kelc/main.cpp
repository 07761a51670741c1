#include "Compile.h"

#include <iostream>

int main( int argc, char** argv ) {
   return Kelc::compile( { argv + 1, argv + argc }, std::cout, std::cerr );
}
