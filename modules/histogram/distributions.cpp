#include "distributions.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace {

constexpr int droppedBits = 11; // of 23 of the mantissa
constexpr std::size_t classes = std::size_t{1} << 20;

double lowerEdge(std::size_t number)
{
    return std::bit_cast<float>(static_cast<std::uint32_t>(number << droppedBits));
}

// The bar in which a value lies that is between the ends, or the nearest one.
std::size_t barOf(double value, const Bars& bars)
{
    const double place = std::floor((value - bars.left) / bars.width());
    return static_cast<std::size_t>(
        std::clamp(place, 0.0, static_cast<double>(bars.heights.size() - 1)));
}

// Values of a class are spread evenly over the bars that it meets.
void spread(double from, double to, double count, Bars& bars)
{
    if (to < bars.left || from > bars.right)
        return;
    const std::size_t first = barOf(from, bars);
    const std::size_t last = to > from ? barOf(to, bars) : first;
    const bool isWhole = from >= bars.left && to <= bars.right;
    if (first == last && isWhole) {
        bars.heights[first] += count;
        return;
    }
    for (std::size_t bar = first; bar <= last; ++bar) {
        const double edge = bars.left + static_cast<double>(bar) * bars.width();
        const double left = std::max(from, edge);
        const double right = std::min(to, edge + bars.width());
        if (right > left)
            bars.heights[bar] += count * (right - left) / (to - from);
    }
}

} // namespace

void Statistics::add(double value)
{
    least = count == 0 ? value : std::min(least, value);
    greatest = count == 0 ? value : std::max(greatest, value);
    ++count;
    sum += value;
    squares += value * value;
    areWhole = areWhole && value == std::floor(value);
}

void Statistics::endTrace()
{
    if (std::isfinite(squares)) {
        sums.addWhole(0, sum);
        sums.addWhole(1, squares);
    }
    isBeyond = isBeyond || !std::isfinite(squares);
    sum = 0;
    squares = 0;
}

void Statistics::add(Statistics& other)
{
    if (other.count > 0) {
        least = count == 0 ? other.least : std::min(least, other.least);
        greatest = count == 0 ? other.greatest : std::max(greatest, other.greatest);
    }
    count += other.count;
    areWhole = areWhole && other.areWhole;
    isBeyond = isBeyond || other.isBeyond;
    sums.add(other.sums);
}

double Statistics::mean() const
{
    return count > 0 ? sums.value(0) / static_cast<double>(count) : 0;
}

double Statistics::rms() const
{
    if (isBeyond)
        return HUGE_VAL;
    return count > 0 ? std::sqrt(sums.value(1) / static_cast<double>(count)) : 0;
}

// ---- Samples ----

SampleDistribution::SampleDistribution() : positive(classes), negative(classes) {}

void SampleDistribution::add(float sample)
{
    all.add(sample);
    const auto bits = std::bit_cast<std::uint32_t>(sample);
    const std::size_t number = (bits & 0x7fffffffU) >> droppedBits;
    ++(sample < 0 ? negative : positive)[number];
    greatestAbsolute = std::max(greatestAbsolute, std::fabs(static_cast<double>(sample)));
}

double SampleDistribution::percentile(double percent)
{
    auto place = std::llround(percent / 100 * static_cast<double>(all.count - 1));
    if (place == all.count - 1)
        return greatestAbsolute;
    for (std::size_t i = 0; i < classes; ++i) {
        const std::int64_t count = positive[i] + negative[i];
        if (place < count) {
            const double from = lowerEdge(i);
            const double part = static_cast<double>(place) / static_cast<double>(count);
            return std::min(from + part * (lowerEdge(i + 1) - from), greatestAbsolute);
        }
        place -= count;
    }
    return greatestAbsolute;
}

std::vector<SampleDistribution::Count>
SampleDistribution::usedOf(const std::vector<std::int64_t>& counts)
{
    std::vector<Count> used;
    for (std::size_t i = 0; i < counts.size(); ++i)
        if (counts[i] != 0)
            used.push_back({static_cast<std::int64_t>(i), counts[i]});
    return used;
}

void SampleDistribution::fill(Bars& bars) const
{
    // The outermost classes reach beyond all samples.
    const auto add = [&](double from, double to, std::int64_t count) {
        if (count > 0)
            spread(std::max(from, all.least), std::min(to, all.greatest),
                   static_cast<double>(count), bars);
    };
    for (std::size_t i = 0; i < classes; ++i) {
        const double from = lowerEdge(i);
        const double to = lowerEdge(i + 1);
        add(from, to, positive[i]);
        add(-to, -from, negative[i]);
    }
}

// ---- Values ----

void ValueDistribution::add(double value)
{
    all.add(value);
    values.push_back(value);
}

// The room doubles when it is full, and both are there until the values have been copied.
std::int64_t ValueDistribution::bytesOfGrowth() const
{
    if (values.size() < values.capacity())
        return 0;
    return static_cast<std::int64_t>((3 * values.size() + 1) * sizeof(double));
}

double ValueDistribution::percentile(double percent)
{
    const auto place = static_cast<std::ptrdiff_t>(
        std::llround(percent / 100 * static_cast<double>(values.size() - 1)));
    std::nth_element(values.begin(), values.begin() + place, values.end());
    return values[static_cast<std::size_t>(place)];
}

void ValueDistribution::fill(Bars& bars) const
{
    for (const double value : values) {
        if (value >= bars.left && value <= bars.right)
            ++bars.heights[barOf(value, bars)];
    }
}

// ---- Bars ----

Bars emptyBars(double left, double right, int most, bool areWhole)
{
    if (areWhole) {
        left = std::ceil(left);
        right = std::max(std::floor(right), left);
        const double numbers = right - left + 1;
        const double perBar = std::ceil(numbers / most);
        const double count = std::ceil(numbers / perBar);
        return {left - 0.5, left - 0.5 + count * perBar,
                std::vector<double>(static_cast<std::size_t>(count))};
    }
    if (right <= left) { // one value
        const double room = left == 0 ? 1 : std::fabs(left) * 0.1;
        left -= room;
        right += room;
    }
    return {left, right, std::vector<double>(static_cast<std::size_t>(most))};
}
