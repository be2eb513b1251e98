#include "tracefile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <new>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace VORN {

namespace {

constexpr int64_t windowBytes = 1 << 20;
constexpr std::size_t bufferBytes = 1 << 20;
constexpr std::size_t mostPerWrite = 1 << 30; // the operating system writes less than 2 GiB at once

std::string number(int64_t value)
{
    return std::to_string(value);
}

std::string reason()
{
    return std::strerror(errno);
}

// The process's file creation mask without changing it: other threads may be creating files.
mode_t creationMask()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("Umask:", 0) == 0)
            return static_cast<mode_t>(std::strtoul(line.c_str() + 6, nullptr, 8));
    }
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

// Where a path leads, so that a symbolic link is not replaced by a file.
std::string resolved(const std::string& path)
{
    std::error_code none;
    if (!std::filesystem::is_symlink(path, none))
        return path;
    const std::filesystem::path target = std::filesystem::weakly_canonical(path, none);
    return none ? path : target.string();
}

// The rule by which Linux itself does not follow links (fs.protected_symlinks): in a directory
// where everybody may make names, only one's own and those of its owner lead anywhere.
bool isForeignLink(const std::string& path)
{
    struct stat link;
    if (lstat(path.c_str(), &link) != 0 || !S_ISLNK(link.st_mode))
        return false;
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    struct stat directory;
    constexpr mode_t forAll = S_ISVTX | S_IWOTH;
    return stat(parent.empty() ? "." : parent.c_str(), &directory) == 0 &&
           (directory.st_mode & forAll) == forAll && link.st_uid != geteuid() &&
           link.st_uid != directory.st_uid;
}

// ".NAME.vorn-XXXXXX" in the directory of `path`. A long name is cut: the longest that file systems
// take is 255 bytes.
std::string temporaryPattern(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(0, start) + "." + path.substr(start, 200) + ".vorn-XXXXXX";
}

// Whether `path`, of `length` bytes, has a name that `temporaryPattern` makes.
bool isTemporary(const char* path, std::size_t length)
{
    constexpr std::size_t letters = 6;
    constexpr char mark[] = ".vorn-";
    constexpr std::size_t ending = sizeof mark - 1 + letters;
    std::size_t start = length;
    while (start > 0 && path[start - 1] != '/')
        --start;
    return length - start > ending + 1 && path[start] == '.' &&
           std::memcmp(path + length - ending, mark, sizeof mark - 1) == 0;
}

// The path of an output that this process is writing, where `descriptor` is open on one; false
// otherwise. A descriptor of somebody else, whom this process has been started by, is never closed
// on execution, and inputs are not open for writing. Safe in signal handlers.
bool findTemporary(int descriptor, char (&path)[PATH_MAX])
{
    const int own = fcntl(descriptor, F_GETFD);
    if (own < 0 || (own & FD_CLOEXEC) == 0 || (fcntl(descriptor, F_GETFL) & O_ACCMODE) != O_RDWR)
        return false;
    char link[32] = "/proc/self/fd/";
    char* const number = link + std::strlen(link);
    *std::to_chars(number, link + sizeof link - 1, descriptor).ptr = '\0';
    const ssize_t length = readlink(link, path, sizeof path - 1);
    if (length <= 0 || !isTemporary(path, static_cast<std::size_t>(length)))
        return false;
    path[length] = '\0';
    struct stat opened, named;
    return fstat(descriptor, &opened) == 0 && lstat(path, &named) == 0 && S_ISREG(named.st_mode) &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

} // namespace

std::string fileIdentity(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        return {};
    return std::to_string(status.st_dev) + "." + std::to_string(status.st_ino);
}

std::string canonicalPath(const std::string& path)
{
    std::error_code none;
    const std::filesystem::path canonical =
        std::filesystem::weakly_canonical(std::filesystem::absolute(path, none), none);
    return none ? path : canonical.string();
}

bool isWriteProtected(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && (status.st_mode & S_IWUSR) == 0;
}

// ---- Input ----

// Without O_NONBLOCK, opening a pipe waits for somebody to write to it.
InputFile::InputFile(const std::string& path)
    : name(path), descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
{
    if (descriptor < 0)
        fail("cannot be opened: " + reason());
    struct stat status;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(descriptor);
        fail("is no file that can be read; give the path of a trace file");
    }
    bytes = status.st_size;
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
}

InputFile::~InputFile()
{
    ::close(descriptor);
}

void InputFile::fail(const std::string& what) const
{
    throw TraceFileError(name + ": " + what);
}

bool InputFile::inWindow(int64_t offset, int64_t count) const
{
    return offset >= windowStart &&
           offset + count <= windowStart + static_cast<int64_t>(window.size());
}

// Headers that are wrong may ask for more than any machine has.
void InputFile::makeRoom(std::vector<unsigned char>& bytesRead, int64_t count) const
{
    try {
        bytesRead.resize(static_cast<std::size_t>(count));
    } catch (const std::bad_alloc&) {
        fail("there is no memory for a trace of " + number(count) +
             " bytes; if its traces are shorter than that, state `samples`");
    }
}

const unsigned char* InputFile::at(int64_t offset, int64_t count)
{
    if (!inWindow(offset, count)) {
        if (offset + count > bytes)
            fail("ends at byte " + number(bytes) + ", before byte " + number(offset + count));
        try {
            moveWindow(offset, std::min(bytes - offset, std::max(count, windowBytes)));
        } catch (const TraceFileError&) {
            moveWindow(offset, count); // what lies ahead may be damaged: that is for later calls
        }
    }
    return window.data() + (offset - windowStart);
}

void InputFile::moveWindow(int64_t offset, int64_t count)
{
    makeRoom(window, count);
    windowStart = offset;
    try {
        read(offset, window.data(), window.size());
    } catch (...) {
        window.clear(); // it holds nothing that could be handed out later
        throw;
    }
}

const unsigned char* InputFile::peek(int64_t offset, int64_t count)
{
    if (inWindow(offset, count))
        return at(offset, count);
    makeRoom(glance, count);
    read(offset, glance.data(), glance.size());
    return glance.data();
}

void InputFile::read(int64_t offset, unsigned char* to, std::size_t count) const
{
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got =
            pread(descriptor, to + done, count - done, offset + static_cast<int64_t>(done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            fail("cannot be read at byte " + number(offset + static_cast<int64_t>(done)) + ": " +
                 reason());
        if (got == 0)
            fail("ends at byte " + number(offset + static_cast<int64_t>(done)) +
                 "; it was longer when it was opened");
        done += static_cast<std::size_t>(got);
    }
}

// ---- Output ----

// Runs when the process exits or the library is closed. A child that exits leaves what is its
// parent's.
struct UnfinishedFiles
{
    ~UnfinishedFiles()
    {
        while (first != nullptr && getpid() == owner) {
            first->discard();
            first->leave();
        }
    }
    static OutputFile* first;
    static pid_t owner;
};
OutputFile* UnfinishedFiles::first = nullptr;
pid_t UnfinishedFiles::owner = 0;
static const UnfinishedFiles unfinished;

void OutputFile::enter()
{
    next = UnfinishedFiles::first;
    pointer = &UnfinishedFiles::first;
    if (next != nullptr)
        next->pointer = &next;
    UnfinishedFiles::first = this;
    UnfinishedFiles::owner = getpid();
}

void OutputFile::leave() noexcept
{
    if (pointer == nullptr)
        return;
    *pointer = next;
    if (next != nullptr)
        next->pointer = pointer;
    pointer = nullptr;
}

OutputFile::OutputFile(const std::string& path, bool overwrite)
    : name(path), target(resolved(path)), mayReplace(overwrite)
{
    struct stat status;
    if (path.empty())
        fail("the output has no name; give the path of a file");
    if (isForeignLink(path))
        fail("is a link that somebody else has put into a directory for all; write to another "
             "place");
    if (stat(target.c_str(), &status) == 0) {
        if (!S_ISREG(status.st_mode))
            fail("is there already and no regular file; give the path of a file");
        if (!mayReplace)
            fail("is there already; remove it, or allow it to be overwritten");
        if (isWriteProtected(target))
            fail("is write-protected; write to another file, or give yourself permission first "
                 "(chmod u+w)");
    }
    std::string pattern = temporaryPattern(target);
    buffer.resize(bufferBytes); // no memory for it must not leave a file behind
    descriptor = mkostemp(pattern.data(), O_CLOEXEC); // mode 0600, never an existing file
    if (descriptor < 0)
        fail("cannot be written: no file can be created in its directory: " + reason());
    temporary.swap(pattern);
    enter();
}

OutputFile::~OutputFile()
{
    discard();
    leave();
}

void OutputFile::discard() noexcept
{
    close();
    if (!temporary.empty())
        unlink(temporary.c_str());
    temporary.clear();
    filled = 0;
}

void OutputFile::close()
{
    if (descriptor >= 0)
        ::close(descriptor);
    descriptor = -1;
}

void OutputFile::fail(const std::string& what)
{
    discard();
    throw TraceFileError(name + ": " + what);
}

unsigned char* OutputFile::append(std::size_t count)
{
    if (filled + count > buffer.size()) {
        flush();
        buffer.resize(std::max(bufferBytes, count));
    }
    unsigned char* room = buffer.data() + filled;
    filled += count;
    return room;
}

void OutputFile::flush()
{
    if (descriptor < 0)
        fail("is not open for writing any more");
    std::size_t done = 0;
    while (done < filled) {
        const std::size_t some = std::min(filled - done, mostPerWrite);
        const ssize_t put = ::write(descriptor, buffer.data() + done, some);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            fail("cannot be written beyond its first " + number(written) + " bytes (" +
                 number(static_cast<int64_t>(filled - done)) + " more were to follow now): " +
                 (put < 0 ? reason() : std::string("nothing more is taken")) +
                 "; make room there, or write to another place");
        done += static_cast<std::size_t>(put);
        written += put;
    }
    filled = 0;
}

void OutputFile::commit()
{
    flush();
    if (fchmod(descriptor, 0666 & ~creationMask()) != 0)
        fail("cannot be given its permissions: " + reason());
    // Network file systems report what went wrong with the writing only now.
    if (::close(std::exchange(descriptor, -1)) != 0)
        fail("cannot be completed after " + number(written) + " bytes: " + reason());
    publish();
    temporary.clear();
}

// Between the look at the target and now somebody may have made one that must not be replaced.
void OutputFile::publish()
{
    if (mayReplace) {
        if (rename(temporary.c_str(), target.c_str()) != 0)
            fail("cannot be given its name: " + reason());
        return;
    }
    if (renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0)
        return;
    // Not every file system knows that call; a link is never put over an existing name either.
    const bool unknown = errno == EINVAL || errno == ENOSYS;
    if (!unknown || link(temporary.c_str(), target.c_str()) != 0)
        fail(errno == EEXIST ? "has been made by somebody else meanwhile; it is left as it is"
                             : "cannot be given its name: " + reason());
    unlink(temporary.c_str());
}

// The lists of the libraries are out of reach here, and another thread may be changing them; what
// is open says the same.
void removeUnfinishedOutputs(void (*tell)(void* context, const char* path), void* context) noexcept
{
    constexpr rlim_t mostDescriptors = 65536;
    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    char path[PATH_MAX];
    // The hard limit: a process that ends may have lowered the other one already.
    const int end = static_cast<int>(std::min(limit.rlim_max, mostDescriptors));
    for (int descriptor = 0; descriptor < end; ++descriptor) {
        if (findTemporary(descriptor, path) && unlink(path) == 0 && tell != nullptr)
            tell(context, path);
    }
}

} // namespace VORN
