// Selections of numbers as they are written in job files: the first line of the input, asked for
// the numbers of its other lines.
#include "FuzzInput.h"

#include "segy/NumberRanges.h"

#include <charconv>
#include <optional>
#include <stdexcept>

namespace {

using VORN::NumberRanges;

// The selection, or nothing where the text is refused with a line that says why.
std::optional<NumberRanges> parse(const std::string& text)
{
    try {
        return NumberRanges(text);
    } catch (const std::invalid_argument& error) {
        VORN_ASSERT(*error.what() != '\0');
        return std::nullopt;
    }
}

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (c == separator)
            pieces.emplace_back();
        else if (c != ' ' && c != '\t')
            pieces.back() += c;
    }
    return pieces;
}

// Whether an accepted piece holds `number`, reckoned with numbers that cannot overflow.
bool pieceHolds(const std::string& piece, int64_t number)
{
    __extension__ using Wide = __int128;
    const std::vector<std::string> parts = split(piece, ':');
    VORN_ASSERT(parts.size() <= 3 && !piece.empty());
    const auto numberOr = [&](std::size_t part, Wide otherwise) -> Wide {
        return part < parts.size() && !parts[part].empty() ? std::stoll(parts[part]) : otherwise;
    };
    const Wide value = number;
    if (parts.size() == 1)
        return value == numberOr(0, 0);
    const Wide first = numberOr(0, INT64_MIN);
    const Wide step = numberOr(2, 1);
    VORN_ASSERT(step >= 1 && first <= numberOr(1, INT64_MAX));
    return value >= first && value <= numberOr(1, INT64_MAX) && (value - first) % step == 0;
}

void checkNumber(const std::string& text, const NumberRanges& ranges, int64_t number)
{
    bool held = false;
    for (const std::string& piece : split(text, ','))
        held = held || pieceHolds(piece, number);
    VORN_ASSERT(ranges.contains(number) == held);
    VORN_ASSERT(!held || number <= ranges.greatest());
    const std::optional<int64_t> next = ranges.next(number);
    VORN_ASSERT((next == number) == held && (!next || ranges.contains(*next)));
    VORN_ASSERT((ranges.count(number, number) == 1) == held);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    const std::string all(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(all.find_first_of(std::string("\n\0", 2)), all.size());
    const std::string text = all.substr(0, end);
    const std::optional<NumberRanges> ranges = parse(text);
    if (!ranges)
        return 0;

    std::vector<int64_t> numbers = {INT64_MIN, INT_MIN, -1, 0, 1, 2, 100, INT_MAX, INT64_MAX};
    int64_t number = 0;
    std::from_chars(all.data() + std::min(end + 1, all.size()), all.data() + all.size(), number);
    numbers.push_back(number);
    for (const int64_t one : numbers)
        checkNumber(text, *ranges, one);
    return 0;
}
