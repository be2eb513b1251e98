/// @file NumberRanges.h
///
/// Selections of numbers as they are written in job files: "1:100", "1:100:2,200".
#ifndef NUMBERRANGES_H
#define NUMBERRANGES_H

#include "segy_export.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VORN {

/// A list of numbers and ranges, separated by commas. A range is FIRST:LAST or FIRST:LAST:STEP,
/// both ends included; without LAST it has no end ("101:"), without FIRST no beginning (":100").
/// Blanks are ignored.
class VORN_SEGY_EXPORT NumberRanges
{
public:
    /// No number at all.
    NumberRanges() = default;

    /// Throws std::invalid_argument for a text that is not such a list; its message names the piece
    /// and what is wrong with it.
    explicit NumberRanges(const std::string& text);

    /// Whether `value` is one of the numbers.
    bool contains(int64_t value) const;
    /// The greatest number that may be contained: a reader that goes through a file in order may
    /// stop there. The lowest number of all when there is none.
    int64_t greatest() const;

private:
    struct Range
    {
        int64_t first;
        int64_t last;
        int64_t step;
    };

    static Range parse(const std::string& piece);

    std::vector<Range> ranges;
};

} // namespace VORN

#endif
