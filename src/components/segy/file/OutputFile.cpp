#include "file/OutputFile.h"

#include "file/FileIdentity.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace VORN {

namespace {

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

} // namespace

OutputFile::OutputFile(const std::string& path, bool overwrite) : name(path), mayReplace(overwrite)
{
    struct stat status;
    if (path.empty())
        fail("the output has no name; give the path of a file");
    target = resolved(path);
    if (isForeignLink(path))
        fail("is a link that somebody else has put into a directory for all; write to another "
             "place");
    if (stat(target.c_str(), &status) == 0) {
        if (!S_ISREG(status.st_mode))
            fail("is there already and is not a regular file; give the path of a file");
        if (!mayReplace)
            fail("is there already; remove it, or allow it to be overwritten");
        if (isWriteProtected(target))
            fail("is write-protected; write to another file, or give yourself permission first "
                 "(chmod u+w)");
    }
    buffer.resize(bufferBytes); // no memory for it must not leave a file behind
    descriptor = temporary.create(temporaryPattern(target));
    if (descriptor < 0 && errno == ECANCELED)
        fail("cannot be written: the process is ending");
    if (descriptor < 0)
        fail("cannot be written: no file can be created in its directory: " + reason());
}

OutputFile::~OutputFile()
{
    discard();
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
    if (!temporary.isOfThisProcess())
        fail("belongs to the process that started this one, and is left to it");
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
    temporary.complete();
}

// Between the check of the target and now somebody may have made one that must not be replaced.
// When outputs are stopped after the check here, their removal finds the temporary file before this
// renames it, or the file is whole.
void OutputFile::publish()
{
    if (outputsAreStopped())
        fail("cannot be given its name: the process is ending");
    if (mayReplace) {
        if (rename(temporary.path(), target.c_str()) != 0)
            fail("cannot be given its name: " + reason());
        return;
    }
    if (renameat2(AT_FDCWD, temporary.path(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0)
        return;
    // Not every file system knows that call; a link is never put over an existing name either.
    const bool unknown = errno == EINVAL || errno == ENOSYS;
    if (!unknown || link(temporary.path(), target.c_str()) != 0)
        fail(errno == EEXIST ? "has been made by somebody else meanwhile; it is left as it is"
                             : "cannot be given its name: " + reason());
    unlink(temporary.path());
}

} // namespace VORN
