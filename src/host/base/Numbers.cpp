#include "base/Numbers.h"

#include "base/Text.h"

#include <array>
#include <charconv>
#include <cmath>

namespace host {

namespace {

template <typename Number>
std::optional<Number> parseWhole(const std::string& text)
{
    // A leading plus sign is what people write; from_chars does not know it.
    const char* first = text.data();
    const char* last = first + text.size();
    if (text.size() > 1 && text[0] == '+' && text[1] != '-')
        ++first;
    Number number{};
    const auto [end, error] = std::from_chars(first, last, number);
    if (error != std::errc() || end != last || first == last)
        return std::nullopt;
    return number;
}

} // namespace

std::optional<long long> parseInteger(const std::string& text)
{
    return parseWhole<long long>(text);
}

std::optional<double> parseNumber(const std::string& text)
{
    const std::optional<double> number = parseWhole<double>(text);
    return number && std::isfinite(*number) ? number : std::nullopt;
}

std::optional<bool> parseBoolean(const std::string& text)
{
    const std::string lower = lowerCase(text);
    if (lower == "true" || lower == "yes" || lower == "on")
        return true;
    if (lower == "false" || lower == "no" || lower == "off")
        return false;
    return std::nullopt;
}

std::string formatNumber(double value)
{
    std::array<char, 40> buffer;
    char* const last = buffer.data() + buffer.size();
    // Whole numbers without an exponent: 10000000, not 1e+07.
    const bool isWhole = value == std::floor(value) && std::abs(value) < 1e15;
    const auto end = isWhole ? std::to_chars(buffer.data(), last, static_cast<long long>(value))
                             : std::to_chars(buffer.data(), last, value);
    return std::string(buffer.data(), end.ptr);
}

std::string formatFixed(double value, int decimals)
{
    if (std::fabs(value) < 0.5 * std::pow(10.0, -decimals))
        value = 0; // no "-0"
    char text[400];
    const auto end =
        std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, decimals);
    return std::string(text, end.ptr);
}

} // namespace host
