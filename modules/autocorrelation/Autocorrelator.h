/// @file Autocorrelator.h
///
/// Autocorrelations by way of the power spectrum. Independent of the kernel.
#ifndef AUTOCORRELATOR_H
#define AUTOCORRELATOR_H

#include <cstdint>
#include <memory>
#include <vector>

/// r(k) = sum of x(i) x(i + k) over all i for which there are both, for lags k from 0 on. It is
/// computed as the inverse Fourier transform of |X|^2, in double precision; zeros behind the trace
/// keep its ends apart.
class Autocorrelator
{
public:
    /// For up to `samples` samples and lags from 0 to `lags`, both at least 0, their sum at most
    /// `mostSamples`. Throws std::bad_alloc.
    Autocorrelator(int samples, int lags);
    ~Autocorrelator();
    Autocorrelator(const Autocorrelator&) = delete;
    Autocorrelator& operator=(const Autocorrelator&) = delete;

    static constexpr std::int64_t mostSamples = std::int64_t{1} << 28;

    /// The memory that an object takes, the caller's copy of the samples included.
    static std::int64_t bytesFor(int samples, int lags);

    /// r(0) to r(lags) of `count` samples, at most those of the constructor; valid until the next
    /// call. Lags of `count` samples and more give 0.
    const std::vector<double>& of(const double* samples, int count);

private:
    struct Transform;

    std::unique_ptr<Transform> transform;
    std::vector<double> result;
};

#endif
