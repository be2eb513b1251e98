#include "real_transform.h"

#include "plan_flags.h"
#include "transform_memory.h"

#include <cstddef>
#include <new>

RealTransform::RealTransform(int length, Directions directions)
    : buffer(fftwf_alloc_real(static_cast<std::size_t>(length) + 2))
{
    const bool both = directions == Directions::both;
    if (buffer == nullptr || transform_has_room(length, both ? 2 : 1) == 0)
        throw std::bad_alloc();
    auto* spectrum = reinterpret_cast<fftwf_complex*>(buffer.get());
    toFrequencies.reset(
        fftwf_plan_dft_r2c_1d(length, buffer.get(), spectrum, transforms_plan_flags()));
    if (both)
        toSamples.reset(
            fftwf_plan_dft_c2r_1d(length, spectrum, buffer.get(), transforms_plan_flags()));
    if (toFrequencies == nullptr || (both && toSamples == nullptr))
        throw std::bad_alloc();
}
