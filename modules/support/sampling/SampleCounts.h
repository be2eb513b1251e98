/// @file SampleCounts.h
///
/// What modules that compute with whole traces do with samples that are infinite or NaN.
/// Independent of the kernel.
#ifndef SAMPLECOUNTS_H
#define SAMPLECOUNTS_H

#include <cstdint>
#include <string>
#include <vector>

namespace sampling {

/// Turns samples into doubles. One that is infinite or NaN would spoil all that are near it: it
/// counts as 0, and is counted for a warning.
class FiniteSamples
{
public:
    /// The samples of a trace; valid until the next call.
    const double* of(const float* samples, int count);

    /// "samples that are infinite or NaN: 3, in traces: 1; they count as 0"; "" when there was
    /// none.
    std::string warning() const;

    /// What was counted, for a job in parts: see vorn_parts.hpp.
    template <typename File>
    void save(File& file)
    {
        file(samplesLost, traces);
    }
    template <typename File>
    void merge(File& file)
    {
        samplesLost += file.template get<std::int64_t>();
        traces += file.template get<std::int64_t>();
    }

private:
    std::vector<double> values;
    std::int64_t samplesLost = 0;
    std::int64_t traces = 0;
};

/// `value` as a sample; what is beyond the range of floats becomes its largest number.
float toSample(double value);

/// The greatest number of samples of a trace: their bytes are counted in 32 bits.
constexpr std::int64_t mostSamples = (std::int64_t{1} << 29) - 1;

} // namespace sampling

#endif
