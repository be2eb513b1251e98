#include "run/ScratchSpace.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "run/DirectoryRemoval.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace host {

namespace {

std::atomic<const ScratchSpace*> living{nullptr};

// As long as it lives no signal is handled on this thread: a directory is known as soon as it
// exists.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &former);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &former, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t former;
};

} // namespace

ScratchSpace::ScratchSpace(const std::string& parent)
{
    std::string pattern = parent + "/vorn-XXXXXX";
    const SignalsBlocked blocked;
    const bool made = mkdtemp(pattern.data()) != nullptr;
    if (made)
        descriptor = open(pattern.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        const int reason = errno;
        if (made)
            rmdir(pattern.c_str());
        throw CommandError("no scratch directory can be made in " + quote(parent) + ": " +
                           std::strerror(reason));
    }
    directory.swap(pattern); // a copy could fail and leave the directory
    living = this;
}

ScratchSpace::~ScratchSpace()
{
    const SignalsBlocked blocked;
    remove();
    living = nullptr;
    close(descriptor);
}

void ScratchSpace::remove() const noexcept
{
    // The kernel has removed its file as a rule; nothing is needed for an empty directory.
    if (rmdir(directory.c_str()) == 0 || errno == ENOENT)
        return;
    removeEntries(descriptor);
    rmdir(directory.c_str());
}

void removeScratchSpace() noexcept
{
    if (const ScratchSpace* space = living.load())
        space->remove();
}

} // namespace host
