#include "base/LogFile.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "file/FileIdentity.h"
#include "file/FileRoles.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace host {

namespace {

// What handlers of signals read.
std::atomic<int> openLog{-1};         // the descriptor
std::atomic<bool> isInMidLine{false}; // a text is being written, or has ended without a line feed

} // namespace

LogFile::LogFile(const std::string& path) : name(path)
{
    open();
    if (descriptor < 0)
        throw CommandError("the log file " + quote(name) +
                           " cannot be written: " + std::strerror(errno));
    try {
        refuseWhatIsOpen();
    } catch (...) {
        ::close(descriptor);
        throw;
    }
    beginAnew();
    isInMidLine = false;
    openLog = descriptor;
}

LogFile::~LogFile()
{
    leave();
    if (descriptor >= 0)
        ::close(descriptor);
}

void LogFile::open()
{
    const int named = VORN::descriptorOf(name);
    if (named >= 0) {
        descriptor = fcntl(named, F_DUPFD_CLOEXEC, 3);
        return;
    }
    constexpr int flags = O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY;
    if (VORN::isWrittenThrough(name)) { // a named pipe waits for its reader
        descriptor = ::open(name.c_str(), flags);
        return;
    }
    // A link that appears at the last moment is not followed, and a pipe does not block.
    const std::string target = VORN::canonicalPath(name);
    descriptor = ::open(target.c_str(), flags | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0666);
}

// What the path led to was checked before; this is the file that is really open. Nothing of it has
// been changed yet.
void LogFile::refuseWhatIsOpen()
{
    struct stat status;
    if (fstat(descriptor, &status) != 0)
        return;
    const std::string used =
        VORN::usedFiles().roleOf("/proc/self/fd/" + std::to_string(descriptor), "--log");
    if (!used.empty())
        throw CommandError("--log: the log " + quote(name) + " would replace " + used +
                           "; write to another file");
    if (S_ISREG(status.st_mode) && (status.st_mode & S_IWUSR) == 0)
        throw CommandError("--log: the file " + quote(name) +
                           " is write-protected; write to another file, or give yourself "
                           "permission first (chmod u+w)");
}

// All runs that write a log hold a shared lock on it; the one that gets the file to itself is
// alone. On a file system without locks it looks alone, too: the file is cut while the other run
// appends, which leaves no hole in it.
void LogFile::beginAnew() const
{
    struct stat status;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) ||
        VORN::descriptorOf(name) >= 0)
        return;
    const bool isAlone = flock(descriptor, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
    if (isAlone) [[maybe_unused]]
        const int cut = ftruncate(descriptor, 0);
    flock(descriptor, LOCK_SH | LOCK_NB);
}

void LogFile::note(int error)
{
    leave();
    if (failure == 0)
        failure = error;
}

// Handlers write to it no longer.
void LogFile::leave() const noexcept
{
    int own = descriptor;
    if (own >= 0)
        openLog.compare_exchange_strong(own, -1);
}

void LogFile::write(const std::string& text)
{
    if (descriptor < 0 || failure != 0 || text.empty())
        return;
    isInMidLine = true;
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t put = ::write(descriptor, text.data() + done, text.size() - done);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0) {
            note(put < 0 ? errno : EIO);
            return;
        }
        done += static_cast<std::size_t>(put);
        written += put;
    }
    isInMidLine = text.back() != '\n';
}

std::string LogFile::close()
{
    leave();
    // Network file systems report what went wrong with the writing only now.
    if (descriptor >= 0 && ::close(std::exchange(descriptor, -1)) != 0)
        note(errno);
    if (failure == 0)
        return {};
    return "the log file " + quote(name) + " cannot be written: " + std::strerror(failure) +
           "; it ends after " + std::to_string(written) +
           " bytes of this run; make room there, or write to another place";
}

// Nothing can be done about a failure.
void addToOpenLog(const char* lines, std::size_t size) noexcept
{
    const int descriptor = openLog;
    if (descriptor < 0 || size == 0)
        return;
    [[maybe_unused]] ssize_t put = 0;
    if (isInMidLine.exchange(false))
        put = ::write(descriptor, "\n", 1);
    put = ::write(descriptor, lines, size);
}

} // namespace host
