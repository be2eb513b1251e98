#include "run/Interrupt.h"

#include "JobManager.h"
#include "ModuleEntity.h"
#include "file/UnfinishedOutputs.h"
#include "run/ScratchSpace.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace host {

namespace {

constexpr int signalBase = 128; // what shells add to the number of a signal

sigset_t interruptSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&set, signal);
    return set;
}

constexpr std::array crashSignals = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

// What the handler needs, where it may read it.
const ScratchSpace* crashScratch = nullptr;
pid_t crashOwner = 0;
std::array<struct sigaction, crashSignals.size()> formerActions;

void say(const char* text)
{
    // Nothing can be done about a failure.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, std::strlen(text));
}

void onCrash(int signal)
{
    for (std::size_t i = 0; i < crashSignals.size(); ++i)
        sigaction(crashSignals[i], &formerActions[i], nullptr);
    const JobManager* job = JobManager::jobManagerInstance;
    const ModuleEntity* module = job != nullptr ? job->activeModule : nullptr;
    say("vorn: the program crashed (SIG");
    say(sigabbrev_np(signal) != nullptr ? sigabbrev_np(signal) : "");
    say("); ");
    if (module != nullptr) {
        say("the last module to run was \"");
        say(module->moduleName.c_str());
        say("\"; ");
    }
    say("outputs are incomplete\n");
    if (getpid() == crashOwner) { // the files of a child that crashes belong to its parent
        // A file system that does not answer may hang from here on.
        alarm(5);
        VORN::stopOutputs();
        VORN::removeUnfinishedOutputs(nullptr, nullptr);
        crashScratch->remove();
    }
    raise(signal);
}

} // namespace

SignalsHeld::SignalsHeld()
{
    const sigset_t set = interruptSignals();
    pthread_sigmask(SIG_BLOCK, &set, &former);
}

SignalsHeld::~SignalsHeld()
{
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

InterruptWatch::InterruptWatch(std::function<void(int)> action) : clean(std::move(action))
{
    const sigset_t set = interruptSignals();
    signalDescriptor = signalfd(-1, &set, SFD_CLOEXEC);
    endDescriptor = eventfd(0, EFD_CLOEXEC);
    thread = std::thread([this] { run(); });
}

InterruptWatch::~InterruptWatch()
{
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(endDescriptor, &one, sizeof one);
    thread.join();
    close(signalDescriptor);
    close(endDescriptor);
}

void InterruptWatch::run()
{
    std::array<pollfd, 2> waiting = {{{signalDescriptor, POLLIN, 0}, {endDescriptor, POLLIN, 0}}};
    while (poll(waiting.data(), waiting.size(), -1) < 0 && errno == EINTR) {
    }
    signalfd_siginfo info;
    if ((waiting[0].revents & POLLIN) == 0 ||
        read(signalDescriptor, &info, sizeof info) != sizeof info)
        return;
    // From here on a second Ctrl-C is not held back.
    const sigset_t set = interruptSignals();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    const int signal = static_cast<int>(info.ssi_signo);
    clean(signal);
    _exit(signalBase + signal);
}

CrashWatch::CrashWatch(const ScratchSpace& scratch)
{
    crashScratch = &scratch;
    crashOwner = getpid();
    struct sigaction action = {};
    action.sa_handler = onCrash;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < crashSignals.size(); ++i)
        sigaction(crashSignals[i], &action, &formerActions[i]);
}

CrashWatch::~CrashWatch()
{
    for (std::size_t i = 0; i < crashSignals.size(); ++i)
        sigaction(crashSignals[i], &formerActions[i], nullptr);
}

} // namespace host
