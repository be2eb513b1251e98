#include "traces/WordCounts.h"

namespace traces {

WordCounts::WordCounts(const std::vector<const char*>& keys)
{
    for (const char* key : keys)
        words.push_back({key, 0});
}

void WordCounts::add(const WordCounts& others)
{
    for (std::size_t i = 0; i < words.size(); ++i)
        words[i].traces += others.words.at(i).traces;
}

std::string WordCounts::text(std::size_t most) const
{
    std::string named;
    std::size_t counted = 0;
    for (const Word& word : words) {
        if (word.traces == 0 || ++counted > most)
            continue;
        named += (named.empty() ? "" : ", ") + std::string(word.key) + " (" +
                 std::to_string(word.traces) + (word.traces == 1 ? " trace)" : " traces)");
    }
    return counted > most ? named + " and " + std::to_string(counted - most) + " more" : named;
}

} // namespace traces
