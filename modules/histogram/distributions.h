/// @file distributions.h
///
/// How often values occur: of samples, too many to be kept, and of values of a header word.
#ifndef DISTRIBUTIONS_H
#define DISTRIBUTIONS_H

#include "sums/ExactSums.h"

#include <algorithm>
#include <cstdint>
#include <vector>

/// What is counted on the way. The values of a trace are summed as they come, and the sums of
/// traces exactly: mean and RMS do not depend on which traces were summed together.
struct Statistics
{
    std::int64_t count = 0;
    double least = 0;
    double greatest = 0;
    bool areWhole = true; ///< all values are whole numbers

    /// Requires: the value is finite.
    void add(double value);
    /// All values of a trace have been added; mean and RMS are those of such traces.
    void endTrace();
    /// Adds what another has counted.
    void add(Statistics& other);
    double mean() const;
    double rms() const;

    /// Its values, for saving and reading.
    template <typename File>
    void transfer(File& file)
    {
        file(count, least, greatest, areWhole, isBeyond, sums);
    }

private:
    double sum = 0; // of the trace
    double squares = 0;
    bool isBeyond = false;   // a sum of squares was greater than any double
    sums::ExactSums sums{2}; // of traces: values, and squares
};

/// The bars of a histogram: of equal width, from `left` to `right`.
struct Bars
{
    double left;
    double right;
    std::vector<double> heights; ///< values per bar
    double width() const { return (right - left) / static_cast<double>(heights.size()); }
};

/// Values of both kinds, told apart by what is known of them.
class Distribution
{
public:
    Distribution() = default;
    Distribution(const Distribution&) = delete;
    Distribution& operator=(const Distribution&) = delete;
    virtual ~Distribution() = default;

    const Statistics& statistics() const { return all; }
    /// The value below which `percent` of the values lie: that at the place percent / 100 (count -
    /// 1), rounded, from 0, of the sorted ones. Requires: there is a value.
    virtual double percentile(double percent) = 0;
    /// Adds the values between the ends to the heights; the left end belongs to a bar, the right
    /// one to the last only.
    virtual void fill(Bars& bars) const = 0;
    /// See Statistics.
    void endTrace() { all.endTrace(); }

protected:
    Statistics all;
};

/// Samples, counted in classes of floats that have sign, exponent and the first 12 bits of the
/// mantissa in common: values and percentiles are right within 1 / 4096 of themselves, whatever
/// their range, in 16 MB. Percentiles are those of absolute values.
class SampleDistribution : public Distribution
{
public:
    static constexpr std::int64_t bytes = (std::int64_t{1} << 21) * 8;

    SampleDistribution();
    /// Requires: the sample is finite.
    void add(float sample);
    double percentile(double percent) override;
    void fill(Bars& bars) const override;

    /// Saves what was counted, and adds what was saved: see vorn_parts.hpp.
    template <typename File>
    void save(File& file)
    {
        file(all, greatestAbsolute);
        for (const std::vector<std::int64_t>* counts : {&positive, &negative}) {
            std::vector<Count> used = usedOf(*counts);
            file(used);
        }
    }
    template <typename File>
    void merge(File& file)
    {
        auto other = file.template get<Statistics>();
        all.add(other);
        greatestAbsolute = std::max(greatestAbsolute, file.template get<double>());
        for (std::vector<std::int64_t>* counts : {&positive, &negative}) {
            for (const Count& one : file.template get<std::vector<Count>>()) {
                if (one.place < 0 || one.place >= static_cast<std::int64_t>(counts->size()))
                    file.refuse("it has a class that samples do not have");
                (*counts)[static_cast<std::size_t>(one.place)] += one.count;
            }
        }
    }

private:
    struct Count
    {
        std::int64_t place;
        std::int64_t count;
    };
    // Those that are not 0: few of all.
    static std::vector<Count> usedOf(const std::vector<std::int64_t>& counts);

    std::vector<std::int64_t> positive; // by the first bits of the absolute value
    std::vector<std::int64_t> negative;
    double greatestAbsolute = 0;
};

/// Values that are all kept.
class ValueDistribution : public Distribution
{
public:
    /// Requires: the value is finite.
    void add(double value);
    /// Bytes that the next value needs together with all others; 0 where it has room.
    std::int64_t bytesOfGrowth() const;
    double percentile(double percent) override;
    void fill(Bars& bars) const override;

    /// Saves the values, and adds what was saved: see vorn_parts.hpp. `allow` is called with the
    /// bytes of all before they are taken.
    template <typename File>
    void save(File& file)
    {
        file(all, values);
    }
    template <typename File, typename Allow>
    void merge(File& file, const Allow& allow)
    {
        auto other = file.template get<Statistics>();
        all.add(other);
        allow((2 * other.count + 3 * static_cast<std::int64_t>(values.size())) *
              static_cast<std::int64_t>(sizeof(double)));
        const auto more = file.template get<std::vector<double>>();
        values.insert(values.end(), more.begin(), more.end());
    }

private:
    std::vector<double> values;
};

/// Places for at most `most` bars from `left` to `right`. Of whole numbers each bar has as many,
/// and the ends lie between two of them.
Bars emptyBars(double left, double right, int most, bool areWhole);

#endif
