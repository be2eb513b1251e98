/// @file WordRanges.h
///
/// What the words of many trace headers range over.
#ifndef WORDRANGES_H
#define WORDRANGES_H

#include "segy/HeaderWords.h"
#include "segy/WordRuns.h"
#include "segy_export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace VORN {

/// The least and the greatest value of each of some words among the trace headers that were seen,
/// and how often it has changed from one header to the next.
///
/// Most bytes of a header are those of the one before. Words that lie among these are not looked
/// at: they have neither changed nor left their range.
class VORN_SEGY_EXPORT WordRanges
{
public:
    /// Of one word; all 0 before the first header.
    struct Range
    {
        int32_t minimum = 0;
        int32_t maximum = 0;
        int32_t first = 0;   ///< in the first header
        int32_t last = 0;    ///< in the last one
        int64_t changes = 0; ///< headers in which it was another than in the one before
    };

    /// Whether the class serves a word: an integer of 2 bytes, or a signed one of 4.
    static bool canSee(const HeaderWord& word);

    /// For these words, of which `canSee` holds. They are copied.
    explicit WordRanges(const std::vector<const HeaderWord*>& words);

    /// Takes note of the 240 bytes of a header, all of them in one byte order.
    void see(const unsigned char* header, bool littleEndian);

    /// The range of word `index`, from 0, of the list.
    const Range& range(std::size_t index) const { return ranges[index]; }

private:
    void seeFirst(const unsigned char* header, bool littleEndian);
    void update(const WordRuns::Run& run, const unsigned char* header, bool littleEndian);

    // Words of a run that begin in one chunk of the header.
    struct Piece
    {
        WordRuns::Run run;
        uint32_t chunks; // that they lie in, a bit each
    };

    WordRuns runs;
    std::vector<Piece> pieces;
    bool isFirst = true;
    std::array<unsigned char, segyTraceHeaderBytes> before{}; // the last header
    std::vector<Range> ranges;                                // by word
};

} // namespace VORN

#endif
