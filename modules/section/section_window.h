/// @file section_window.h
///
/// Which samples of a trace lie in the time window of a picture. Independent of the kernel.
#ifndef SECTION_WINDOW_H
#define SECTION_WINDOW_H

#include <cstdint>
#include <span>
#include <vector>

/// The samples of a picture. The first trace's samples lie on the picture's; those of traces with
/// another delay are shifted by whole samples.
struct SectionWindow
{
    int first = 0;       ///< sample of the first trace that is the picture's first one
    int samples = 0;     ///< of the picture
    int delay = 0;       ///< of the first trace, milliseconds
    double interval = 0; ///< seconds; 0 when it is not known, and delays mean nothing then

    /// Seconds at the picture's first sample.
    double start() const;
};

/// The window of a picture from `from` to `to` seconds, both included, as far as the first trace
/// has samples there. Without an interval it is the whole trace.
///
/// @param traceSamples  of the first trace
/// @param delay         of the first trace, milliseconds
/// @param interval      seconds; 0 when it is not known
/// @return              without samples where the trace has none in the window
SectionWindow sectionWindow(int traceSamples, int delay, double interval, double from, double to);

/// The samples of a trace in the picture: zeros where the trace has none.
///
/// @param delay  of this trace, milliseconds
std::vector<float> samplesInWindow(const SectionWindow& window, std::span<const float> trace,
                                   int delay);

/// How many samples are infinite or NaN.
int64_t oddSamples(std::span<const float> samples);

/// The interval at which traces have to be taken of `total` so that no more than `most` remain.
int64_t evenStep(int64_t total, int64_t most);

#endif
