#include "segy/NumberRanges.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <stdexcept>

namespace VORN {

namespace {

constexpr int64_t lowest = std::numeric_limits<int32_t>::min();
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

int64_t NumberRanges::greatest() const
{
    int64_t greatest = std::numeric_limits<int64_t>::min();
    for (const Range& range : ranges)
        greatest = std::max(greatest, range.last);
    return greatest;
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
