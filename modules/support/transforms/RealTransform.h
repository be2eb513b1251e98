/// @file RealTransform.h
///
/// Fourier transforms of real floats, with the same bits on every processor. Independent of the
/// kernel.
#ifndef REALTRANSFORM_H
#define REALTRANSFORM_H

#include "passes/transform_passes.h"

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

namespace transforms {

/// Floats that begin on a line of the cache, zeros at first. Throws std::bad_alloc.
class Floats
{
public:
    explicit Floats(std::size_t count);
    ~Floats() { ::operator delete (values, std::align_val_t{line}); }
    Floats(const Floats&) = delete;
    Floats& operator=(const Floats&) = delete;

    float* data() { return values; }
    const float* data() const { return values; }

    static constexpr std::size_t line = 64; ///< bytes

private:
    float* values;
};

/// The transform of `length` real values, as one of half as many complex ones (neighbours make a
/// pair), in passes of radix 2 to 5 from one array to another, each of which leaves its values in
/// order (C. Temperton, Self-sorting mixed-radix fast Fourier transforms, Journal of Computational
/// Physics 52, 1983).
///
/// There is nothing to plan, and the result does not depend on the machine: all processors do the
/// same operations, those with wider vectors do more of them at once. So a job gives the same
/// samples on each of them, at no cost. FFTW, which serves other lengths and other modules, chooses
/// its code by the processor, and so its last bits.
///
///     RealTransform transform(RealTransform::lengthFor(2 * samples));
///     transform.filter(gains, values);
class RealTransform
{
public:
    /// The shortest length from `least` on that can be transformed: a multiple of 8 from 32 on
    /// without factors but 2, 3 and 5. 0 when that is above `longest`.
    static int lengthFor(std::int64_t least);
    static constexpr int longest = 1 << 30;

    /// Bytes that a transform of such a length takes, its gains included.
    static std::int64_t bytesFor(std::int64_t length);

    /// Requires: lengthFor(length) is `length`. Throws std::bad_alloc.
    explicit RealTransform(int length);

    int length() const { return 2 * count; }

    /// What filters by real gains, made once for them.
    class Gains
    {
    public:
        /// For the amplitudes `gains` of the frequencies 0 to length / 2, in units of 1 / length.
        /// Throws std::bad_alloc.
        Gains(const RealTransform& transform, const float* gains);

    private:
        friend class RealTransform;

        Floats even;
        Floats turnedRe;
        Floats turnedIm;
    };

    /// The values to be transformed: `length` floats, which the caller fills.
    float* values() { return input.data(); }
    /// Multiplies their spectrum by gains; the values become those of the filtered signal.
    void filter(const Gains& gains);
    /// Writes the absolute values of their spectrum, length / 2 + 1 of them. The values stay.
    void amplitudes(float* to);

    /// Uses other loops than those that are fastest on this processor; for tests.
    void use(const Passes& loops) { passes = &loops; }

private:
    int count;               // of complex values
    Floats turnsRe, turnsIm; // exp(-pi i k / count), k from 0 to count
    std::vector<Pass> steps;
    Floats rotations; // of the steps
    Floats input;
    Floats work; // two arrays of split values
    const Passes* passes;

    Split half(int number);
    void transformPairs();
};

/// The loops with the widest vectors that this processor has.
const Passes& fastestPasses();

} // namespace transforms

#endif
