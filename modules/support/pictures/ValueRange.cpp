#include "pictures/ValueRange.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>

namespace pictures {

double percentile(std::vector<float> values, double percent)
{
    values.erase(std::remove_if(values.begin(), values.end(),
                                [](float value) { return !std::isfinite(value); }),
                 values.end());
    if (values.empty())
        return 0;
    const double share = std::clamp(percent, 0.0, 100.0) / 100;
    const auto place =
        static_cast<std::ptrdiff_t>(std::lround(share * static_cast<double>(values.size() - 1)));
    std::nth_element(values.begin(), values.begin() + place, values.end());
    return values[static_cast<std::size_t>(place)];
}

double decibels(double amplitude, double reference, double floor)
{
    if (!(amplitude > 0) || !(reference > 0))
        return floor;
    return std::max(20 * std::log10(amplitude / reference), floor);
}

std::string shortText(double value)
{
    std::array<char, 40> text;
    std::snprintf(text.data(), text.size(), "%.4g", value);
    return text.data();
}

} // namespace pictures
