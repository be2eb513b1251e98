#include "private/Interposition.h"

#include "private/FacadeNames.h"

#include <cstdlib>
#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <map>
#include <memory>

namespace {

struct Closer
{
    void operator()(void* handle) const { dlclose(handle); }
};
using Library = std::unique_ptr<void, Closer>;

// The object in memory at an address, opened once more; null where it cannot be.
Library objectAt(const void* address)
{
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr)
        return nullptr;
    Library library(dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD));
    if (library == nullptr)
        library.reset(dlopen(nullptr, RTLD_LAZY)); // the program itself
    return library;
}

std::string readable(const char* name)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free);
    return status == 0 && text != nullptr ? text.get() : name;
}

// A program that takes the address of the kernel's function without being independent of its
// place has a stub under the name, which calls the kernel's.
bool isStub(const void* address)
{
    Dl_info info{};
    void* entry = nullptr;
    if (dladdr1(address, &info, &entry, RTLD_DL_SYMENT) == 0 || entry == nullptr)
        return false;
    return static_cast<const ElfW(Sym)*>(entry)->st_shndx == SHN_UNDEF;
}

// A library that is loaded before the kernel on purpose, as a test double, exports this name.
bool isMeantTo(const void* address)
{
    Dl_info here{};
    Dl_info marked{};
    const Library object = objectAt(address);
    void* mark = object != nullptr ? dlsym(object.get(), "vorn_interposes_kernel") : nullptr;
    return mark != nullptr && dladdr(address, &here) != 0 && dladdr(mark, &marked) != 0 &&
           here.dli_fbase == marked.dli_fbase;
}

} // namespace

std::vector<std::string> interposedFunctions()
{
    std::map<std::string, std::string> byObject;
    Dl_info kernel{};
    if (dladdr(reinterpret_cast<const void*>(&interposedFunctions), &kernel) == 0)
        return {};
    for (const char* name : facadeNames) {
        const void* used = dlsym(RTLD_DEFAULT, name);
        Dl_info info{};
        const bool known = used != nullptr && dladdr(used, &info) != 0 && info.dli_fname != nullptr;
        if (used == nullptr || info.dli_fbase == kernel.dli_fbase || isStub(used) ||
            isMeantTo(used))
            continue;
        std::string& functions = byObject[known ? info.dli_fname : "an unknown object"];
        functions += (functions.empty() ? "" : ", ") + readable(name);
    }
    std::vector<std::string> texts;
    texts.reserve(byObject.size());
    for (const auto& [object, functions] : byObject)
        texts.push_back(object + " has functions of the kernel's names: " + functions +
                        ". Modules call these, and the kernel hears nothing; rename them, or make "
                        "them local to their source");
    return texts;
}
