#include "base/Sanitizers.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Programs.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <glob.h>
#include <iterator>
#include <sys/utsname.h>
#include <vector>

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr const char* mark = "VORN_SANITIZER_LIBS";
constexpr const char* preload = "LD_PRELOAD";

struct Sanitizer
{
    const char* gcc;    // its library, without the version
    const char* clang;  // likewise, without the machine
    const char* symbol; // that code compiled with it uses, and the library defines
    bool mustBeFirst;   // also that of gcc, which the module loads itself
};

// In the order of choice: clang's first two contain the last one.
constexpr std::array sanitizers = {
    Sanitizer{"libasan.so.", "libclang_rt.asan", "__asan_init", true},
    Sanitizer{"libtsan.so.", "libclang_rt.tsan", "__tsan_init", true},
    Sanitizer{"liblsan.so.", "libclang_rt.lsan", "__lsan_enable", true},
    Sanitizer{"libubsan.so.", "libclang_rt.ubsan_standalone", "__ubsan_handle_type_mismatch_v1",
              false},
};

// Names in the tables of a library end with a NUL.
constexpr char ubsanPrefix[] = "__ubsan_handle_";

std::string contentsOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool isInProcess(const Sanitizer& sanitizer)
{
    return dlsym(RTLD_DEFAULT, sanitizer.symbol) != nullptr;
}

// The text from `begin` on up to its NUL, where that begins a name in `bytes`; "" where nothing
// does.
std::string nameIn(const std::string& bytes, const std::string& begin)
{
    const auto at = bytes.find('\0' + begin);
    if (at == std::string::npos)
        return "";
    return bytes.c_str() + at + 1;
}

bool uses(const std::string& bytes, const Sanitizer& sanitizer)
{
    if (!nameIn(bytes, sanitizer.symbol).empty())
        return true;
    return sanitizer.mustBeFirst ? !nameIn(bytes, sanitizer.gcc).empty()
                                 : !nameIn(bytes, ubsanPrefix).empty();
}

std::vector<std::string> matches(const std::string& pattern)
{
    glob_t found = {};
    std::vector<std::string> paths;
    if (glob(pattern.c_str(), 0, nullptr, &found) == 0)
        paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    globfree(&found);
    return paths;
}

// What the compiler calls its library of this name; "" where it has none.
std::string askCompiler(const std::string& compiler, const std::string& name)
{
    std::string path = outputOf(compiler + " -print-file-name=" + shellWord(name));
    while (!path.empty() && path.back() == '\n')
        path.pop_back();
    return path.find('/') != std::string::npos && fs::exists(path) ? path : "";
}

std::string findGccLibrary(const std::string& name)
{
    for (const char* pattern : {"/lib/*-linux-gnu*/", "/usr/lib/*-linux-gnu*/", "/lib64/",
                                "/usr/lib64/", "/usr/local/lib64/", "/usr/lib/"})
    {
        const std::vector<std::string> found = matches(pattern + name);
        if (!found.empty())
            return found.front();
    }
    return askCompiler("gcc", name);
}

// "14" of "clang version 14.0.6", which compilers leave in libraries; "" where it was removed.
std::string clangVersion(const std::string& bytes)
{
    constexpr std::string_view words = "clang version ";
    const auto at = bytes.find(words);
    std::string version;
    for (std::size_t i = at + words.size();
         at != std::string::npos && i < bytes.size() && std::isdigit(bytes[i] & 0x7F) != 0; ++i)
        version += bytes[i];
    return version;
}

SanitizerRuntime clangRuntime(const std::string& bytes, const Sanitizer& sanitizer)
{
    utsname machine = {};
    uname(&machine);
    const std::string version = clangVersion(bytes);
    const std::string base = sanitizer.clang;
    const std::string older = base + "-" + machine.machine + ".so";
    const std::string newer = base + ".so"; // in a directory of its machine
    const std::string any = version.empty() ? "*" : version;
    for (const std::string& place :
         {"/usr/lib/llvm-" + any + "/lib/clang/*/lib/", "/usr/lib/clang/" + any + "*/lib/"})
    {
        for (const std::string& pattern : {place + "linux/" + older, place + "*/" + newer}) {
            const std::vector<std::string> found = matches(pattern);
            if (!found.empty())
                return {fs::path(found.back()).filename().string(), found.back()};
        }
    }
    for (const std::string& name : {older, newer}) {
        const std::string path = askCompiler("clang", name);
        if (!path.empty())
            return {name, path};
    }
    return {older, ""};
}

// As the process was started, as words of a shell.
std::string ownCommandLine()
{
    std::string line;
    for (const std::string& word : ownWords())
        line += (line.empty() ? "" : " ") + shellWord(word);
    return line;
}

} // namespace

std::optional<SanitizerRuntime> neededRuntime(const std::string& path)
{
    const std::string bytes = contentsOf(path);
    for (const Sanitizer& sanitizer : sanitizers) {
        if (!uses(bytes, sanitizer))
            continue;
        if (isInProcess(sanitizer))
            return std::nullopt; // what else it uses is part of that, or comes with the module
        const std::string name = nameIn(bytes, sanitizer.gcc);
        if (name.empty())
            return clangRuntime(bytes, sanitizer);
        if (sanitizer.mustBeFirst)
            return SanitizerRuntime{name, findGccLibrary(name)};
    }
    return std::nullopt;
}

bool hasSanitizerRuntime()
{
    return std::any_of(sanitizers.begin(), sanitizers.end(), isInProcess);
}

std::string describeNeed(const SanitizerRuntime& runtime)
{
    if (runtime.path.empty())
        return fmt::format("needs {}, the run-time library of a sanitizer, which was not found; "
                           "install it, or compile the module without -fsanitize",
                           runtime.name);
    return fmt::format("needs {}, the run-time library of a sanitizer, in front of all others; run "
                       "LD_PRELOAD={} {}",
                       runtime.name, shellWord(runtime.path), ownCommandLine());
}

void restartWith(const SanitizerRuntime& runtime)
{
    if (runtime.path.empty() || std::getenv(mark) != nullptr)
        return;
    const char* former = std::getenv(preload);
    const std::string all =
        former == nullptr || *former == 0 ? runtime.path : runtime.path + ":" + former;
    setenv(preload, all.c_str(), 1);
    setenv(mark, "1", 1);
    startAgain();
}

bool hasSanitizerReport(std::string_view text)
{
    return !firstSanitizerReport(text).empty();
}

std::string firstSanitizerReport(std::string_view text)
{
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        // "==7==ERROR: AddressSanitizer: heap-buffer-overflow ..." and "gain.c:7:3: runtime error:
        // ..."
        const bool isReport = line.find("Sanitizer: ") != std::string_view::npos ||
                              line.find(": runtime error: ") != std::string_view::npos;
        if (isReport)
            return std::string(line);
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    return "";
}

} // namespace host
