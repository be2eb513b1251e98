#include "job/LibraryProbe.h"

#include "base/Sanitizers.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <optional>
#include <poll.h>
#include <span>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host {

namespace {

constexpr int secondsToLoad = 20;

std::optional<SanitizerRuntime> firstNeeded;

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

// The child process. What libraries print while they are loaded is not shown, but for the reports
// of sanitizers, which go to standard error: `errors` keeps that. A NUL ends each result: where one
// is missing, the child ended early.
[[noreturn]] void runChild(int result, int errors, std::span<const std::string> paths)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL})
        std::signal(signal, SIG_DFL);
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    dup2(nothing, STDOUT_FILENO);
    dup2(errors >= 0 ? errors : nothing, STDERR_FILENO);
    for (const std::string& path : paths)
        writeAll(result, loadAndLook(path) + '\0');
    _exit(0);
}

// What a child has found out, and how it ended.
struct Outcome
{
    std::vector<std::string> results; // of the first libraries
    bool inTime = true;
    int status = 0; // as waitpid() gives it
};

// Takes the results from `text` that are whole.
void takeResults(std::string& text, std::vector<std::string>& results)
{
    std::size_t end = 0;
    while ((end = text.find('\0')) != std::string::npos) {
        results.push_back(text.substr(0, end));
        text.erase(0, end + 1);
    }
}

// Reads what the child writes until it ends; false when a library takes too long.
bool readResults(int descriptor, std::vector<std::string>& results)
{
    pollfd waiting{descriptor, POLLIN, 0};
    std::string text;
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
        takeResults(text, results);
    }
}

// A file without a name that keeps what the child prints.
class KeptErrors
{
public:
    KeptErrors() : file(memfd_create("vorn errors", MFD_CLOEXEC)) {}
    ~KeptErrors()
    {
        if (file >= 0)
            close(file);
    }
    KeptErrors(const KeptErrors&) = delete;
    KeptErrors& operator=(const KeptErrors&) = delete;

    int descriptor() const { return file; }

    // Passes them on where they contain the report of a sanitizer.
    void showReports() const
    {
        constexpr std::size_t most = 1 << 20;
        std::string text;
        char buffer[4096];
        ssize_t count = 0;
        while (text.size() < most &&
               (count = pread(file, buffer, sizeof buffer, static_cast<off_t>(text.size()))) > 0)
            text.append(buffer, static_cast<std::size_t>(count));
        if (hasSanitizerReport(text))
            writeAll(STDERR_FILENO, text);
    }

private:
    int file;
};

// Loads the libraries in one child; nothing where there can be none, for the reason in errno.
std::optional<Outcome> tryTogether(std::span<const std::string> paths)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return std::nullopt;
    const KeptErrors errors;
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        runChild(ends[1], errors.descriptor(), paths);
    }
    const int reason = errno;
    close(ends[1]);
    if (child < 0) {
        close(ends[0]);
        errno = reason;
        return std::nullopt;
    }
    Outcome outcome;
    outcome.inTime = readResults(ends[0], outcome.results);
    close(ends[0]);
    if (!outcome.inTime)
        kill(child, SIGKILL);
    while (waitpid(child, &outcome.status, 0) < 0 && errno == EINTR) {
    }
    errors.showReports();
    return outcome;
}

// What is wrong with the library at which the child ended.
std::string judgeEnd(const Outcome& outcome)
{
    if (!outcome.inTime)
        return fmt::format("does not finish loading within {} s", secondsToLoad);
    if (WIFSIGNALED(outcome.status))
        return fmt::format("ends the process that loads it ({})",
                           strsignal(WTERMSIG(outcome.status)));
    return "ends the process that loads it";
}

} // namespace

std::vector<std::string> probeLibraries(const std::vector<std::string>& paths)
{
    std::vector<std::string> problems;
    problems.reserve(paths.size());
    std::size_t most = paths.size(); // for one child
    while (problems.size() < paths.size()) {
        const std::size_t count = std::min(most, paths.size() - problems.size());
        const std::optional<Outcome> outcome =
            tryTogether(std::span(paths).subspan(problems.size(), count));
        if (!outcome) {
            problems.resize(paths.size(),
                            std::string("cannot be checked: ") + std::strerror(errno));
            break;
        }
        problems.insert(problems.end(), outcome->results.begin(), outcome->results.end());
        const bool ended = outcome->results.size() < count;
        if (ended && (count == 1 || !outcome->inTime))
            problems.push_back(judgeEnd(*outcome)); // a second wait would end in the same way
        most = ended && count > 1 && outcome->inTime ? 1 : paths.size();
    }
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const std::optional<SanitizerRuntime> runtime =
            problems[i].empty() ? std::nullopt : neededRuntime(paths[i]);
        if (runtime && !firstNeeded)
            firstNeeded = runtime;
        if (runtime)
            problems[i] = describeNeed(*runtime);
    }
    return problems;
}

const std::optional<SanitizerRuntime>& runtimeForProbed()
{
    return firstNeeded;
}

std::string probeLibrary(const std::string& path)
{
    return probeLibraries({path}).front();
}

} // namespace host
