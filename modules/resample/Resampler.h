/// @file Resampler.h
///
/// Changes the sample interval of a trace. Independent of the kernel.
#ifndef RESAMPLER_H
#define RESAMPLER_H

#include "sampling/KaiserWindow.h"

#include <cstdint>
#include <vector>

/// A low-pass filter and an interpolator in one: output sample j is the sum of x(i) h(t_j - t_i)
/// over the input samples i, with h(t) = 2 f d sinc(2 f t) w(t / T). d is the input's interval, f
/// the middle of the transition band, w the Kaiser window and T its half length. The weights of
/// each output sample are scaled to the sum 1, so that a constant stays constant; h is even, so
/// that phases stay.
///
/// Beyond its ends a trace counts as zeros.
class Resampler
{
public:
    /// Intervals are in microseconds, above 0; `pass`, from 0 to 1, is the part of the lower
    /// Nyquist frequency up to which the filter passes; from that frequency on it attenuates by
    /// `attenuation` dB. `samples` is the length of the traces to come.
    Resampler(int from, int to, double pass, double attenuation, int samples);

    /// Samples of an output trace: as many as there are times of the input. Counted in 64 bits,
    /// since a fine interval can exceed any trace.
    static std::int64_t samplesFor(int from, int to, int samples);

    /// Half of the filter's length in input samples.
    std::int64_t halfLength() const { return half; }
    /// Cycles per second.
    double passEnd() const { return passFrequency; }
    double stopBegin() const { return stopFrequency; }

    /// Computes `out`, of samplesFor() samples. `in` has the length given to the constructor.
    void apply(const double* in, float* out);

private:
    void makeWeights(double fraction, std::int64_t first, std::int64_t last,
                     std::vector<double>& weights) const;

    std::int64_t from;
    std::int64_t to;
    int count;
    double passFrequency;
    double stopFrequency;
    double cut; // cycles per input sample
    std::int64_t half;
    sampling::KaiserWindow window;
    std::int64_t phases; // places of output samples between input samples
    bool isTabulated;
    std::vector<double> table; // a row of 2 * half weights for each phase
    std::vector<double> row;
};

#endif
