/// @file gather_measures.h
///
/// Measures of a trace in comparison with the others of its gather. Independent of the kernel.
#ifndef GATHER_MEASURES_H
#define GATHER_MEASURES_H

#include "real_transform.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

/// For each value the median of those around it that are above 0: of `window` values with it in the
/// middle, of as many beyond the gather's ends as there are. An even `window` counts as the next
/// odd one. 0 where no value is above 0.
std::vector<double> runningMedian(const std::vector<double>& values, int window);

/// Bytes of memory that measuring takes, of gathers of `traces` traces with `samples` samples each:
/// a FrequencyMeter, a Correlator, and the spectra that `judgePolarity` keeps. Throws
/// std::length_error for traces that are too long to be transformed.
int64_t measuringBytes(int samples, int neighbours, int traces);

/// Correlates traces of one length with each other.
class Correlator
{
public:
    /// What a trace is to be correlated by; made by transform().
    using Spectrum = std::vector<float>;

    /// @param samples  samples of each trace, 0 to 2^29
    explicit Correlator(int samples);

    /// Of the trace without its mean and with the energy 1. Samples that are infinite or NaN
    /// count as the mean. Empty for a trace that has no energy then.
    Spectrum transform(std::span<const float> samples);

    /// The polarity that two traces have to each other, from -1 to 1: the mean of the greatest and
    /// the least value of their normalised cross-correlation at lags of at most `lag` samples to
    /// either side. Without a lag it is the correlation coefficient; with lags it is 1 for no
    /// signal but still above 0 for the same polarity, below 0 for the opposite one, near 0 when
    /// the traces cannot tell. A lag beyond the traces' length counts as that. 0 for empty spectra.
    double polarity(const Spectrum& a, const Spectrum& b, int lag);

private:
    int count = 0;  // samples of a trace
    int length = 0; // of the transform
    RealTransform fourier;
};

struct PolarityRule
{
    int neighbours = 2;      ///< traces to each side that a trace is held against
    int lag = 0;             ///< samples by which an event may move from one trace to the next
    double threshold = 0.07; ///< of the mean polarity, 0 to 1
};

struct PolarityVerdict
{
    double toNeighbours = 0; ///< mean polarity to them; 0 where the trace has none
    double among = 0;        ///< mean polarity of these neighbours to each other
    bool isReversed = false;
};

/// Finds the reversed traces of a gather: those whose mean polarity to their neighbours is at most
/// -threshold, while the neighbours have at least +threshold to each other. The second condition
/// avoids false findings in gathers whose events move by half a period or more from trace to trace:
/// there the neighbours contradict each other as much as the trace contradicts them.
///
/// @param samplesOf  the samples of a trace, which are not needed any more when it is called again;
///                   nothing for one that takes no part, and is nobody's neighbour
/// @param isInQuestion  whether a trace may be reversed: the others get no verdict, which saves the
///                      correlations that no verdict needs; all may be without it
std::vector<PolarityVerdict>
judgePolarity(int traces,
              const std::function<std::optional<std::span<const float>>(int)>& samplesOf,
              const PolarityRule& rule, Correlator& correlator,
              const std::function<bool(int)>& isInQuestion = {});

#endif
