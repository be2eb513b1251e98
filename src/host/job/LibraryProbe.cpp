#include "job/LibraryProbe.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host {

namespace {

constexpr int secondsToLoad = 20;

void writeAll(int descriptor, const std::string& text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(descriptor, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        done += static_cast<std::size_t>(written);
    }
}

std::string loadAndLook(const std::string& path)
{
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* text = dlerror();
        std::string reason = text != nullptr ? text : "no reason given";
        if (reason.starts_with(path + ": "))
            reason.erase(0, path.size() + 2); // the caller names the library
        return "cannot be loaded: " + reason;
    }
    std::string missing;
    for (const char* name : {"preprocess_", "process_", "postprocess_"}) {
        if (dlsym(handle, name) == nullptr)
            missing += (missing.empty() ? "" : ", ") + std::string(name);
    }
    if (missing.empty())
        return "";
    const bool one = missing.find(',') == std::string::npos;
    return std::string("lacks the entry point") + (one ? " " : "s ") + missing;
}

// The child process. What libraries print while they are loaded is not shown.
[[noreturn]] void runChild(int result, const std::string& path)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL})
        std::signal(signal, SIG_DFL);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int descriptor : {0, 1, 2})
        dup2(nothing, descriptor);
    writeAll(result, loadAndLook(path) + "\n"); // without the line feed, the child ended early
    _exit(0);
}

// Reads what the child writes until it ends; false when it takes too long.
bool readResult(int descriptor, std::string& text)
{
    pollfd waiting{descriptor, POLLIN, 0};
    char buffer[4096];
    while (true) {
        const int ready = poll(&waiting, 1, secondsToLoad * 1000);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return false;
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return true;
        text.append(buffer, static_cast<std::size_t>(count));
    }
}

std::string judge(bool inTime, const std::string& result, int status)
{
    if (!inTime)
        return fmt::format("does not finish loading within {} s", secondsToLoad);
    if (!result.empty() && result.back() == '\n')
        return result.substr(0, result.size() - 1);
    if (WIFSIGNALED(status))
        return fmt::format("ends the process that loads it ({})", strsignal(WTERMSIG(status)));
    return "ends the process that loads it";
}

} // namespace

std::string probeLibrary(const std::string& path)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return std::string("cannot be checked: ") + std::strerror(errno);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        runChild(ends[1], path);
    }
    close(ends[1]);
    if (child < 0) {
        close(ends[0]);
        return std::string("cannot be checked: ") + std::strerror(errno);
    }
    std::string result;
    const bool inTime = readResult(ends[0], result);
    close(ends[0]);
    if (!inTime)
        kill(child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return judge(inTime, result, status);
}

} // namespace host
