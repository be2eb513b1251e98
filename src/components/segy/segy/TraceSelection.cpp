#include "segy/TraceSelection.h"

#include <algorithm>
#include <stdexcept>

namespace VORN {

void TraceSelection::add(const std::string& key, const std::string& numbers)
{
    try {
        conditions.push_back(
            {key == "traces" ? nullptr : findTraceHeaderWord(key), NumberRanges(numbers)});
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(key + ": " + error.what());
    }
    all += (all.empty() ? "" : ", ") + key + " " + numbers;
}

std::vector<int64_t> TraceSelection::select(int64_t traces, const WordOf& wordOf) const
{
    std::vector<int64_t> selected;
    for (int64_t i = 0; i < traces; ++i) {
        const auto isMet = [&](const Condition& condition) {
            return condition.numbers.contains(condition.word != nullptr ? wordOf(i, *condition.word)
                                                                        : i + 1);
        };
        if (std::all_of(conditions.begin(), conditions.end(), isMet))
            selected.push_back(i);
    }
    return selected;
}

} // namespace VORN
