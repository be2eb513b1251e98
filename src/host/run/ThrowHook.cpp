#include "run/ThrowWatch.h"

#include <cstdlib>
#include <dlfcn.h>
#include <typeinfo>

namespace host {

namespace {

thread_local bool isWatched = false;

using Throw = void (*)(void*, std::type_info*, void (*)(void*));

Throw libraryThrow()
{
    static const auto found = reinterpret_cast<Throw>(dlsym(RTLD_NEXT, "__cxa_throw"));
    return found;
}

} // namespace

void watchThrows() noexcept
{
    isWatched = true;
    libraryThrow(); // while the loader can be asked
}

} // namespace host

// In the place of the library's, see ThrowWatch.h.
extern "C" {

__attribute__((noreturn, visibility("default"))) void
__cxa_throw(void* object, std::type_info* type, void (*destroy)(void*))
{
    if (host::isWatched)
        host::noteThrow(object);
    if (host::libraryThrow() != nullptr)
        host::libraryThrow()(object, type, destroy);
    std::abort();
}
}
