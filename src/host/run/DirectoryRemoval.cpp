#include "run/DirectoryRemoval.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace host {

namespace {

// Modules may make directories in the scratch directory. The limit bounds the stack that is needed.
constexpr int mostLevels = 8;

bool isSelfOrParent(const char* name)
{
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

bool removeAll(int descriptor, const char* but, int levels) noexcept;

bool removeEntry(int directory, const char* name, int levels) noexcept
{
    if (unlinkat(directory, name, 0) == 0)
        return true;
    if (levels == 0)
        return false;
    const int inner = openat(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (inner < 0)
        return false;
    removeAll(inner, nullptr, levels - 1);
    close(inner);
    return unlinkat(directory, name, AT_REMOVEDIR) == 0;
}

// readdir() needs a stream, which is allocated; the system's own call fills any buffer.
bool removeAll(int descriptor, const char* but, int levels) noexcept
{
    alignas(dirent64) char buffer[2048];
    // A file system may leave out entries that move up while others are removed.
    for (bool removed = true; removed;) {
        removed = false;
        bool left = false;
        if (lseek(descriptor, 0, SEEK_SET) < 0)
            return false;
        ssize_t bytes = 0;
        while ((bytes = getdents64(descriptor, buffer, sizeof buffer)) > 0) {
            for (ssize_t at = 0; at < bytes;) {
                const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
                at += entry->d_reclen;
                const bool stays = but != nullptr && std::strcmp(entry->d_name, but) == 0;
                if (isSelfOrParent(entry->d_name) || stays)
                    continue;
                const bool gone = removeEntry(descriptor, entry->d_name, levels);
                removed = removed || gone;
                left = left || !gone;
            }
        }
        if (!removed)
            return bytes == 0 && !left;
    }
    return true;
}

} // namespace

bool removeEntries(int descriptor, const char* last) noexcept
{
    if (!removeAll(descriptor, last, mostLevels))
        return false;
    return last == nullptr || unlinkat(descriptor, last, 0) == 0 || errno == ENOENT;
}

} // namespace host
