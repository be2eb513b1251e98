/// @file quads.h
///
/// Arithmetic of four complex numbers at a time. Independent of the kernel.
///
/// std::complex multiplies with a check for NaN and one number at a time. Here real and imaginary
/// parts lie in groups of four, which compilers turn into vector instructions at any level of
/// optimisation.
#ifndef QUADS_H
#define QUADS_H

#include <cstddef>

/// Four numbers, one for each of four frequencies. Its operators work on all of them.
using Lanes = float __attribute__((vector_size(16)));

/// Four complex numbers; not cleared unless made with {}.
struct Quad
{
    static constexpr std::size_t width = 4;

    Lanes re;
    Lanes im;

    void add(const Quad& other)
    {
        re += other.re;
        im += other.im;
    }
    /// Adds conj(a) b.
    void addProduct(const Quad& a, const Quad& b)
    {
        re += a.re * b.re + a.im * b.im;
        im += a.re * b.im - a.im * b.re;
    }
    /// Adds a b.
    void addPlain(const Quad& a, const Quad& b)
    {
        re += a.re * b.re - a.im * b.im;
        im += a.re * b.im + a.im * b.re;
    }
    /// Subtracts a b.
    void subtractPlain(const Quad& a, const Quad& b)
    {
        re -= a.re * b.re - a.im * b.im;
        im -= a.re * b.im + a.im * b.re;
    }
    /// Subtracts conj(a) b.
    void subtractProduct(const Quad& a, const Quad& b)
    {
        re -= a.re * b.re + a.im * b.im;
        im -= a.re * b.im - a.im * b.re;
    }
    Quad times(Lanes factor) const { return {re * factor, im * factor}; }
    Lanes energy() const { return re * re + im * im; }
};

#endif
