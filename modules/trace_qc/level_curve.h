/// @file level_curve.h
///
/// A curve of any number of traces in a bounded number of points. Independent of the kernel.
#ifndef LEVEL_CURVE_H
#define LEVEL_CURVE_H

#include <cstddef>
#include <cstdint>
#include <vector>

/// Keeps the least and the greatest value of so many successive traces that there are never more
/// bins than asked for: when all are full, each two become one.
class LevelCurve
{
public:
    struct Bin
    {
        double least;
        double greatest;
        std::int64_t traces; ///< those that have a value; without any, the values say nothing
    };

    /// @param mostBins  2 or more
    /// @param before  traces that precede the first one here; bins have the places that they would
    ///                have with those
    explicit LevelCurve(std::size_t mostBins, std::int64_t before = 0)
        : limit(mostBins), begin(before), count(before)
    {
    }

    /// The value of the next trace.
    void add(double value) { insert({value, value, 1}); }
    /// The next trace has no value.
    void skip() { insert({0, 0, 0}); }

    /// Continues with the traces of another curve: what then is here is what all of them would have
    /// given. False, and nothing is done, where these are not the traces that follow.
    bool append(LevelCurve next);

    const std::vector<Bin>& bins() const { return kept; }
    std::int64_t traces() const
    {
        return count;
    } ///< all, with and without values, and those before
    /// The middle of a bin's traces, which are numbered from 1.
    double place(std::size_t bin) const;
    std::int64_t tracesPerBin() const { return perBin; }

    /// Its values, for saving and reading.
    template <typename File>
    void transfer(File& file)
    {
        file(perBin, begin, count, kept);
    }

private:
    void insert(const Bin& trace);
    void halve();
    std::int64_t numberOf(std::size_t bin) const; // among those of all traces

    std::size_t limit;
    std::int64_t perBin = 1;
    std::int64_t begin;
    std::int64_t count;
    std::vector<Bin> kept;
};

#endif
