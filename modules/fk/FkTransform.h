/// @file FkTransform.h
///
/// The two-dimensional Fourier transform of a gather. Independent of the kernel.
#ifndef FKTRANSFORM_H
#define FKTRANSFORM_H

#include "dip_fan.h"

#include <complex>
#include <cstdint>
#include <memory>

/// A gather in frequency and wavenumber: X(j, m) = sum of x(i, n) exp(-2 pi i (j n / rows - m i /
/// columns)) over the traces i and samples n. An event that is later from trace to trace has
/// positive wavenumbers.
///
/// Zeros behind the traces (half as many samples again) and behind the last trace (as many traces
/// again) keep a filter from bringing one end of the gather to the other.
class FkTransform
{
public:
    /// For gathers of up to `traces` traces of `samples` samples, both at least 1. Throws
    /// std::bad_alloc. Requires: `bytesFor` of these is not negative.
    FkTransform(int traces, int samples);
    ~FkTransform();
    FkTransform(const FkTransform&) = delete;
    FkTransform& operator=(const FkTransform&) = delete;

    /// Bytes that such a transform takes; -1 when it is longer than FFTW can do.
    static std::int64_t bytesFor(int traces, int samples);

    int columns() const { return across; } ///< wavenumbers: an even number
    int rows() const { return down; }      ///< samples with zeros: an even number
    int frequencies() const { return down / 2 + 1; }
    int mostTraces() const { return across / 2; } ///< that a gather may have

    /// Transforms a gather: `traces` traces of the constructor's length, one after the other.
    void forward(const double* gather, int traces);
    /// The value at frequency `j` (0 to frequencies() - 1, of j / rows() cycles per sample) and
    /// wavenumber `m` (-columns() / 2 to columns() / 2 - 1, of m / columns() cycles per trace).
    std::complex<double> at(int j, int m) const;
    /// Multiplies by the weights of the fan. `interval` is that of samples, in seconds.
    void apply(const DipFan& fan, double interval);
    /// The gather from its transform, which is lost.
    void backward(double* gather, int traces);

    /// Sum of the squares of the samples, by the transform (Parseval).
    double energy() const;

private:
    struct Work;

    int length; // of a trace
    int across;
    int down;
    std::unique_ptr<Work> work;
};

#endif
