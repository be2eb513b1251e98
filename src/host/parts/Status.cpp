#include "parts/Status.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Quantities.h"
#include "base/Text.h"
#include "base/TextLayout.h"
#include "parts/LiveFile.h"
#include "parts/Receipt.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fmt/format.h>
#include <optional>
#include <sys/stat.h>

namespace host {

namespace {

constexpr std::size_t mostReasons = 20;
constexpr const char* mergedName = "merged"; // the file that "vorn merge" leaves

struct StateName
{
    PartState state;
    const char* name;
};

constexpr StateName stateNames[] = {{PartState::done, "done"},
                                    {PartState::running, "running"},
                                    {PartState::failed, "failed"},
                                    {PartState::lost, "lost"},
                                    {PartState::waiting, "waiting"}};

// Seconds since 1970 of the last change; nothing where the file does not exist.
std::optional<int64_t> changedAt(const std::string& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return status.st_mtim.tv_sec;
}

// What the part has told about itself. It makes its file when it begins, and fills it soon after.
std::optional<LiveState> lastSign(const std::string& path)
{
    if (const std::optional<LiveState> live = readLiveState(path))
        return live;
    const std::optional<int64_t> begun = changedAt(path);
    if (!begun)
        return std::nullopt;
    LiveState state;
    state.seconds = *begun;
    return state;
}

// What is wrong with the receipt; empty: nothing.
std::string objectionTo(const std::string& path, int part, const std::string& planSha256)
{
    try {
        const Receipt receipt = readReceipt(path);
        if (receipt.planSha256 == planSha256 && receipt.part == part)
            return "";
        return "the receipt " + quote(path) + " is of another plan";
    } catch (const CommandError& error) {
        return error.what();
    }
}

// The first error that the part has noted.
std::string failureIn(const std::string& path)
{
    try {
        const Receipt receipt = readReceipt(path);
        for (const PartMessage& one : receipt.messages) {
            if (one.message.severity >= errorSeverity)
                return one.message.module + ": " + one.message.text;
        }
        return "it tells no reason";
    } catch (const CommandError& error) {
        return error.what();
    }
}

PartStatus statusOfPart(const std::string& directory, int part, const std::string& planSha256,
                        const PlannedPart& range, int64_t now)
{
    PartStatus status;
    status.part = part;
    // Before the receipt: a part that ends in between is done then, not lost.
    const std::optional<LiveState> live = lastSign(livePath(directory, part));
    const std::string receipt = receiptPath(directory, part);
    if (changedAt(receipt)) {
        status.reason = objectionTo(receipt, part, planSha256);
        if (status.reason.empty()) {
            status.state = PartState::done;
            status.traces = range.count;
            return status;
        }
        status.state = PartState::lost;
    }
    // A failure that is older than what the part last told about itself is that of an earlier run.
    const std::string failure = failurePath(directory, part);
    const std::optional<int64_t> failedAt = changedAt(failure);
    if (failedAt && (!live || live->seconds <= *failedAt + 1)) {
        status.state = PartState::failed;
        status.reason = failureIn(failure);
    } else if (live && now - live->seconds <= liveSeconds) {
        status.state = PartState::running;
        status.traces = std::min(live->traces, range.count);
        status.reason.clear();
    } else if (live) {
        status.state = PartState::lost;
    }
    return status;
}

} // namespace

std::vector<int> PlanStatus::inState(PartState state) const
{
    std::vector<int> numbers;
    for (const PartStatus& part : parts) {
        if (part.state == state)
            numbers.push_back(part.part);
    }
    return numbers;
}

std::vector<int> PlanStatus::missing() const
{
    std::vector<int> numbers;
    for (const PartStatus& part : parts) {
        if (part.state != PartState::done && part.state != PartState::running)
            numbers.push_back(part.part);
    }
    return numbers;
}

int64_t PlanStatus::tracesSoFar() const
{
    int64_t sum = 0;
    for (const PartStatus& part : parts)
        sum += part.traces;
    return sum;
}

PlanStatus statusOf(const StoredPlan& stored, const std::string& directory)
{
    const auto now = static_cast<int64_t>(std::time(nullptr));
    PlanStatus status;
    status.isMerged =
        changedAt((std::filesystem::path(directory) / mergedName).string()).has_value();
    status.parts.reserve(stored.plan.parts.size());
    int number = 0;
    for (const PlannedPart& range : stored.plan.parts) {
        status.traces += range.count;
        status.parts.push_back(statusOfPart(directory, ++number, stored.sha256, range, now));
    }
    return status;
}

double tracesPerSecond(const PlanStatus& before, const PlanStatus& now, double seconds)
{
    int64_t traces = 0;
    for (std::size_t i = 0; i < now.parts.size() && i < before.parts.size(); ++i) {
        const PartStatus& earlier = before.parts[i];
        const PartStatus& later = now.parts[i];
        if (earlier.state == PartState::running &&
            (later.state == PartState::running || later.state == PartState::done))
            traces += std::max<int64_t>(later.traces - earlier.traces, 0);
    }
    return seconds > 0 ? static_cast<double>(traces) / seconds : 0;
}

std::string partList(const std::vector<int>& parts)
{
    std::vector<std::string> ranges;
    for (std::size_t first = 0; first < parts.size();) {
        std::size_t last = first;
        while (last + 1 < parts.size() && parts[last + 1] == parts[last] + 1)
            ++last;
        ranges.push_back(first == last ? std::to_string(parts[first])
                                       : fmt::format("{}-{}", parts[first], parts[last]));
        first = last + 1;
    }
    return joined(ranges, ",");
}

std::string describeStatus(const PlanStatus& status, double tracesPerSecond)
{
    TextTable table("lrl");
    table.row({"state", "parts", "which"});
    for (const auto& [state, name] : stateNames) {
        const std::vector<int> numbers = status.inState(state);
        table.row({name, std::to_string(numbers.size()), partList(numbers)});
    }
    const int64_t done = status.tracesSoFar();
    std::string text = table.text();
    text += fmt::format("{} of {}", done, counted(status.traces, "trace"));
    if (tracesPerSecond > 0)
        text += fmt::format(
            ", {} traces/s, {} left", formatRate(tracesPerSecond),
            formatMicros(1e6 * static_cast<double>(status.traces - done) / tracesPerSecond));
    text += status.isMerged ? "\nmerged: the outputs have their names\n" : "\n";
    std::size_t told = 0;
    for (const PartStatus& part : status.parts) {
        if (part.reason.empty())
            continue;
        if (++told > mostReasons)
            break;
        text += fmt::format("part {}: {}\n", part.part, escaped(part.reason));
    }
    return text;
}

} // namespace host
