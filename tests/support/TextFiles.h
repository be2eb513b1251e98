/// @file TextFiles.h
///
/// Small text files of one test.
#ifndef TEXTFILES_H
#define TEXTFILES_H

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

/// A folder of its own for the text files of a test; it is removed with the object.
class TextFiles
{
public:
    TextFiles()
    {
        std::string pattern = VORN_TEST_BINARY_DIR "/texts-XXXXXX";
        folder = mkdtemp(pattern.data());
    }
    ~TextFiles()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    TextFiles(const TextFiles&) = delete;
    TextFiles& operator=(const TextFiles&) = delete;

    /// The path of a file that holds `text`.
    std::string write(const std::string& name, const std::string& text) const
    {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    std::string path(const std::string& name) const { return folder + "/" + name; }

private:
    std::string folder;
};

#endif
