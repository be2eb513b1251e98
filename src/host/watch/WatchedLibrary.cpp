#include "watch/WatchedLibrary.h"

#include "JobManager.h"
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Programs.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

namespace host {

namespace {

using WatchCalls = const watched::Watch* (*)(watched::Observer*);

constexpr const char* searchPath = "LD_LIBRARY_PATH";
// The search path as it was, while the program starts again: what it starts itself gets that one.
constexpr const char* formerSearchPath = "VORN_FORMER_LD_LIBRARY_PATH";

// The ordinary library does not have it.
WatchCalls watchCalls()
{
    return reinterpret_cast<WatchCalls>(dlsym(RTLD_DEFAULT, "vornWatchCalls"));
}

// The library that this program runs on.
std::filesystem::path kernelLibrary()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&JobManager::jobManagerInstance), &info) == 0)
        throw CommandError("the kernel's library cannot be found in this process");
    return info.dli_fname;
}

void restoreSearchPath()
{
    const char* former = std::getenv(formerSearchPath);
    if (former == nullptr)
        return;
    if (*former != '\0')
        setenv(searchPath, former, 1);
    else
        unsetenv(searchPath);
    unsetenv(formerSearchPath);
}

// Each ends with a NUL.
std::string ownCommandLine()
{
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

const watched::Watch* functions = nullptr; // while an object of WatchedCalls lives

} // namespace

bool isOnWatchedLibrary()
{
    return watchCalls() != nullptr;
}

void chooseWatchedLibrary()
{
    const std::filesystem::path ordinary = kernelLibrary();
    const std::filesystem::path directory = ordinary.parent_path() / "vorn" / "watched";
    const std::filesystem::path watched = directory / "libVORN_kernel.so." VORN_KERNEL_SOVERSION;
    const bool again = std::getenv(formerSearchPath) != nullptr;
    if (again || access(watched.c_str(), R_OK) != 0)
        throw CommandError("the watched form of the kernel's library, " + quote(watched.string()) +
                           (again ? ", is not the one that the dynamic linker has chosen: the "
                                    "program was linked with a fixed path (RPATH)"
                                  : ", cannot be read: install it again"));
    const char* former = std::getenv(searchPath);
    setenv(formerSearchPath, former != nullptr ? former : "", 1);
    setenv(searchPath,
           (directory.string() + (former != nullptr ? ":" + std::string(former) : "")).c_str(), 1);
}

void continueOnWatchedLibrary()
{
    if (isOnWatchedLibrary()) {
        restoreSearchPath();
        return;
    }
    chooseWatchedLibrary();
    std::string line = ownCommandLine();
    std::vector<char*> arguments;
    for (std::size_t at = 0; at < line.size(); at += std::strlen(line.data() + at) + 1)
        arguments.push_back(line.data() + at);
    arguments.push_back(nullptr);
    const std::string program = ownProgram();
    execv(program.c_str(), arguments.data());
    const std::string reason = std::strerror(errno);
    restoreSearchPath();
    throw CommandError(quote(program) + " cannot be started again: " + reason);
}

WatchedCalls::WatchedCalls(std::vector<watched::Observer*> observers) : all(std::move(observers))
{
    functions = watchCalls()(this);
}

WatchedCalls::~WatchedCalls()
{
    watchCalls()(nullptr);
}

void WatchedCalls::leaveOut(const watched::Observer& observer)
{
    std::erase(all, &observer);
    if (all.empty())
        watchCalls()(nullptr);
}

std::string WatchedCalls::interfaceFunction(const watched::Call& call)
{
    return functions->interfaceFunction(call);
}

void WatchedCalls::passed(const watched::Call& handles)
{
    for (watched::Observer* observer : all)
        observer->passed(handles);
}

void WatchedCalls::called(const watched::Call& call)
{
    for (watched::Observer* observer : all)
        observer->called(call);
}

void WatchedCalls::returned(const watched::Call& call, const watched::Argument& result)
{
    for (auto observer = all.rbegin(); observer != all.rend(); ++observer)
        (*observer)->returned(call, result);
}

} // namespace host
