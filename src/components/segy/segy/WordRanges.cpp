#include "segy/WordRanges.h"

#include <algorithm>
#include <cstring>

namespace VORN {

namespace {

constexpr std::size_t chunkBytes = 16;
constexpr std::size_t chunkCount = segyTraceHeaderBytes / chunkBytes;
static_assert(chunkCount * chunkBytes == segyTraceHeaderBytes && chunkCount <= 32);

// The chunks in which two headers differ, a bit each.
uint32_t changedChunks(const unsigned char* a, const unsigned char* b)
{
    uint32_t changed = 0;
    for (std::size_t i = 0; i < chunkCount; ++i) {
        uint64_t one[2];
        uint64_t other[2];
        std::memcpy(one, a + i * chunkBytes, chunkBytes);
        std::memcpy(other, b + i * chunkBytes, chunkBytes);
        const bool differ = ((one[0] ^ other[0]) | (one[1] ^ other[1])) != 0;
        changed |= static_cast<uint32_t>(differ) << i;
    }
    return changed;
}

} // namespace

bool WordRanges::canSee(const HeaderWord& word)
{
    return !word.isFloat && (word.bytes == 2 || (word.bytes == 4 && !word.isUnsigned));
}

WordRanges::WordRanges(const std::vector<const HeaderWord*>& words)
    : runs(words), ranges(words.size())
{
    for (const WordRuns::Run& run : runs.list()) {
        const auto bytes = static_cast<std::size_t>(run.bytes);
        for (std::size_t i = 0; i < run.count; ++i) {
            const std::size_t offset = run.offset + i * bytes;
            const std::size_t chunk = offset / chunkBytes;
            if (i == 0 || pieces.back().run.offset / chunkBytes != chunk)
                pieces.push_back({{run.index + i, offset, 0, run.bytes, run.isUnsigned}, 0});
            ++pieces.back().run.count;
            pieces.back().chunks |= 1u << chunk | 1u << (offset + bytes - 1) / chunkBytes;
        }
    }
}

void WordRanges::see(const unsigned char* header, bool littleEndian)
{
    if (isFirst) {
        seeFirst(header, littleEndian);
        return;
    }
    const uint32_t changed = changedChunks(header, before.data());
    std::copy_n(header, before.size(), before.begin());
    for (const Piece& piece : pieces) {
        if ((piece.chunks & changed) != 0)
            update(piece.run, header, littleEndian);
    }
}

void WordRanges::seeFirst(const unsigned char* header, bool littleEndian)
{
    isFirst = false;
    std::copy_n(header, before.size(), before.begin());
    std::vector<int32_t> values(ranges.size());
    runs.read(header, littleEndian, values.data());
    for (std::size_t i = 0; i < values.size(); ++i)
        ranges[i] = {values[i], values[i], values[i], values[i], 0};
}

void WordRanges::update(const WordRuns::Run& run, const unsigned char* header, bool littleEndian)
{
    int32_t values[chunkBytes / 2];
    WordRuns::read(run, header, littleEndian, values);
    for (std::size_t i = 0; i < run.count; ++i) {
        Range& range = ranges[run.index + i];
        range.minimum = std::min(range.minimum, values[i]);
        range.maximum = std::max(range.maximum, values[i]);
        range.changes += values[i] != range.last ? 1 : 0;
        range.last = values[i];
    }
}

} // namespace VORN
