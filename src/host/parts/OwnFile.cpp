#include "parts/OwnFile.h"

#include "base/CommandError.h"
#include "base/Escaping.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <random>
#include <unistd.h>

namespace host {

namespace {

std::string uniqueName(const std::string& path)
{
    std::random_device random;
    return fmt::format("{}.{:08x}{:08x}", path, random(), random());
}

[[noreturn]] void refuse(const std::string& path, int error)
{
    throw CommandError(quote(path) + " cannot be brought to the disk: " + std::strerror(error),
                       exitTryAgain);
}

// 0, or the error number.
int syncAt(const std::string& path, int flags)
{
    const int file = open(path.c_str(), flags | O_CLOEXEC);
    if (file < 0)
        return errno;
    const int error = fsync(file) == 0 ? 0 : errno;
    close(file);
    return error;
}

} // namespace

void syncFile(const std::string& path)
{
    if (const int error = syncAt(path, O_WRONLY))
        refuse(path, error);
}

// One that may not be listed cannot be opened, though files can be made there.
void syncDirectory(const std::string& path)
{
    const int error = syncAt(path, O_RDONLY | O_DIRECTORY);
    if (error != 0 && error != EACCES && error != EINVAL && error != ENOSYS && error != EOPNOTSUPP)
        refuse(path, error);
}

OwnFile::OwnFile(const std::string& path) : name(path), hidden(uniqueName(path)) {}

OwnFile::~OwnFile()
{
    if (!published)
        unlink(hidden.c_str());
}

bool OwnFile::write(const std::string& text) const
{
    const int file = open(hidden.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0)
        return false;
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t some = ::write(file, text.data() + done, text.size() - done);
        if (some < 0 && errno == EINTR)
            continue;
        if (some <= 0)
            break;
        done += static_cast<std::size_t>(some);
    }
    const bool good = done == text.size() && fsync(file) == 0;
    const int error = errno;
    close(file);
    errno = error;
    return good;
}

// The one whose name it gets is what users know.
void OwnFile::sync() const
{
    if (const int error = syncAt(hidden, O_WRONLY))
        refuse(name, error);
}

void OwnFile::publish()
{
    if (std::rename(hidden.c_str(), name.c_str()) != 0)
        throw CommandError("the file " + quote(name) +
                               " cannot get its name: " + std::strerror(errno),
                           exitTryAgain);
    published = true;
}

} // namespace host
