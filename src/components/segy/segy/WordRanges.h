/// @file WordRanges.h
///
/// What the words of many trace headers range over.
#ifndef WORDRANGES_H
#define WORDRANGES_H

#include "segy/HeaderWords.h"
#include "segy/WordRuns.h"
#include "segy_export.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace VORN {

/// The least and the greatest value of each of some words among the headers that were seen, and how
/// often it has changed from one header to the next.
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

    /// Takes note of the header at `header`.
    void see(const unsigned char* header, bool littleEndian);

    /// The range of word `index`, from 0, of the list.
    Range range(std::size_t index) const;

private:
    void collectChanges();

    WordRuns runs;
    bool isFirst = true;
    std::vector<int32_t> now; // values in the header that is looked at
    std::vector<int32_t> minimum;
    std::vector<int32_t> maximum;
    std::vector<int32_t> first;
    std::vector<int32_t> last;
    std::vector<int32_t>
        recentChanges; // not in `changes` yet: they fit into more lanes of a vector
    std::vector<int64_t> changes;
    int32_t recent = 0; // headers that they are from
};

} // namespace VORN

#endif
