// The program is started and fed with the calls of the system, not with QProcess. With Qt 6.4 one
// of the allocations that QProcess makes ends the whole command when there is no memory for it
// (SurvivesEveryFailureOfTheHeap/reports found a crash); here a missing picture is all that
// happens.
#include "draw/DotProgram.h"

#include "base/CommandError.h"
#include "base/Numbers.h"
#include "base/Programs.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host {

namespace {

class Descriptor
{
public:
    explicit Descriptor(int number = -1) : descriptor(number) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return descriptor; }
    void reset(int number = -1)
    {
        if (descriptor >= 0)
            close(descriptor);
        descriptor = number;
    }

private:
    int descriptor;
};

void openPipe(Descriptor& readEnd, Descriptor& writeEnd)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw CommandError(std::string("cannot make a pipe: ") + std::strerror(errno));
    readEnd.reset(ends[0]);
    writeEnd.reset(ends[1]);
}

// Starts dot with its standard input and output at the descriptors given. Signals that the command
// blocks or ignores for itself are neither blocked nor ignored there.
int startDot(const std::string& format, int input, int output, pid_t& child)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t pipeSignal;
    sigemptyset(&none);
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &pipeSignal);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    const std::string option = "-T" + format;
    const std::array<const char*, 3> words = {"dot", option.c_str(), nullptr};
    const int error = posix_spawnp(&child, "dot", &actions, &attributes,
                                   const_cast<char* const*>(words.data()), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

using Clock = std::chrono::steady_clock;

// Milliseconds until `deadline`, as poll takes them; 0 when it has passed.
int remaining(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, std::numeric_limits<int>::max()));
}

// Writes `text` to dot and reads the picture, whichever can go on: it may answer before it has read
// everything. False when the deadline passed.
bool pipeThrough(Descriptor& input, Descriptor& output, const std::string& text,
                 Clock::time_point deadline, std::string& picture)
{
    std::size_t sent = 0;
    fcntl(input.get(), F_SETFL, O_NONBLOCK);
    std::array<char, 65536> buffer;
    while (true) {
        std::array<pollfd, 2> waiting = {
            {{output.get(), POLLIN, 0}, {input.get(), POLLOUT, 0}}}; // poll skips -1
        const int ready = poll(waiting.data(), waiting.size(), remaining(deadline));
        if (ready == 0)
            return false;
        if (ready < 0) {
            if (errno != EINTR)
                return true;
            continue; // nothing is known of the descriptors
        }
        if (waiting[1].revents != 0) {
            const ssize_t count = write(input.get(), text.data() + sent, text.size() - sent);
            sent += count > 0 ? static_cast<std::size_t>(count) : 0;
            if ((count < 0 && errno != EAGAIN) || sent == text.size())
                input.reset();
        }
        if (waiting[0].revents != 0) {
            const ssize_t count = read(output.get(), buffer.data(), buffer.size());
            if (count <= 0)
                return true;
            picture.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }
}

// A child process. One that nobody has waited for is killed when this goes away.
class Child
{
public:
    explicit Child(pid_t process) : id(process) {}
    ~Child()
    {
        if (id > 0) {
            kill(id, SIGKILL);
            wait();
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Whether the process ended before `deadline`; `status` is what waitpid gives.
    bool endsBefore(Clock::time_point deadline, int& status)
    {
        constexpr timespec pause = {0, 2000000};
        while (waitpid(id, &status, WNOHANG) == 0) {
            if (remaining(deadline) == 0)
                return false;
            nanosleep(&pause, nullptr);
        }
        id = 0;
        return true;
    }

private:
    void wait()
    {
        while (waitpid(id, nullptr, 0) < 0 && errno == EINTR) {
        }
        id = 0;
    }

    pid_t id;
};

// Writing to a dot that has ended must not end the command.
class IgnorePipeSignal
{
public:
    IgnorePipeSignal() : former(std::signal(SIGPIPE, SIG_IGN)) {}
    ~IgnorePipeSignal() { std::signal(SIGPIPE, former); }
    IgnorePipeSignal(const IgnorePipeSignal&) = delete;
    IgnorePipeSignal& operator=(const IgnorePipeSignal&) = delete;

private:
    void (*former)(int);
};

} // namespace

bool isDotInstalled()
{
    return isInstalled("dot");
}

std::string drawDot(const std::string& dot, const std::string& format,
                    std::chrono::milliseconds limit)
{
    Descriptor childInput;
    Descriptor input;
    Descriptor output;
    Descriptor childOutput;
    openPipe(childInput, input);
    openPipe(output, childOutput);
    const IgnorePipeSignal ignored;
    pid_t id = 0;
    const int error = startDot(format, childInput.get(), childOutput.get(), id);
    if (error == ENOENT)
        throw CommandError("the program \"dot\" is needed to draw the graph; install graphviz, or "
                           "write the graph with -o FILE.dot");
    if (error != 0)
        throw CommandError(std::string("the program \"dot\" cannot be started: ") +
                           std::strerror(error));
    Child child(id);
    childInput.reset();
    childOutput.reset();
    std::string picture;
    const Clock::time_point deadline = Clock::now() + limit;
    const bool isComplete = pipeThrough(input, output, dot, deadline, picture);
    input.reset();
    output.reset();
    int status = 0;
    if (!isComplete || !child.endsBefore(deadline, status))
        throw CommandError("the program \"dot\" did not draw the graph within " +
                           formatFixed(static_cast<double>(limit.count()) / 1000, 1) + " s");
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || picture.empty())
        throw CommandError("the program \"dot\" could not draw the graph as " + format);
    return picture;
}

} // namespace host
