#include "SliceGrid.h"

#include <algorithm>
#include <limits>
#include <numeric>

LineNumbers LineNumbers::of(const std::vector<std::int64_t>& numbers)
{
    const auto [least, greatest] = std::minmax_element(numbers.begin(), numbers.end());
    std::int64_t step = 0;
    for (const std::int64_t number : numbers)
        step = std::gcd(step, number - *least);
    step = std::max<std::int64_t>(step, 1);
    return {*least, step, (*greatest - *least) / step + 1};
}

bool LineSlice::add(std::int64_t number, std::span<const float> samples)
{
    return traces.try_emplace(number, samples.begin(), samples.end()).second;
}

LineNumbers LineSlice::numbers() const
{
    std::vector<std::int64_t> all;
    all.reserve(traces.size());
    for (const auto& [number, samples] : traces)
        all.push_back(number);
    return LineNumbers::of(all);
}

const std::vector<float>* LineSlice::trace(std::int64_t number) const
{
    const auto found = traces.find(number);
    return found != traces.end() ? &found->second : nullptr;
}

std::vector<float> LineSlice::values() const
{
    std::vector<float> all;
    if (!traces.empty())
        all.reserve(traces.size() * traces.begin()->second.size());
    for (const auto& [number, samples] : traces)
        all.insert(all.end(), samples.begin(), samples.end());
    return all;
}

// Lines number in thousands: their product spreads over the table.
std::size_t TimeSlices::Hash::operator()(const Place& place) const
{
    constexpr std::uint64_t odd = 0x9E3779B97F4A7C15U;
    const auto mixed = static_cast<std::uint64_t>(place.inlineNumber) * odd ^
                       static_cast<std::uint64_t>(place.crossline);
    return static_cast<std::size_t>((mixed ^ mixed >> 29) * odd);
}

bool TimeSlices::add(std::int64_t inlineNumber, std::int64_t crossline,
                     const std::vector<float>& samples)
{
    if (!places.try_emplace({inlineNumber, crossline}, places.size()).second)
        return false;
    values.insert(values.end(), samples.begin(), samples.end());
    return true;
}

LineNumbers TimeSlices::inlines() const
{
    std::vector<std::int64_t> all;
    all.reserve(places.size());
    for (const auto& [place, number] : places)
        all.push_back(place.inlineNumber);
    return LineNumbers::of(all);
}

LineNumbers TimeSlices::crosslines() const
{
    std::vector<std::int64_t> all;
    all.reserve(places.size());
    for (const auto& [place, number] : places)
        all.push_back(place.crossline);
    return LineNumbers::of(all);
}

float TimeSlices::at(std::size_t slice, std::int64_t inlineNumber, std::int64_t crossline) const
{
    const auto found = places.find({inlineNumber, crossline});
    return found != places.end() ? values[found->second * perTrace + slice]
                                 : std::numeric_limits<float>::quiet_NaN();
}

std::vector<float> TimeSlices::valuesOf(std::size_t slice) const
{
    std::vector<float> all;
    all.reserve(places.size());
    for (std::size_t i = slice; i < values.size(); i += perTrace)
        all.push_back(values[i]);
    return all;
}
