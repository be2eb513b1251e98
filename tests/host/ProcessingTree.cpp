#include "ProcessingTree.h"

#include "SegyBytes.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <sys/stat.h>

namespace fs = std::filesystem;

ProcessingTree::ProcessingTree()
{
    for (const auto& entry : fs::directory_iterator(VORN_TEST_SOURCE_DIR "/../modules")) {
        const std::string name = entry.path().filename().string();
        const std::string library = "/lib/lib" + name + ".so";
        const fs::path manifest = entry.path() / (name + ".yaml");
        if (!fs::exists(manifest) || fs::exists(home() + library))
            continue;
        fs::create_symlink(VORN_TEST_HOME + library, home() + library);
        fs::copy_file(manifest, home() + "/lib/" + name + ".yaml");
    }
}

std::map<std::string, std::string> ProcessingTree::snapshot() const
{
    std::map<std::string, std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(work())) {
        struct stat status;
        if (stat(entry.path().c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
            found[entry.path().string()] = "no regular file";
            continue;
        }
        const bool small = status.st_size < (1 << 20); // large ones are mostly holes
        found[entry.path().string()] = std::to_string(status.st_mtim.tv_sec) + "." +
                                       std::to_string(status.st_mtim.tv_nsec) + ", " +
                                       std::to_string(status.st_size) +
                                       " bytes: " + (small ? readFile(entry.path().string()) : "");
    }
    return found;
}

std::vector<std::string> ProcessingTree::namesIn(const std::string& folder) const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path(folder)))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

ProcessResult ProcessingTree::runLimited(decltype(RLIMIT_FSIZE) resource, rlim_t limit,
                                         const std::vector<std::string>& words) const
{
    rlimit before;
    getrlimit(resource, &before);
    const rlimit lower = {limit, before.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN); // processes that are started inherit it
    setrlimit(resource, &lower);
    const pid_t process = start(words);
    setrlimit(resource, &before);
    std::signal(SIGXFSZ, handler);
    return finish(process);
}

std::vector<std::string> linesWith(const std::string& text, const std::string& part)
{
    std::vector<std::string> found;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.find(part) != std::string::npos)
            found.push_back(line);
    }
    return found;
}

std::string problemOfPng(const std::string& path)
{
    constexpr std::size_t leastBytes = 2000; // an empty page compresses to less
    if (!fs::exists(path))
        return path + " does not exist";
    const Bytes bytes = readBytes(path);
    const Bytes signature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    const Bytes end = {'I', 'E', 'N', 'D', 0xAE, 0x42, 0x60, 0x82};
    if (bytes.size() < leastBytes)
        return path + " has " + std::to_string(bytes.size()) + " bytes";
    if (!std::equal(signature.begin(), signature.end(), bytes.begin()))
        return path + " has no PNG signature";
    if (!std::equal(end.rbegin(), end.rend(), bytes.rbegin()))
        return path + " has no end";
    const int64_t width = getInteger(bytes, 16, 4);
    const int64_t height = getInteger(bytes, 20, 4);
    if (width < 300 || height < 300)
        return path + " has " + std::to_string(width) + " x " + std::to_string(height) + " pixels";
    return "";
}
