#include "parts/LocalParts.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Text.h"
#include "file/PartOutputs.h"
#include "parts/LiveFile.h"
#include "parts/PlanFile.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr int signalBase = 128;

double steadySeconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// The last lines that a process has written.
std::string tailOf(const std::string& path)
{
    constexpr std::size_t mostLines = 5;
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    std::vector<std::string> lines = splitLines(text.str());
    if (lines.size() > mostLines)
        lines.erase(lines.begin(), lines.end() - mostLines);
    return joined(lines, "\n");
}

} // namespace

LocalParts::LocalParts(Plan made, int processesAtATime)
    : plan(std::move(made)), atATime(processesAtATime)
{
    std::error_code error;
    program = fs::read_symlink("/proc/self/exe", error).string();
    if (error)
        throw CommandError("the program cannot find itself in /proc: " + error.message());
    for (PlannedOutput& output : plan.outputs) {
        auto target = std::make_unique<VORN::UnfinishedOutput>();
        const int descriptor = target->create(output.target);
        if (descriptor < 0)
            throw CommandError("the output " + quote(output.path) +
                               " cannot be written: " + std::strerror(errno));
        close(descriptor);
        output.target = target->path();
        targets.push_back(std::move(target));
    }
}

void LocalParts::start(int part)
{
    const pid_t process =
        processes.start(program, {"vorn", "part", directory, std::to_string(part)},
                        logPath(directory, part));
    if (process != 0)
        running[process] = part;
}

void LocalParts::work(const std::string& scratchDirectory)
{
    const auto began = std::chrono::steady_clock::now();
    directory = (fs::path(scratchDirectory) / "parts").string();
    fs::create_directories(directory);
    writePlan(plan, directory);
    {
        const std::lock_guard<std::mutex> lock(mutex);
        beganAt = steadySeconds();
        for (std::size_t part = 1; part <= plan.parts.size(); ++part)
            live.push_back(livePath(directory, static_cast<int>(part)));
    }
    const int parts = static_cast<int>(plan.parts.size());
    int next = 1;
    while (!processes.isStopped()) {
        while (exitCodes.empty() && next <= parts &&
               running.size() < static_cast<std::size_t>(atATime))
            start(next++);
        const std::optional<ProcessOutcome> outcome = processes.waitForOne();
        if (!outcome)
            break;
        noteEnd(*outcome);
    }
    while (processes.isStopped())
        pause(); // the watch of interrupts ends this process
    micros = std::chrono::duration_cast<std::chrono::microseconds>(
                 std::chrono::steady_clock::now() - began)
                 .count();

    std::vector<Receipt> receipts;
    const int last = exitCodes.empty() ? parts : exitCodes.begin()->first;
    for (int part = 1; part <= last; ++part)
        receipts.push_back(exitCodes.count(part) > 0 ? failureOf(part)
                                                     : readReceipt(receiptPath(directory, part)));
    for (const PlannedOutput& output : plan.outputs)
        VORN::setWholeOutput(output.path, output.target);
    merging.emplace(plan, directory, std::move(receipts));
}

void LocalParts::noteEnd(const ProcessOutcome& outcome)
{
    const auto known = running.find(outcome.process);
    const int part = known->second;
    running.erase(known);
    const bool isLater = !exitCodes.empty() && part > exitCodes.begin()->first;
    if (outcome.exitCode == exitDone || isLater)
        return;
    exitCodes.clear();
    exitCodes[part] = outcome.exitCode;
    endPartsAfter(part);
}

// The job has failed in `part`; those before it may fail earlier.
void LocalParts::endPartsAfter(int part)
{
    for (const auto& [process, number] : running) {
        if (number > part)
            kill(process, SIGTERM);
    }
}

Receipt LocalParts::failureOf(int part) const
{
    const std::string path = failurePath(directory, part);
    if (fs::exists(path))
        return readReceipt(path);
    // It ended without having told why: its process was ended, or has ended itself.
    const int code = exitCodes.at(part);
    Receipt receipt;
    receipt.part = part;
    receipt.failed = true;
    RunMessage message;
    message.module = "vorn";
    message.severity = fatalSeverity;
    message.text = fmt::format(
        "part {} of {} {}", part, plan.parts.size(),
        code > signalBase ? fmt::format("was ended by signal {} ({})", code - signalBase,
                                        strsignal(code - signalBase))
                          : fmt::format("ended with exit code {}", code));
    const std::string tail = tailOf(logPath(directory, part));
    if (!tail.empty())
        message.text += ": " + tail;
    receipt.messages.push_back({message, ""});
    return receipt;
}

ProgressState LocalParts::progress()
{
    ProgressState state;
    state.phase = "processing";
    std::vector<std::string> files;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        state.seconds = beganAt > 0 ? steadySeconds() - beganAt : 0;
        files = live;
    }
    int64_t known = 0;
    for (const std::string& file : files) {
        const std::optional<LiveState> part = readLiveState(file);
        if (!part)
            continue;
        ++known;
        state.traces += part->traces;
        state.done += part->done;
        state.announced += part->announced;
        state.bytes += part->bytes;
    }
    // Parts that have not begun announce about as much as the others.
    if (known > 0)
        state.announced = state.announced / known * static_cast<int64_t>(files.size());
    return state;
}

void LocalParts::stop(int signal)
{
    processes.stop(signal);
}

RunExtension& LocalParts::merge()
{
    return *merging;
}

} // namespace host
