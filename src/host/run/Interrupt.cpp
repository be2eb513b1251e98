#include "run/Interrupt.h"

#include "base/CommandError.h"
#include "run/ProcessEnd.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <unistd.h>

namespace host {

namespace {

constexpr int signalBase = 128; // what shells add to the number of a signal
constexpr std::array interruptSignals = {SIGINT, SIGTERM, SIGHUP};

// What the handler reads. There is one watch at a time.
std::atomic<int> arrived{0};         // the first signal
std::atomic<int> wakeDescriptor{-1}; // on which the thread waits
std::array<struct sigaction, interruptSignals.size()> formerActions;

void wake(int descriptor)
{
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(descriptor, &one, sizeof one);
}

void onInterrupt(int signal)
{
    const int error = errno;
    for (const int one : interruptSignals)
        std::signal(one, SIG_DFL); // a second one ends the process at once
    arrived = signal;
    wake(wakeDescriptor);
    errno = error;
}

// Milliseconds for poll().
int millisUntil(InterruptWatch::Clock::time_point deadline)
{
    using std::chrono::milliseconds;
    const auto left =
        std::chrono::ceil<milliseconds>(deadline - InterruptWatch::Clock::now()).count();
    constexpr decltype(left) most = 1000000; // poll() takes an int
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, most));
}

} // namespace

InterruptWatch::InterruptWatch(std::function<void(int)> action,
                               std::optional<Clock::time_point> limit)
    : clean(std::move(action)), deadline(limit)
{
    arrived = 0;
    wakeDescriptor = eventfd(0, EFD_CLOEXEC);
    if (wakeDescriptor < 0)
        throw CommandError(std::string("signals cannot be waited for: ") + std::strerror(errno));
    thread = std::thread([this] { run(); });
    for (std::size_t i = 0; i < interruptSignals.size(); ++i) {
        struct sigaction handling = {};
        handling.sa_handler = onInterrupt;
        handling.sa_flags = SA_RESTART;
        sigaction(interruptSignals[i], nullptr, &formerActions[i]);
        const bool ignored =
            (formerActions[i].sa_flags & SA_SIGINFO) == 0 && formerActions[i].sa_handler == SIG_IGN;
        if (!ignored)
            sigaction(interruptSignals[i], &handling, nullptr);
    }
}

InterruptWatch::~InterruptWatch()
{
    for (std::size_t i = 0; i < interruptSignals.size(); ++i)
        sigaction(interruptSignals[i], &formerActions[i], nullptr);
    wake(wakeDescriptor);
    thread.join();
    close(wakeDescriptor);
}

void InterruptWatch::run()
{
    pollfd waiting{wakeDescriptor, POLLIN, 0};
    while (true) {
        const int ready = poll(&waiting, 1, deadline ? millisUntil(*deadline) : -1);
        if (ready > 0)
            break;
        if (ready == 0 && Clock::now() >= *deadline) {
            claimEnd();
            clean(0);
            endProcess(exitJobErrors);
        }
    }
    const int signal = arrived;
    if (signal == 0) // woken by the destructor
        return;
    claimEnd();
    clean(signal);
    endProcess(signalBase + signal);
}

} // namespace host
