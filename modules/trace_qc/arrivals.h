/// @file arrivals.h
///
/// Where the signal of a trace begins, and what is before it and at the end. Independent of the
/// kernel.
#ifndef ARRIVALS_H
#define ARRIVALS_H

#include <optional>
#include <span>
#include <vector>

/// The number of the sample, from 0, at which the signal begins; nothing where no onset is clear.
///
/// At an onset the mean energy of the next `window` samples is at least `ratio` times that of up to
/// six windows before it. The energy before is taken to be at least 1/10000 of the greatest one of
/// a window, so that a muted beginning is as good as a quiet one. The ratio is weighted by the
/// sample's own energy, at most that of its window. Of the onsets with a tenth of the greatest
/// weight or more the first one counts, with its greatest weight within one window.
///
/// After J. Wong, L. Han, J. C. Bancroft, R. R. Stewart: Automatic time-picking of first arrivals
/// on noisy microseismic data. CSEG, 2009 (ratio of energies).
///
/// @param window  samples, 1 or more
std::optional<int> firstArrival(std::span<const float> samples, int window, double ratio = 10);

/// Levels before the signal and at the end of the record. 0 where a window has no samples.
struct NoiseWindows
{
    double before = 0; ///< RMS from the beginning to `window` samples before the first arrival
    double late = 0;   ///< RMS of the last fifth of the trace
    double signal = 0; ///< RMS of the 5 `window` samples from the first arrival on
    double ratio = 0;  ///< signal over before; 0 without one of them
};

/// RMS about the mean `mean` of the trace. Windows before the first arrival need 10 samples.
NoiseWindows noiseWindows(std::span<const float> samples, double mean, std::optional<int> arrival,
                          int window);

/// RMS of the differences between successive samples over the RMS of the samples without `mean`:
/// 2 sin(pi f) for a tone of f cycles per sample, the root of 2 for white noise, 0 for a constant.
/// White noise raises it in records of lower frequencies, whatever their level.
double roughness(std::span<const float> samples, double mean);

/// By how much each sample differs from the cubic interpolation of the two before and the two after
/// it. Small where frequencies are below half of the Nyquist frequency, however strong the signal
/// is; a spike stands out. 0 for the eight samples at either end, where records often have steps,
/// and beside infinite and NaN ones.
std::vector<float> interpolationErrors(std::span<const float> samples);

#endif
