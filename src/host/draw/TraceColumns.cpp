#include "draw/TraceColumns.h"

#include <algorithm>
#include <utility>

namespace host {

namespace {

constexpr double widestGap = 8; // points
constexpr double narrowestGap = 1;
constexpr double shareOfGaps = 0.25;

} // namespace

TraceColumns::TraceColumns(double width, std::size_t count, std::vector<std::size_t> later)
    : traces(count), starts(std::move(later))
{
    starts.insert(starts.begin(), 0);
    const auto gaps = static_cast<double>(starts.size() - 1);
    if (gaps > 0)
        perGap = std::min(widestGap, width * shareOfGaps / gaps);
    if (perGap < narrowestGap)
        perGap = 0;
    if (traces > 0)
        perTrace = (width - gaps * perGap) / static_cast<double>(traces);
}

std::size_t TraceColumns::gatherOf(std::size_t trace) const
{
    const auto after = std::upper_bound(starts.begin(), starts.end(), trace);
    return static_cast<std::size_t>(after - starts.begin()) - 1;
}

double TraceColumns::left(std::size_t trace) const
{
    return static_cast<double>(trace) * perTrace + static_cast<double>(gatherOf(trace)) * perGap;
}

std::optional<std::size_t> TraceColumns::traceAt(double x) const
{
    if (traces == 0 || perTrace <= 0)
        return std::nullopt;
    const auto after =
        std::upper_bound(starts.begin() + 1, starts.end(), x,
                         [this](double place, std::size_t start) { return place < left(start); });
    const auto gather = static_cast<std::size_t>(after - starts.begin()) - 1;
    const double within = std::max(x - left(starts[gather]), 0.0) / perTrace;
    const std::size_t trace = starts[gather] + static_cast<std::size_t>(within);
    if (trace < end(gather))
        return trace;
    // Rounding must not lose the picture's last pixel.
    return perGap > 0 && gather + 1 < starts.size() ? std::nullopt : std::optional(end(gather) - 1);
}

} // namespace host
