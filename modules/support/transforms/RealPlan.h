/// @file RealPlan.h
///
/// Plans of FFTW for transforms of real values, of one or of two dimensions, of floats or of
/// doubles.
#ifndef REALPLAN_H
#define REALPLAN_H

#include "plan_flags.h"
#include "transform_memory.h"

#include <cstddef>
#include <cstdint>
#include <fftw3.h>
#include <initializer_list>
#include <new>
#include <type_traits>

namespace transforms {

/// The functions of FFTW for a type of numbers.
template <class Real>
struct Fftw;

template <>
struct Fftw<float>
{
    using Plan = fftwf_plan;
    using Complex = fftwf_complex;
    static void* allocate(std::size_t bytes) { return fftwf_malloc(bytes); }
    static void free(void* block) { fftwf_free(block); }
    static Plan forward(int rank, const int* lengths, float* from, Complex* to, unsigned flags)
    {
        return fftwf_plan_dft_r2c(rank, lengths, from, to, flags);
    }
    static Plan backward(int rank, const int* lengths, Complex* from, float* to, unsigned flags)
    {
        return fftwf_plan_dft_c2r(rank, lengths, from, to, flags);
    }
    static void execute(Plan plan) { fftwf_execute(plan); }
    static void destroy(Plan plan) { fftwf_destroy_plan(plan); }
};

template <>
struct Fftw<double>
{
    using Plan = fftw_plan;
    using Complex = fftw_complex;
    static void* allocate(std::size_t bytes) { return fftw_malloc(bytes); }
    static void free(void* block) { fftw_free(block); }
    static Plan forward(int rank, const int* lengths, double* from, Complex* to, unsigned flags)
    {
        return fftw_plan_dft_r2c(rank, lengths, from, to, flags);
    }
    static Plan backward(int rank, const int* lengths, Complex* from, double* to, unsigned flags)
    {
        return fftw_plan_dft_c2r(rank, lengths, from, to, flags);
    }
    static void execute(Plan plan) { fftw_execute(plan); }
    static void destroy(Plan plan) { fftw_destroy_plan(plan); }
};

/// A transform from real values to their spectrum and, where asked for, back. Values and spectrum
/// have blocks of their own, aligned for vectors: in place, plans take four times as long to make
/// and copy at each call. Plans are estimated, not measured, so that each run gives the same
/// numbers.
///
/// Rows of values are contiguous; those of the spectrum have half as many values and one.
template <class Real>
class RealPlan
{
public:
    using Complex = typename Fftw<Real>::Complex;

    /// For one length, or a number of rows and their length. `plans` is 2 with the way back,
    /// else 1. Throws std::bad_alloc.
    RealPlan(std::initializer_list<int> lengths, int plans)
    {
        std::size_t all = 1;
        std::size_t bins = 1;
        for (const int length : lengths) {
            bins = all * (static_cast<std::size_t>(length) / 2 + 1);
            all *= static_cast<std::size_t>(length);
        }
        real = static_cast<Real*>(Fftw<Real>::allocate(all * sizeof(Real)));
        complex = static_cast<Complex*>(Fftw<Real>::allocate(bins * sizeof(Complex)));
        const auto floats = static_cast<std::int64_t>(all) * inFloats;
        const int rank = static_cast<int>(lengths.size());
        if (real != nullptr && complex != nullptr && transform_has_room(floats, plans) != 0) {
            there =
                Fftw<Real>::forward(rank, lengths.begin(), real, complex, transforms_plan_flags());
            if (plans == 2)
                back = Fftw<Real>::backward(rank, lengths.begin(), complex, real,
                                            transforms_plan_flags());
        }
        if (there == nullptr || (plans == 2 && back == nullptr)) {
            release();
            throw std::bad_alloc();
        }
    }
    ~RealPlan() { release(); }
    RealPlan(const RealPlan&) = delete;
    RealPlan& operator=(const RealPlan&) = delete;

    /// Bytes for `all` values, `plans` and both blocks; rows have one value more.
    static std::int64_t bytesFor(std::int64_t all, int plans)
    {
        constexpr auto size = static_cast<std::int64_t>(sizeof(Real));
        return 2 * all * size + transform_plan_bytes(all * inFloats, plans);
    }

    Real* values() { return real; }
    Complex* spectrum() { return complex; }
    const Complex* spectrum() const { return complex; }

    void forward() { Fftw<Real>::execute(there); } ///< from the values, which stay, to the spectrum
    void backward() { Fftw<Real>::execute(back); } ///< the way back; the spectrum is lost

private:
    // Plans of doubles are twice as large.
    static constexpr std::int64_t inFloats = std::is_same_v<Real, double> ? 2 : 1;

    Real* real = nullptr;
    Complex* complex = nullptr;
    typename Fftw<Real>::Plan there = nullptr;
    typename Fftw<Real>::Plan back = nullptr;

    void release()
    {
        if (there != nullptr)
            Fftw<Real>::destroy(there);
        if (back != nullptr)
            Fftw<Real>::destroy(back);
        Fftw<Real>::free(real);
        Fftw<Real>::free(complex);
    }
};

} // namespace transforms

#endif
