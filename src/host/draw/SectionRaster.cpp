#include "draw/SectionRaster.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace host {

namespace {

constexpr double pixelsPerPoint = 2; // of density images; as many as a PNG page has
constexpr double rowsPerPoint = 2;   // of wiggles: what lies closer cannot be told apart
constexpr int64_t mostSamplesSorted = 4000000;

double finite(float sample)
{
    return std::isfinite(sample) ? sample : 0.0F;
}

} // namespace

SectionRaster::SectionRaster(const Area& plot, bool wiggle, std::vector<TracePlace> traces,
                             std::vector<std::size_t> gatherStarts)
    : isWiggle(wiggle), places(std::move(traces)), width(plot.width),
      standing(plot.width, places.size(), std::move(gatherStarts)), seen(places.size(), 0),
      isDrawn(places.size(), 0), values(places.size())
{
    int64_t total = 0;
    for (TracePlace& place : places) {
        place.first = std::max<int64_t>(place.first, 0);
        if (place.samples > 0)
            longest = std::max(longest, place.first + place.samples);
        total += place.samples;
    }
    amplitudeStep = total / mostSamplesSorted + 1;
    if (isWiggle) {
        const double span = static_cast<double>(std::max<int64_t>(longest, 2)) - 1;
        rowCount =
            static_cast<std::size_t>(std::min(span + 1, std::max(2.0, plot.height * rowsPerPoint)));
        samplesPerRow = (span + 1) / static_cast<double>(rowCount);
        drawnStep = static_cast<std::size_t>(std::max(1.0, std::ceil(0.75 / standing.spacing())));
    } else {
        columnCount = std::max(1, static_cast<int>(plot.width * pixelsPerPoint));
        rowCount =
            static_cast<std::size_t>(std::max(1, static_cast<int>(plot.height * pixelsPerPoint)));
        samplesPerRow = static_cast<double>(longest) / static_cast<double>(rowCount);
    }
    chooseTraces();
}

std::optional<std::size_t> SectionRaster::traceOf(int x) const
{
    return standing.traceAt((x + 0.5) / columnCount * width);
}

void SectionRaster::chooseTraces()
{
    if (places.empty())
        return;
    if (isWiggle) {
        for (std::size_t i = 0; i < places.size(); i += drawnStep)
            isDrawn[i] = 1;
        return;
    }
    for (int x = 0; x < columnCount; ++x) {
        if (const std::optional<std::size_t> trace = traceOf(x))
            isDrawn[*trace] = 1;
    }
}

// A row covers the samples from its start to its end.
double SectionRaster::rowStart(std::size_t row) const
{
    return static_cast<double>(row) * samplesPerRow;
}

double SectionRaster::rowEnd(std::size_t row) const
{
    return isWiggle ? rowStart(row) + samplesPerRow : rowStart(row + 1);
}

void SectionRaster::add(std::size_t trace, std::span<const float> samples)
{
    const int64_t at = seen[trace]; // in the trace
    countAmplitudes(at, samples);
    seen[trace] += static_cast<int64_t>(samples.size());
    if (isDrawn[trace] == 0 || samples.empty())
        return;
    if (samplesPerRow > 1) {
        values[trace].resize(rowCount, 0.0);
        takeStrongest(values[trace], places[trace].first + at, samples);
        return;
    }
    // Such traces have no more samples than the picture has rows.
    if (pendingTrace != trace || at == 0)
        pending.clear();
    pendingTrace = trace;
    pending.insert(pending.end(), samples.begin(), samples.end());
    if (seen[trace] == places[trace].samples)
        interpolate(trace);
}

void SectionRaster::countAmplitudes(int64_t at, std::span<const float> samples)
{
    const int64_t count = static_cast<int64_t>(samples.size());
    for (int64_t i = (amplitudeStep - at % amplitudeStep) % amplitudeStep; i < count;
         i += amplitudeStep)
    {
        const float sample = samples[static_cast<std::size_t>(i)];
        if (std::isfinite(sample))
            amplitudes.push_back(std::fabs(sample));
    }
}

void SectionRaster::interpolate(std::size_t trace)
{
    const int64_t first = places[trace].first;
    const int64_t end = first + static_cast<int64_t>(pending.size());
    const auto valueAt = [&](int64_t index) {
        return index >= first && index < end
                   ? finite(pending[static_cast<std::size_t>(index - first)])
                   : 0.0;
    };
    std::vector<double>& rowsOfTrace = values[trace];
    rowsOfTrace.resize(rowCount, 0.0);
    for (std::size_t row = 0; row < rowCount; ++row) {
        const double at = std::max(0.0, (rowStart(row) + rowEnd(row)) / 2 - 0.5);
        const auto index = static_cast<int64_t>(at);
        const double share = at - static_cast<double>(index);
        const int64_t next = index + 1 < end ? index + 1 : index;
        rowsOfTrace[row] = valueAt(index) * (1 - share) + valueAt(next) * share;
    }
}

// A sample on the border of two rows belongs to both.
void SectionRaster::takeStrongest(std::vector<double>& rowsOfTrace, int64_t at,
                                  std::span<const float> piece)
{
    const int64_t end = at + static_cast<int64_t>(piece.size());
    const auto rowAt = [&](int64_t sample) {
        return static_cast<int64_t>(static_cast<double>(sample) / samplesPerRow);
    };
    const int64_t firstRow = std::max<int64_t>(rowAt(at) - 1, 0);
    const int64_t lastRow = std::min<int64_t>(rowAt(end) + 1, static_cast<int64_t>(rowCount) - 1);
    for (int64_t row = firstRow; row <= lastRow; ++row) {
        const auto y = static_cast<std::size_t>(row);
        const double rowsEnd = rowEnd(y);
        double strongest = rowsOfTrace[y];
        for (int64_t i = std::max(static_cast<int64_t>(rowStart(y)), at);
             i < end && static_cast<double>(i) < rowsEnd; ++i)
        {
            const double value = finite(piece[static_cast<std::size_t>(i - at)]);
            if (std::fabs(value) > std::fabs(strongest))
                strongest = value;
        }
        rowsOfTrace[y] = strongest;
    }
}

double SectionRaster::clipAmplitude(double percentile)
{
    if (amplitudes.empty())
        return 0;
    const double share = std::clamp(percentile, 0.0, 100.0) / 100;
    const auto place = static_cast<std::ptrdiff_t>(
        std::lround(share * static_cast<double>(amplitudes.size() - 1)));
    std::nth_element(amplitudes.begin(), amplitudes.begin() + place, amplitudes.end());
    return amplitudes[static_cast<std::size_t>(place)];
}

} // namespace host
