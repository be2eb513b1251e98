#include "TestTree.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

const char* const program = VORN_TEST_HOME "/../bin/vorn";

std::string environmentEntry(const std::string& name, const std::string& value)
{
    return name + "=" + value;
}

} // namespace

std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void writeFile(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    if (!file.flush())
        throw std::runtime_error("cannot write " + path);
}

TestTree::TestTree()
{
    fs::create_directories(home() + "/lib");
    fs::create_directories(work());
    for (const char* name : {"host_crashing", "host_filter", "host_locale", "host_noprocess",
                             "host_plain", "host_section", "host_sink", "host_source", "host_split",
                             "host_throw", "tee", "undefined_host"})
        addModule(name);
    // The command needs it for jobs in which an output has several readers.
    fs::copy_file(VORN_TEST_SOURCE_DIR "/../modules/tee/tee.yaml", home() + "/lib/tee.yaml");
    const fs::path manifests = fs::path(VORN_TEST_SOURCE_DIR) / "host/manifests";
    for (const auto& entry : fs::directory_iterator(manifests))
        fs::copy_file(entry.path(), fs::path(home()) / "lib" / entry.path().filename());
    fs::create_symlink(VORN_TEST_HOME "/lib/libhost_plain.so", home() + "/lib/libhost_broken.so");
    writeFile(home() + "/lib/libhost_notalibrary.so", "no library\n");
}

void TestTree::addModule(const std::string& name) const
{
    const std::string library = "lib" + name + ".so";
    fs::create_symlink(VORN_TEST_HOME "/lib/" + library, home() + "/lib/" + library);
}

void TestTree::write(const std::string& name, const std::string& text) const
{
    writeFile(path(name), text);
}

std::string TestTree::read(const std::string& name) const
{
    return readFile(path(name));
}

bool TestTree::exists(const std::string& name) const
{
    return fs::exists(path(name));
}

std::vector<std::string> TestTree::names() const
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(work()))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

pid_t TestTree::start(const std::vector<std::string>& words) const
{
    std::vector<std::string> call = {program};
    call.insert(call.end(), words.begin(), words.end());
    return startProgram(program, std::move(call));
}

ProcessResult TestTree::shell(const std::string& commandLine) const
{
    return finish(startProgram("/bin/sh", {"sh", "-c", commandLine}));
}

pid_t TestTree::startProgram(const char* path, std::vector<std::string> call) const
{
    std::vector<char*> arguments;
    for (std::string& word : call)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    // Nothing of the machine's settings but where programs are.
    std::vector<std::string> settings = {
        environmentEntry("VORN_HOME", home()), environmentEntry("LC_ALL", "C"),
        environmentEntry("TMPDIR", work()), environmentEntry("VORN", program),
        environmentEntry("PATH", std::getenv("PATH") != nullptr ? std::getenv("PATH") : "")};
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS"}) {
        if (const char* value = std::getenv(name))
            settings.push_back(environmentEntry(name, value));
    }
    settings.insert(settings.end(), environment.begin(), environment.end());
    std::vector<char*> variables;
    for (std::string& setting : settings)
        variables.push_back(setting.data());
    variables.push_back(nullptr);

    const std::string output = directory / "output";
    const std::string errors = directory / "errors";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, work().c_str());
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, 2, errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    pid_t process = 0;
    const int error =
        posix_spawn(&process, path, &actions, nullptr, arguments.data(), variables.data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::runtime_error(std::string("cannot start ") + path + ": " + std::strerror(error));
    return process;
}

ProcessResult TestTree::finish(pid_t process) const
{
    int status = 0;
    struct rusage usage = {};
    while (wait4(process, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    ProcessResult result;
    result.peakBytes = usage.ru_maxrss * 1024;
    result.exitCode = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    result.output = readFile(directory / "output");
    result.errors = readFile(directory / "errors");
    return result;
}

ProcessResult TestTree::run(const std::vector<std::string>& words) const
{
    return finish(start(words));
}
