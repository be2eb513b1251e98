/// @file ShortTimeSpectra.h
///
/// Spectra of a window that moves along a trace. Independent of the kernel.
#ifndef SHORTTIMESPECTRA_H
#define SHORTTIMESPECTRA_H

#include <cstdint>
#include <memory>
#include <vector>

/// With weights w(i) = cos²(pi (i - c) / n), the window (Hann's) of n samples with its middle c,
/// the amplitude at a frequency is a = 2 / sum(w) |sum of w(i) x(i) exp(-2 pi j f i dt)|, half of
/// it at 0 Hz and at the Nyquist frequency. Samples beyond the ends of the trace are zeros. Windows
/// are padded with zeros to at least four times their length.
class ShortTimeSpectra
{
public:
    /// A window of `samples` samples, at least 1; an even number is raised by one, so that it has a
    /// middle. Throws std::bad_alloc. Requires: `bytesFor` it is not negative.
    explicit ShortTimeSpectra(int samples);
    ~ShortTimeSpectra();
    ShortTimeSpectra(const ShortTimeSpectra&) = delete;
    ShortTimeSpectra& operator=(const ShortTimeSpectra&) = delete;

    /// Bytes that it takes; -1 for a window longer than FFTW can transform.
    static std::int64_t bytesFor(int samples);

    int window() const { return static_cast<int>(weights.size()); } ///< samples, an odd number
    int length() const { return transformed; }              ///< of the transform: an even number
    int frequencies() const { return transformed / 2 + 1; } ///< of j / length() cycles per sample

    /// The amplitudes of the window whose middle is at sample `middle` of the trace, which may be
    /// beyond its ends. Valid until the next call.
    const std::vector<double>& at(const double* trace, int count, std::int64_t middle);

private:
    struct Transform;

    std::vector<double> weights;
    double sumOfWeights = 0;
    int transformed;
    std::unique_ptr<Transform> transform;
    std::vector<double> amplitudes;
};

#endif
