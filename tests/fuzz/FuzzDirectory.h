/// @file FuzzDirectory.h
///
/// A directory in memory for what targets write, removed when the process ends.
#ifndef FUZZDIRECTORY_H
#define FUZZDIRECTORY_H

#include "vorn_assert.h"

#include <cstdlib>
#include <filesystem>
#include <string>

inline const std::string& fuzzDirectory()
{
    struct Directory
    {
        Directory()
        {
            const bool inMemory = std::filesystem::is_directory("/dev/shm");
            path = (inMemory ? "/dev/shm" : std::filesystem::temp_directory_path().string()) +
                   "/vorn-fuzz-XXXXXX";
            VORN_ASSERT(mkdtemp(path.data()) != nullptr);
        }
        ~Directory()
        {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
        std::string path;
    };
    static const Directory directory;
    return directory.path;
}

#endif
