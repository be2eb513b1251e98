#include "ShortTimeSpectra.h"

#include "fast_length.h"
#include "plan_flags.h"
#include "transform_memory.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <fftw3.h>
#include <new>
#include <numbers>

namespace {

// Zeros interpolate between the frequencies that the window separates, for a smooth picture.
constexpr int padding = 4;

std::int64_t odd(int samples)
{
    return samples % 2 == 0 ? std::int64_t{samples} + 1 : samples;
}

} // namespace

struct ShortTimeSpectra::Transform
{
    explicit Transform(int length)
        : values(fftw_alloc_real(static_cast<std::size_t>(length))),
          spectrum(fftw_alloc_complex(static_cast<std::size_t>(length) / 2 + 1))
    {
        // The plan of doubles is twice as large as that of floats.
        if (values != nullptr && spectrum != nullptr &&
            transform_has_room(std::int64_t{2} * length, 1) != 0)
            plan = fftw_plan_dft_r2c_1d(length, values, spectrum, transforms_plan_flags());
        if (plan == nullptr) {
            release();
            throw std::bad_alloc();
        }
    }
    ~Transform() { release(); }
    Transform(const Transform&) = delete;
    Transform& operator=(const Transform&) = delete;

    void release()
    {
        if (plan != nullptr)
            fftw_destroy_plan(plan);
        fftw_free(values);
        fftw_free(spectrum);
    }

    double* values;
    fftw_complex* spectrum;
    fftw_plan plan = nullptr;
};

ShortTimeSpectra::ShortTimeSpectra(int samples)
    : weights(static_cast<std::size_t>(odd(samples))),
      transformed(static_cast<int>(evenFastLength(padding * odd(samples)))),
      transform(std::make_unique<Transform>(transformed)),
      amplitudes(static_cast<std::size_t>(transformed) / 2 + 1)
{
    const double middle = static_cast<double>(weights.size() - 1) / 2;
    for (std::size_t i = 0; i < weights.size(); ++i) {
        const double cosine = std::cos(std::numbers::pi * (static_cast<double>(i) - middle) /
                                       static_cast<double>(weights.size()));
        weights[i] = cosine * cosine;
        sumOfWeights += weights[i];
    }
}

ShortTimeSpectra::~ShortTimeSpectra() = default;

std::int64_t ShortTimeSpectra::bytesFor(int samples)
{
    if (padding * odd(samples) > TRANSFORM_LONGEST)
        return -1;
    const std::int64_t length = evenFastLength(padding * odd(samples));
    if (length > TRANSFORM_LONGEST)
        return -1;
    // Values, their spectrum, amplitudes, weights.
    return 24 * length + transform_plan_bytes(length, 1);
}

const std::vector<double>& ShortTimeSpectra::at(const double* trace, int count, std::int64_t middle)
{
    const auto size = static_cast<std::int64_t>(weights.size());
    const std::int64_t first = middle - size / 2;
    for (std::int64_t i = 0; i < size; ++i) {
        const std::int64_t sample = first + i;
        const bool isInside = sample >= 0 && sample < count;
        transform->values[i] = isInside ? weights[static_cast<std::size_t>(i)] * trace[sample] : 0;
    }
    std::fill(transform->values + size, transform->values + transformed, 0.0);
    fftw_execute(transform->plan);
    const int last = transformed / 2;
    for (int j = 0; j <= last; ++j) {
        const fftw_complex& value = transform->spectrum[j];
        const double factor = j == 0 || j == last ? 1 : 2;
        amplitudes[static_cast<std::size_t>(j)] =
            factor / sumOfWeights * std::hypot(value[0], value[1]);
    }
    return amplitudes;
}
