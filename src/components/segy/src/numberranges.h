/// @file numberranges.h
///
/// Selections of numbers as people write them: "1:100", "1:100:2,200".
#ifndef NUMBERRANGES_H
#define NUMBERRANGES_H

#include <cstdint>
#include <string>
#include <vector>

namespace VORN {

/// A list of numbers and ranges, separated by commas. A range is FIRST:LAST or FIRST:LAST:STEP,
/// both ends belong to it; without LAST it has no end ("101:"), without FIRST no beginning
/// (":100"). Blanks do not matter.
class NumberRanges
{
public:
    /// No number at all.
    NumberRanges() = default;

    /// Throws std::invalid_argument for what cannot be read; its text names the piece and what is
    /// wrong with it.
    explicit NumberRanges(const std::string& text);

    bool contains(int64_t value) const;
    /// No greater number is contained: who goes through a file in order need not read on.
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
