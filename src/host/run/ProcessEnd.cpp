#include "run/ProcessEnd.h"

#include "file/UnfinishedOutputs.h"
#include "run/CrashReport.h"
#include "run/RunningModule.h"
#include "run/ScratchSpace.h"
#include "run/SignalLine.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

namespace host {

namespace {

constexpr int exitByModule = 1;
constexpr char begin[] = "vorn: ";

// What a fault of the processor or of the program raises, on the thread that has it.
constexpr std::array crashSignals = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGSYS, SIGTRAP};
// Others that end a process by default. SIGINT, SIGTERM and SIGHUP are first: users send them.
constexpr std::array endSignals = {SIGINT,    SIGTERM, SIGHUP,  SIGQUIT, SIGALRM,
                                   SIGXCPU,   SIGXFSZ, SIGUSR1, SIGUSR2, SIGPIPE,
                                   SIGVTALRM, SIGPROF, SIGPOLL, SIGPWR,  SIGSTKFLT};

// The handlers run here when the stack of the main thread has overflowed. Removing directories in
// directories takes most.
constexpr std::size_t signalStackBytes = 131072;
alignas(16) std::array<char, signalStackBytes> signalStack;

// What handlers read. The owner is written last and cleared first.
std::atomic<pid_t> owner{0};
std::atomic<pid_t> ending{0}; // the thread that ends the process
std::array<struct sigaction, NSIG> formerActions;
stack_t formerStack;
char* mainStackTop = nullptr; // near enough
std::atomic<ListIncomplete> listIncomplete{nullptr};
std::atomic<const void*> listContext{nullptr};
using TellMore = void (*)();
std::atomic<TellMore> tellMore{nullptr};

bool isOwner()
{
    return owner.load() == getpid();
}

void tellRemoved(void*, const char* path)
{
    SignalLine(begin).add("incomplete, removed: ").addForeign(path).write();
}

void tellLeft(const char* path)
{
    SignalLine(begin).add("incomplete: ").addForeign(path).write();
}

// Removes what the process would leave, and names outputs that are not whole.
void cleanUp() noexcept
{
    VORN::stopOutputs();
    VORN::removeUnfinishedOutputs(tellRemoved, nullptr);
    if (const ListIncomplete list = listIncomplete.load())
        list(listContext.load(), tellLeft);
    if (const TellMore tell = tellMore.load())
        tell();
    removeScratchSpace();
}

// False when this thread is ending the process already: the clean-up has failed.
bool claim() noexcept
{
    const auto self = static_cast<pid_t>(syscall(SYS_gettid));
    pid_t nobody = 0;
    if (ending.compare_exchange_strong(nobody, self))
        return true;
    if (nobody == self)
        return false;
    while (true) // the other thread ends the process
        pause();
}

// " in process_, trace 17 of its input" for what runs.
void addPlace(SignalLine& line, const RunningCode& running)
{
    std::array<char, 128> place;
    describePlace(running, place.data(), place.size());
    if (place.front() != '\0')
        line.add(" ").add(place.data());
}

void addLastModule(SignalLine& line, const RunningCode& running)
{
    if (running.entry == EntryPoint::none && running.module != nullptr)
        line.add("; the last module to run was ").add(running.module);
}

[[noreturn]] void endByExit(const char* function, const int* code) noexcept
{
    if (!claim())
        endProcess(exitByModule);
    const RunningCode running = runningCode();
    SignalLine line(begin);
    if (running.entry != EntryPoint::none)
        line.add("module ").add(running.module).add(" ended the process");
    else
        line.add("the process was ended outside of the entry points of modules");
    addPlace(line, running);
    line.add(" by ").add(function);
    if (code != nullptr)
        line.add(" with exit code ").add(*code);
    addLastModule(line, running);
    line.add("; modules must report errors by messages").write();
    cleanUp();
    reportCrash(running, {});
    endProcess(exitByModule);
}

// ---- exit(), quick_exit() ----

void onExit(int code, void*)
{
    if (!isOwner())
        return;
    std::fflush(stdout); // as exit() does afterwards
    endByExit("exit", &code);
}

void onQuickExit()
{
    if (isOwner())
        endByExit("quick_exit", nullptr);
}

// Neither can be undone: they stay, and do nothing once there is no EndWatch.
void registerOnce()
{
    static const bool done = [] {
        return on_exit(onExit, nullptr) == 0 && std::at_quick_exit(onQuickExit) == 0;
    }();
    static_cast<void>(done);
}

// ---- signals ----

bool isCrash(int signal)
{
    for (const int crash : crashSignals) {
        if (signal == crash)
            return true;
    }
    return false;
}

// Whether the address lies in the part of the main thread's stack that is not there: between the
// stack pointer and the bottom of the stack, or a little beyond it.
bool isStackOverflow(int signal, const siginfo_t* info, void* context)
{
    if (signal != SIGSEGV || info->si_code <= 0 || syscall(SYS_gettid) != getpid())
        return false;
    std::uintptr_t pointer = 0;
#if defined(__x86_64__)
    pointer =
        static_cast<std::uintptr_t>(static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RSP]);
#elif defined(__aarch64__)
    pointer = static_cast<ucontext_t*>(context)->uc_mcontext.sp;
#else
    static_cast<void>(context);
    return false;
#endif
    constexpr std::uintptr_t beyond = 65536;
    const auto address = reinterpret_cast<std::uintptr_t>(info->si_addr);
    const auto top = reinterpret_cast<std::uintptr_t>(mainStackTop);
    return pointer < top && address < top && address + beyond >= pointer;
}

void addSignal(SignalLine& line, int signal)
{
    const char* const name = sigabbrev_np(signal);
    line.add("SIG").add(name != nullptr ? name : "?");
}

// The end of the line, with what the user or a batch system has limited.
const char* limitOf(int signal)
{
    if (signal == SIGXFSZ)
        return ": the limit of the size of files is reached, see ulimit -f)";
    if (signal == SIGXCPU)
        return ": the limit of processor time is reached, see ulimit -t)";
    return ")";
}

void tellSignal(const RunningCode& running, int signal, const siginfo_t* info, void* context)
{
    const bool inModule = running.entry != EntryPoint::none;
    SignalLine line(begin);
    if (!isCrash(signal)) {
        line.add(signal == SIGINT ? "interrupted" : "ended by a signal");
        if (inModule)
            line.add("; module ").add(running.module).add(" was running");
    } else if (inModule) {
        line.add("module ").add(running.module).add(" crashed");
    } else {
        line.add("the program crashed");
    }
    addPlace(line, running);
    if (signal != SIGINT) {
        line.add(" (");
        addSignal(line, signal);
        line.add(isStackOverflow(signal, info, context) ? ", stack overflow)" : limitOf(signal));
    }
    addLastModule(line, running);
    line.write();
}

// The handler that was there before: that of a sanitizer, which tells more.
bool hasFormerHandler(int signal)
{
    const struct sigaction& former = formerActions[static_cast<std::size_t>(signal)];
    return (former.sa_flags & SA_SIGINFO) != 0 && former.sa_sigaction != nullptr;
}

// The process dies of the signal, as without a handler.
void dieOf(int signal)
{
    sigaction(signal, &formerActions[static_cast<std::size_t>(signal)], nullptr);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    raise(signal);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
}

// All signals are blocked here, so a further one waits, and a fault in here ends the process.
void onSignal(int signal, siginfo_t* info, void* context)
{
    if (!isOwner()) { // the files of a child that dies belong to its parent
        dieOf(signal);
        return;
    }
    if (!claim()) {
        dieOf(signal);
        return;
    }
    // A file system that does not answer may hang from here on.
    std::signal(SIGALRM, SIG_DFL);
    sigset_t alarms;
    sigemptyset(&alarms);
    sigaddset(&alarms, SIGALRM);
    if (signal != SIGALRM)
        pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
    alarm(5);
    const RunningCode running = runningCode();
    tellSignal(running, signal, info, context);
    cleanUp();
    alarm(0);
    if (!isCrash(signal)) {
        dieOf(signal);
        return;
    }
    CrashCause cause;
    cause.signal = signal;
    cause.info = info;
    cause.context = context;
    cause.hasStack = !hasFormerHandler(signal);
    reportCrash(running, cause);
    if (hasFormerHandler(signal))
        formerActions[static_cast<std::size_t>(signal)].sa_sigaction(signal, info, context);
    dieOf(signal);
}

// ---- sanitizers ----

// Called by the run-time library of a sanitizer when it has reported what it ends the process for.
void onSanitizer()
{
    if (!isOwner() || !claim())
        return;
    const RunningCode running = runningCode();
    SignalLine line(begin);
    if (running.entry != EntryPoint::none)
        line.add("module ").add(running.module).add(" was ended by a sanitizer");
    else
        line.add("the program was ended by a sanitizer");
    addPlace(line, running);
    addLastModule(line, running);
    line.write();
    cleanUp();
    CrashCause cause;
    cause.hasStack = false; // the sanitizer has shown it
    reportCrash(running, cause);
}

void watchSanitizer()
{
    const auto set = reinterpret_cast<void (*)(void (*)())>(
        dlsym(RTLD_DEFAULT, "__sanitizer_set_death_callback"));
    if (set != nullptr)
        set(onSanitizer);
}

bool isDefault(const struct sigaction& action)
{
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL;
}

void install(int signal, bool always)
{
    struct sigaction& former = formerActions[static_cast<std::size_t>(signal)];
    sigaction(signal, nullptr, &former);
    if (!always && !isDefault(former))
        return;
    struct sigaction action = {};
    action.sa_sigaction = onSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
    sigfillset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

// A module may have installed a handler of its own meanwhile, which stays.
void restore(int signal)
{
    struct sigaction present;
    sigaction(signal, nullptr, &present);
    if ((present.sa_flags & SA_SIGINFO) != 0 && present.sa_sigaction == onSignal)
        sigaction(signal, &formerActions[static_cast<std::size_t>(signal)], nullptr);
}

} // namespace

EndWatch::EndWatch()
{
    registerOnce();
    watchSanitizer();
    mainStackTop = static_cast<char*>(__builtin_frame_address(0));
    stack_t stack = {};
    stack.ss_sp = signalStack.data();
    stack.ss_size = signalStack.size();
    sigaltstack(&stack, &formerStack);
    ending = 0;
    owner = getpid();
    for (const int signal : crashSignals)
        install(signal, true);
    for (const int signal : endSignals)
        install(signal, false);
}

EndWatch::~EndWatch()
{
    for (const int signal : crashSignals)
        restore(signal);
    for (const int signal : endSignals)
        restore(signal);
    owner = 0;
    sigaltstack(&formerStack, nullptr);
}

void setListIncomplete(ListIncomplete list, const void* context)
{
    listIncomplete = nullptr;
    listContext = context;
    listIncomplete = list;
}

void setTellMore(void (*tell)())
{
    tellMore = tell;
}

void claimEnd() noexcept
{
    claim();
}

void endAbandonedProcess(const char* how, const char* why) noexcept
{
    if (!isOwner())
        endProcess(0); // a forked child that ends its only thread
    claimEnd();
    const RunningCode running = runningCode();
    SignalLine line(begin);
    line.add("module ").add(running.module).add(" ").add(how);
    addPlace(line, running);
    line.add("; ").add(why).write();
    cleanUp();
    CrashCause cause;
    cause.hasStack = false; // it has been unwound
    reportCrash(running, cause);
    endProcess(exitByModule);
}

void endProcess(int code) noexcept
{
    while (true)
        syscall(SYS_exit_group, code);
}

} // namespace host

// In the place of the C library's. Names with an underscore belong to the implementation; these two
// are replaced on purpose, see ProcessEnd.h.
extern "C" {

__attribute__((noreturn, visibility("default"))) void _exit(int code)
{
    if (host::isOwner())
        host::endByExit("_exit", &code);
    host::endProcess(code);
}

__attribute__((noreturn, visibility("default"))) void _Exit(int code) noexcept
{
    if (host::isOwner())
        host::endByExit("_Exit", &code);
    host::endProcess(code);
}
}
