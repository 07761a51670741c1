#include <plexo/Shared.h>

namespace Plexo {

constinit SharedStore::Hook SharedStore::hook_ = nullptr;
constinit void* SharedStore::context_ = nullptr;

void SharedStore::hookIs( Hook hook, void* context ) noexcept {
   context_ = context;
   hook_ = hook;
}

}
