/// @file trace_measures.h
///
/// Measures of a single trace. Independent of the kernel.
#ifndef TRACE_MEASURES_H
#define TRACE_MEASURES_H

#include "real_transform.h"

#include <cstdint>
#include <span>
#include <vector>

/// Levels of a trace, of its finite samples; 0 where it has none.
struct TraceLevels
{
    double rms = 0;         ///< root of the mean square, with the mean in it
    double peak = 0;        ///< greatest absolute amplitude
    double mean = 0;        ///< the constant part
    int invalid = 0;        ///< samples that are infinite or NaN
    bool isConstant = true; ///< all finite samples have the same value
};

TraceLevels levelsOf(std::span<const float> samples);

/// The longest run of samples in succession that stand exactly at the trace's greatest value, where
/// that is above 0, or at its least value, where that is below 0. 0 for constant and empty traces.
int longestRunAtTheLimit(std::span<const float> samples);

/// The numbers of the samples that are spikes, ascending: at most three samples wide, and far from
/// everything around them. A sample is a spike when
///
/// - its distance from `mean` is more than 4 times that of any sample two to four places away,
/// which
///   no signal can have whose frequencies are well below the Nyquist frequency, and more than that
///   of both of its neighbours;
/// - and its distance from the median of the `window` samples before it is more than `threshold`
///   standard deviations of those, and likewise for those after it. The deviation is estimated from
///   the median absolute deviation, which a few outliers do not change. Because both sides count,
///   the first arrival after a quiet time is not a spike.
///
/// Samples that are infinite or NaN are left out. Sides with fewer than 8 samples are not
/// checked, and a sample without any side is not a spike.
///
/// After F. R. Hampel: The influence curve and its role in robust estimation. Journal of the
/// American Statistical Association 69, 383-393, 1974.
std::vector<int> findSpikes(std::span<const float> samples, double mean, double threshold,
                            int window);

/// The strongest frequency of a trace.
struct DominantFrequency
{
    double frequency = 0; ///< cycles per sample, 0 to 0.5; 0 for a constant trace
    double share = 0;     ///< of the energy, how much lies no farther from it than 2 / samples
};

/// Finds the peak of the amplitude spectrum of traces of one length. The trace, without its mean,
/// is padded with zeros to at least twice its length, and a parabola through the logarithms of the
/// greatest amplitude and its two neighbours gives the frequency between the steps of the spectrum.
/// Frequencies below one period per trace are the trend of the trace and are not searched.
///
/// After J. O. Smith: Spectral Audio Signal Processing. W3K Publishing, 2011, "Quadratic
/// Interpolation of Spectral Peaks".
class FrequencyMeter
{
public:
    /// @param samples  samples of each trace, 0 to 2^29
    explicit FrequencyMeter(int samples);

    /// Samples that are infinite or NaN count as `mean`.
    ///
    /// @param samples  as many as the constructor was told
    DominantFrequency measure(std::span<const float> samples, double mean);

private:
    int length = 0; // of the transform
    RealTransform transform;
    std::vector<double> energies; // of the frequencies
};

/// Writes the samples less `mean`, the greatest distance scaled to 1, and 0 for those that are
/// infinite or NaN. False, and nothing is written, where all of them are `mean`.
///
/// @param to  room for as many
bool copyScaled(std::span<const float> samples, double mean, float* to);

/// The sum of all values, and that of the products of two rows of as many samples. Several sums run
/// side by side, so that no addition waits for the one before it.
/** @{ */
double sumOf(std::span<const double> values);
double productOf(std::span<const float> a, std::span<const float> b);
/** @} */

/// The least number from `least` on, even, that has no prime factor above 5, which transforms like.
int64_t transformLength(int64_t least);

/// The same for twice the samples of a trace. Throws std::length_error for traces that are too long
/// to be transformed.
int boundedTransformLength(int samples);

#endif
