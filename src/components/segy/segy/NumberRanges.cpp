#include "segy/NumberRanges.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>

namespace VORN {

namespace {

constexpr int64_t lowest = std::numeric_limits<int64_t>::min();
constexpr int64_t highest = std::numeric_limits<int64_t>::max();

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (c == separator)
            pieces.emplace_back();
        else if (c != ' ' && c != '\t' && c != '\n')
            pieces.back() += c;
    }
    return pieces;
}

int64_t toNumber(const std::string& digits, const std::string& piece)
{
    int64_t value = 0;
    const char* begin = digits.data();
    const char* end = begin + digits.size();
    const auto [stopped, error] = std::from_chars(begin, end, value);
    if (error != std::errc() || stopped != end)
        throw std::invalid_argument(
            "\"" + digits + "\" in \"" + piece +
            "\" is not a number; write numbers and ranges as in 1:100:2,200");
    return value;
}

// The distance of two numbers may exceed what they can hold.
int64_t stepsBetween(int64_t from, int64_t to, int64_t step)
{
    const uint64_t steps =
        (static_cast<uint64_t>(to) - static_cast<uint64_t>(from)) / static_cast<uint64_t>(step);
    return static_cast<int64_t>(std::min<uint64_t>(steps, highest));
}

} // namespace

NumberRanges::NumberRanges(const std::string& text)
{
    for (const std::string& piece : split(text, ','))
        ranges.push_back(parse(piece));
}

NumberRanges::Range NumberRanges::parse(const std::string& piece)
{
    const std::vector<std::string> parts = split(piece, ':');
    if (parts.size() > 3)
        throw std::invalid_argument("\"" + piece + "\" has more than FIRST:LAST:STEP");
    if (parts.size() == 1) {
        const int64_t only = toNumber(parts[0], piece);
        return {only, only, 1};
    }
    const Range range = {parts[0].empty() ? lowest : toNumber(parts[0], piece),
                         parts[1].empty() ? highest : toNumber(parts[1], piece),
                         parts.size() == 3 ? toNumber(parts[2], piece) : 1};
    if (range.step < 1)
        throw std::invalid_argument("the step of \"" + piece + "\" is below 1");
    if (parts[0].empty() && range.step != 1)
        throw std::invalid_argument("\"" + piece + "\" has a step and no first number");
    if (range.first > range.last)
        throw std::invalid_argument("\"" + piece + "\" ends before it begins");
    return range;
}

bool NumberRanges::containsNumber(double value) const
{
    return std::any_of(ranges.begin(), ranges.end(), [=](const Range& range) {
        const auto first = static_cast<double>(range.first);
        return value >= first && value <= static_cast<double>(range.last) &&
               (range.step == 1 || std::fmod(value - first, static_cast<double>(range.step)) == 0);
    });
}

int64_t NumberRanges::greatest() const
{
    int64_t greatest = std::numeric_limits<int64_t>::min();
    for (const Range& range : ranges)
        greatest = std::max(greatest, range.last);
    return greatest;
}

// The least number of `range` from `value` on.
std::optional<int64_t> NumberRanges::nextOf(const Range& range, int64_t value)
{
    if (value > range.last)
        return std::nullopt;
    if (value <= range.first)
        return range.first;
    const auto step = static_cast<uint64_t>(range.step);
    const uint64_t beyond =
        (static_cast<uint64_t>(value) - static_cast<uint64_t>(range.first)) % step;
    const uint64_t missing = beyond == 0 ? 0 : step - beyond;
    if (missing > static_cast<uint64_t>(range.last) - static_cast<uint64_t>(value))
        return std::nullopt;
    return value + static_cast<int64_t>(missing);
}

std::optional<int64_t> NumberRanges::next(int64_t value) const
{
    std::optional<int64_t> least;
    for (const Range& range : ranges) {
        if (const std::optional<int64_t> number = nextOf(range, value))
            least = std::min(least.value_or(*number), *number);
    }
    return least;
}

// The candidates are those of the range with the longer steps: of the numbers that both hold, one
// comes within as many candidates as the shorter step counts.
std::optional<NumberRanges::Range> NumberRanges::commonRange(const Range& a, const Range& b)
{
    const Range& sparse = a.step >= b.step ? a : b;
    const Range& dense = a.step >= b.step ? b : a;
    const int64_t last = std::min(a.last, b.last);
    std::optional<int64_t> first = nextOf(sparse, std::max(a.first, b.first));
    for (int64_t i = 0; first && i < dense.step; ++i) {
        if (*first > last)
            return std::nullopt;
        if (nextOf(dense, *first) == first) {
            int64_t step = 0; // the least that both have; where it is beyond all numbers: none
            const bool isBeyond = __builtin_mul_overflow(
                sparse.step, dense.step / std::gcd(sparse.step, dense.step), &step);
            return isBeyond ? Range{*first, *first, 1} : Range{*first, last, step};
        }
        first = *first == highest ? std::nullopt : nextOf(sparse, *first + 1);
    }
    return std::nullopt;
}

NumberRanges NumberRanges::common(const NumberRanges& other) const
{
    NumberRanges both;
    for (const Range& mine : ranges) {
        for (const Range& theirs : other.ranges) {
            if (const std::optional<Range> range = commonRange(mine, theirs))
                both.ranges.push_back(*range);
        }
    }
    return both;
}

// How far the numbers go on evenly from `value`, one of them: up to the next beginning of a range.
// Where several ranges with steps overlap, that is `value` alone.
NumberRanges::Run NumberRanges::runFrom(int64_t value) const
{
    int64_t bound = highest;
    int64_t lastOfWhole = lowest;
    const Range* only = nullptr;
    int active = 0;
    for (const Range& range : ranges) {
        if (range.first > value)
            bound = std::min(bound, range.first - 1);
        if (range.first > value || range.last < value)
            continue;
        ++active;
        only = &range;
        if (range.step == 1)
            lastOfWhole = std::max(lastOfWhole, range.last);
    }
    if (lastOfWhole >= value)
        return {std::min(bound, lastOfWhole), 1};
    if (active == 1)
        return {std::min(bound, only->last), only->step};
    return {value, 1};
}

std::optional<int64_t> NumberRanges::skip(int64_t value, int64_t steps) const
{
    std::optional<int64_t> number = value;
    while (number && steps > 0) {
        const Run run = runFrom(*number);
        const int64_t inRun = std::min(steps, stepsBetween(*number, run.last, run.step));
        *number += inRun * run.step;
        steps -= inRun;
        if (steps == 0)
            break;
        --steps;
        number = *number == highest ? std::nullopt : next(*number + 1);
    }
    return number;
}

int64_t NumberRanges::count(int64_t first, int64_t last) const
{
    int64_t numbers = 0;
    std::optional<int64_t> number = next(first);
    while (number && *number <= last) {
        const Run run = runFrom(*number);
        numbers += stepsBetween(*number, std::min(run.last, last), run.step) + 1;
        number = run.last >= last ? std::nullopt : next(run.last + 1);
    }
    return numbers;
}

bool NumberRanges::contains(int64_t value) const
{
    return std::any_of(ranges.begin(), ranges.end(), [=](const Range& range) {
        return value >= range.first && value <= range.last &&
               (static_cast<uint64_t>(value) - static_cast<uint64_t>(range.first)) %
                       static_cast<uint64_t>(range.step) ==
                   0;
    });
}

} // namespace VORN
