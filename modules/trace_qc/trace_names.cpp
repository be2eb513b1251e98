#include "trace_names.h"

#include <algorithm>
#include <set>

namespace {

enum Word
{
    fldr,
    tracf,
    iline,
    xline,
    cdp,
    offset,
    ep
};

using Combination = std::vector<std::size_t>;

const std::vector<Combination> combinations = {
    {fldr, tracf}, {iline, xline}, {cdp, offset}, {ep, tracf}, {fldr, cdp}, {cdp}, {tracf}};

int valueOf(const TraceIdentity& trace, std::size_t word)
{
    return trace.words[word].value_or(0);
}

bool hasValues(const std::vector<TraceIdentity>& gather, std::size_t word)
{
    return std::any_of(gather.begin(), gather.end(),
                       [&](const TraceIdentity& trace) { return valueOf(trace, word) != 0; });
}

bool areDistinct(const std::vector<TraceIdentity>& gather, const Combination& words)
{
    std::set<std::vector<int>> seen;
    return std::all_of(gather.begin(), gather.end(), [&](const TraceIdentity& trace) {
        std::vector<int> values;
        for (const std::size_t word : words)
            values.push_back(valueOf(trace, word));
        return seen.insert(std::move(values)).second;
    });
}

Combination chooseWords(const std::vector<TraceIdentity>& gather, bool& isUnique)
{
    Combination first;
    for (const Combination& words : combinations) {
        if (!std::all_of(words.begin(), words.end(),
                         [&](std::size_t word) { return hasValues(gather, word); }))
            continue;
        isUnique = areDistinct(gather, words);
        if (isUnique)
            return words;
        if (first.empty())
            first = words;
    }
    isUnique = false;
    return first;
}

} // namespace

std::vector<std::string> namesOf(const std::vector<TraceIdentity>& gather)
{
    bool isUnique = false;
    const Combination words = chooseWords(gather, isUnique);
    std::vector<std::string> names;
    for (const TraceIdentity& trace : gather) {
        std::string header;
        for (const std::size_t word : words)
            header += (header.empty() ? "" : " ") + std::string(nameWords[word]) + " " +
                      std::to_string(valueOf(trace, word));
        std::string number;
        if (trace.fileTrace)
            number = "trace " + std::to_string(*trace.fileTrace) + " of the file";
        else if (!isUnique)
            number = "trace " + std::to_string(trace.arrival);
        names.push_back(number + (number.empty() || header.empty() ? "" : ", ") + header);
    }
    return names;
}
