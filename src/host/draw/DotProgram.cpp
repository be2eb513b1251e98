#include "draw/DotProgram.h"

#include "base/CommandError.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
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
        throw CommandError(std::string("no pipe can be made: ") + std::strerror(errno));
    readEnd.reset(ends[0]);
    writeEnd.reset(ends[1]);
}

// Starts dot with its standard input and output at the descriptors given. Our own blocked and
// ignored signals are not its.
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

// Feeds and reads dot by turns: it may answer before it has read everything.
std::string converse(Descriptor& input, Descriptor& output, const std::string& text)
{
    std::string answer;
    std::size_t sent = 0;
    fcntl(input.get(), F_SETFL, O_NONBLOCK);
    std::array<char, 65536> buffer;
    while (true) {
        std::array<pollfd, 2> waiting = {
            {{output.get(), POLLIN, 0},
             {input.get(), POLLOUT, 0}}}; // a descriptor of -1 is passed over
        if (poll(waiting.data(), waiting.size(), -1) < 0 && errno != EINTR)
            return answer;
        if (waiting[1].revents != 0) {
            const ssize_t count = write(input.get(), text.data() + sent, text.size() - sent);
            sent += count > 0 ? static_cast<std::size_t>(count) : 0;
            if ((count < 0 && errno != EAGAIN) || sent == text.size())
                input.reset();
        }
        if (waiting[0].revents != 0) {
            const ssize_t count = read(output.get(), buffer.data(), buffer.size());
            if (count <= 0)
                return answer;
            answer.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }
}

// Writing to a dot that has ended must not end us.
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
    const char* path = std::getenv("PATH");
    std::string rest = path != nullptr ? path : "";
    while (!rest.empty()) {
        const auto colon = rest.find(':');
        if (access((rest.substr(0, colon) + "/dot").c_str(), X_OK) == 0)
            return true;
        rest = colon == std::string::npos ? "" : rest.substr(colon + 1);
    }
    return false;
}

std::string drawDot(const std::string& dot, const std::string& format)
{
    Descriptor childInput;
    Descriptor input;
    Descriptor output;
    Descriptor childOutput;
    openPipe(childInput, input);
    openPipe(output, childOutput);
    const IgnorePipeSignal ignored;
    pid_t child = 0;
    const int error = startDot(format, childInput.get(), childOutput.get(), child);
    if (error == ENOENT)
        throw CommandError("the program \"dot\" is needed to draw the graph; install graphviz, or "
                           "write the graph with -o FILE.dot");
    if (error != 0)
        throw CommandError(std::string("the program \"dot\" cannot be started: ") +
                           std::strerror(error));
    childInput.reset();
    childOutput.reset();
    std::string picture = converse(input, output, dot);
    input.reset();
    output.reset();
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || picture.empty())
        throw CommandError("the program \"dot\" could not draw the graph as " + format);
    return picture;
}

} // namespace host
