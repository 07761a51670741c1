#include "Source.h"

#include <ctime>

namespace Fdbd {

Nanos monotonicNow() {
   timespec t;
   clock_gettime( CLOCK_MONOTONIC, &t );
   return t.tv_sec * nanosPerSecond + t.tv_nsec;
}

double wallNow() {
   timespec t;
   clock_gettime( CLOCK_REALTIME, &t );
   return static_cast< double >( t.tv_sec ) + static_cast< double >( t.tv_nsec ) * 1e-9;
}

}
