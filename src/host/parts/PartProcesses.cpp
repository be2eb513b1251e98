#include "parts/PartProcesses.h"

#include "base/CommandError.h"
#include "base/Programs.h"
#include "base/Text.h"
#include "parts/LiveFile.h"

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

PartProcesses::PartProcesses(int atATime)
    : most(static_cast<std::size_t>(atATime)), program(ownProgram())
{
}

void PartProcesses::start(int part)
{
    const pid_t process =
        processes.start(program, {"vorn", "part", planDirectory, std::to_string(part)},
                        logPath(planDirectory, part));
    if (process != 0)
        running[process] = part;
}

void PartProcesses::run(const std::string& directory, const std::vector<int>& parts)
{
    const auto began = std::chrono::steady_clock::now();
    planDirectory = directory;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        beganAt = steadySeconds();
        for (const int part : parts)
            liveFiles.push_back(livePath(directory, part));
    }
    auto next = parts.begin();
    do {
        while (!processes.isStopped() && exitCodes.empty() && next != parts.end() &&
               running.size() < most)
            start(*next++);
    } while (waitForOne());
    while (processes.isStopped())
        pause(); // the watch of interrupts ends this process
    elapsed = std::chrono::duration_cast<std::chrono::microseconds>(
                  std::chrono::steady_clock::now() - began)
                  .count();
}

// False when none runs.
bool PartProcesses::waitForOne()
{
    const std::optional<ProcessOutcome> outcome = processes.waitForOne();
    if (outcome)
        noteEnd(*outcome);
    return outcome.has_value();
}

void PartProcesses::noteEnd(const ProcessOutcome& outcome)
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
void PartProcesses::endPartsAfter(int part)
{
    for (const auto& [process, number] : running) {
        if (number > part)
            kill(process, SIGTERM);
    }
}

Receipt PartProcesses::failureOf(int part) const
{
    const std::string path = failurePath(planDirectory, part);
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
    message.text =
        fmt::format("part {} {}", part,
                    code > signalBase ? fmt::format("was ended by signal {} ({})",
                                                    code - signalBase, strsignal(code - signalBase))
                                      : fmt::format("ended with exit code {}", code));
    const std::string tail = tailOf(logPath(planDirectory, part));
    if (!tail.empty())
        message.text += ": " + tail;
    receipt.messages.push_back({message, ""});
    return receipt;
}

ProgressState PartProcesses::progress()
{
    ProgressState state;
    state.phase = "processing";
    std::vector<std::string> files;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        state.seconds = beganAt > 0 ? steadySeconds() - beganAt : 0;
        files = liveFiles;
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

void PartProcesses::stop(int signal)
{
    processes.stop(signal == 0 ? SIGTERM : signal);
}

} // namespace host
