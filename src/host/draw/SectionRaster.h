/// @file SectionRaster.h
///
/// What a picture of a section keeps of its traces: a value for each row of the picture, of the
/// traces that it can show. The samples pass by once, in pieces, so that a picture needs memory by
/// its pixels, not by the samples.
#ifndef SECTIONRASTER_H
#define SECTIONRASTER_H

#include "draw/Page.h"
#include "draw/TraceColumns.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace host {

/// Where a trace lies in a section.
struct TracePlace
{
    int64_t first = 0;   ///< sample of the section, from 0, with which the trace begins
    int64_t samples = 0; ///< of the trace
};

/// The rows of a section. Made when the places of all traces are known; the samples follow. Zeros
/// stand before and behind a trace, and in place of samples that are infinite or NaN.
class SectionRaster
{
public:
    /// `plot` is the area of the traces on the page, `gatherStarts` as in TraceColumns.
    SectionRaster(const Area& plot, bool wiggle, std::vector<TracePlace> traces,
                  std::vector<std::size_t> gatherStarts = {});

    /// The next samples of trace `trace` (from 0); the pieces of a trace come in their order.
    void add(std::size_t trace, std::span<const float> samples);

    std::size_t traces() const { return places.size(); }
    /// From the section's first sample to the last one of all traces; 0 where none has any.
    int64_t samples() const { return longest; }
    /// The picture's rows: pixels of a density picture, at most two for each point of wiggles.
    std::size_t rows() const { return rowCount; }
    /// Samples in a row; below 1 where samples are interpolated.
    double perRow() const { return samplesPerRow; }
    /// Wiggles: every n-th trace is drawn; more would only make the page black.
    std::size_t step() const { return drawnStep; }
    /// Density pictures: pixels across.
    int columns() const { return columnCount; }
    /// Density pictures: the trace that column `x` shows; none in a gap between gathers.
    std::optional<std::size_t> traceOf(int x) const;
    /// Where the traces stand.
    const TraceColumns& across() const { return standing; }
    /// The value of each row of a trace that is drawn: interpolated where a row is less than a
    /// sample, else the strongest sample of the row, so that no peak is lost between rows. Empty
    /// for a trace without samples: all are 0.
    const std::vector<double>& of(std::size_t trace) const { return values[trace]; }

    /// The amplitude below which `percentile` percent of the finite absolute amplitudes lie; 0 when
    /// there is none. Every amplitude counts in sections of up to four million samples, every n-th
    /// in larger ones.
    double clipAmplitude(double percentile);

private:
    double rowStart(std::size_t row) const;
    double rowEnd(std::size_t row) const;
    void chooseTraces();
    void countAmplitudes(int64_t at, std::span<const float> samples);
    void interpolate(std::size_t trace);
    void takeStrongest(std::vector<double>& rowsOfTrace, int64_t at, std::span<const float> piece);

    bool isWiggle;
    std::vector<TracePlace> places;
    double width; // of the plot, in points
    TraceColumns standing;
    std::vector<int64_t> seen; // samples of each trace so far
    std::vector<char> isDrawn;
    int64_t longest = 0;
    std::size_t rowCount = 0;
    double samplesPerRow = 1;
    int columnCount = 1;
    std::size_t drawnStep = 1;
    std::vector<std::vector<double>> values;
    std::vector<float> pending; // of the trace that is to be interpolated, as far as it has come
    std::size_t pendingTrace = 0;
    int64_t amplitudeStep = 1;
    std::vector<float> amplitudes;
};

} // namespace host

#endif
