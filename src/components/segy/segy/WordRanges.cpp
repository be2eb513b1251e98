#include "segy/WordRanges.h"

#include <algorithm>
#include <limits>

namespace VORN {

bool WordRanges::canSee(const HeaderWord& word)
{
    return !word.isFloat && (word.bytes == 2 || (word.bytes == 4 && !word.isUnsigned));
}

WordRanges::WordRanges(const std::vector<const HeaderWord*>& words)
    : runs(words), now(words.size()), minimum(words.size()), maximum(words.size()),
      first(words.size()), last(words.size()), recentChanges(words.size()), changes(words.size())
{
}

void WordRanges::see(const unsigned char* header, bool littleEndian)
{
    runs.read(header, littleEndian, now.data());
    if (isFirst) {
        minimum = maximum = first = last = now;
        isFirst = false;
        return;
    }
    if (recent == std::numeric_limits<int32_t>::max())
        collectChanges();
    ++recent;
    const std::size_t count = now.size();
    int32_t* const least = minimum.data();
    int32_t* const greatest = maximum.data();
    int32_t* const before = last.data();
    int32_t* const changed = recentChanges.data();
    const int32_t* const value = now.data();
    for (std::size_t i = 0; i < count; ++i) {
        least[i] = std::min(least[i], value[i]);
        greatest[i] = std::max(greatest[i], value[i]);
        changed[i] += value[i] != before[i] ? 1 : 0;
    }
    last.swap(now);
}

WordRanges::Range WordRanges::range(std::size_t index) const
{
    return {minimum[index], maximum[index], first[index], last[index],
            changes[index] + recentChanges[index]};
}

void WordRanges::collectChanges()
{
    for (std::size_t i = 0; i < changes.size(); ++i)
        changes[i] += recentChanges[i];
    std::fill(recentChanges.begin(), recentChanges.end(), 0);
    recent = 0;
}

} // namespace VORN
