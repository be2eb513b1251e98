/// @file DirectoryNames.h
///
/// What a directory holds.
#ifndef DIRECTORYNAMES_H
#define DIRECTORYNAMES_H

#include <dirent.h>
#include <memory>
#include <string>
#include <vector>

namespace host {

/// Names of the entries, in no order; none where the directory cannot be read. (The C++ library's
/// iterators end the process when they find no memory.)
inline std::vector<std::string> namesIn(const std::string& directory)
{
    struct Close
    {
        void operator()(DIR* entries) const { closedir(entries); }
    };
    std::vector<std::string> names;
    const std::unique_ptr<DIR, Close> entries(opendir(directory.empty() ? "." : directory.c_str()));
    while (const dirent* entry = entries != nullptr ? readdir(entries.get()) : nullptr) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    return names;
}

} // namespace host

#endif
