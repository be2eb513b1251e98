#include "BinMap.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>
#include <unordered_set>

namespace {

constexpr std::int64_t bytesOfBin = 96; // with the node and the place in the hash table
constexpr std::size_t binsBetweenQuestions = 1024;
constexpr double farthest = 1e9;  // bins from the origin: numbers fit into 32 bits
constexpr double binsOfMap = 100; // across, where the size is chosen
constexpr double exactIntegers = 9007199254740992.0; // 2^53

// Two's complement keeps negative numbers apart, too.
std::uint64_t keyOf(std::int64_t column, std::int64_t row)
{
    return static_cast<std::uint64_t>(static_cast<std::uint32_t>(column)) << 32 |
           static_cast<std::uint32_t>(row);
}

std::int64_t columnOf(std::uint64_t key)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(key >> 32));
}

std::int64_t rowOf(std::uint64_t key)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(key));
}

std::string text(double value)
{
    std::array<char, 40> written;
    std::snprintf(written.data(), written.size(), "%.9g", value);
    return written.data();
}

} // namespace

void Bin::add(double value, double weightOfValue)
{
    least = traces > 0 ? std::min(least, value) : value;
    greatest = traces > 0 ? std::max(greatest, value) : value;
    ++traces;
    sum += value;
    weight += weightOfValue;
}

double BinAxis::numberOf(double position) const
{
    return std::floor((position - origin) / size + 0.5);
}

const Bin* BinGrid::at(std::int64_t column, std::int64_t row) const
{
    const auto found = bins.find(keyOf(column, row));
    return found != bins.end() ? &found->second : nullptr;
}

double commonStep(const std::vector<double>& values)
{
    std::int64_t step = 0;
    for (const double value : values) {
        if (value != std::round(value) || std::fabs(value) > exactIntegers / 2)
            return 0;
        step = std::gcd(step, static_cast<std::int64_t>(value - values.front()));
    }
    return step > 0 ? static_cast<double>(step) : 1;
}

double roundUp(double value)
{
    if (!(value > 0))
        return 1;
    const double power = std::pow(10.0, std::floor(std::log10(value)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (factor * power >= value * (1 - 1e-9))
            return factor * power;
    return 10 * power;
}

BinMap::BinMap(Choice how, std::optional<std::array<double, 2>> binSizes,
               std::optional<std::array<double, 2>> middle)
    : choice(how), sizes(binSizes), origin(middle)
{
}

bool BinMap::add(double x, double y, double value, double weight)
{
    const Point point{{x, y}, value, weight};
    if (!std::isfinite(x) || !std::isfinite(y))
        return false;
    if (!hasSizes()) {
        points.push_back(point);
        return true;
    }
    return addToBin(point);
}

bool BinMap::addToBin(const Point& point)
{
    if (!origin)
        origin = point.position;
    std::array<double, 2> numbers{};
    for (std::size_t i = 0; i < 2; ++i) {
        numbers[i] = BinAxis{(*origin)[i], (*sizes)[i]}.numberOf(point.position[i]);
        if (!(std::fabs(numbers[i]) <= farthest))
            return false;
    }
    bins[keyOf(static_cast<std::int64_t>(numbers[0]), static_cast<std::int64_t>(numbers[1]))].add(
        point.value, point.weight);
    return true;
}

std::int64_t BinMap::bytes() const
{
    return static_cast<std::int64_t>(points.capacity() * sizeof(Point)) +
           bytesOfBin * static_cast<std::int64_t>(bins.size());
}

// Small enough for detail, and so large that a regular grid of positions leaves no holes: two
// positions to a bin, or a tenth of the map.
double BinMap::coordinateSize(const std::array<double, 2>& least, double extent) const
{
    std::vector<std::array<double, 2>> places;
    places.reserve(points.size());
    for (const Point& point : points)
        places.push_back(point.position);
    std::sort(places.begin(), places.end());
    places.erase(std::unique(places.begin(), places.end()), places.end());
    double size = roundUp(extent / binsOfMap);
    for (;;) {
        std::unordered_set<std::uint64_t> used;
        for (const std::array<double, 2>& place : places)
            used.insert(
                keyOf(static_cast<std::int64_t>(BinAxis{least[0], size}.numberOf(place[0])),
                      static_cast<std::int64_t>(BinAxis{least[1], size}.numberOf(place[1]))));
        const double larger = roundUp(1.5 * size);
        if (places.size() >= 2 * used.size() || larger > extent / 10)
            return size;
        size = larger;
    }
}

// Bins that are chosen have the least position in the middle of the first one.
void BinMap::chooseSizes(std::int64_t most)
{
    std::array<double, 2> least{};
    std::array<double, 2> extent{};
    std::array<double, 2> step{};
    std::vector<double> values(points.size());
    for (std::size_t i = 0; i < 2; ++i) {
        std::transform(points.begin(), points.end(), values.begin(),
                       [i](const Point& point) { return point.position[i]; });
        const auto [low, high] = std::minmax_element(values.begin(), values.end());
        least[i] = *low;
        extent[i] = *high - *low;
        step[i] = choice == Choice::numbers ? commonStep(values) : 0;
        // The last position counts to the bin whose middle is nearest.
        if (step[i] > 0)
            step[i] *= 1 + std::floor(extent[i] / step[i] / (static_cast<double>(most) - 0.5));
    }
    const double common = coordinateSize(least, std::max(extent[0], extent[1]));
    for (std::size_t i = 0; i < 2; ++i)
        if (step[i] <= 0)
            step[i] = choice == Choice::numbers ? roundUp(extent[i] / binsOfMap) : common;
    sizes = step;
    if (!origin)
        origin = least;
}

BinGrid BinMap::grid(std::int64_t most, const std::function<void(std::int64_t)>& allow)
{
    if (!hasSizes()) {
        chooseSizes(most);
        std::size_t asked = 0;
        for (const Point& point : points) {
            addToBin(point);
            if (bins.size() < asked + binsBetweenQuestions)
                continue;
            asked = bins.size();
            allow(bytes());
        }
        points = {};
    }
    std::array<std::int64_t, 2> first;
    std::array<std::int64_t, 2> last;
    first.fill(std::numeric_limits<std::int64_t>::max());
    last.fill(std::numeric_limits<std::int64_t>::min());
    for (const auto& [key, bin] : bins) {
        const std::array<std::int64_t, 2> place = {columnOf(key), rowOf(key)};
        for (std::size_t i = 0; i < 2; ++i) {
            first[i] = std::min(first[i], place[i]);
            last[i] = std::max(last[i], place[i]);
        }
    }
    BinGrid result;
    for (std::size_t i = 0; i < 2; ++i) {
        result.count[i] = last[i] - first[i] + 1;
        result.axes[i] = {(*origin)[i] + static_cast<double>(first[i]) * (*sizes)[i], (*sizes)[i]};
    }
    if (std::max(result.count[0], result.count[1]) > most)
        throw std::runtime_error(
            "with bins of " + text((*sizes)[0]) + " by " + text((*sizes)[1]) + ", the map has " +
            std::to_string(result.count[0]) + " by " + std::to_string(result.count[1]) +
            " of them, and at most " + std::to_string(most) +
            " are drawn in each direction; give larger ones with bin, or remove traces with wrong "
            "positions");
    result.bins.reserve(bins.size());
    for (const auto& [key, bin] : bins)
        result.bins.emplace(keyOf(columnOf(key) - first[0], rowOf(key) - first[1]), bin);
    bins.clear();
    return result;
}
