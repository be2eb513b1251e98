#include "each/FileSet.h"

#include "base/CommandError.h"
#include "base/DirectoryNames.h"
#include "base/Escaping.h"
#include "base/Sha256.h"
#include "base/Text.h"
#include "file/FileIdentity.h"
#include "file/InputNames.h"

#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>

namespace host {

namespace {

namespace fs = std::filesystem;

bool isResultFolder(const fs::path& folder)
{
    std::error_code error;
    return fs::is_regular_file(folder / recordName, error);
}

// Whether a file lies among results. Folders are looked at once.
class ResultFolders
{
public:
    explicit ResultFolders(const std::string& directory) : own(VORN::canonicalPath(directory)) {}

    bool contain(const fs::path& file) { return isBelow(fs::path(file).parent_path()); }

private:
    bool isBelow(const fs::path& folder)
    {
        const auto found = known.find(folder.string());
        if (found != known.end())
            return found->second;
        const bool isTop = !folder.has_relative_path();
        const bool below =
            folder == own || isResultFolder(folder) || (!isTop && isBelow(folder.parent_path()));
        known[folder.string()] = below;
        return below;
    }

    fs::path own;
    std::map<std::string, bool> known;
};

// What of it is a file to be read. A name that cannot be followed stays: its run says why.
bool isReadable(const std::string& path)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    return error || !fs::exists(status) || fs::is_regular_file(status);
}

std::vector<std::string> matchesOf(const std::string& pattern, const std::string& option)
{
    if (pattern.empty())
        throw CommandError(option + ": a pattern of file names is expected, as 'data/*.sgy'");
    std::vector<std::string> found = VORN::inputFiles(pattern);
    std::error_code error;
    if (found.empty())
        throw CommandError(option + ": no file matches the pattern " + quote(pattern));
    if (found.size() > 1 || found.front() != pattern)
        return found;
    if (fs::is_directory(pattern, error))
        throw CommandError(option + ": " + quote(pattern) +
                           " is a directory; give a pattern of the files in it, as " +
                           quote((fs::path(pattern) / "*.sgy").string()));
    if (!fs::exists(pattern, error))
        throw CommandError(option + ": the file " + quote(pattern) + " does not exist");
    return found;
}

bool isNameCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '-' || c == '+' || c == '=';
}

// The key of the file whose results are in `folder`; "" when there are none.
std::string recordedKey(const fs::path& folder)
{
    std::ifstream file(folder / recordName, std::ios::binary);
    const nlohmann::json json = nlohmann::json::parse(file, nullptr, false);
    if (!json.is_object() || !json.contains("key") || !json["key"].is_string())
        return "";
    return json["key"].get<std::string>();
}

} // namespace

FileSet findFiles(const std::vector<std::string>& patterns, const std::string& directory,
                  const std::string& option)
{
    FileSet set;
    ResultFolders results(directory);
    std::set<std::string> seen;
    int64_t others = 0;
    int64_t ofResults = 0;
    int64_t twice = 0;
    for (const std::string& pattern : patterns) {
        for (const std::string& match : matchesOf(pattern, option)) {
            const std::string path = fs::absolute(match).lexically_normal().string();
            const std::string canonical = VORN::canonicalPath(path);
            if (!isReadable(path))
                ++others;
            else if (results.contain(canonical))
                ++ofResults;
            else if (!seen.insert(canonical).second)
                ++twice;
            else
                set.files.push_back(path);
        }
    }
    if (others > 0)
        set.notes.push_back(counted(others, "match") + " left out: not regular files");
    if (ofResults > 0)
        set.notes.push_back(counted(ofResults, "file") +
                            " left out: in a folder of results of an earlier call");
    if (twice > 0)
        set.notes.push_back(counted(twice, "name") + " left out: of a file that has another one");
    if (set.files.empty())
        throw CommandError(fmt::format("{}: no file is left of what {} matches: {}", option,
                                       quote(joined(patterns, ", ")), joined(set.notes, "; ")));
    return set;
}

std::string folderName(const std::string& file)
{
    constexpr std::size_t longest = 100;
    const std::string stem = fs::path(file).stem().string();
    // What is shown as an escape is a control character, or not text.
    std::string name;
    for (std::size_t i = 0; i < stem.size();) {
        std::size_t length = 1;
        while (i + length < stem.size() &&
               (static_cast<unsigned char>(stem[i + length]) & 0xc0) == 0x80)
            ++length;
        const std::string character = stem.substr(i, length);
        const bool isAscii = (static_cast<unsigned char>(stem[i]) & 0x80) == 0;
        const bool stays =
            isAscii ? isNameCharacter(stem[i]) && length == 1 : escaped(character) == character;
        if (name.size() + length > longest)
            break;
        name += stays ? character : "_";
        i += length;
    }
    if (name.empty())
        return "_";
    if (name.front() == '.' || name.front() == '-')
        name.front() = '_';
    return name;
}

std::string pathKey(const std::string& path)
{
    return sha256Of(path);
}

FolderNames::FolderNames(std::string directory) : place(std::move(directory))
{
    for (const std::string& name : namesIn(place)) {
        const std::string key = recordedKey(fs::path(place) / name);
        if (!key.empty())
            owners[name] = key;
    }
}

// Whose folder it is: the key of a file, "other" for something else, "" for nobody's.
std::string FolderNames::ownerOf(const std::string& name) const
{
    const auto owner = owners.find(name);
    if (owner != owners.end())
        return owner->second;
    if (name == "index.html" || name == "index.json")
        return "other";
    std::error_code error;
    const fs::path path = fs::path(place) / name;
    const bool isFree = !fs::exists(fs::symlink_status(path, error)) ||
                        (fs::is_directory(path, error) && fs::is_empty(path, error));
    return isFree ? "" : "other";
}

std::vector<std::string> FolderNames::forFiles(const std::vector<std::string>& files,
                                               std::vector<std::string>& notes)
{
    std::map<std::string, std::string> former; // folder by key
    for (const auto& [name, key] : owners)
        former.emplace(key, name);
    std::vector<std::string> folders(files.size());
    for (std::size_t i = 0; i < files.size(); ++i) {
        const auto known = former.find(pathKey(files[i]));
        if (known != former.end() && taken.insert(known->second).second)
            folders[i] = known->second;
    }
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string plain = folderName(files[i]);
        for (int number = 2; folders[i].empty(); ++number) {
            const std::string name = number == 2 ? plain : fmt::format("{}-{}", plain, number - 1);
            if (ownerOf(name).empty() && taken.insert(name).second)
                folders[i] = name;
        }
        if (folders[i] != plain)
            notes.push_back(
                fmt::format("the results of {} are in the folder {}, since {} is {}",
                            quote(files[i]), quote(folders[i]), quote(plain),
                            ownerOf(plain) == "other" ? "there already" : "that of another file"));
    }
    return folders;
}

int FolderNames::others() const
{
    int count = 0;
    for (const auto& [name, key] : owners)
        count += taken.count(name) == 0 ? 1 : 0;
    return count;
}

} // namespace host
