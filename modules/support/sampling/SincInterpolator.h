/// @file SincInterpolator.h
///
/// Samples of a band-limited trace between its samples. Independent of the kernel.
#ifndef SINCINTERPOLATOR_H
#define SINCINTERPOLATOR_H

#include <cstddef>
#include <vector>

namespace sampling {

/// Interpolates with a sinc function under a Kaiser window: from 0 to 90 % of the Nyquist frequency
/// the amplitude is right within 0.0002 (-74 dB), and there is no shift of phase. Samples beyond
/// the ends of a trace are zeros, never those of its other end. At a position of a sample the
/// result is that sample.
///
/// Weights are tabulated for 1024 fractions of a sample and interpolated linearly; the error of
/// this is below 2e-6.
class SincInterpolator
{
public:
    static constexpr int half = 26; ///< samples to either side that take part

    SincInterpolator();

    /// The value at `position`, in samples from 0, of `count` samples. 0 where no sample is near.
    double at(const double* samples, int count, double position) const;

    /// Writes to `moved` the trace `samples` as it is `shift` samples later (negative: earlier),
    /// with exact weights. Both have `count` samples and do not overlap. A shift by whole samples
    /// copies them.
    static void shift(const double* samples, int count, double shift, double* moved);

private:
    std::vector<double> table; // a row of 2 * half weights for each fraction
};

} // namespace sampling

#endif
