#include "kit/NewModule.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "job/ModuleCatalog.h"
#include "kit/ModuleTemplates.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <utility>

namespace host {

namespace {

namespace fs = std::filesystem;

// Names are those of files, of identifiers in three languages, and of modules of Fortran with
// "_parameters" behind them, which may have 63 characters.
constexpr std::size_t longestName = 40;

struct Language
{
    const char* name;
    const char* inManifest;
    const char* inCMake;
    const char* ending;
};
constexpr Language languages[] = {{"c", "c", "C", ".c"},
                                  {"c++", "c++", "CXX", ".cpp"},
                                  {"fortran", "fortran", "Fortran", ".f90"},
                                  {"fortran77", "fortran", "Fortran", ".f"}};

// What the test of each kind gives to vorn_add_module_test.
constexpr std::pair<const char*, const char*> testsOfKinds[] = {
    {"filter", "--in tests/input.su --set factor=3 --expect tests/expected.su"},
    {"source", "--expect tests/expected.su"},
    {"sink", "--in tests/input.su --message \"6 traces, largest sample\""},
    {"gather", "--in tests/input.su --expect tests/expected.su"},
    {"two-inputs", "--in tests/input.su --in tests/input.su --set scale=0.5\n        --expect "
                   "tests/expected.su"}};

void replaceAll(std::string& text, const std::string& what, const std::string& by)
{
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
}

std::string purposeIn(const std::string& manifest)
{
    const std::string key = "purpose: ";
    const std::size_t from = manifest.find(key) + key.size();
    return manifest.substr(from, manifest.find('\n', from) - from);
}

std::string contents(const std::string& path)
{
    return std::string(moduleTemplates().at(path));
}

// Files by their names in the new folder.
std::map<std::string, std::string> filesOf(const NewModule& module, const Language& language)
{
    const std::string source = module.name + language.ending;
    const std::string manifest = contents("kinds/" + module.kind + ".yaml");
    std::map<std::string, std::string> files = {
        {source, contents(module.language + "/" + module.kind + language.ending)},
        {module.name + ".yaml", manifest},
        {"CMakeLists.txt", contents("kinds/CMakeLists.txt")},
        {"README.md", contents("kinds/README.txt")},
        {"job.yaml", contents("kinds/" + module.kind + ".job.yaml")}};
    const auto test = std::find_if(std::begin(testsOfKinds), std::end(testsOfKinds),
                                   [&](const auto& one) { return module.kind == one.first; });
    for (auto& [name, text] : files) {
        replaceAll(text, "MY_PURPOSE", purposeIn(manifest));
        replaceAll(text, "MY_SOURCE", source);
        replaceAll(text, "MY_TEST", test->second);
        replaceAll(text, "MY_CMAKE_LANGUAGE", language.inCMake);
        replaceAll(text, "MY_LANGUAGE", language.inManifest);
        replaceAll(text, "my_module", module.name);
    }
    if (module.kind != "source")
        files["tests/input.su"] = contents("kinds/input.su");
    if (module.kind != "sink")
        files["tests/expected.su"] = contents("kinds/" + module.kind + ".su");
    return files;
}

void write(const fs::path& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    file.close();
    if (!file)
        throw CommandError("the file " + quote(path.string()) + " cannot be written");
}

} // namespace

void checkModuleName(const std::string& name)
{
    const auto isAllowed = [](char one) {
        return (one >= 'a' && one <= 'z') || (one >= '0' && one <= '9') || one == '_';
    };
    if (name.empty() || name.size() > longestName || name[0] < 'a' || name[0] > 'z' ||
        !std::all_of(name.begin(), name.end(), isAllowed))
        throw CommandError(fmt::format("{} cannot be the name of a module: it is to begin with a "
                                       "small letter, to consist of small letters, digits and "
                                       "\"_\", and to have at most {} characters",
                                       quote(name), longestName));
    const ModuleCatalog catalog(findVornHome());
    if (catalog.find(name) != nullptr)
        throw CommandError("there is a module " + quote(name) + " in " +
                           quote(catalog.libraryDirectory()) +
                           ", which the new one would replace when it is installed; choose another "
                           "name");
}

std::vector<std::string> makeModule(const NewModule& module)
{
    const auto* language =
        std::find_if(std::begin(languages), std::end(languages),
                     [&](const Language& one) { return module.language == one.name; });
    const std::string source = module.language + "/" + module.kind;
    if (language == std::end(languages) || moduleTemplates().count(source + language->ending) == 0)
        throw CommandError("there is no template for a module of the kind " + quote(module.kind) +
                           " in " + module.language);
    const fs::path directory = module.directory;
    std::error_code error;
    if (fs::exists(fs::symlink_status(directory, error)))
        throw CommandError("the directory " + quote(module.directory) +
                           " exists; a new module needs a new one");
    // Made beside it, and named at the end: an interrupted command leaves no half of a module.
    const fs::path hidden =
        directory.parent_path() / ("." + directory.filename().string() + ".new");
    std::vector<std::string> names;
    try {
        fs::remove_all(hidden, error);
        fs::create_directories(hidden / "tests");
        for (const auto& [name, bytes] : filesOf(module, *language)) {
            write(hidden / name, bytes);
            names.push_back(name);
        }
        fs::remove(hidden / "tests", error); // where it is empty
        fs::rename(hidden, directory);
    } catch (const fs::filesystem_error& failure) {
        fs::remove_all(hidden, error);
        throw CommandError("the directory " + quote(module.directory) +
                           " cannot be made: " + failure.code().message());
    } catch (const CommandError&) {
        fs::remove_all(hidden, error);
        throw;
    }
    return names;
}

} // namespace host
