#include "run/Progress.h"

#include "base/Quantities.h"
#include "base/Text.h"
#include "base/TextLayout.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fmt/format.h>
#include <vector>

namespace host {

namespace {

constexpr double barSeconds = 0.2;

double share(const ProgressState& state)
{
    if (state.announced <= 0)
        return 0;
    return std::min(1.0, static_cast<double>(state.done) / static_cast<double>(state.announced));
}

std::string rateText(const ProgressState& state)
{
    if (state.seconds <= 0 || state.traces == 0)
        return "";
    return formatRate(static_cast<double>(state.traces) / state.seconds) + " traces/s";
}

// Time left, by the share that is done.
std::string leftText(const ProgressState& state)
{
    const double part = share(state);
    if (part <= 0 || state.seconds < 0.5)
        return "";
    const auto left = std::llround(state.seconds / part * (1 - part));
    if (left >= 3600)
        return fmt::format("{}:{:02}:{:02} left", left / 3600, left % 3600 / 60, left % 60);
    return fmt::format("{}:{:02} left", left / 60, left % 60);
}

std::string percentText(const ProgressState& state)
{
    return state.announced > 0 ? fmt::format("{:.0f} %", share(state) * 100) : "";
}

std::string join(const std::vector<std::string>& parts)
{
    std::vector<std::string> present;
    std::copy_if(parts.begin(), parts.end(), std::back_inserter(present),
                 [](const std::string& part) { return !part.empty(); });
    return joined(present, ", ");
}

std::string elapsedText(const ProgressState& state)
{
    const auto seconds = static_cast<long long>(state.seconds);
    return fmt::format("{}:{:02}", seconds / 60, seconds % 60);
}

// A call that takes this long is worth its place in a line that changes.
constexpr double longCallSeconds = 2;

// The module that runs, and for how long: of a call that never returns nothing else tells.
std::string moduleText(const ProgressState& state)
{
    if (state.module.empty())
        return "";
    return fmt::format("module {} {}{}", state.module, state.place,
                       state.callSeconds < longCallSeconds
                           ? ""
                           : " for " + formatMicros(std::floor(state.callSeconds) * 1e6));
}

} // namespace

std::string progressText(const ProgressState& state)
{
    return fmt::format("{}: {}", state.phase,
                       join({percentText(state), counted(state.traces, "trace"), rateText(state),
                             leftText(state), formatBytes(static_cast<double>(state.bytes)),
                             elapsedText(state) + " since the start", moduleText(state)}));
}

std::string progressBar(const ProgressState& state, int width)
{
    const std::string facts =
        join({leftText(state), counted(state.traces, "trace"), rateText(state),
              formatBytes(static_cast<double>(state.bytes)), elapsedText(state)});
    std::string line = state.phase;
    if (state.announced > 0) {
        constexpr int cells = 20;
        const int filled = static_cast<int>(share(state) * cells);
        line = "[" + std::string(static_cast<std::size_t>(filled), '#') +
               std::string(static_cast<std::size_t>(cells - filled), '.') + "] " +
               padLeft(percentText(state), 5);
    }
    if (state.callSeconds >= longCallSeconds)
        line += "  " + moduleText(state);
    line += "  " + facts;
    // The last column stays free: a terminal would begin a new line there.
    const auto most = static_cast<std::size_t>(std::max(width - 1, 0));
    return line.size() > most ? line.substr(0, most) : line;
}

Progress::Progress(Console& output, ProgressMode how, double seconds,
                   std::function<ProgressState()> source)
    : console(output), mode(how), lineSeconds(seconds), read(std::move(source))
{
    if (mode != ProgressMode::none)
        thread = std::thread([this] { run(); });
}

Progress::~Progress()
{
    stop();
}

void Progress::stop()
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ended = true;
    }
    wake.notify_all();
    if (thread.joinable())
        thread.join();
    if (mode == ProgressMode::bar)
        console.status("");
}

void Progress::run()
{
    const auto period =
        std::chrono::duration<double>(mode == ProgressMode::bar ? barSeconds : lineSeconds);
    std::unique_lock<std::mutex> lock(mutex);
    while (!wake.wait_for(lock, period, [this] { return ended; }))
        show();
}

void Progress::show()
{
    const ProgressState state = read();
    if (mode == ProgressMode::bar)
        console.status(progressBar(state, Console::terminalWidth()));
    else
        console.line(progressText(state));
}

} // namespace host
