#include "FaultRun.h"

#include "failing.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <iostream>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr unsigned secondsAllowed = 30;
constexpr int exitUncaught = 98;

// The program is linked without the library, which is there only when it is loaded ahead.
template <typename Function>
Function* failing(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_DEFAULT, name));
}

int listed(int count, int most)
{
    return count < most ? count : most;
}

} // namespace

std::ostream& operator<<(std::ostream& stream, const Fault& fault)
{
    stream << fault.function << "/";
    if (fault.kind == VORN_FAULT_SHORT)
        return stream << "short";
    const char* name = strerrorname_np(fault.error);
    return stream << (name != nullptr ? name : "?")
                  << (fault.kind == VORN_FAULT_FROM_NOW ? "/from there on" : "");
}

bool loadFailingCalls(char** argv)
{
    if (dlsym(RTLD_DEFAULT, "vorn_fault_arm") != nullptr)
        return true;
    if (std::getenv("LD_PRELOAD") != nullptr &&
        std::strstr(std::getenv("LD_PRELOAD"), VORN_FAILING_LIBRARY) != nullptr)
        return false; // it was tried
    setenv("LD_PRELOAD", VORN_FAILING_LIBRARY, 1);
    execv("/proc/self/exe", argv);
    return false;
}

std::string ChildResult::messages() const
{
    std::string text;
    for (int i = 0; i < listed(record->messages, FAULT_MOST_MESSAGES); ++i) {
        const fault_message& message = record->message[i];
        text += std::to_string(message.type) + " " + message.module + ": " + message.text + "\n";
    }
    return text;
}

bool ChildResult::isReported(int modules) const
{
    for (int i = 0; i < listed(record->messages, FAULT_MOST_MESSAGES); ++i) {
        if (record->message[i].type >= 2)
            return true;
    }
    return record->exception[0] != '\0' || record->modulesMade < modules || record->phases != 7;
}

int ChildResult::messagesLike(const std::string& part) const
{
    int count = 0;
    for (int i = 0; i < listed(record->messages, FAULT_MOST_MESSAGES); ++i)
        count += std::strstr(record->message[i].text, part.c_str()) != nullptr ? 1 : 0;
    return count;
}

int ChildResult::messagesOfType(int type) const
{
    int count = 0;
    for (int i = 0; i < listed(record->messages, FAULT_MOST_MESSAGES); ++i)
        count += record->message[i].type == type ? 1 : 0;
    return count;
}

FaultRun::FaultRun()
{
    void* room = mmap(nullptr, sizeof(fault_record), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (room == MAP_FAILED)
        throw std::runtime_error("no memory to share with children");
    record = static_cast<fault_record*>(room);
}

FaultRun::~FaultRun()
{
    munmap(record, sizeof *record);
}

ChildResult FaultRun::run(const Job& job, const Fault& fault, long nth)
{
    static const auto arm = failing<decltype(vorn_fault_arm)>("vorn_fault_arm");
    static const auto disarm = failing<decltype(vorn_fault_disarm)>("vorn_fault_disarm");
    if (arm == nullptr)
        throw std::runtime_error("the library of failing calls is not loaded");

    std::memset(record, 0, sizeof *record);
    std::fflush(nullptr); // or the child would write what waits, too
    const pid_t child = fork();
    if (child == 0) {
        alarm(secondsAllowed);
        int code = exitUncaught;
        try {
            code = job(*record, [&] {
                if (arm(fault.function, nth, fault.error, fault.kind, &record->happened) != 0)
                    _exit(exitUncaught);
            });
        } catch (const std::exception& error) {
            disarm();
            std::strncpy(record->complaint, error.what(), FAULT_TEXT - 1);
        }
        record->calls = disarm();
        record->finished = 1;
        std::exit(code); // as programs do: what is left over is cleaned up here
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const bool ended = WIFEXITED(status);
    return {record, ended ? WEXITSTATUS(status) : -1, ended ? 0 : WTERMSIG(status)};
}

bool isLongForm()
{
    const char* text = std::getenv("VORN_TEST_LONG");
    return text != nullptr && *text != '\0' && std::strcmp(text, "0") != 0;
}

FaultSweep::FaultSweep(const Fault& which, long calls, long most)
    : fault(which), total(calls), step(1)
{
    if (const char* text = std::getenv("VORN_FAULT_CALL")) {
        single = true;
        nth = std::atol(text) - 1;
    } else if (!isLongForm() && calls > most) {
        // No common divisor with the small number of calls that a job makes for each trace.
        step = calls / most + 1;
        while (step % 2 == 0 || step % 3 == 0 || step % 5 == 0)
            ++step;
        nth = 1 - step;
    }
}

bool FaultSweep::next()
{
    // A job that meets a fault may make more calls than one that does not.
    if (untouched || (single && tried > 0) || nth > 2 * total + 1000 * step)
        return false;
    nth += step;
    return true;
}

void FaultSweep::note(const ChildResult& result, const std::string& what,
                      const std::string& details)
{
    untouched = result.record->happened == 0;
    tried += untouched ? 0 : 1;
    if (!what.empty() && (++wrong <= 10 || isLongForm()))
        ADD_FAILURE() << fault << ", call " << nth << ": " << what << "\n"
                      << details << "exception: " << result.record->exception
                      << "\ntraces: " << result.record->traces;
}

void FaultSweep::tell(const std::string& job) const
{
    EXPECT_TRUE(untouched || single) << fault << ": the job always comes to another call";
    EXPECT_EQ(wrong, 0) << fault << ": " << wrong << " of " << tried << " are wrong";
    std::cout << "[ TRIED    ] " << job << ": " << fault << ": " << tried << " of " << total
              << " calls\n";
}
