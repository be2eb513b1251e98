/// @file Interrupt.h
///
/// Ends of a job that the user has decided: Ctrl-C, other signals that end programs, a time limit.
#ifndef INTERRUPT_H
#define INTERRUPT_H

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <optional>
#include <thread>

namespace host {

/// As long as it lives, SIGINT, SIGTERM and SIGHUP do not end the process at once: a thread of its
/// own waits for them, calls `clean` with the signal's number, and ends the process with 128 and
/// that number (130 for Ctrl-C), whatever the other threads are doing. When `deadline` passes, it
/// calls `clean` with 0 and ends the process with exit code 1. A second signal ends it at once.
/// Signals that are ignored stay so.
///
/// The signals are handled on whichever thread they arrive, so that a module that sends one to
/// itself is ended as well, and are not blocked in processes that modules start.
class InterruptWatch
{
public:
    using Clock = std::chrono::steady_clock;

    explicit InterruptWatch(std::function<void(int signal)> clean,
                            std::optional<Clock::time_point> deadline = std::nullopt);
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

private:
    void run();

    std::function<void(int)> clean;
    std::optional<Clock::time_point> deadline;
    std::thread thread;
};

} // namespace host

#endif
