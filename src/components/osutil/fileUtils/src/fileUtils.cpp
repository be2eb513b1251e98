// Two kinds of lock and a wildcard expansion, each a thin layer over the system's own calls.
//
// A held file is remembered by its stream and its descriptor. The descriptor is there for two
// reasons: a file can be held without a stream, and asking about a file that is held must go
// through the descriptor that holds it, as closing a second one would drop the lock.

#include "fileUtils.h"

#include <cerrno>
#include <fcntl.h>
#include <glob.h>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

namespace VORN {

namespace {

constexpr int readLockMode = 64;
constexpr int emptyFileMode = 128;
constexpr int readStreamMode = 1;

constexpr mode_t newFilePermissions = 0664;

struct HeldFile
{
    FILE* stream;   // null: the C library made no stream of the descriptor
    int descriptor; // open and locked; the stream's own where there is one
};

std::string lockPath(const std::string& fnm)
{
    return fnm + ".lck";
}

// The link itself counts, not where it leads: a link to nowhere keeps a lock file from being made.
bool exists(const std::string& path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

void setReason(int* reason, int value)
{
    if (reason != nullptr)
        *reason = value;
}

// Offset 0 and length 0 are the whole file, wherever its end will be.
struct flock wholeFile(short type)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return lock;
}

// Which lock keeps this process from reading the file: F_RDLCK, F_WRLCK, or F_UNLCK for none and
// for no answer.
short conflictingLock(int descriptor)
{
    struct flock lock = wholeFile(F_RDLCK);
    if (fcntl(descriptor, F_GETLK, &lock) == -1)
        return F_UNLCK;
    return lock.l_type;
}

int lockCode(short lock)
{
    if (lock == F_WRLCK)
        return 2;
    return lock == F_RDLCK ? 1 : 0;
}

int close(const HeldFile& file)
{
    return file.stream != nullptr ? std::fclose(file.stream) : ::close(file.descriptor);
}

} // namespace

struct FileLocksProvider::HeldFiles
{
    std::map<std::string, HeldFile> byName;

    // The descriptor that holds the file `nm` leads to, under whatever name; -1 when none does.
    int descriptorOf(const std::string& nm) const
    {
        struct stat asked;
        if (stat(nm.c_str(), &asked) != 0)
            return -1;
        for (const auto& [name, file] : byName) {
            struct stat own;
            if (fstat(file.descriptor, &own) == 0 && own.st_dev == asked.st_dev &&
                own.st_ino == asked.st_ino)
                return file.descriptor;
        }
        return -1;
    }
};

FileLocksProvider* FileLocksProvider::getInstance()
{
    static FileLocksProvider* const instance = new FileLocksProvider; // deliberate: never destroyed
    return instance;
}

FileLocksProvider::FileLocksProvider() : held(std::make_unique<HeldFiles>()) {}

FileLocksProvider::~FileLocksProvider() = default;

int FileLocksProvider::lockFile(const std::string& fnm, int mode)
{
    const std::string path = lockPath(fnm);
    if (exists(path))
        return -1;

    // Exclusive, as another process may have made the file since it was looked for.
    const int descriptor =
        open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, newFilePermissions);
    if (descriptor == -1)
        return errno == EEXIST ? -1 : -2;

    // The file's existence is the lock; on a full disk it locks without telling its mode.
    [[maybe_unused]] const ssize_t written = write(descriptor, &mode, sizeof mode);
    ::close(descriptor);
    return 0;
}

int FileLocksProvider::unlockFile(const std::string& fnm, int /*mode*/)
{
    const std::string path = lockPath(fnm);
    if (!exists(path))
        return -2;
    unlink(path.c_str());
    return 0;
}

FILE* FileLocksProvider::openSysLocked(const std::string& nm, int lockMode, int* reason)
{
    if (const auto found = held->byName.find(nm); found != held->byName.end()) {
        setReason(reason, 0);
        return found->second.stream;
    }

    // The entry comes first: once the file is locked, nothing may fail for lack of memory.
    const auto entry = held->byName.emplace(nm, HeldFile{nullptr, -1}).first;
    const auto refuse = [&](int descriptor, int why) {
        held->byName.erase(entry);
        if (descriptor != -1)
            ::close(descriptor);
        setReason(reason, why);
        return nullptr;
    };

    // Never O_TRUNC: the content belongs to the holder of the lock, which is not known yet.
    const bool shared = lockMode == readLockMode;
    const int flags = shared ? O_RDONLY : O_RDWR | O_CREAT;
    const int descriptor = open(nm.c_str(), flags | O_CLOEXEC, newFilePermissions);
    if (descriptor == -1)
        return refuse(descriptor, -2);

    struct flock lock = wholeFile(shared ? F_RDLCK : F_WRLCK);
    if (fcntl(descriptor, F_SETLK, &lock) == -1)
        return refuse(descriptor, -1);
    if (lockMode == emptyFileMode) {
        // What has no length to cut, a device for one, is opened all the same.
        [[maybe_unused]] const int result = ftruncate(descriptor, 0);
    }

    // deliberate: with 64 an update stream is asked of a read-only descriptor. Where the C library
    // refuses, the file is held without a stream.
    FILE* stream = fdopen(descriptor, lockMode == readStreamMode ? "rb" : "r+b");
    if (stream == nullptr && !shared)
        return refuse(descriptor, -2);
    entry->second = HeldFile{stream, descriptor};
    return stream;
}

FILE* FileLocksProvider::getFile(const std::string& nm)
{
    const auto found = held->byName.find(nm);
    return found != held->byName.end() ? found->second.stream : nullptr;
}

int FileLocksProvider::closeFile(FILE* f)
{
    if (f == nullptr) // several files may be held without a stream: null names none of them
        return 0;
    for (const auto& [name, file] : held->byName) {
        if (file.stream == f)
            return closeFile(std::string(name)); // a copy: closing forgets the entry and its name
    }
    return 0;
}

int FileLocksProvider::closeFile(const std::string& nm)
{
    const auto found = held->byName.find(nm);
    if (found == held->byName.end())
        return 0;
    const HeldFile file = found->second;
    held->byName.erase(found);
    return close(file);
}

int FileLocksProvider::isLocked(const std::string& nm)
{
    if (const int holder = held->descriptorOf(nm); holder != -1)
        return lockCode(conflictingLock(holder));

    // Not to wait, as the opening of a pipe would do for a writer.
    const int descriptor = open(nm.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor == -1)
        return 0;
    const short lock = conflictingLock(descriptor);
    ::close(descriptor);
    return lockCode(lock);
}

int vorn_glob_files(const std::string& mask, std::vector<std::string>& files)
{
    glob_t matches = {};
    const bool matched = glob(mask.c_str(), 0, nullptr, &matches) == 0;
    if (matched)
        files.insert(files.end(), matches.gl_pathv, matches.gl_pathv + matches.gl_pathc);
    const int count = matched ? static_cast<int>(matches.gl_pathc) : -1;
    globfree(&matches);
    return count;
}

} // namespace VORN
