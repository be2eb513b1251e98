#include "job/RunResult.h"

#include <algorithm>
#include <array>

namespace host {

const char* severityName(int severity)
{
    static constexpr std::array names = {"detail", "information", "warning", "error", "fatal"};
    if (severity < 0)
        return "message";
    return names[static_cast<std::size_t>(std::min(severity, static_cast<int>(fatalSeverity)))];
}

int RunResult::countOf(int severity) const
{
    return static_cast<int>(
        std::count_if(messages.begin(), messages.end(),
                      [=](const RunMessage& one) { return one.severity == severity; }));
}

} // namespace host
