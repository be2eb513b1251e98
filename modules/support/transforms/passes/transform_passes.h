/// @file transform_passes.h
///
/// The loops of RealTransform, compiled once for each width of vectors that processors have.
/// Private to the transforms.
///
/// Every value goes through the same operations in each of them, in a lane of a vector of its own:
/// so the results are the same bits on all processors. Fused multiplication and addition, which
/// rounds once less, is off for that reason, and nothing is summed across lanes.
#ifndef TRANSFORM_PASSES_H
#define TRANSFORM_PASSES_H

namespace transforms {

/// Complex values, the real and the imaginary parts in arrays of their own.
struct Split
{
    float* re;
    float* im;
};

/// One step of a transform of n values, in which the radices of the steps before it have the
/// product `stride`: of each `radix` values that are n / radix apart it makes as many that are
/// `stride` apart.
struct Pass
{
    int radix; ///< 2 to 5
    int stride;
    int groups; ///< n / radix / stride: the values of a group are turned by the same angles
    /// Factors of the values behind the first one, `groups` for each of them. Where the stride is
    /// 4, each factor stands there four times.
    Split turns;
};

/// The loops. `count` is the number of complex values, a multiple of 4. Arrays do not overlap and
/// need no alignment.
struct Passes
{
    /// The pass with stride 1, which has radix 4: of pairs of neighbours (real, imaginary), or of
    /// split values.
    void (*firstOfPairs)(const Pass& pass, const float* from, Split to);
    void (*first)(const Pass& pass, Split from, Split to);
    void (*middle)(const Pass& pass, Split from, Split to);
    /// The pass with one group.
    void (*last)(const Pass& pass, Split from, Split to);
    /// The same, which writes pairs with the imaginary part first, as the backward transform needs.
    void (*lastToPairs)(const Pass& pass, Split from, float* to);
    /// Multiplies the spectrum of 2 count real values, which the transform of `count` pairs holds,
    /// by real gains. With g(k) the gain of frequency k, even(k) = (g(k) + g(count - k)) / 2 and
    /// turned(k) = (g(k) - g(count - k)) / 2 exp(-pi i k / count) for k up to count / 2; but
    /// even(0) = g(0) and the real part of turned(0) is g(count).
    void (*filter)(int count, Split from, const float* even, Split turned, Split to);
    /// The absolute values of that spectrum, from frequency 0 to `count`; `turns` are
    /// exp(-pi i k / count) for k up to count / 2.
    void (*amplitudes)(int count, Split from, Split turns, float* to);

    /// @name See sample_loops.h
    /// @{
    int (*copyFinite)(const float* from, int count, float* to);
    float (*greatest)(const float* values, int count);
    void (*weigh)(float* values, const float* weights, float factor, int count);
    void (*addRounded)(const float* values, int count, double factor, double rounding,
                       double* sums);
    void (*add)(const float* values, int count, double* sums, int* live);
    int (*beyond)(const double* values, int count, double least, double most);
    void (*balance)(float* samples, const double* means, int count, float level, bool hasRoot);
    /// @}
};

extern const Passes passesOfFour; ///< for any processor
/// @name For processors with AVX2, and with AVX-512 F, DQ and VL; only on x86-64
/// @{
extern const Passes passesOfEight;
extern const Passes passesOfSixteen;
/// @}

} // namespace transforms

#endif
