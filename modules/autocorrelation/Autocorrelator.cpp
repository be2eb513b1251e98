#include "Autocorrelator.h"

#include "plan_flags.h"
#include "transform_memory.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <fftw3.h>
#include <new>

namespace {

// The next product of powers of 2, 3 and 5, whose transforms are fast.
int fastLength(int least)
{
    for (int length = std::max(least, 1);; ++length) {
        int rest = length;
        for (const int factor : {2, 3, 5})
            while (rest % factor == 0)
                rest /= factor;
        if (rest == 1)
            return length;
    }
}

// Zeros behind the samples, as far as lags reach.
int transformLength(int samples, int lags)
{
    return fastLength(samples + std::min(lags, samples));
}

} // namespace

struct Autocorrelator::Transform
{
    explicit Transform(int size)
        : length(size), values(fftw_alloc_real(static_cast<std::size_t>(length))),
          spectrum(fftw_alloc_complex(static_cast<std::size_t>(length) / 2 + 1))
    {
        // The plans of doubles are twice as large as those of floats.
        if (values != nullptr && spectrum != nullptr &&
            transform_has_room(std::int64_t{2} * length, 2) != 0)
        {
            forward = fftw_plan_dft_r2c_1d(length, values, spectrum, transforms_plan_flags());
            backward = fftw_plan_dft_c2r_1d(length, spectrum, values, transforms_plan_flags());
        }
        if (forward == nullptr || backward == nullptr) {
            release();
            throw std::bad_alloc();
        }
    }
    ~Transform() { release(); }
    Transform(const Transform&) = delete;
    Transform& operator=(const Transform&) = delete;

    void release()
    {
        if (forward != nullptr)
            fftw_destroy_plan(forward);
        if (backward != nullptr)
            fftw_destroy_plan(backward);
        fftw_free(values);
        fftw_free(spectrum);
    }

    int length;
    double* values;
    fftw_complex* spectrum;
    fftw_plan forward = nullptr;
    fftw_plan backward = nullptr;
};

Autocorrelator::Autocorrelator(int samples, int lags)
    : transform(std::make_unique<Transform>(transformLength(samples, lags))),
      result(static_cast<std::size_t>(lags) + 1)
{
}

Autocorrelator::~Autocorrelator() = default;

std::int64_t Autocorrelator::bytesFor(int samples, int lags)
{
    const std::int64_t length = transformLength(samples, lags);
    constexpr std::int64_t buffers = 2 * sizeof(double);
    return buffers * length + transform_plan_bytes(2 * length, 2) +
           std::int64_t{8} * (std::int64_t{samples} + lags + 1);
}

const std::vector<double>& Autocorrelator::of(const double* samples, int count)
{
    Transform& work = *transform;
    std::fill(result.begin(), result.end(), 0.0);
    // Scaled to 1, or the power of great amplitudes would lose the small ones to rounding at the
    // limits of the range.
    double scale = 0;
    for (int i = 0; i < count; ++i)
        scale = std::max(scale, std::fabs(samples[i]));
    if (scale == 0)
        return result;
    for (int i = 0; i < count; ++i)
        work.values[i] = samples[i] / scale;
    std::fill(work.values + count, work.values + work.length, 0.0);
    fftw_execute(work.forward);
    for (int k = 0; k < work.length / 2 + 1; ++k) {
        fftw_complex& bin = work.spectrum[k];
        bin[0] = bin[0] * bin[0] + bin[1] * bin[1];
        bin[1] = 0;
    }
    fftw_execute(work.backward);
    const auto lags = std::min<std::size_t>(result.size(), static_cast<std::size_t>(count));
    for (std::size_t k = 0; k < lags; ++k)
        result[k] = work.values[k] / work.length * scale * scale;
    return result;
}
