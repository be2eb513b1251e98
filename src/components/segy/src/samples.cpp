#include "samples.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

namespace VORN {

namespace {

static_assert(std::endian::native == std::endian::little, "unsigned loads below assume it");

struct FormatEntry
{
    SampleFormat format;
    int bytes;
    const char* name;
};

constexpr FormatEntry formats[] = {
    {SampleFormat::ibmFloat, 4, "4-byte IBM float"},
    {SampleFormat::int32, 4, "4-byte integer"},
    {SampleFormat::int16, 2, "2-byte integer"},
    {SampleFormat::ieeeFloat, 4, "4-byte IEEE float"},
    {SampleFormat::ieeeDouble, 8, "8-byte IEEE float"},
    {SampleFormat::int24, 3, "3-byte integer"},
    {SampleFormat::int8, 1, "1-byte integer"},
    {SampleFormat::int64, 8, "8-byte integer"},
    {SampleFormat::uint32, 4, "4-byte unsigned integer"},
    {SampleFormat::uint16, 2, "2-byte unsigned integer"},
    {SampleFormat::uint64, 8, "8-byte unsigned integer"},
    {SampleFormat::uint24, 3, "3-byte unsigned integer"},
    {SampleFormat::uint8, 1, "1-byte unsigned integer"},
};

const FormatEntry* entryOf(SampleFormat format)
{
    const auto* entry = std::find_if(std::begin(formats), std::end(formats),
                                     [=](const FormatEntry& one) { return one.format == format; });
    return entry != std::end(formats) ? entry : nullptr;
}

template <int bytes>
uint64_t load(const unsigned char* from, bool littleEndian)
{
    uint64_t value = 0;
    for (int i = 0; i < bytes; ++i)
        value = value << 8 | from[littleEndian ? bytes - 1 - i : i];
    return value;
}

uint32_t swapped(uint32_t value)
{
    return __builtin_bswap32(value);
}

template <int bytes>
int64_t signExtended(uint64_t value)
{
    constexpr int spare = 64 - 8 * bytes;
    return static_cast<int64_t>(value << spare) >> spare;
}

template <int bytes, typename Convert>
void decode(const unsigned char* from, bool littleEndian, std::size_t count, float* to,
            Convert convert)
{
    for (std::size_t i = 0; i < count; ++i)
        to[i] = convert(load<bytes>(from + i * bytes, littleEndian));
}

template <int bytes>
void decodeSigned(const unsigned char* from, bool littleEndian, std::size_t count, float* to)
{
    decode<bytes>(from, littleEndian, count, to,
                  [](uint64_t value) { return static_cast<float>(signExtended<bytes>(value)); });
}

template <int bytes>
void decodeUnsigned(const unsigned char* from, bool littleEndian, std::size_t count, float* to)
{
    decode<bytes>(from, littleEndian, count, to,
                  [](uint64_t value) { return static_cast<float>(value); });
}

// An IBM float is a 24-bit fraction times a power of 16, so of 2 to the 4 * (exponent - 64) - 24.
std::array<double, 128> powersOf16()
{
    std::array<double, 128> powers;
    for (int exponent = 0; exponent < 128; ++exponent)
        powers[static_cast<std::size_t>(exponent)] = std::ldexp(1.0, 4 * (exponent - 64) - 24);
    return powers;
}

float fromIbm(uint32_t bits)
{
    static const std::array<double, 128> powers = powersOf16();
    constexpr double largest = std::numeric_limits<float>::max();
    const double magnitude = (bits & 0x00FFFFFFu) * powers[bits >> 24 & 0x7F];
    const float value = static_cast<float>(std::min(magnitude, largest));
    return bits >> 31 != 0 ? -value : value;
}

// `lost` counts values that an IBM float cannot hold.
uint32_t toIbm(float value, std::size_t& lost)
{
    const uint32_t sign = std::signbit(value) ? 0x80000000u : 0u;
    if (value == 0.0f)
        return sign;
    if (std::isnan(value)) {
        ++lost;
        return 0;
    }
    if (std::isinf(value)) {
        ++lost;
        return sign | 0x7FFFFFFFu;
    }
    int power = 0; // |value| = fraction * 2^power, the fraction at least one half
    const float fraction = std::frexp(std::fabs(value), &power);
    uint32_t digits = static_cast<uint32_t>(std::ldexp(fraction, 24));
    int exponent = power >= 0 ? (power + 3) / 4 : -(-power / 4);
    const int shift = 4 * exponent - power; // 0 to 3 zero bits in front, as base 16 has them
    if (shift > 0)
        digits = (digits + (1u << (shift - 1))) >> shift;
    if (digits >> 24 != 0) { // rounded up to the next power of 16
        digits >>= 4;
        ++exponent;
    }
    return sign | static_cast<uint32_t>(exponent + 64) << 24 | digits;
}

void store32(unsigned char* to, uint32_t bits, bool littleEndian)
{
    const uint32_t ordered = littleEndian ? bits : swapped(bits);
    std::memcpy(to, &ordered, sizeof ordered);
}

} // namespace

bool isSampleFormat(int code)
{
    return entryOf(static_cast<SampleFormat>(code)) != nullptr;
}

int sampleBytes(SampleFormat format)
{
    const FormatEntry* entry = entryOf(format);
    return entry != nullptr ? entry->bytes : 0;
}

const char* sampleFormatName(SampleFormat format)
{
    const FormatEntry* entry = entryOf(format);
    return entry != nullptr ? entry->name : "unknown";
}

void decodeSamples(const unsigned char* from, SampleFormat format, bool littleEndian,
                   std::size_t count, float* to)
{
    switch (format) {
    case SampleFormat::ibmFloat:
        for (std::size_t i = 0; i < count; ++i) {
            uint32_t bits;
            std::memcpy(&bits, from + 4 * i, sizeof bits);
            to[i] = fromIbm(littleEndian ? bits : swapped(bits));
        }
        break;
    case SampleFormat::ieeeFloat:
        for (std::size_t i = 0; i < count; ++i) {
            uint32_t bits;
            std::memcpy(&bits, from + 4 * i, sizeof bits);
            to[i] = std::bit_cast<float>(littleEndian ? bits : swapped(bits));
        }
        break;
    case SampleFormat::ieeeDouble:
        decode<8>(from, littleEndian, count, to,
                  [](uint64_t bits) { return static_cast<float>(std::bit_cast<double>(bits)); });
        break;
    case SampleFormat::int32:
        decodeSigned<4>(from, littleEndian, count, to);
        break;
    case SampleFormat::int16:
        decodeSigned<2>(from, littleEndian, count, to);
        break;
    case SampleFormat::int24:
        decodeSigned<3>(from, littleEndian, count, to);
        break;
    case SampleFormat::int8:
        decodeSigned<1>(from, littleEndian, count, to);
        break;
    case SampleFormat::int64:
        decodeSigned<8>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint32:
        decodeUnsigned<4>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint16:
        decodeUnsigned<2>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint64:
        decodeUnsigned<8>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint24:
        decodeUnsigned<3>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint8:
        decodeUnsigned<1>(from, littleEndian, count, to);
        break;
    }
}

std::size_t encodeSamples(const float* from, std::size_t count, SampleFormat format,
                          bool littleEndian, unsigned char* to)
{
    std::size_t lost = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const uint32_t bits = format == SampleFormat::ibmFloat ? toIbm(from[i], lost)
                                                               : std::bit_cast<uint32_t>(from[i]);
        store32(to + 4 * i, bits, littleEndian);
    }
    return lost;
}

} // namespace VORN
