/// @file mains_hum.h
///
/// How much of a trace is hum of the mains. Independent of the kernel.
#ifndef MAINS_HUM_H
#define MAINS_HUM_H

#include "real_transform.h"

#include <span>
#include <vector>

struct Hum
{
    double share = 0; ///< of the trace's energy, 0 to 1, in the lines above their background
    double mains = 0; ///< Hz, 50 or 60; 0 where neither line stands out
};

/// Looks for the lines of 50 Hz and 60 Hz and their harmonics in traces of one length.
///
/// The trace without its mean is tapered by a Hann window and transformed. A line is what lies
/// within half a hertz of its frequency, as many times as the harmonic has, and two steps of the
/// resolution (1 / duration), which is half the width of the window's main lobe. What counts is its
/// energy above the background: the median of the energies in the 6 Hz, or 8 steps, to either side,
/// over ln 2, which is the mean of energies of noise with that median. The background is the higher
/// one of the two sides, so that a slope of the spectrum is not a line. Lines that are less than
/// four times their background do not count, nor do those without room below the Nyquist frequency.
///
/// Records below 0.2 s do not resolve a line; their share is 0.
class HumMeter
{
public:
    /// @param samples   samples of each trace, 0 to 2^29
    /// @param interval  seconds; 0 when it is not known, then nothing is measured
    HumMeter(int samples, double interval);

    /// Samples that are infinite or NaN count as `mean`.
    ///
    /// @param samples  as many as the constructor was told
    Hum measure(std::span<const float> samples, double mean);

private:
    double lineEnergy(double frequency, double drift) const;

    int length = 0;     // of the transform
    double step = 0;    // Hz from bin to bin
    double finest = 0;  // Hz, 1 / duration
    double nyquist = 0; // Hz
    RealTransform transform;
    std::vector<float> taper;
    std::vector<double> energies; // of the bins
};

#endif
