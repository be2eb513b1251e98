#include "segy/TraceSelection.h"

#include <algorithm>
#include <optional>
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

int64_t TraceSelection::next(int64_t index, int64_t traces, const WordOf& wordOf) const
{
    while (index < traces) {
        const int64_t candidate = nextByNumber(index);
        if (candidate < 0 || candidate >= traces)
            return traces;
        const auto isMet = [&](const Condition& condition) {
            return condition.word == nullptr ||
                   condition.numbers.contains(wordOf(candidate, *condition.word));
        };
        if (std::all_of(conditions.begin(), conditions.end(), isMet))
            return candidate;
        index = candidate + 1;
    }
    return traces;
}

// The first trace from `index` on whose number meets the conditions on numbers; -1 when none does.
int64_t TraceSelection::nextByNumber(int64_t index) const
{
    for (bool hasMoved = true; hasMoved;) {
        hasMoved = false;
        for (const Condition& condition : conditions) {
            if (condition.word != nullptr)
                continue;
            const std::optional<int64_t> number = condition.numbers.next(index + 1);
            if (!number)
                return -1;
            hasMoved = hasMoved || *number != index + 1;
            index = *number - 1;
        }
    }
    return index;
}

int64_t TraceSelection::count(int64_t traces, const WordOf& wordOf) const
{
    if (conditions.empty())
        return traces;
    if (conditions.size() == 1 && conditions[0].word == nullptr)
        return conditions[0].numbers.count(1, traces);
    int64_t selected = 0;
    for (int64_t i = next(0, traces, wordOf); i < traces; i = next(i + 1, traces, wordOf))
        ++selected;
    return selected;
}

} // namespace VORN
