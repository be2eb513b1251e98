/// @file real_transform.h
///
/// Fourier transforms of real samples, in place. Independent of the kernel.
#ifndef REAL_TRANSFORM_H
#define REAL_TRANSFORM_H

#include <fftw3.h>
#include <memory>
#include <type_traits>

/// A buffer, and the plans to transform what is in it.
///
/// Plans are estimated, not measured, so that every run gives the same numbers.
class RealTransform
{
public:
    enum class Directions
    {
        forward,
        both
    };

    RealTransform() = default; ///< without a buffer
    /// Throws std::bad_alloc where there is no memory for buffer and plans: FFTW would end the
    /// process.
    ///
    /// @param length  samples, 1 to TRANSFORM_LONGEST
    RealTransform(int length, Directions directions);

    /// Whether there is a buffer.
    explicit operator bool() const { return buffer != nullptr; }
    /// `length` samples, or length / 2 + 1 pairs of real and imaginary parts; not cleared.
    float* data() const { return buffer.get(); }

    void forward() const { fftwf_execute(toFrequencies.get()); } ///< samples to frequencies
    /// Frequencies to samples, times the length. Requires: both directions.
    void backward() const { fftwf_execute(toSamples.get()); }

private:
    struct FreeBuffer
    {
        void operator()(float* samples) const { fftwf_free(samples); }
    };
    struct FreePlan
    {
        void operator()(fftwf_plan plan) const { fftwf_destroy_plan(plan); }
    };
    using Plan = std::unique_ptr<std::remove_pointer_t<fftwf_plan>, FreePlan>;

    std::unique_ptr<float, FreeBuffer> buffer;
    Plan toFrequencies;
    Plan toSamples;
};

#endif
