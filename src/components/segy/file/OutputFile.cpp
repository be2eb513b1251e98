#include "file/OutputFile.h"

#include "file/FileIdentity.h"
#include "file/FileRoles.h"
#include "file/SystemFailure.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace VORN {

namespace {

constexpr std::size_t bufferBytes = 1 << 18;
constexpr std::size_t mostPerWrite = 1 << 30; // the operating system writes less than 2 GiB at once

std::atomic<OutputObserver*> currentObserver{nullptr};

std::string number(int64_t value)
{
    return std::to_string(value);
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

// Where a path leads, so that a symbolic link is not replaced by a file: absolute, since the
// process may change its directory before the file is complete.
std::string resolved(const std::string& path)
{
    constexpr std::size_t ofTemporaryName = 256;
    std::error_code none;
    const std::filesystem::path target = std::filesystem::is_symlink(path, none)
                                             ? std::filesystem::weakly_canonical(path, none)
                                             : std::filesystem::absolute(path, none);
    const std::string text = target.string();
    return none || text.size() + ofTemporaryName > PATH_MAX ? path : text;
}

// ".NAME.vorn-XXXXXX" in the directory of `path`. A long name is cut: the longest that file systems
// take is 255 bytes.
std::string temporaryPattern(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(0, start) + "." + path.substr(start, 200) + ".vorn-XXXXXX";
}

} // namespace

OutputObserver::~OutputObserver() = default;

void observeOutputs(OutputObserver* observer)
{
    currentObserver = observer;
}

OutputFile::OutputFile(const std::string& path, bool overwrite, std::string itsRole,
                       std::string itsOwner)
    : name(path), role(std::move(itsRole)), owner(std::move(itsOwner)), process(getpid()),
      part(findPartOutput(path)), mayReplace(overwrite)
{
    if (path.empty())
        fail("the output has no name; give the path of a file");
    const std::string foreign = foreignLinkOn(path);
    std::error_code none;
    if (!foreign.empty())
        fail((foreign == std::filesystem::absolute(path, none).string()
                  ? "is"
                  : "leads through " + foreign + ", which is") +
             std::string(" a link that somebody else has put into a directory for all; write to "
                         "another place"));
    through = isWrittenThrough(path);
    if (through && part)
        fail("cannot be written by several processes: it is a device, a pipe or an open file; give "
             "the path of a file");
    target = through ? path : resolved(path);
    refuseReplacing();
    buffer.reserve(bufferBytes); // no memory for it must not leave a file behind
    if (part) {
        part->isWhole ? adopt() : openRange();
        return;
    }
    if (through) {
        createSpool();
        return;
    }
    descriptor = temporary.create(temporaryPattern(target));
    failWhereNoneBegins();
    if (descriptor < 0)
        fail("cannot be written: no file can be created in its directory: " + systemReason());
    OutputObserver* const present = currentObserver;
    if (present != nullptr)
        present->opened(*this);
    observer = present;
}

// Requires: errno is that of the file that was to be opened, if none is.
void OutputFile::failWhereNoneBegins()
{
    if (descriptor < 0 && errno == ECANCELED)
        fail("cannot be written: the process is ending");
    if (descriptor < 0 && errno == EUSERS)
        fail("cannot be written: this process is writing " + number(mostUnfinishedOutputs) +
             " files already, which is the limit; complete some of them first");
}

// The file stays what it is, whatever happens: other processes are writing to it.
void OutputFile::openRange()
{
    errno = ECANCELED;
    if (!outputsAreStopped())
        descriptor = open(part->target.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    failWhereNoneBegins();
    checkTarget();
}

void OutputFile::adopt()
{
    descriptor = temporary.adopt(std::filesystem::absolute(part->target).string());
    failWhereNoneBegins();
    written = checkTarget();
}

// The size of the open file of several processes.
int64_t OutputFile::checkTarget()
{
    const std::string advice = "; make a new plan and run all its parts again";
    if (descriptor < 0)
        fail("cannot be written: the file of its parts, " + part->target + ", " +
             (errno == ENOENT ? "does not exist" : "cannot be opened: " + systemReason()) + advice);
    struct stat status;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode))
        fail("cannot be written: the file of its parts, " + part->target +
             ", is not a regular file" + advice);
    return status.st_size;
}

void OutputFile::startAt(int64_t position)
{
    if (lseek(descriptor, position, SEEK_SET) != position)
        fail("cannot be written from byte " + number(position) + " on: " + systemReason());
}

// All that speaks against an output at this place, as it is now.
void OutputFile::refuseReplacing()
{
    const std::string used = usedFiles().roleOf(name, owner);
    if (!used.empty())
        fail(role + " would replace " + used + "; write to another file");
    struct stat status;
    if (through || stat(target.c_str(), &status) != 0)
        return;
    if (!S_ISREG(status.st_mode))
        fail("is there already and is not a regular file; give the path of a file");
    if (!mayReplace)
        fail("is there already; remove it, or allow it to be overwritten");
    if (isWriteProtected(target))
        fail("is write-protected; write to another file, or give yourself permission first "
             "(chmod u+w)");
}

// A file without a name: nothing has to remove it.
void OutputFile::createSpool()
{
    const int named = descriptorOf(name);
    const int mode = named >= 0 ? fcntl(named, F_GETFL) : O_WRONLY;
    if (mode < 0 || (mode & O_ACCMODE) == O_RDONLY)
        fail("is not open for writing");
    const char* given = std::getenv("TMPDIR");
    for (const std::string directory : {given != nullptr ? given : "", "/tmp"}) {
        if (directory.empty())
            continue;
        descriptor = open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        if (descriptor >= 0)
            return;
        std::string pattern = directory + "/vorn-XXXXXX"; // not every file system knows the flag
        descriptor = mkostemp(pattern.data(), O_CLOEXEC);
        if (descriptor >= 0) {
            unlink(pattern.c_str());
            return;
        }
    }
    fail("cannot be written: there is no place for its bytes in the directory for temporary "
         "files: " +
         systemReason());
}

OutputFile::~OutputFile()
{
    discard();
    if (observer != nullptr)
        observer->closed(*this);
}

std::string OutputFile::temporaryPath() const
{
    return temporary.path();
}

void OutputFile::discard() noexcept
{
    close();
    temporary.remove();
    filled = 0;
}

void OutputFile::close() noexcept
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
        fail("is not open for writing any longer");
    if (process != getpid())
        fail("belongs to the process that started this one, and is left to it");
    if (filled > 0 && part && part->isWhole)
        fail("is whole already; nothing can be written to it");
    const int64_t position = written;
    writeTo(descriptor, buffer.data(), filled, written);
    if (observer != nullptr && filled > 0)
        observer->written(*this, position, buffer.data(), filled);
    filled = 0;
}

// `done` counts the bytes that `to` has taken.
void OutputFile::replace(int64_t position, const void* bytes, std::size_t count)
{
    flush();
    const auto* from = static_cast<const unsigned char*>(bytes);
    for (std::size_t sent = 0; sent < count;) {
        const ssize_t put =
            ::pwrite(descriptor, from + sent, count - sent, position + static_cast<off_t>(sent));
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            fail("cannot be changed at byte " + number(position + static_cast<int64_t>(sent)) +
                 ": " + (put < 0 ? systemReason() : std::string("nothing more is taken")) +
                 "; make room there, or write to another place");
        sent += static_cast<std::size_t>(put);
    }
    if (observer != nullptr)
        observer->written(*this, position, from, count);
}

void OutputFile::writeTo(int to, const unsigned char* bytes, std::size_t count, int64_t& done)
{
    for (std::size_t sent = 0; sent < count;) {
        const std::size_t some = std::min(count - sent, mostPerWrite);
        const ssize_t put = ::write(to, bytes + sent, some);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            fail("cannot be written beyond its first " + number(done) + " bytes (" +
                 number(static_cast<int64_t>(count - sent)) + " more were to follow now): " +
                 (put < 0 ? systemReason() : std::string("nothing more is taken")) +
                 "; make room there, or write to another place");
        sent += static_cast<std::size_t>(put);
        done += put;
    }
}

// Opening a named pipe waits for a reader.
void OutputFile::copySpool()
{
    if (outputsAreStopped())
        fail("cannot be written: the process is ending");
    const int named = descriptorOf(name);
    const int to = named >= 0 ? fcntl(named, F_DUPFD_CLOEXEC, 0)
                              : open(target.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
    if (to < 0)
        fail("cannot be opened for writing: " + systemReason());
    struct Closing
    {
        int descriptor;
        ~Closing() { ::close(descriptor); }
    } const closing{to};
    int64_t copied = 0;
    buffer.resize(bufferBytes);
    for (int64_t at = 0; at < written;) {
        const ssize_t got = pread(descriptor, buffer.data(), buffer.size(), at);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            fail("cannot be written: its bytes cannot be read back from the directory for "
                 "temporary files: " +
                 (got < 0 ? systemReason() : std::string("they end early")));
        writeTo(to, buffer.data(), static_cast<std::size_t>(got), copied);
        at += got;
    }
}

void OutputFile::commit()
{
    flush();
    if (part && !part->isWhole) {
        closeWhole();
        return;
    }
    if (through) {
        copySpool();
        close();
        return;
    }
    if (part)
        checkAdopted();
    if (fchmod(descriptor, 0666 & ~creationMask()) != 0)
        fail("cannot be given its permissions: " + systemReason());
    closeWhole();
    temporary.noteWhole();
    publish();
    temporary.complete();
    if (observer != nullptr)
        observer->completed(*this);
}

// Network file systems report what went wrong with the writing only now.
void OutputFile::closeWhole()
{
    if (::close(std::exchange(descriptor, -1)) != 0)
        fail("cannot be completed after " + number(written) + " bytes: " + systemReason());
}

void OutputFile::checkAdopted()
{
    written = checkTarget();
    if (expected && written != *expected)
        fail("is not whole: the file of its parts, " + part->target + ", has " + number(written) +
             " bytes instead of " + number(*expected) +
             "; make a new plan and run all its parts again");
}

// Between the check of the target and now somebody may have made one that must not be replaced, or
// protected the one that is there.
// When outputs are stopped after the check here, their removal finds the temporary file before this
// renames it, or the file is whole.
void OutputFile::publish()
{
    if (outputsAreStopped())
        fail("cannot be given its name: the process is ending");
    if (mayReplace) {
        refuseReplacing();
        if (rename(temporary.path(), target.c_str()) != 0)
            fail("cannot be given its name: " + systemReason());
        return;
    }
    if (renameat2(AT_FDCWD, temporary.path(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0)
        return;
    // Not every file system knows that call; a link is never put over an existing name either.
    const bool unknown = errno == EINVAL || errno == ENOSYS;
    if (!unknown || link(temporary.path(), target.c_str()) != 0)
        fail(errno == EEXIST ? "has been made by somebody else meanwhile; it is left as it is"
                             : "cannot be given its name: " + systemReason());
    unlink(temporary.path());
}

} // namespace VORN
