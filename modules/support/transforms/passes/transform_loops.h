/// @file transform_loops.h
///
/// The loops of transform_passes.h for vectors of any width; included by one source for each width.
///
/// All of it has internal linkage, and nothing of the standard library is called: what one source
/// compiles for its processors must not be the one copy that the linker keeps for all of them.
#ifndef TRANSFORM_LOOPS_H
#define TRANSFORM_LOOPS_H

#include "transform_passes.h"

#include <cstddef>
#include <utility>

namespace transforms {
namespace {

template <int lanes>
struct Vector
{
    typedef float Type __attribute__((vector_size(lanes * sizeof(float))));
};
template <>
struct Vector<1>
{
    typedef float Type;
};
template <int lanes>
using Lanes = typename Vector<lanes>::Type;

template <int lanes>
inline Lanes<lanes> load(const float* from)
{
    Lanes<lanes> values;
    __builtin_memcpy(&values, from, sizeof values);
    return values;
}

template <class V>
inline void store(float* to, V values)
{
    __builtin_memcpy(to, &values, sizeof values);
}

// Four lanes at a time, `apart` floats from each other.
template <class V>
inline void storeParts(float* to, V values, long apart)
{
    constexpr std::size_t part = 4 * sizeof(float);
    for (std::size_t at = 0; at + part <= sizeof values; at += part, to += apart)
        __builtin_memcpy(to, reinterpret_cast<const char*>(&values) + at, part);
}

template <class V>
struct Complex
{
    V re, im;
};

template <class V>
inline Complex<V> operator+(Complex<V> a, Complex<V> b)
{
    return {a.re + b.re, a.im + b.im};
}
template <class V>
inline Complex<V> operator-(Complex<V> a, Complex<V> b)
{
    return {a.re - b.re, a.im - b.im};
}
template <class V>
inline Complex<V> operator*(float a, Complex<V> b)
{
    return {a * b.re, a * b.im};
}
template <class V>
inline Complex<V> operator*(Complex<V> a, Complex<V> b)
{
    return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}
// -i times a value.
template <class V>
inline Complex<V> turn(Complex<V> a)
{
    return {a.im, -a.re};
}

template <int lanes>
inline Complex<Lanes<lanes>> loadSplit(Split from, long at)
{
    return {load<lanes>(from.re + at), load<lanes>(from.im + at)};
}
template <class V>
inline void storeSplit(Split to, long at, Complex<V> values)
{
    store(to.re + at, values.re);
    store(to.im + at, values.im);
}

// ---- Transforms of 2 to 5 values, in place ----

template <class V>
inline void transform(Complex<V> (&x)[2])
{
    const Complex<V> a = x[0];
    x[0] = a + x[1];
    x[1] = a - x[1];
}

template <class V>
inline void transform(Complex<V> (&x)[3])
{
    constexpr float sine = 0.86602540378443865F;
    const Complex<V> sum = x[1] + x[2];
    const Complex<V> difference = turn(sine * (x[1] - x[2]));
    const Complex<V> middle = x[0] - 0.5F * sum;
    x[0] = x[0] + sum;
    x[1] = middle + difference;
    x[2] = middle - difference;
}

template <class V>
inline void transform(Complex<V> (&x)[4])
{
    const Complex<V> a = x[0] + x[2];
    const Complex<V> b = x[0] - x[2];
    const Complex<V> c = x[1] + x[3];
    const Complex<V> d = turn(x[1] - x[3]);
    x[0] = a + c;
    x[1] = b + d;
    x[2] = a - c;
    x[3] = b - d;
}

template <class V>
inline void transform(Complex<V> (&x)[5])
{
    constexpr float cosine1 = 0.30901699437494742F;
    constexpr float cosine2 = -0.80901699437494742F;
    constexpr float sine1 = 0.95105651629515357F;
    constexpr float sine2 = 0.58778525229247313F;
    const Complex<V> a = x[1] + x[4];
    const Complex<V> b = x[1] - x[4];
    const Complex<V> c = x[2] + x[3];
    const Complex<V> d = x[2] - x[3];
    const Complex<V> p = x[0] + cosine1 * a + cosine2 * c;
    const Complex<V> q = x[0] + cosine2 * a + cosine1 * c;
    const Complex<V> u = turn(sine1 * b + sine2 * d);
    const Complex<V> v = turn(sine2 * b - sine1 * d);
    x[0] = x[0] + a + c;
    x[1] = p + u;
    x[2] = q + v;
    x[3] = q - v;
    x[4] = p - u;
}

// ---- Neighbours ----

// a0 b0 a1 b1 ..., of the first halves and of the second ones.
template <class V, int... i>
inline void zip(V& a, V& b, std::integer_sequence<int, i...>)
{
    constexpr int half = sizeof...(i) / 2;
    constexpr int lanes = sizeof...(i);
    const V low = __builtin_shufflevector(a, b, (i / 2 + i % 2 * lanes)...);
    b = __builtin_shufflevector(a, b, (half + i / 2 + i % 2 * lanes)...);
    a = low;
}
template <int lanes>
inline void zip(Lanes<lanes>& a, Lanes<lanes>& b)
{
    if constexpr (lanes > 1)
        zip(a, b, std::make_integer_sequence<int, lanes>());
}

template <int lanes, int... i>
inline Complex<Lanes<lanes>> unzip(Lanes<lanes> a, Lanes<lanes> b, std::integer_sequence<int, i...>)
{
    return {__builtin_shufflevector(a, b, (2 * i)...),
            __builtin_shufflevector(a, b, (2 * i + 1)...)};
}
// Of pairs.
template <int lanes>
inline Complex<Lanes<lanes>> loadPairs(const float* from)
{
    if constexpr (lanes > 1)
        return unzip<lanes>(load<lanes>(from), load<lanes>(from + lanes),
                            std::make_integer_sequence<int, lanes>());
    else
        return {from[0], from[1]};
}

// Four values side by side for each lane.
template <int lanes>
inline void storeFours(float* to, Lanes<lanes> a, Lanes<lanes> b, Lanes<lanes> c, Lanes<lanes> d)
{
    zip<lanes>(a, c);
    zip<lanes>(b, d);
    zip<lanes>(a, b);
    zip<lanes>(c, d);
    store(to, a);
    store(to + lanes, b);
    constexpr long apart = lanes;
    store(to + 2 * apart, c);
    store(to + 3 * apart, d);
}

template <class V, int... i>
inline V reversed(V a, std::integer_sequence<int, i...>)
{
    constexpr int lanes = sizeof...(i);
    return __builtin_shufflevector(a, a, (lanes - 1 - i)...);
}
template <int lanes>
inline Lanes<lanes> reversed(Lanes<lanes> a)
{
    if constexpr (lanes > 1)
        return reversed(a, std::make_integer_sequence<int, lanes>());
    else
        return a;
}

// ---- Passes ----

// Calls step(Width<lanes>(), i) for vectors that cover 0 to count - 1. The last one begins before
// the one before it has ended where vectors do not fit: what is written there twice is the same.
template <int lanes>
struct Width
{
    static constexpr int value = lanes;
};
template <int lanes, class Step>
inline void cover(long count, const Step& step)
{
    if (count >= lanes) {
        for (long i = 0; i + lanes <= count; i += lanes)
            step(Width<lanes>(), i);
        if (count % lanes != 0)
            step(Width<lanes>(), count - lanes);
    } else if constexpr (lanes > 1)
        cover<lanes == 4 ? 1 : lanes / 2>(count, step);
}

template <int width, class Load>
inline void firstPass(const Pass& pass, Split to, const Load& loadAt)
{
    const long groups = pass.groups;
    cover<width>(groups, [&](auto block, long i) {
        constexpr int lanes = decltype(block)::value;
        Complex<Lanes<lanes>> x[4];
        for (int k = 0; k < 4; ++k)
            x[k] = loadAt(block, i + k * groups);
        transform(x);
        for (int k = 1; k < 4; ++k)
            x[k] = x[k] * loadSplit<lanes>(pass.turns, (k - 1) * groups + i);
        storeFours<lanes>(to.re + 4 * i, x[0].re, x[1].re, x[2].re, x[3].re);
        storeFours<lanes>(to.im + 4 * i, x[0].im, x[1].im, x[2].im, x[3].im);
    });
}

template <int width>
void firstOfPairs(const Pass& pass, const float* from, Split to)
{
    firstPass<width>(pass, to, [from](auto block, long i) {
        return loadPairs<decltype(block)::value>(from + 2 * i);
    });
}

template <int width>
void first(const Pass& pass, Split from, Split to)
{
    firstPass<width>(pass, to, [from](auto block, long i) {
        return loadSplit<decltype(block)::value>(from, i);
    });
}

template <int width, int radix>
void middleOf(const Pass& pass, Split from, Split to)
{
    const long stride = pass.stride;
    const long groups = pass.groups;
    const long apart = stride * groups;
    for (long group = 0; group < groups; ++group) {
        Complex<float> turns[std::size_t{radix}];
        for (int k = 1; k < radix; ++k)
            turns[k] = {pass.turns.re[(k - 1) * groups + group],
                        pass.turns.im[(k - 1) * groups + group]};
        const long in = group * stride;
        const long out = group * stride * radix;
        cover<width>(stride, [&](auto block, long i) {
            constexpr int lanes = decltype(block)::value;
            Complex<Lanes<lanes>> x[std::size_t{radix}];
            for (int k = 0; k < radix; ++k)
                x[k] = loadSplit<lanes>(from, in + i + k * apart);
            transform(x);
            storeSplit(to, out + i, x[0]);
            for (int k = 1; k < radix; ++k) {
                const Complex<Lanes<lanes>> turned = {turns[k].re * x[k].re - turns[k].im * x[k].im,
                                                      turns[k].re * x[k].im +
                                                          turns[k].im * x[k].re};
                storeSplit(to, out + i + k * stride, turned);
            }
        });
    }
}

// With stride 4, of which a vector takes several groups: neighbours in the array they come from,
// and parts of four values in that they go to. Each factor stands there four times.
template <int width, int radix>
void foursOf(const Pass& pass, Split from, Split to)
{
    const long apart = 4L * pass.groups;
    cover<width>(apart, [&](auto block, long i) {
        constexpr int lanes = decltype(block)::value;
        Complex<Lanes<lanes>> x[std::size_t{radix}];
        for (int k = 0; k < radix; ++k)
            x[k] = loadSplit<lanes>(from, i + k * apart);
        transform(x);
        for (int k = 0; k < radix; ++k) {
            if (k > 0)
                x[k] = x[k] * loadSplit<lanes>(pass.turns, (k - 1) * apart + i);
            storeParts(to.re + i * radix + 4L * k, x[k].re, 4L * radix);
            storeParts(to.im + i * radix + 4L * k, x[k].im, 4L * radix);
        }
    });
}

template <int width, int radix>
void middleOfRadix(const Pass& pass, Split from, Split to)
{
    if (pass.stride == 4)
        foursOf<width, radix>(pass, from, to);
    else
        middleOf<width, radix>(pass, from, to);
}

template <int width>
void middle(const Pass& pass, Split from, Split to)
{
    switch (pass.radix) {
    case 2:
        middleOfRadix<width, 2>(pass, from, to);
        break;
    case 3:
        middleOfRadix<width, 3>(pass, from, to);
        break;
    case 4:
        middleOfRadix<width, 4>(pass, from, to);
        break;
    default:
        middleOfRadix<width, 5>(pass, from, to);
        break;
    }
}

template <int width, int radix, class Store>
inline void lastOf(const Pass& pass, Split from, const Store& storeAt)
{
    const long stride = pass.stride;
    cover<width>(stride, [&](auto block, long i) {
        constexpr int lanes = decltype(block)::value;
        Complex<Lanes<lanes>> x[std::size_t{radix}];
        for (int k = 0; k < radix; ++k)
            x[k] = loadSplit<lanes>(from, i + k * stride);
        transform(x);
        for (int k = 0; k < radix; ++k)
            storeAt(block, i + k * stride, x[k]);
    });
}

template <int width, class Store>
inline void lastPass(const Pass& pass, Split from, const Store& storeAt)
{
    switch (pass.radix) {
    case 2:
        lastOf<width, 2>(pass, from, storeAt);
        break;
    case 3:
        lastOf<width, 3>(pass, from, storeAt);
        break;
    case 4:
        lastOf<width, 4>(pass, from, storeAt);
        break;
    default:
        lastOf<width, 5>(pass, from, storeAt);
        break;
    }
}

template <int width>
void last(const Pass& pass, Split from, Split to)
{
    lastPass<width>(pass, from, [to](auto, long i, auto values) { storeSplit(to, i, values); });
}

template <int width>
void lastToPairs(const Pass& pass, Split from, float* to)
{
    lastPass<width>(pass, from, [to](auto block, long i, auto values) {
        constexpr int lanes = decltype(block)::value;
        zip<lanes>(values.im, values.re);
        store(to + 2 * i, values.im);
        store(to + 2 * i + lanes, values.re);
    });
}

// ---- Spectra of real values ----

// Half the sum and half the difference of the value at k and of the conjugate of that at count - k.
template <class V>
struct Halves
{
    Complex<V> sum, difference;
};
template <class V>
inline Halves<V> halvesOf(Complex<V> low, Complex<V> high)
{
    return {{0.5F * (low.re + high.re), 0.5F * (low.im - high.im)},
            {0.5F * (low.re - high.re), 0.5F * (low.im + high.im)}};
}

template <int width>
void filter(int count, Split from, const float* even, Split turned, Split to)
{
    const float zero = even[0] * (from.re[0] + from.im[0]);
    const float nyquist = turned.re[0] * (from.re[0] - from.im[0]);
    to.re[0] = 0.5F * (zero + nyquist);
    to.im[0] = 0.5F * (zero - nyquist);
    // From 1 to half of the count, which is its own partner.
    cover<width>(count / 2, [&](auto block, long i) {
        constexpr int lanes = decltype(block)::value;
        const long low = i + 1;
        const long high = count - i - lanes;
        const auto a = loadSplit<lanes>(from, low);
        const auto reverse = loadSplit<lanes>(from, high);
        const Complex<Lanes<lanes>> b = {reversed<lanes>(reverse.re), reversed<lanes>(reverse.im)};
        const auto factor = load<lanes>(even + low);
        const auto c = loadSplit<lanes>(turned, low);
        const auto half = halvesOf(a, b);
        const auto p = Complex<Lanes<lanes>>{c.re, -c.im} * half.sum;
        const auto q = c * half.difference;
        store(to.re + low, factor * a.re - (p.im - q.im));
        store(to.im + low, factor * a.im + (p.re - q.re));
        store(to.re + high, reversed<lanes>(factor * b.re + (p.im + q.im)));
        store(to.im + high, reversed<lanes>(factor * b.im + (p.re + q.re)));
    });
}

template <int width>
void amplitudes(int count, Split from, Split turns, float* to)
{
    to[0] = from.re[0] + from.im[0];
    to[0] *= to[0];
    to[count] = from.re[0] - from.im[0];
    to[count] *= to[count];
    cover<width>(count / 2, [&](auto block, long i) {
        constexpr int lanes = decltype(block)::value;
        const long low = i + 1;
        const long high = count - i - lanes;
        const auto a = loadSplit<lanes>(from, low);
        const auto reverse = loadSplit<lanes>(from, high);
        const Complex<Lanes<lanes>> b = {reversed<lanes>(reverse.re), reversed<lanes>(reverse.im)};
        const auto half = halvesOf(a, b);
        const auto odd = turn(loadSplit<lanes>(turns, low) * half.difference);
        const auto x = half.sum + odd;
        const auto y = half.sum - odd;
        store(to + low, x.re * x.re + x.im * x.im);
        store(to + high, reversed<lanes>(y.re * y.re + y.im * y.im));
    });
    for (int i = 0; i <= count; ++i)
        to[i] = __builtin_sqrtf(to[i]);
}

// ---- Samples ----

// What follows is left to the compiler to make vectors of: whole numbers, and values that do not
// depend on each other.

inline unsigned bitsOf(float value)
{
    unsigned bits;
    __builtin_memcpy(&bits, &value, sizeof bits);
    return bits;
}
inline float floatOf(unsigned bits)
{
    float value;
    __builtin_memcpy(&value, &bits, sizeof value);
    return value;
}

template <int width>
int copyFinite(const float* __restrict from, int count, float* __restrict to)
{
    constexpr unsigned exponentBits = 0x7f800000;
    unsigned others = 0;
    for (int i = 0; i < count; ++i) {
        const unsigned bits = bitsOf(from[i]);
        const unsigned isFinite = (bits & exponentBits) != exponentBits;
        to[i] = floatOf(bits & (0U - isFinite));
        others += 1U - isFinite;
    }
    return static_cast<int>(others);
}

// Amounts are in the order of their bits.
template <int width>
float greatest(const float* values, int count)
{
    constexpr unsigned amountBits = 0x7fffffff;
    int most = 0;
    for (int i = 0; i < count; ++i) {
        const int bits = static_cast<int>(bitsOf(values[i]) & amountBits);
        most = bits > most ? bits : most;
    }
    return floatOf(static_cast<unsigned>(most));
}

template <int width>
void weigh(float* __restrict values, const float* __restrict weights, float factor, int count)
{
    for (int i = 0; i < count; ++i)
        values[i] = values[i] * factor * weights[i];
}

template <int width>
void addRounded(const float* __restrict values, int count, double factor, double rounding,
                double* __restrict sums)
{
    for (int i = 0; i < count; ++i)
        sums[i] += (factor * static_cast<double>(values[i]) + rounding) - rounding;
}

template <int width>
void add(const float* __restrict values, int count, double* __restrict sums, int* __restrict live)
{
    for (int i = 0; i < count; ++i) {
        sums[i] += static_cast<double>(values[i]);
        live[i] += values[i] != 0 ? 1 : 0;
    }
}

template <int width>
int beyond(const double* values, int count, double least, double most)
{
    // As wide as the values, so that the numbers are lanes of vectors, too.
    long long number = 0;
    for (int i = 0; i < count; ++i) {
        number += values[i] > most ? 1 : 0;
        number += values[i] < least ? 1 : 0;
        number -= values[i] <= 0 ? 1 : 0;
    }
    return static_cast<int>(number);
}

template <int width>
void balance(float* __restrict samples, const double* __restrict means, int count, float level,
             bool hasRoot)
{
    if (hasRoot) {
        for (int i = 0; i < count; ++i) {
            const auto mean = static_cast<float>(means[i]);
            samples[i] *= level / __builtin_sqrtf(mean > 0 ? mean : 1.0F);
        }
    } else {
        for (int i = 0; i < count; ++i) {
            const auto mean = static_cast<float>(means[i]);
            samples[i] *= level / (mean > 0 ? mean : 1.0F);
        }
    }
}

template <int width>
constexpr Passes loops = {firstOfPairs<width>, first<width>,  middle<width>,     last<width>,
                          lastToPairs<width>,  filter<width>, amplitudes<width>, copyFinite<width>,
                          greatest<width>,     weigh<width>,  addRounded<width>, add<width>,
                          beyond<width>,       balance<width>};

} // namespace

} // namespace transforms

#endif
