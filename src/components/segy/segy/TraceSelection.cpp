#include "segy/TraceSelection.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace VORN {

namespace {

std::string trimmed(const std::string& text)
{
    const char* blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string::npos
               ? std::string()
               : text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

} // namespace

std::vector<TraceSelection::Condition> TraceSelection::split(const std::string& text)
{
    std::vector<Condition> found;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find_first_of(";\n", at), text.size());
        const std::string piece = trimmed(text.substr(at, end - at));
        at = end + 1;
        if (piece.empty())
            continue;
        const std::size_t equals = piece.find('=');
        if (equals == std::string::npos)
            throw std::invalid_argument("\"" + piece +
                                        "\" is not WORD=NUMBERS, as in offset=100:2000");
        found.emplace_back(trimmed(piece.substr(0, equals)), trimmed(piece.substr(equals + 1)));
    }
    if (found.empty())
        throw std::invalid_argument("there is no condition; write WORD=NUMBERS, as in "
                                    "offset=100:2000");
    return found;
}

void TraceSelection::add(const std::string& key, const std::string& numbers,
                         const std::vector<HeaderWord>& words)
{
    const bool isNumber = key == "traces";
    const auto word = std::find_if(words.begin(), words.end(),
                                   [&](const HeaderWord& one) { return one.key == key; });
    if (!isNumber && word == words.end())
        throw std::invalid_argument(key + ": there is no trace header word of that name");
    try {
        conditions.push_back({isNumber, isNumber ? HeaderWord{} : *word, NumberRanges(numbers)});
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
        const auto isMet = [&](const Wanted& wanted) {
            if (wanted.isNumber)
                return true;
            const WordValue value = wordOf(candidate, wanted.word);
            return value.isFloat ? wanted.numbers.containsNumber(value.real)
                                 : wanted.numbers.contains(value.whole);
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
        for (const Wanted& condition : conditions) {
            if (!condition.isNumber)
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
    if (conditions.size() == 1 && conditions[0].isNumber)
        return conditions[0].numbers.count(1, traces);
    int64_t selected = 0;
    for (int64_t i = next(0, traces, wordOf); i < traces; i = next(i + 1, traces, wordOf))
        ++selected;
    return selected;
}

} // namespace VORN
