#include "report/SetResult.h"

#include <algorithm>

namespace host {

const char* verdictName(FileVerdict verdict)
{
    switch (verdict) {
    case FileVerdict::passed:
        return "passed";
    case FileVerdict::failed:
        return "failed";
    case FileVerdict::notRun:
        break;
    }
    return "not run";
}

int SetResult::countOf(FileVerdict verdict) const
{
    return static_cast<int>(std::count_if(
        files.begin(), files.end(), [=](const SetFile& one) { return one.verdict == verdict; }));
}

int64_t SetResult::traces() const
{
    int64_t sum = 0;
    for (const SetFile& file : files)
        sum += file.traces;
    return sum;
}

int64_t SetResult::flagged() const
{
    int64_t sum = 0;
    for (const SetFile& file : files)
        sum += file.flagged;
    return sum;
}

int64_t SetResult::warnings() const
{
    int64_t sum = 0;
    for (const SetFile& file : files)
        sum += file.warnings;
    return sum;
}

bool SetResult::isChecked() const
{
    return std::any_of(files.begin(), files.end(),
                       [](const SetFile& one) { return one.isChecked; });
}

std::map<std::string, int64_t> SetResult::flags() const
{
    std::map<std::string, int64_t> sums;
    for (const SetFile& file : files) {
        for (const auto& [flag, count] : file.flags)
            sums[flag] += count;
    }
    return sums;
}

} // namespace host
