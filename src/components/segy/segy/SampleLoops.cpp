#include "segy/SampleLoops.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

// The loops are written for the vectoriser: no calls, no tables, both sides of each choice
// computed. Whole files pass through them. Each is one template, which is inlined into a function
// for each class of processors: what is not inlined is compiled for the oldest class, wherever it
// is called. No step of theirs is one that a processor may contract with another, so that all
// classes give the same bytes.
#define VORN_IN_LOOPS [[gnu::always_inline]] inline

namespace VORN {

namespace {

static_assert(std::endian::native == std::endian::little, "the loads below assume it");

// What the processors of a class have.
enum class Vectors
{
    oldest, // neither of the two below
    avx2    // instructions that permute bytes, and that shift each lane by a number of its own
};

// Samples that are swapped at a time where that is a step of its own, on their way through the
// cache.
constexpr std::size_t chunk = 1024;

VORN_IN_LOOPS uint16_t swapped(uint16_t value)
{
    return static_cast<uint16_t>(value << 8 | value >> 8);
}

VORN_IN_LOOPS uint32_t swapped(uint32_t value)
{
    return __builtin_bswap32(value);
}

VORN_IN_LOOPS uint64_t swapped(uint64_t value)
{
    return __builtin_bswap64(value);
}

template <typename Bits>
VORN_IN_LOOPS Bits bitsAt(const unsigned char* from, std::size_t index)
{
    Bits bits;
    std::memcpy(&bits, from + index * sizeof bits, sizeof bits);
    return bits;
}

// Compilers turn swaps of 32 bits into single instructions that have no vector form on the oldest
// processors of the family; spelled as vectors, they stay vectors.
VORN_IN_LOOPS std::size_t swapVectors(const unsigned char* from, std::size_t count,
                                      unsigned char* to)
{
    using Vector [[gnu::vector_size(16)]] = uint32_t;
    constexpr std::size_t lanes = sizeof(Vector) / sizeof(uint32_t);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        Vector bits;
        std::memcpy(&bits, from + 4 * i, sizeof bits);
        bits = bits << 24 | (bits << 8 & 0x00FF0000u) | (bits >> 8 & 0x0000FF00u) | bits >> 24;
        std::memcpy(to + 4 * i, &bits, sizeof bits);
    }
    return i;
}

template <Vectors vectors, typename Bits>
VORN_IN_LOOPS void copySwapped(const unsigned char* from, std::size_t count, unsigned char* to)
{
    std::size_t i = 0;
    if constexpr (vectors == Vectors::oldest && sizeof(Bits) == 4)
        i = swapVectors(from, count, to);
    for (; i < count; ++i) {
        const Bits bits = swapped(bitsAt<Bits>(from, i));
        std::memcpy(to + i * sizeof bits, &bits, sizeof bits);
    }
}

// The nearest float; what is beyond the range of floats becomes the largest of its sign.
VORN_IN_LOOPS float nearest(double value)
{
    constexpr double largest = std::numeric_limits<float>::max();
    const double inRange = std::clamp(value, -largest, largest);
    return static_cast<float>(std::isinf(value) ? value : inRange);
}

// 2 to a power between -126 and 127.
VORN_IN_LOOPS float powerOf2(int power)
{
    return std::bit_cast<float>(static_cast<uint32_t>(127 + power) << 23);
}

// An IBM float is a 24-bit fraction times a power of 16: fraction * 2^(4 * (exponent - 64) - 24).
// The first product is exact and the second rounded, so that the whole is rounded once. Powers
// beyond the limits make no difference: the result is zero or beyond the range of floats.
VORN_IN_LOOPS float fromIbm(uint32_t bits)
{
    constexpr uint32_t largest = 0x7F7FFFFFu;
    const int power = 4 * static_cast<int>(bits >> 24 & 0x7F) - 280;
    const int limited = std::min(std::max(power, -200), 140);
    const int half = limited >> 1;
    const float fraction = static_cast<float>(static_cast<int32_t>(bits & 0x00FFFFFFu));
    const float value = fraction * powerOf2(half) * powerOf2(limited - half);
    const uint32_t magnitude = std::min(std::bit_cast<uint32_t>(value), largest);
    return std::bit_cast<float>(magnitude | (bits & 0x80000000u));
}

// All ones where `condition` holds, else zero.
VORN_IN_LOOPS uint32_t mask(bool condition)
{
    return 0u - static_cast<uint32_t>(condition);
}

// `digits` without its last `bits`, 0 to 3, rounded.
template <Vectors vectors>
VORN_IN_LOOPS uint32_t rounded(uint32_t digits, uint32_t bits)
{
    if constexpr (vectors == Vectors::avx2)
        return (digits + (1u << bits >> 1)) >> bits;
    uint32_t fraction = digits + bits + (bits == 3); // half of the last digit: 0, 1, 2 or 4
    fraction = (fraction >> 1 & mask((bits & 1) != 0)) | (fraction & mask((bits & 1) == 0));
    return (fraction >> 2 & mask(bits >= 2)) | (fraction & ~mask(bits >= 2));
}

// `lost` counts values that an IBM float cannot hold.
template <Vectors vectors>
VORN_IN_LOOPS uint32_t toIbm(float value, uint32_t& lost)
{
    const uint32_t bits = std::bit_cast<uint32_t>(value);
    const uint32_t sign = bits & 0x80000000u;
    const uint32_t magnitude = bits & 0x7FFFFFFFu;
    // Denormal numbers get the digits of normal ones, which costs them 24 of their exponent.
    const uint32_t denormal = mask(magnitude < 0x00800000u);
    const float raise = std::bit_cast<float>(0x3F800000u + (denormal & 0x0C000000u)); // 1 or 2^24
    const uint32_t normal = std::bit_cast<uint32_t>(std::bit_cast<float>(magnitude) * raise);
    const int exponent = static_cast<int>(normal >> 23) - static_cast<int>(denormal & 24);
    const uint32_t digits = (normal & 0x007FFFFFu) | 0x00800000u;

    // value = digits * 2^(exponent - 150), and the IBM exponent is the next that is high enough.
    // Base 16 has up to 3 zero bits in front; rounding never carries into a 25th bit.
    const int base16 = (exponent + 133) >> 2;
    const uint32_t shift = static_cast<uint32_t>(4 * base16 - 130 - exponent);
    const uint32_t finite = static_cast<uint32_t>(base16) << 24 | rounded<vectors>(digits, shift);

    const uint32_t isZero = mask(magnitude == 0);
    const uint32_t isLost = mask(magnitude >= 0x7F800000u);
    const uint32_t isNaN = mask(magnitude > 0x7F800000u);
    lost += isLost & 1;
    return (sign | (finite & ~isZero & ~isLost) | (isLost & 0x7FFFFFFFu)) & ~isNaN;
}

// ---- Whole runs of samples ----

struct IbmFloat
{
    using Bits = uint32_t;
    VORN_IN_LOOPS static float value(Bits bits) { return fromIbm(bits); }
};

struct IeeeDouble
{
    using Bits = uint64_t;
    VORN_IN_LOOPS static float value(Bits bits) { return nearest(std::bit_cast<double>(bits)); }
};

template <typename Unsigned, typename Integer>
struct IntegerOf
{
    using Bits = Unsigned;
    VORN_IN_LOOPS static float value(Bits bits)
    {
        return static_cast<float>(static_cast<Integer>(bits));
    }
};

template <typename Coding>
VORN_IN_LOOPS void decodeNative(const unsigned char* from, std::size_t count, float* to)
{
    for (std::size_t i = 0; i < count; ++i)
        to[i] = Coding::value(bitsAt<typename Coding::Bits>(from, i));
}

template <Vectors vectors, typename Coding>
VORN_IN_LOOPS void decodeAs(const unsigned char* from, bool littleEndian, std::size_t count,
                            float* to)
{
    using Bits = typename Coding::Bits;
    if (littleEndian) {
        decodeNative<Coding>(from, count, to);
        return;
    }
    if constexpr (vectors == Vectors::avx2) {
        for (std::size_t i = 0; i < count; ++i)
            to[i] = Coding::value(swapped(bitsAt<Bits>(from, i)));
        return;
    }
    unsigned char ordered[chunk * sizeof(Bits)];
    for (std::size_t start = 0; start < count; start += chunk) {
        const std::size_t some = std::min(chunk, count - start);
        copySwapped<vectors, Bits>(from + start * sizeof(Bits), some, ordered);
        decodeNative<Coding>(ordered, some, to + start);
    }
}

template <typename Integer>
VORN_IN_LOOPS void decodeBytes(const unsigned char* from, std::size_t count, float* to)
{
    for (std::size_t i = 0; i < count; ++i)
        to[i] = static_cast<float>(static_cast<Integer>(from[i]));
}

// Of the four bytes of a word, the highest three are the number; the shift brings the sign down.
template <typename Integer>
VORN_IN_LOOPS void decode24(const unsigned char* from, bool littleEndian, std::size_t count,
                            float* to)
{
    const std::size_t high = littleEndian ? 2 : 0;
    const std::size_t low = littleEndian ? 0 : 2;
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned char* sample = from + 3 * i;
        const uint32_t bits = static_cast<uint32_t>(sample[high]) << 24 |
                              static_cast<uint32_t>(sample[1]) << 16 |
                              static_cast<uint32_t>(sample[low]) << 8;
        to[i] = static_cast<float>(static_cast<Integer>(bits) >> 8);
    }
}

// IEEE floats of this machine are bytes in one order or the other.
template <Vectors vectors>
VORN_IN_LOOPS void copyOrdered(const unsigned char* from, bool littleEndian, std::size_t count,
                               unsigned char* to)
{
    if (!littleEndian)
        copySwapped<vectors, uint32_t>(from, count, to);
    else if (count > 0) // else there may be no memory at all
        std::memcpy(to, from, count * sizeof(uint32_t));
}

template <Vectors vectors>
VORN_IN_LOOPS void decodeAny(const unsigned char* from, SampleFormat format, bool littleEndian,
                             std::size_t count, float* to)
{
    switch (format) {
    case SampleFormat::ibmFloat:
        decodeAs<vectors, IbmFloat>(from, littleEndian, count, to);
        break;
    case SampleFormat::ieeeFloat:
        copyOrdered<vectors>(from, littleEndian, count, reinterpret_cast<unsigned char*>(to));
        break;
    case SampleFormat::ieeeDouble:
        decodeAs<vectors, IeeeDouble>(from, littleEndian, count, to);
        break;
    case SampleFormat::int32:
        decodeAs<vectors, IntegerOf<uint32_t, int32_t>>(from, littleEndian, count, to);
        break;
    case SampleFormat::int16:
        decodeAs<vectors, IntegerOf<uint16_t, int16_t>>(from, littleEndian, count, to);
        break;
    case SampleFormat::int24:
        decode24<int32_t>(from, littleEndian, count, to);
        break;
    case SampleFormat::int8:
        decodeBytes<int8_t>(from, count, to);
        break;
    case SampleFormat::int64:
        decodeAs<vectors, IntegerOf<uint64_t, int64_t>>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint32:
        decodeAs<vectors, IntegerOf<uint32_t, uint32_t>>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint16:
        decodeAs<vectors, IntegerOf<uint16_t, uint16_t>>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint64:
        decodeAs<vectors, IntegerOf<uint64_t, uint64_t>>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint24:
        decode24<uint32_t>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint8:
        decodeBytes<uint8_t>(from, count, to);
        break;
    }
}

template <Vectors vectors>
VORN_IN_LOOPS std::size_t encodeIbm(const float* from, std::size_t count, bool littleEndian,
                                    unsigned char* to)
{
    std::size_t lost = 0;
    uint32_t digits[chunk];
    for (std::size_t start = 0; start < count; start += chunk) {
        const std::size_t some = std::min(chunk, count - start);
        uint32_t lostHere = 0;
        for (std::size_t i = 0; i < some; ++i)
            digits[i] = toIbm<vectors>(from[start + i], lostHere);
        lost += lostHere;
        copyOrdered<vectors>(reinterpret_cast<const unsigned char*>(digits), littleEndian, some,
                             to + 4 * start);
    }
    return lost;
}

template <Vectors vectors>
VORN_IN_LOOPS std::size_t encodeAny(const float* from, std::size_t count, SampleFormat format,
                                    bool littleEndian, unsigned char* to)
{
    if (format == SampleFormat::ibmFloat)
        return encodeIbm<vectors>(from, count, littleEndian, to);
    copyOrdered<vectors>(reinterpret_cast<const unsigned char*>(from), littleEndian, count, to);
    return 0;
}

// ---- Classes of processors ----

void decodeOnAll(const unsigned char* from, SampleFormat format, bool littleEndian,
                 std::size_t count, float* to)
{
    decodeAny<Vectors::oldest>(from, format, littleEndian, count, to);
}

std::size_t encodeOnAll(const float* from, std::size_t count, SampleFormat format,
                        bool littleEndian, unsigned char* to)
{
    return encodeAny<Vectors::oldest>(from, count, format, littleEndian, to);
}

#if defined(__x86_64__)
#define VORN_AVX2 [[gnu::target("avx2")]]
#define VORN_AVX512 [[gnu::target("avx512f,avx512bw,avx512dq,avx512vl")]]

VORN_AVX2 void decodeOnAvx2(const unsigned char* from, SampleFormat format, bool littleEndian,
                            std::size_t count, float* to)
{
    decodeAny<Vectors::avx2>(from, format, littleEndian, count, to);
}

VORN_AVX2 std::size_t encodeOnAvx2(const float* from, std::size_t count, SampleFormat format,
                                   bool littleEndian, unsigned char* to)
{
    return encodeAny<Vectors::avx2>(from, count, format, littleEndian, to);
}

VORN_AVX512 void decodeOnAvx512(const unsigned char* from, SampleFormat format, bool littleEndian,
                                std::size_t count, float* to)
{
    decodeAny<Vectors::avx2>(from, format, littleEndian, count, to);
}

VORN_AVX512 std::size_t encodeOnAvx512(const float* from, std::size_t count, SampleFormat format,
                                       bool littleEndian, unsigned char* to)
{
    return encodeAny<Vectors::avx2>(from, count, format, littleEndian, to);
}
#endif

// From the slowest to the fastest.
constexpr SampleLoops allLoops[] = {
    {"baseline", decodeOnAll, encodeOnAll},
#if defined(__x86_64__)
    {"AVX2", decodeOnAvx2, encodeOnAvx2},
    {"AVX-512", decodeOnAvx512, encodeOnAvx512},
#endif
};

// How many of them, from the first on, this processor has.
std::size_t countOfThisProcessor()
{
#if defined(__x86_64__)
    if (!__builtin_cpu_supports("avx2"))
        return 1;
    const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
    return avx512 ? 3 : 2;
#else
    return 1;
#endif
}

} // namespace

std::span<const SampleLoops> sampleLoops()
{
    static const std::size_t count = countOfThisProcessor();
    return std::span(allLoops).first(count);
}

} // namespace VORN
