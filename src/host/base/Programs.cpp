#include "base/Programs.h"

#include "base/CommandError.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace host {

namespace {

constexpr int signalBase = 128;

struct CloseFile
{
    void operator()(FILE* file) const noexcept { std::fclose(file); }
};

} // namespace

std::string ownProgram()
{
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        throw CommandError("the program cannot find itself in /proc: " + error.message());
    return program.string();
}

std::vector<std::string> ownWords()
{
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    std::vector<std::string> words;
    std::istringstream rest(bytes.str());
    for (std::string word; std::getline(rest, word, '\0');)
        words.push_back(word);
    return words;
}

void startAgain()
{
    std::vector<std::string> words = ownWords();
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    execv("/proc/self/exe", pointers.data());
    throw CommandError(std::string("the program could not be started again: ") +
                       std::strerror(errno));
}

bool isInstalled(const std::string& name)
{
    const char* path = std::getenv("PATH");
    std::string rest = path != nullptr ? path : "";
    while (!rest.empty()) {
        const auto colon = rest.find(':');
        if (access((rest.substr(0, colon) + "/" + name).c_str(), X_OK) == 0)
            return true;
        rest = colon == std::string::npos ? "" : rest.substr(colon + 1);
    }
    return false;
}

std::string outputOf(const std::string& call)
{
    FILE* const pipe = popen((call + " 2>/dev/null").c_str(), "re");
    if (pipe == nullptr)
        return "";
    std::string text;
    char some[4096];
    for (std::size_t size = 0; (size = std::fread(some, 1, sizeof some, pipe)) > 0;)
        text.append(some, size);
    return pclose(pipe) == 0 ? text : "";
}

// The script is in a file without a name: commands in it may read what follows them as their input,
// which a pipe would let the shell read too far.
int runScript(const std::string& script)
{
    const std::unique_ptr<FILE, CloseFile> file(std::tmpfile());
    if (file == nullptr ||
        std::fwrite(script.data(), 1, script.size(), file.get()) != script.size() ||
        std::fflush(file.get()) != 0)
        throw CommandError(std::string("a temporary file cannot be written: ") +
                               std::strerror(errno),
                           exitTryAgain);
    std::rewind(file.get());
    std::fflush(stdout);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fileno(file.get()), STDIN_FILENO);
    char name[] = "sh";
    char* const words[] = {name, nullptr};
    pid_t process = 0;
    const int error = posix_spawn(&process, "/bin/sh", &actions, nullptr, words, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw CommandError(std::string("the shell cannot be started: ") + std::strerror(error),
                           exitTryAgain);
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? signalBase + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace host
