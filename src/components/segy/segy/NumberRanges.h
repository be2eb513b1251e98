/// @file NumberRanges.h
///
/// Selections of numbers as they are written in job files: "1:100", "1:100:2,200".
#ifndef NUMBERRANGES_H
#define NUMBERRANGES_H

#include "segy_export.h"

#include <cstdint>
#include <optional>
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
    /// The same for a float, which a range with step 1 contains anywhere between its ends.
    bool containsNumber(double value) const;
    /// The greatest number that may be contained: a reader that goes through a file in order may
    /// stop there. The lowest number of all when there is none.
    int64_t greatest() const;

    /// @name Walking: the numbers in ascending order, each once, without a list of them
    /// @{
    /// The least number from `value` on; nothing when there is none.
    std::optional<int64_t> next(int64_t value) const;
    /// The number that is `steps` numbers behind `value`; nothing when there are not so many.
    /// Requires: `value` is one of the numbers.
    std::optional<int64_t> skip(int64_t value, int64_t steps) const;
    /// How many there are from `first` to `last`.
    int64_t count(int64_t first, int64_t last) const;
    /// @}

    /// The numbers that `other` has, too.
    NumberRanges common(const NumberRanges& other) const;

private:
    struct Range
    {
        int64_t first;
        int64_t last;
        int64_t step;
    };

    // Numbers that follow each other evenly.
    struct Run
    {
        int64_t last; // not necessarily one of them
        int64_t step;
    };

    static Range parse(const std::string& piece);
    static std::optional<int64_t> nextOf(const Range& range, int64_t value);
    static std::optional<Range> commonRange(const Range& a, const Range& b);
    Run runFrom(int64_t value) const;

    std::vector<Range> ranges;
};

} // namespace VORN

#endif
