#include "file/UnfinishedOutputs.h"

#include "file/SignalsBlocked.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace VORN {

namespace {

// What happens to an entry. The word that holds it also holds the process, in the bits above, so
// that one comparison tells both:
//
//     unused --create--> creating --> unfinished --complete, remove--> unused
//                                         |
//                         a walk: claimed-+-> removed --complete, remove--> unused
//
// A walk that has claimed an entry may read its path, which nobody changes then. An owner that
// finds its entry claimed leaves it there: the process ends.
enum Step : uint32_t
{
    unused = 0,
    creating,
    unfinished,
    claimed,
    removed
};

constexpr uint32_t stepBits = 3; // process numbers of Linux have at most 22
constexpr uint32_t stepMask = (1u << stepBits) - 1;

uint32_t ofThisProcess(Step step)
{
    return static_cast<uint32_t>(getpid()) << stepBits | step;
}

int64_t modificationOf(const struct stat& status)
{
    return int64_t(1000000000) * status.st_mtim.tv_sec + status.st_mtim.tv_nsec;
}

} // namespace

struct UnfinishedOutput::Entry
{
    std::atomic<uint32_t> state;
    // Written in the step `creating`, read in later ones.
    dev_t device;
    ino_t inode;
    char path[PATH_MAX];
    // Once the file is whole, in nanoseconds: the owner writes it while a walk may read it.
    std::atomic<int64_t> modified;

    bool change(Step from, Step to) noexcept
    {
        uint32_t expected = ofThisProcess(from);
        return state.compare_exchange_strong(expected, to == unused ? 0 : ofThisProcess(to));
    }

    // Whether an incomplete output has been removed. A file with a second name has its final one: a
    // commit on a file system without the call that renames does that in two steps.
    // Requires: the caller is the owner, or has claimed the entry.
    bool removeFile() const noexcept
    {
        struct stat named;
        return lstat(path, &named) == 0 && named.st_dev == device && named.st_ino == inode &&
               unlink(path) == 0 && named.st_nlink == 1;
    }

    // Waits until the entry is in another step than `creating`.
    void awaitCreation() noexcept
    {
        const uint32_t waiting = ofThisProcess(creating);
        timespec end;
        clock_gettime(CLOCK_MONOTONIC, &end);
        ++end.tv_sec;
        while (state.load() == waiting) {
            const long result = syscall(SYS_futex, &state, FUTEX_WAIT_BITSET_PRIVATE, waiting, &end,
                                        nullptr, FUTEX_BITSET_MATCH_ANY);
            if (result != 0 && errno == ETIMEDOUT)
                return;
        }
    }

    // The descriptor, or -1 and `errno`. Requires: the step is `creating`.
    int openFile(Origin origin) noexcept
    {
        errno = ECANCELED;
        if (outputsAreStopped())
            return -1;
        const int descriptor = origin == Origin::made
                                   ? mkostemp(path, O_CLOEXEC) // mode 0600
                                   : open(path, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        struct stat status;
        if (descriptor < 0)
            return -1;
        if (fstat(descriptor, &status) != 0) {
            const int reason = errno;
            if (origin == Origin::made)
                unlink(path);
            close(descriptor);
            errno = reason;
            return -1;
        }
        modified = 0;
        device = status.st_dev;
        inode = status.st_ino;
        return descriptor;
    }

    void wakeWaiting() noexcept
    {
        syscall(SYS_futex, &state, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
    }
};

// The entries are zero until they are used, and take no memory until then.
struct UnfinishedRegistry
{
    using Entry = UnfinishedOutput::Entry;

    std::array<Entry, mostUnfinishedOutputs> entries;
    std::atomic<std::size_t> reached; // no entry from here on has ever been used
    std::atomic<bool> stopped;

    // What has got its final name. The last ones replace the first.
    struct Completed
    {
        std::atomic<dev_t> device;
        std::atomic<ino_t> inode; // 0: none; file systems use a number again
        std::atomic<int64_t> modified;
    };
    std::array<Completed, 1024> completed;
    std::atomic<std::size_t> completions;

    void noteCompleted(const Entry& entry) noexcept
    {
        Completed& place = completed[completions.fetch_add(1) % completed.size()];
        place.inode = 0;
        place.device = entry.device;
        place.modified = entry.modified.load();
        place.inode = entry.inode;
    }

    // Null when all are in use.
    Entry* take() noexcept
    {
        for (std::size_t i = 0; i < entries.size(); ++i) {
            // Before the entry: a walk that does not see it has stopped all outputs earlier.
            std::size_t known = reached.load();
            while (known < i + 1 && !reached.compare_exchange_weak(known, i + 1)) {
            }
            uint32_t expected = unused;
            if (entries[i].state.compare_exchange_strong(expected, ofThisProcess(creating)))
                return &entries[i];
        }
        return nullptr;
    }

    // When the process exits or the library is unloaded.
    ~UnfinishedRegistry()
    {
        stopOutputs();
        removeUnfinishedOutputs(nullptr, nullptr);
    }
};

namespace {

constinit UnfinishedRegistry registry{};

} // namespace

void stopOutputs() noexcept
{
    registry.stopped = true;
    for (std::size_t i = 0; i < registry.reached; ++i)
        registry.entries[i].awaitCreation();
}

bool outputsAreStopped() noexcept
{
    return registry.stopped;
}

void removeUnfinishedOutputs(void (*tell)(void* context, const char* path), void* context) noexcept
{
    for (std::size_t i = 0; i < registry.reached; ++i) {
        UnfinishedRegistry::Entry& entry = registry.entries[i];
        if (!entry.change(unfinished, claimed))
            continue;
        struct stat status;
        if (lstat(entry.path, &status) != 0)
            registry.noteCompleted(entry); // renamed this moment
        else if (entry.removeFile() && tell != nullptr)
            tell(context, entry.path);
        entry.change(claimed, removed);
    }
}

bool isCompletedOutput(const struct stat& status) noexcept
{
    for (const UnfinishedRegistry::Completed& place : registry.completed) {
        if (place.inode != 0 && place.inode == status.st_ino && place.device == status.st_dev &&
            place.modified == modificationOf(status))
            return true;
    }
    return false;
}

int UnfinishedOutput::create(const std::string& pattern)
{
    return begin(pattern, Origin::made);
}

int UnfinishedOutput::adopt(const std::string& path)
{
    return begin(path, Origin::found);
}

int UnfinishedOutput::begin(const std::string& pattern, Origin origin)
{
    if (pattern.size() >= sizeof Entry::path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    const SignalsBlocked blocked;
    Entry* const taken = registry.take();
    if (taken == nullptr) {
        errno = EUSERS;
        return -1;
    }
    std::memcpy(taken->path, pattern.c_str(), pattern.size() + 1);
    const int descriptor = taken->openFile(origin);
    const int reason = errno;
    if (descriptor >= 0)
        entry = taken;
    taken->change(creating, descriptor >= 0 ? unfinished : unused);
    if (registry.stopped)
        taken->wakeWaiting();
    errno = reason;
    return descriptor;
}

const char* UnfinishedOutput::path() const
{
    return entry != nullptr ? entry->path : "";
}

bool UnfinishedOutput::isOfThisProcess() const
{
    return entry != nullptr &&
           (entry->state.load() & ~stepMask) == (ofThisProcess(unused) & ~stepMask);
}

void UnfinishedOutput::noteWhole() noexcept
{
    struct stat status;
    if (isOfThisProcess() && lstat(entry->path, &status) == 0)
        entry->modified = modificationOf(status);
}

void UnfinishedOutput::complete() noexcept
{
    if (isOfThisProcess())
        registry.noteCompleted(*entry);
    release();
}

void UnfinishedOutput::release() noexcept
{
    if (entry != nullptr && !entry->change(unfinished, unused))
        entry->change(removed, unused);
    entry = nullptr;
}

// The file goes before the entry: a process that ends in between has nothing left to remove.
void UnfinishedOutput::remove() noexcept
{
    if (isOfThisProcess())
        entry->removeFile();
    release();
}

} // namespace VORN
