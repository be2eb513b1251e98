#include "run/ScratchSpace.h"

#include "base/CommandError.h"
#include "base/DirectoryNames.h"
#include "base/Escaping.h"
#include "file/SignalsBlocked.h"
#include "run/DirectoryRemoval.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>
#include <vector>

namespace host {

namespace {

std::atomic<const ScratchSpace*> living{nullptr};

constexpr char lockName[] = "lock";
constexpr char newLockName[] = "lock.new";

// Closes a descriptor, also where an exception passes.
class Descriptor
{
public:
    explicit Descriptor(int opened) : number(opened) {}
    ~Descriptor()
    {
        if (number >= 0)
            close(number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    operator int() const { return number; }

private:
    int number;
};

using StartText = std::array<char, 64>;

StartText contentOf(int descriptor)
{
    StartText text = {};
    if (descriptor < 0 || read(descriptor, text.data(), text.size() - 1) < 0)
        text.fill('\0');
    return text;
}

// What this start of this machine is called; empty where that cannot be found out.
StartText startOfMachine()
{
    return contentOf(Descriptor(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC)));
}

// Whether no other machine can have the file system of this directory mounted at the same time.
bool isLocal(int directory)
{
    constexpr std::array<unsigned, 9> local = {
        EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC, BTRFS_SUPER_MAGIC, TMPFS_MAGIC, OVERLAYFS_SUPER_MAGIC,
        F2FS_SUPER_MAGIC, RAMFS_MAGIC,     0x2FC12FC1, // ZFS
        0x3153464A};                                   // JFS
    struct statfs status;
    return fstatfs(directory, &status) == 0 &&
           std::find(local.begin(), local.end(), static_cast<unsigned>(status.f_type)) !=
               local.end();
}

bool isOwnDirectory(int directory)
{
    struct stat status;
    return fstat(directory, &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && (status.st_mode & ALLPERMS) == S_IRWXU;
}

bool isOwnFile(int file)
{
    struct stat status;
    return fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
           status.st_nlink == 1; // none: another run has removed it this moment
}

bool hasName(const std::string& name)
{
    constexpr std::size_t length = sizeof "vorn-XXXXXX" - 1;
    return name.size() == length && name.starts_with("vorn-");
}

// Removes a directory whose process has ended, see ScratchSpace.h; false when it is left alone.
bool removeAbandoned(int parent, const char* name)
{
    const Descriptor directory(
        openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (directory < 0 || !isOwnDirectory(directory))
        return false;
    const Descriptor lock(
        openat(directory, lockName, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (lock < 0 || flock(lock, LOCK_EX | LOCK_NB) != 0 || !isOwnFile(lock))
        return false;
    const StartText start = contentOf(lock);
    if (!isLocal(directory) && (start.front() == '\0' || start != startOfMachine()))
        return false;
    return removeEntries(directory, lockName) && unlinkat(parent, name, AT_REMOVEDIR) == 0;
}

int removeAbandonedIn(const std::string& parent)
{
    const Descriptor directory(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    int removed = 0;
    for (const std::string& name : directory < 0 ? std::vector<std::string>() : namesIn(parent))
        removed += hasName(name) && removeAbandoned(directory, name.c_str()) ? 1 : 0;
    return removed;
}

// Makes the lock file and locks it before it has its name, so that nobody finds it unlocked. The
// descriptor, or -1 and `errno`. A file system without locks leaves it unlocked; other runs do not
// get the lock there either.
int makeLock(int directory)
{
    const int lock =
        openat(directory, newLockName, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (lock < 0)
        return -1;
    flock(lock, LOCK_EX | LOCK_NB);
    const StartText start = startOfMachine();
    // An incomplete text is equal to none, which is safe.
    [[maybe_unused]] const ssize_t written = write(lock, start.data(), std::strlen(start.data()));
    if (renameat(directory, newLockName, directory, lockName) == 0)
        return lock;
    const int reason = errno;
    close(lock);
    errno = reason;
    return -1;
}

} // namespace

ScratchSpace::ScratchSpace(const std::string& parent) : cleared(removeAbandonedIn(parent))
{
    std::string pattern = parent + "/vorn-XXXXXX";
    const VORN::SignalsBlocked blocked;
    const bool made = mkdtemp(pattern.data()) != nullptr;
    if (made)
        descriptor = open(pattern.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0)
        lock = makeLock(descriptor);
    directory.swap(pattern); // a copy could fail and leave the directory
    if (lock < 0) {
        const int reason = errno;
        if (made)
            discard();
        throw CommandError("no scratch directory can be made in " + quote(parent) + ": " +
                           std::strerror(reason));
    }
    living = this;
}

ScratchSpace::~ScratchSpace()
{
    const VORN::SignalsBlocked blocked;
    living = nullptr;
    discard();
}

void ScratchSpace::remove() const noexcept
{
    if (descriptor >= 0)
        removeEntries(descriptor, lockName);
    rmdir(directory.c_str());
}

void ScratchSpace::discard() noexcept
{
    remove();
    for (const int opened : {lock, descriptor}) {
        if (opened >= 0)
            close(opened);
    }
}

void removeScratchSpace() noexcept
{
    if (const ScratchSpace* space = living.load())
        space->remove();
}

} // namespace host
