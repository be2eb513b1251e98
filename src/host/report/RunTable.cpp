#include "report/RunTable.h"

#include "base/Escaping.h"
#include "base/Quantities.h"
#include "base/Text.h"
#include "base/TextLayout.h"

#include <algorithm>
#include <fmt/format.h>

namespace host {

namespace {

std::string micros(int64_t value)
{
    return formatMicros(static_cast<double>(value));
}

std::string percent(double share)
{
    return fmt::format("{:.1f} %", share * 100);
}

std::string bytes(int64_t value)
{
    return formatBytes(static_cast<double>(value));
}

} // namespace

std::string statisticsTable(const RunResult& result)
{
    TextTable table("lrrrrrr");
    table.row({"module", "traces in", "traces out", "time", "share", "per trace", "memory"});
    int64_t ofModules = 0;
    const auto addRow = [&](const RunModule& module) {
        const RunStatistics& one = module.statistics;
        ofModules += one.totalMicros();
        table.row({module.name, std::to_string(one.tracesIn), std::to_string(one.tracesOut),
                   micros(one.totalMicros()), percent(one.share),
                   one.tracesIn + one.tracesOut > 0 ? formatMicros(one.microsPerTrace()) : "-",
                   bytes(one.peakBytes)});
    };
    for (const RunModule& module : result.modules)
        addRow(module);
    for (const RunModule& tee : result.tees)
        addRow(tee);
    const int64_t rest = std::max<int64_t>(0, result.busyMicros - ofModules);
    const double whole = static_cast<double>(std::max<int64_t>(1, result.busyMicros));
    table.row({"(kernel and host)", "", "", micros(rest),
               percent(static_cast<double>(rest) / whole), "", ""});
    table.row({"job", std::to_string(result.sourceTraces), "", micros(result.wallMicros),
               percent(1), "", bytes(result.peakJobBytes)});
    return table.text();
}

std::string rateLine(const RunResult& result)
{
    if (result.sourceTraces == 0 || result.processWallMicros == 0)
        return "";
    const double seconds = static_cast<double>(result.processWallMicros) / 1e6;
    return fmt::format("{} in {}{}: {} traces/s, {} MB/s", counted(result.sourceTraces, "trace"),
                       micros(result.processWallMicros),
                       result.parts > 0 ? fmt::format(" and {} parts", result.parts) : "",
                       formatRate(static_cast<double>(result.sourceTraces) / seconds),
                       formatRate(static_cast<double>(result.sourceBytes) / 1e6 / seconds));
}

std::string messageLine(const RunMessage& message, int nameWidth)
{
    constexpr int severityWidth = 11; // "information"
    std::string line = fmt::format(
        "{} {} {} {}", message.time, padRight(severityName(message.severity), severityWidth),
        padRight(escaped(message.module), nameWidth), escaped(message.text));
    // What has to be acted upon says where.
    if (message.severity >= warningSeverity && !message.place.empty())
        line += " (" + escaped(message.place) + ")";
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

} // namespace host
