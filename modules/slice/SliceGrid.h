/// @file SliceGrid.h
///
/// Slices as they are collected: traces, or samples, at whole numbers. Independent of the kernel.
#ifndef SLICEGRID_H
#define SLICEGRID_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <unordered_map>
#include <vector>

/// Numbers of lines as a picture has them: from the least to the greatest, in steps of their
/// greatest common divisor.
struct LineNumbers
{
    std::int64_t first = 0;
    std::int64_t step = 1;
    std::int64_t count = 1;

    /// Of at least one number.
    static LineNumbers of(const std::vector<std::int64_t>& numbers);
    std::int64_t at(std::int64_t place) const { return first + place * step; } ///< from 0
};

/// The traces of an inline or a crossline by their number along it. Of several traces with one
/// number, the first stays.
class LineSlice
{
public:
    /// False where there is a trace already.
    bool add(std::int64_t number, std::span<const float> samples);
    bool isEmpty() const { return traces.empty(); }
    LineNumbers numbers() const;
    /// The trace; null where there is none.
    const std::vector<float>* trace(std::int64_t number) const;
    /// All samples, in any order.
    std::vector<float> values() const;

private:
    std::map<std::int64_t, std::vector<float>> traces;
};

/// One sample of each trace by inline and crossline. Of several traces at one place, the first
/// stays.
class TimeSlices
{
public:
    /// For `slices` samples of each trace.
    explicit TimeSlices(std::size_t slices) : perTrace(slices) {}

    /// The samples of a trace, one for each slice; NaN where it has none. False where there is a
    /// trace already.
    bool add(std::int64_t inlineNumber, std::int64_t crossline, const std::vector<float>& samples);
    bool isEmpty() const { return places.empty(); }
    std::size_t traces() const { return places.size(); }
    LineNumbers inlines() const;
    LineNumbers crosslines() const;
    /// The value of slice `slice` at a place; NaN where there is no trace.
    float at(std::size_t slice, std::int64_t inlineNumber, std::int64_t crossline) const;
    /// All values of a slice, in any order.
    std::vector<float> valuesOf(std::size_t slice) const;

private:
    struct Place
    {
        std::int64_t inlineNumber;
        std::int64_t crossline;

        bool operator==(const Place& other) const
        {
            return inlineNumber == other.inlineNumber && crossline == other.crossline;
        }
    };
    struct Hash
    {
        std::size_t operator()(const Place& place) const;
    };

    std::size_t perTrace;
    std::unordered_map<Place, std::size_t, Hash> places; // number of the trace
    std::vector<float> values;                           // trace by trace
};

#endif
