#include "each/ChildProcesses.h"

#include "base/CommandError.h"
#include "base/Escaping.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host {

namespace {

constexpr int signalBase = 128; // what shells add to the number of a signal
constexpr std::chrono::seconds patience(10);

// In the new process, before the program: nothing but system calls, since other threads of the
// parent may have held any lock.
[[noreturn]] void becomeProgram(const char* program, char* const* words, int output, pid_t parent,
                                const sigset_t& mask)
{
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(1);
    // Handlers of the parent must not run here; what is ignored stays so, as under nohup.
    for (int signal = 1; signal < NSIG; ++signal) {
        struct sigaction action = {};
        if (sigaction(signal, nullptr, &action) != 0)
            continue;
        const bool ignored = (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
        if (!ignored || signal == SIGPIPE) {
            struct sigaction standard = {};
            standard.sa_handler = SIG_DFL;
            sigaction(signal, &standard, nullptr);
        }
    }
    const int input = open("/dev/null", O_RDONLY);
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    if (input > STDERR_FILENO)
        close(input);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    execv(program, words);
    constexpr char text[] = "vorn: the program could not be started again\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, sizeof text - 1);
    _exit(127);
}

// As long as it lives, no signal is delivered to this thread.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &former);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &former, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

    const sigset_t& mask() const { return former; } ///< of before

private:
    sigset_t former = {};
};

// Above the standard descriptors, which the new process replaces one after the other.
int openOutput(const std::string& path)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0)
        throw CommandError("the file " + quote(path) +
                           " cannot be written: " + std::strerror(errno));
    const int high = fcntl(file, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(file);
    if (high < 0)
        throw CommandError("the file " + quote(path) +
                           " cannot be written: " + std::strerror(errno));
    return high;
}

} // namespace

ChildProcesses::~ChildProcesses()
{
    stop(SIGTERM);
    while (waitForOne()) {
    }
}

pid_t ChildProcesses::start(const std::string& program, const std::vector<std::string>& words,
                            const std::string& output)
{
    std::vector<std::string> copies = words;
    std::vector<char*> pointers;
    pointers.reserve(copies.size() + 1);
    for (std::string& word : copies)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);

    const std::lock_guard<std::mutex> lock(mutex); // a process is known to `stop`, or never made
    if (stopped)
        return 0;
    const int descriptor = openOutput(output);
    const pid_t parent = getpid();
    pid_t process = 0;
    int error = 0;
    {
        const SignalsBlocked blocked;
        process = fork();
        error = errno;
        if (process == 0)
            becomeProgram(program.c_str(), pointers.data(), descriptor, parent, blocked.mask());
    }
    close(descriptor);
    if (process < 0)
        throw CommandError(std::string("a process cannot be started: ") + std::strerror(error));
    setpgid(process, process); // here too, so that the group is there for the first signal
    running.insert(process);
    return process;
}

std::optional<ProcessOutcome> ChildProcesses::waitForOne()
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (running.empty())
            return std::nullopt;
    }
    while (true) {
        // The process stays, as a zombie, until nobody can send it a signal any more.
        siginfo_t info = {};
        if (waitid(P_ALL, 0, &info, WEXITED | WNOWAIT) != 0) {
            if (errno == EINTR)
                continue;
            return std::nullopt;
        }
        const std::lock_guard<std::mutex> lock(mutex);
        int status = 0;
        struct rusage usage = {};
        wait4(info.si_pid, &status, 0, &usage);
        if (running.erase(info.si_pid) == 0)
            continue; // of somebody else
        allEnded.notify_all();
        ProcessOutcome outcome;
        outcome.process = info.si_pid;
        outcome.exitCode =
            WIFSIGNALED(status) ? signalBase + WTERMSIG(status) : WEXITSTATUS(status);
        outcome.peakBytes = static_cast<int64_t>(usage.ru_maxrss) * 1024;
        return outcome;
    }
}

void ChildProcesses::stop(int signal)
{
    std::unique_lock<std::mutex> lock(mutex);
    const bool again = stopped;
    stopped = true;
    if (again || running.empty())
        return;
    signalAll(signal);
    if (!allEnded.wait_for(lock, patience, [&] { return running.empty(); }))
        signalAll(SIGKILL);
}

bool ChildProcesses::isStopped() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return stopped;
}

// With the processes that modules have started.
void ChildProcesses::signalAll(int signal) const
{
    for (const pid_t process : running)
        kill(-process, signal);
}

} // namespace host
