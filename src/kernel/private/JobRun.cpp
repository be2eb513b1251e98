#include "private/JobRun.h"

#include "JobOutcome.h"
#include "kernel_messages.h"
#include "private/HostFunctions.h"

#include <cstdlib>
#include <ctime>
#include <new>
#include <random>
#include <stdexcept>
#include <unistd.h>

namespace {

constexpr int errorMessage = 3;

using Runs = std::map<const JobManager*, JobRun>;

// Made with the first notes, and never destroyed: a manager may end after all that is static.
Runs* runs = nullptr;

// By JobRun::Phase.
constexpr const char* entryPoints[] = {"", "preprocess_", "process_", "postprocess_"};
constexpr const char* phaseFunctions[] = {"", "preProcessJob", "processJob", "postProcessJob"};

std::string textOf(const std::exception_ptr& exception)
{
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "an exception that is not a std::exception";
    }
}

} // namespace

bool isFailureMessage(int msgType, const std::string& text)
{
    return msgType > errorMessage ||
           (msgType == errorMessage &&
            text.rfind(kernel_messages::canNotWriteToScratchFile, 0) != 0);
}

int JobRun::newPadNumber()
{
    static int last = 0;
    return hasOwnNumbers ? ++last : std::rand();
}

// Names that are taken already are no harm: the next number is tried.
int JobRun::newFileNumber()
{
    if (!hasOwnNumbers)
        return std::rand();
    static std::minstd_rand numbers(static_cast<unsigned>(getpid()) ^
                                    static_cast<unsigned>(std::time(nullptr)));
    return static_cast<int>(numbers());
}

JobRun& JobRun::of(const JobManager& manager)
{
    if (runs == nullptr)
        runs = new Runs;
    const auto [run, isNew] = runs->try_emplace(&manager);
    if (isNew)
        run->second.reset();
    return run->second;
}

JobRun* JobRun::find(const JobManager& manager) noexcept
{
    if (runs == nullptr)
        return nullptr;
    const auto run = runs->find(&manager);
    return run != runs->end() ? &run->second : nullptr;
}

void JobRun::forget(const JobManager& manager) noexcept
{
    if (runs != nullptr)
        runs->erase(&manager);
}

void JobRun::reset()
{
    beginOutcome();
    hasBegun = false;
    processing = Processing::notBegun;
    prepared.clear();
    hadMark = leftMark = false;
    leftMarkText.clear();
    runMetaData.clear();
    statisticDue = 0;
}

void JobRun::beginOutcome()
{
    hasBegun = true;
    hasFailed = isCancelled = false;
    module.clear();
    entryPoint.clear();
    text.clear();
    thrownBy.clear();
    counts = {};
    otherCounts.clear();
    if (spareMark.empty()) {
        constexpr std::size_t room = 64;
        std::map<std::string, std::string> one;
        one[jobFailureKey].reserve(room);
        spareMark = one.extract(one.begin());
    }
}

void JobRun::noteMessage(int type, const std::string& sender, const std::string& what) noexcept
{
    if (phase == Phase::none)
        return;
    try {
        if (type >= 0 && static_cast<std::size_t>(type) < counts.size())
            ++counts[static_cast<std::size_t>(type)];
        else
            ++otherCounts[type];
    } catch (const std::bad_alloc&) { // of a type that nobody else uses, and not counted then
    }
    if (isFailureMessage(type, what))
        noteFailure(sender, what);
}

void JobRun::noteException(const std::string& sender, const std::exception_ptr& exception) noexcept
{
    try {
        thrownBy = sender;
        noteFailure(sender, textOf(exception));
    } catch (const std::bad_alloc&) {
        hasFailed = true;
    }
}

void JobRun::noteFailure(const std::string& sender, const std::string& what) noexcept
{
    if (hasFailed)
        return;
    hasFailed = true;
    try {
        module = sender;
        if (sender != kernel_messages::kernelName)
            entryPoint = entryPoints[static_cast<int>(phase)];
        text = what;
    } catch (const std::bad_alloc&) { // what has been noted so far stays
    }
}

const char* JobRun::runningFunction() const
{
    if (phase == Phase::none)
        return host_functions::areRunning() ? "an entry point" : nullptr;
    return phaseFunctions[static_cast<int>(phase)];
}
