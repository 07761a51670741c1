#include <kel/Ptr.h>

namespace Kel {

namespace Detail {
bool threadSafePtrs = false;
}

bool threadSafePtrs() noexcept { return Detail::threadSafePtrs; }

void threadSafePtrsIs( bool on ) noexcept { Detail::threadSafePtrs = on; }

}
