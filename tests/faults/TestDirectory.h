/// @file TestDirectory.h
///
/// A directory that tests and their children share.
#ifndef TESTDIRECTORY_H
#define TESTDIRECTORY_H

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

/// Made with the object and removed with it, with all that is in it.
class TestDirectory
{
public:
    TestDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "vorn-fault-XXXXXX");
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("no temporary directory " + pattern);
        directory = pattern;
    }
    ~TestDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;

    std::string path() const { return directory; }
    std::string operator/(const std::string& name) const { return directory + "/" + name; }

    /// Names of the entries, sorted.
    std::vector<std::string> names() const
    {
        std::vector<std::string> entries;
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            entries.push_back(entry.path().filename().string());
        std::sort(entries.begin(), entries.end());
        return entries;
    }
    void clear() const
    {
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            std::filesystem::remove_all(entry.path());
    }

private:
    std::string directory;
};

#endif
