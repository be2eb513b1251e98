/// @file distributions.h
///
/// How often values occur: of samples, too many to be kept, and of values of a header word.
#ifndef DISTRIBUTIONS_H
#define DISTRIBUTIONS_H

#include <cstdint>
#include <vector>

/// What is counted on the way.
struct Statistics
{
    std::int64_t count = 0;
    double least = 0;
    double greatest = 0;
    double sum = 0;
    double squares = 0;
    bool areWhole = true; ///< all values are whole numbers

    /// Requires: the value is finite.
    void add(double value);
    double mean() const { return count > 0 ? sum / static_cast<double>(count) : 0; }
    double rms() const;
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

private:
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

private:
    std::vector<double> values;
};

/// Places for at most `most` bars from `left` to `right`. Of whole numbers each bar has as many,
/// and the ends lie between two of them.
Bars emptyBars(double left, double right, int most, bool areWhole);

#endif
