#include "base/Quantities.h"

#include "base/Numbers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>

namespace host {

namespace {

std::string fourDigits(double value)
{
    const int decimals = value >= 1000 ? 0 : value >= 100 ? 1 : value >= 10 ? 2 : 3;
    return fmt::format("{:.{}f}", value, decimals);
}

} // namespace

std::optional<double> parseDuration(const std::string& text)
{
    struct Unit
    {
        const char* name;
        double seconds;
    };
    static constexpr std::array<Unit, 6> units = {
        {{"", 1}, {"s", 1}, {"ms", 1e-3}, {"min", 60}, {"h", 3600}, {"d", 86400}}};
    const std::size_t end = text.find_last_of("0123456789.") + 1; // 0 where there is none
    const std::size_t unit = text.find_first_not_of(' ', end);
    const std::string name = unit == std::string::npos ? "" : text.substr(unit);
    const std::optional<double> value = parseNumber(text.substr(0, end));
    for (const Unit& known : units) {
        if (value && name == known.name)
            return *value * known.seconds;
    }
    return std::nullopt;
}

std::string formatMicros(double micros)
{
    if (micros < 1000)
        return fmt::format("{:.{}f} us", micros, micros == std::floor(micros) ? 0 : 1);
    if (micros < 999950)
        return fourDigits(micros / 1000) + " ms";
    const double seconds = micros / 1e6;
    if (seconds < 120)
        return fourDigits(seconds) + " s";
    const auto whole = static_cast<long long>(std::llround(seconds));
    if (whole < 7200)
        return fmt::format("{} min {:02} s", whole / 60, whole % 60);
    return fmt::format("{} h {:02} min", whole / 3600, whole % 3600 / 60);
}

std::string formatBytes(double bytes)
{
    static constexpr std::array units = {"B", "kB", "MB", "GB", "TB"};
    std::size_t unit = 0;
    while (bytes >= 999.95 && unit + 1 < units.size()) {
        bytes /= 1000;
        ++unit;
    }
    return (unit == 0 ? fmt::format("{:.0f}", bytes) : fourDigits(bytes)) + " " + units[unit];
}

std::string formatRate(double perSecond)
{
    if (!std::isfinite(perSecond))
        return "-";
    const int decimals = perSecond >= 100 ? 0 : perSecond >= 10 ? 1 : perSecond >= 1 ? 2 : 3;
    return fmt::format("{:.{}f}", perSecond, decimals);
}

std::string formatSignificant(double value)
{
    const double size = std::fabs(value);
    if (size != 0 && (size < 1e-4 || size >= 1e9))
        return fmt::format("{:.4g}", value);
    const double magnitude = size > 0 ? std::floor(std::log10(size)) : 0;
    return formatFixed(value, static_cast<int>(std::max(3 - magnitude, 0.0)));
}

std::string ordinal(int64_t number)
{
    const int64_t last = std::abs(number % 10);
    const bool isTeen = std::abs(number % 100) / 10 == 1;
    const char* ending = isTeen || last < 1 || last > 3 ? "th"
                         : last == 1                    ? "st"
                         : last == 2                    ? "nd"
                                                        : "rd";
    return std::to_string(number) + ending;
}

} // namespace host
