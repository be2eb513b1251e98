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
        const NumberRanges wanted(numbers);
        if (!isNumber)
            conditions.push_back({*word, wanted});
        else
            traceNumbers = traceNumbers ? traceNumbers->common(wanted) : wanted;
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(key + ": " + error.what());
    }
    all += (all.empty() ? "" : ", ") + key + " " + numbers;
}

int64_t TraceSelection::next(int64_t index, int64_t traces, const WordOf& wordOf) const
{
    while (index < traces) {
        if (traceNumbers) {
            const std::optional<int64_t> number = traceNumbers->next(index + 1);
            if (!number || *number > traces)
                return traces;
            index = *number - 1;
        }
        const auto isMet = [&](const Wanted& wanted) {
            const WordValue value = wordOf(index, wanted.word);
            return value.isFloat ? wanted.numbers.containsNumber(value.real)
                                 : wanted.numbers.contains(value.whole);
        };
        if (std::all_of(conditions.begin(), conditions.end(), isMet))
            return index;
        ++index;
    }
    return traces;
}

int64_t TraceSelection::skip(int64_t index, int64_t steps, int64_t traces,
                             const WordOf& wordOf) const
{
    if (conditions.empty() && !traceNumbers)
        return steps < traces - index ? index + steps : traces;
    if (conditions.empty()) {
        const std::optional<int64_t> number = traceNumbers->skip(index + 1, steps);
        return number && *number <= traces ? *number - 1 : traces;
    }
    for (; steps > 0 && index < traces; --steps)
        index = next(index + 1, traces, wordOf);
    return index;
}

int64_t TraceSelection::count(int64_t traces, const WordOf& wordOf) const
{
    if (conditions.empty())
        return traceNumbers ? traceNumbers->count(1, traces) : traces;
    int64_t selected = 0;
    for (int64_t i = next(0, traces, wordOf); i < traces; i = next(i + 1, traces, wordOf))
        ++selected;
    return selected;
}

} // namespace VORN
