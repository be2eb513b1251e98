#include "amplitude_spectrum.h"

#include "RealPlan.h"
#include "RealTransform.h"

#include <cmath>
#include <cstddef>
#include <memory>
#include <new>

using transforms::Floats;
using transforms::RealPlan;
using transforms::RealTransform;

struct amplitude_spectrum
{
    explicit amplitude_spectrum(int length)
        : bins(static_cast<std::size_t>(length) / 2 + 1), amplitudes(bins)
    {
        if (RealTransform::lengthFor(length) == length) {
            transform = std::make_unique<RealTransform>(length);
            return;
        }
        plan = std::make_unique<RealPlan<float>>(std::initializer_list<int>{length}, 1);
        for (int i = 0; i < length; ++i)
            plan->values()[i] = 0;
    }

    std::size_t bins;
    Floats amplitudes;
    std::unique_ptr<RealTransform> transform; // one of the two
    std::unique_ptr<RealPlan<float>> plan;
};

int64_t amplitude_spectrum_bytes(int64_t length)
{
    const auto amplitudes = std::int64_t{2} * length;
    if (RealTransform::lengthFor(length) == length)
        return amplitudes + RealTransform::bytesFor(length);
    return amplitudes + RealPlan<float>::bytesFor(length, 1);
}

amplitude_spectrum* amplitude_spectrum_create(int length)
try {
    return std::make_unique<amplitude_spectrum>(length).release();
} catch (const std::bad_alloc&) {
    return nullptr;
}

float* amplitude_spectrum_values(amplitude_spectrum* spectrum)
{
    return spectrum->transform != nullptr ? spectrum->transform->values()
                                          : spectrum->plan->values();
}

const float* amplitude_spectrum_of(amplitude_spectrum* spectrum)
{
    float* to = spectrum->amplitudes.data();
    if (spectrum->transform != nullptr) {
        spectrum->transform->amplitudes(to);
        return to;
    }
    spectrum->plan->forward();
    const fftwf_complex* from = spectrum->plan->spectrum();
    for (std::size_t i = 0; i < spectrum->bins; ++i)
        to[i] = std::sqrt(from[i][0] * from[i][0] + from[i][1] * from[i][1]);
    return to;
}

void amplitude_spectrum_free(amplitude_spectrum* spectrum)
{
    delete spectrum;
}
