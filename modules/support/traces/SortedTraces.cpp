#include "traces/SortedTraces.h"

#include <algorithm>
#include <sys/resource.h>
#include <utility>

namespace traces {

SortedTraces::SortedTraces(order::PositionList order, const std::vector<int64_t>& tracesOfFiles,
                           std::optional<VORN::NumberRanges> places, Announce tell, int64_t count)
    : list(std::move(order)), starts(1, 0), part(std::move(places)), announce(std::move(tell)),
      windowTraces(static_cast<std::size_t>(count))
{
    starts.reserve(tracesOfFiles.size() + 1);
    for (const int64_t traces : tracesOfFiles)
        starts.push_back(starts.back() + traces);
    remaining = part ? part->count(1, list.size()) : list.size();
    nextPlace = part ? part->next(1) : std::optional<int64_t>(1);
}

TracePlace SortedTraces::placeOf(int64_t number) const
{
    const auto behind = std::upper_bound(starts.begin() + 1, starts.end() - 1, number);
    const auto file = static_cast<std::size_t>(behind - starts.begin() - 1);
    return {file, number - starts[file]};
}

// Fills the window behind the current one.
void SortedTraces::loadWindow()
{
    following.clear();
    while (following.size() < windowTraces && nextPlace && *nextPlace <= list.size()) {
        following.push_back(list.at(*nextPlace - 1));
        nextPlace = part ? part->next(*nextPlace + 1) : std::optional<int64_t>(*nextPlace + 1);
    }
    announceWindow();
}

// Also what is announced counts as read from a disc by this thread.
bool SortedTraces::isReadFromDisc()
{
    constexpr int first = 2; // nothing is known of them
    rusage usage = {};
    if (getrusage(RUSAGE_THREAD, &usage) != 0)
        return true;
    const bool hasRead = usage.ru_inblock != blocksRead;
    blocksRead = usage.ru_inblock;
    return hasRead || announced < first;
}

void SortedTraces::announceWindow()
{
    if (following.empty() || !announce || !isReadFromDisc())
        return;
    ++announced;
    std::vector<int64_t> numbers = following;
    std::sort(numbers.begin(), numbers.end());
    for (std::size_t i = 0; i < numbers.size();) {
        const TracePlace begin = placeOf(numbers[i]);
        std::size_t end = i + 1;
        while (end < numbers.size() && numbers[end] <= numbers[end - 1] + 1 &&
               numbers[end] < starts[begin.file + 1])
            ++end;
        announce(begin.file, begin.index, numbers[end - 1] - numbers[i] + 1);
        i = end;
    }
}

TracePlace SortedTraces::peek()
{
    if (place == window.size()) {
        if (following.empty())
            loadWindow();
        window.swap(following);
        place = 0;
        loadWindow();
    }
    return placeOf(window[place]);
}

TracePlace SortedTraces::take()
{
    const TracePlace trace = peek();
    ++place;
    --remaining;
    return trace;
}

} // namespace traces
