#include "job/ModuleCatalog.h"

#include "base/CommandError.h"
#include "base/DirectoryNames.h"
#include "base/Escaping.h"
#include "base/Text.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <map>

#ifndef VORN_INSTALL_HOME
#define VORN_INSTALL_HOME "lib/vorn"
#endif

namespace host {

namespace fs = std::filesystem;

std::string findVornHome(const std::vector<std::string>& places)
{
    if (const char* home = std::getenv("VORN_HOME"); home != nullptr && *home != '\0') {
        if (!fs::is_directory(fs::path(home) / "lib"))
            throw CommandError("VORN_HOME is " + quote(home) +
                               ", which has no directory lib; set it to a module tree");
        return fs::absolute(home).lexically_normal().string();
    }
    std::error_code error;
    std::vector<fs::path> homes(places.begin(), places.end());
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    if (!error) {
        for (const char* place : {VORN_INSTALL_HOME, "vorn_home"})
            homes.push_back(program.parent_path().parent_path() / place);
    }
    for (const fs::path& home : homes) {
        if (fs::is_directory(home / "lib", error))
            return home.lexically_normal().string();
    }
    throw CommandError("there is no module tree beside the program; set VORN_HOME to one");
}

namespace {

// The library, or the manifest where there is no library.
const std::string& fileOf(const CatalogModule& module)
{
    return module.library.empty() ? module.manifest : module.library;
}

} // namespace

std::string ambiguity(const CatalogModule& module)
{
    if (module.hidden.empty())
        return "";
    return fmt::format("module {} is in more than one directory: {} is used, and not {}; give one "
                       "of them another name",
                       quote(module.name), escaped(fileOf(module)),
                       escaped(joined(module.hidden, " or ")));
}

ModuleCatalog::ModuleCatalog(const std::string& home, const std::vector<std::string>& directories)
    : homeDirectory(home)
{
    scan(libraryDirectory());
    for (const std::string& directory : directories)
        scan(directory);
    std::sort(all.begin(), all.end(),
              [](const CatalogModule& a, const CatalogModule& b) { return a.name < b.name; });
}

void ModuleCatalog::scan(const std::string& directory)
{
    std::map<std::string, CatalogModule> found;
    const std::string folder = (fs::absolute(directory) / "").string();
    for (const std::string& file : namesIn(directory)) {
        if (file.size() > 6 && file.starts_with("lib") && file.ends_with(".so"))
            found[file.substr(3, file.size() - 6)].library = folder + file;
        else if (file.size() > 5 && file.ends_with(".yaml"))
            found[file.substr(0, file.size() - 5)].manifest = folder + file;
    }
    for (auto& one : found) {
        CatalogModule& module = one.second;
        module.name = one.first;
        const auto first = std::find_if(all.begin(), all.end(), [&](const CatalogModule& other) {
            return other.name == module.name;
        });
        std::error_code error;
        if (first == all.end())
            all.push_back(module);
        else if (!fs::equivalent(fileOf(*first), fileOf(module), error)) // a directory given twice
            first->hidden.push_back(fileOf(module));
    }
}

const CatalogModule* ModuleCatalog::find(const std::string& name) const
{
    for (const CatalogModule& module : all) {
        if (module.name == name)
            return &module;
    }
    return nullptr;
}

std::vector<std::string> ModuleCatalog::names() const
{
    std::vector<std::string> names;
    for (const CatalogModule& module : all)
        names.push_back(module.name);
    return names;
}

std::string ModuleCatalog::relativeLibrary(const CatalogModule& module) const
{
    const fs::path library = fs::path(module.library);
    // As a rule the library lies there itself, and nothing needs to be looked up.
    std::error_code error;
    if (library.parent_path() == libraryDirectory() && !fs::is_symlink(library, error))
        return library.filename().string();
    // Both with symbolic links resolved, since ".." after a link leads elsewhere.
    return fs::relative(fs::canonical(library.parent_path()) / library.filename(),
                        fs::canonical(libraryDirectory()))
        .string();
}

} // namespace host
