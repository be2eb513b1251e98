#include "base/LazyLibrary.h"

#include "base/CommandError.h"

#include <dlfcn.h>
#include <string>

namespace host {

// The linker counts how often a library is opened, and finds one that is loaded without a search.
void* LazyLibrary::function(const char* function) const
{
    void* handle = dlopen(name, RTLD_LAZY | RTLD_LOCAL);
    void* found = handle == nullptr ? nullptr : dlsym(handle, function);
    if (found != nullptr)
        return found;
    const char* reason = dlerror();
    throw CommandError(std::string(use) + " need the library " + name +
                       ", which cannot be used: " + (reason != nullptr ? reason : "unknown error"));
}

} // namespace host
