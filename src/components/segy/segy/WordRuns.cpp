#include "segy/WordRuns.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <type_traits>

// The loops have nothing in them that keeps them from becoming vectors.
namespace VORN {

namespace {

template <typename Bits>
Bits swappedIf(bool swap, Bits bits)
{
    if constexpr (sizeof(Bits) == 4)
        return swap ? __builtin_bswap32(bits) : bits;
    else
        return swap ? static_cast<Bits>(bits << 8 | bits >> 8) : bits;
}

// `Stored` is how a word stands in a header.
template <typename Stored, bool swap>
void readRun(const unsigned char* from, std::size_t count, int32_t* values)
{
    using Bits = std::make_unsigned_t<Stored>;
    for (std::size_t i = 0; i < count; ++i) {
        Bits bits;
        std::memcpy(&bits, from + i * sizeof bits, sizeof bits);
        values[i] = static_cast<Stored>(swappedIf(swap, bits));
    }
}

template <typename Stored, bool swap>
bool writeRun(unsigned char* to, std::size_t count, const int32_t* values)
{
    using Bits = std::make_unsigned_t<Stored>;
    constexpr int32_t lowest = std::numeric_limits<Stored>::min();
    constexpr int32_t highest = std::numeric_limits<Stored>::max();
    int32_t cut = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const int32_t nearest = std::min(std::max(values[i], lowest), highest);
        cut |= nearest ^ values[i];
        const Bits bits = swappedIf(swap, static_cast<Bits>(nearest));
        std::memcpy(to + i * sizeof bits, &bits, sizeof bits);
    }
    return cut == 0;
}

template <typename Stored>
void readRun(const unsigned char* from, bool littleEndian, std::size_t count, int32_t* values)
{
    littleEndian ? readRun<Stored, false>(from, count, values)
                 : readRun<Stored, true>(from, count, values);
}

template <typename Stored>
bool writeRun(unsigned char* to, bool littleEndian, std::size_t count, const int32_t* values)
{
    return littleEndian ? writeRun<Stored, false>(to, count, values)
                        : writeRun<Stored, true>(to, count, values);
}

} // namespace

WordRuns::WordRuns(const std::vector<const HeaderWord*>& words) : count(words.size())
{
    for (std::size_t i = 0; i < words.size(); ++i) {
        const HeaderWord* word = words[i];
        const auto offset = static_cast<std::size_t>(word->byte - 1);
        Run* last = runs.empty() ? nullptr : &runs.back();
        if (last != nullptr && last->bytes == word->bytes && last->isUnsigned == word->isUnsigned &&
            last->offset + last->count * static_cast<std::size_t>(last->bytes) == offset)
            ++last->count;
        else
            runs.push_back({i, offset, 1, word->bytes, word->isUnsigned});
    }
}

void WordRuns::read(const Run& run, const unsigned char* header, bool littleEndian, int32_t* values)
{
    const unsigned char* from = header + run.offset;
    if (run.bytes == 4)
        readRun<int32_t>(from, littleEndian, run.count, values);
    else if (run.isUnsigned)
        readRun<uint16_t>(from, littleEndian, run.count, values);
    else
        readRun<int16_t>(from, littleEndian, run.count, values);
}

void WordRuns::read(const unsigned char* header, bool littleEndian, int32_t* values) const
{
    for (const Run& run : runs)
        read(run, header, littleEndian, values + run.index);
}

bool WordRuns::write(unsigned char* header, bool littleEndian, const int32_t* values) const
{
    bool allFit = true;
    for (const Run& run : runs) {
        unsigned char* to = header + run.offset;
        const bool fit = run.bytes == 4   ? writeRun<int32_t>(to, littleEndian, run.count, values)
                         : run.isUnsigned ? writeRun<uint16_t>(to, littleEndian, run.count, values)
                                          : writeRun<int16_t>(to, littleEndian, run.count, values);
        allFit = allFit && fit;
        values += run.count;
    }
    return allFit;
}

} // namespace VORN
