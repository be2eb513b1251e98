#include "segy/Samples.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>

// The loops over samples are written for the vectoriser: no calls, no tables, both sides of each
// choice computed, swapping bytes a step of its own. Whole files pass through them.
namespace VORN {

namespace {

static_assert(std::endian::native == std::endian::little, "the loads below assume it");

struct FormatEntry
{
    SampleFormat format;
    int bytes;
    const char* key;
    const char* name;
};

constexpr FormatEntry formats[] = {
    {SampleFormat::ibmFloat, 4, "ibm", "4-byte IBM float"},
    {SampleFormat::int32, 4, "int32", "4-byte integer"},
    {SampleFormat::int16, 2, "int16", "2-byte integer"},
    {SampleFormat::ieeeFloat, 4, "ieee", "4-byte IEEE float"},
    {SampleFormat::ieeeDouble, 8, "double", "8-byte IEEE float"},
    {SampleFormat::int24, 3, "int24", "3-byte integer"},
    {SampleFormat::int8, 1, "int8", "1-byte integer"},
    {SampleFormat::int64, 8, "int64", "8-byte integer"},
    {SampleFormat::uint32, 4, "uint32", "4-byte unsigned integer"},
    {SampleFormat::uint16, 2, "uint16", "2-byte unsigned integer"},
    {SampleFormat::uint64, 8, "uint64", "8-byte unsigned integer"},
    {SampleFormat::uint24, 3, "uint24", "3-byte unsigned integer"},
    {SampleFormat::uint8, 1, "uint8", "1-byte unsigned integer"},
};

const FormatEntry* entryOf(SampleFormat format)
{
    const auto* entry = std::find_if(std::begin(formats), std::end(formats),
                                     [=](const FormatEntry& one) { return one.format == format; });
    return entry != std::end(formats) ? entry : nullptr;
}

uint16_t swapped(uint16_t value)
{
    return static_cast<uint16_t>(value << 8 | value >> 8);
}

uint32_t swapped(uint32_t value)
{
    return __builtin_bswap32(value);
}

uint64_t swapped(uint64_t value)
{
    return __builtin_bswap64(value);
}

template <typename Bits>
void copySwapped(const unsigned char* from, std::size_t count, unsigned char* to)
{
    for (std::size_t i = 0; i < count; ++i) {
        Bits bits;
        std::memcpy(&bits, from + i * sizeof bits, sizeof bits);
        bits = swapped(bits);
        std::memcpy(to + i * sizeof bits, &bits, sizeof bits);
    }
}

// Compilers turn swaps of 32 bits into single instructions that have no vector form on the oldest
// processors of the family; spelled as vectors, they stay vectors.
template <>
void copySwapped<uint32_t>(const unsigned char* from, std::size_t count, unsigned char* to)
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
    for (; i < count; ++i) {
        uint32_t bits;
        std::memcpy(&bits, from + 4 * i, sizeof bits);
        bits = swapped(bits);
        std::memcpy(to + 4 * i, &bits, sizeof bits);
    }
}

// The nearest float; what is beyond the range of floats becomes the largest of its sign.
float nearest(double value)
{
    constexpr double largest = std::numeric_limits<float>::max();
    const double inRange = std::clamp(value, -largest, largest);
    return static_cast<float>(std::isinf(value) ? value : inRange);
}

// 2 to a power between -126 and 127.
float powerOf2(int power)
{
    return std::bit_cast<float>(static_cast<uint32_t>(127 + power) << 23);
}

// An IBM float is a 24-bit fraction times a power of 16: fraction * 2^(4 * (exponent - 64) - 24).
// The first product is exact and the second rounded, so that the whole is rounded once. Powers
// beyond the limits make no difference: the result is zero or beyond the range of floats.
float fromIbm(uint32_t bits)
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
uint32_t mask(bool condition)
{
    return 0u - static_cast<uint32_t>(condition);
}

// `lost` counts values that an IBM float cannot hold.
uint32_t toIbm(float value, uint32_t& lost)
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
    uint32_t fraction = digits + shift + (shift == 3); // half of the last digit: 0, 1, 2 or 4
    fraction = (fraction >> 1 & mask((shift & 1) != 0)) | (fraction & mask((shift & 1) == 0));
    fraction = (fraction >> 2 & mask(shift >= 2)) | (fraction & ~mask(shift >= 2));
    const uint32_t finite = static_cast<uint32_t>(base16) << 24 | fraction;

    const uint32_t isZero = mask(magnitude == 0);
    const uint32_t isLost = mask(magnitude >= 0x7F800000u);
    const uint32_t isNaN = mask(magnitude > 0x7F800000u);
    lost += isLost & 1;
    return (sign | (finite & ~isZero & ~isLost) | (isLost & 0x7FFFFFFFu)) & ~isNaN;
}

// Samples that are swapped at a time, on their way through the cache.
constexpr std::size_t chunk = 1024;

template <typename Bits, typename Convert>
void decodeNative(const unsigned char* from, std::size_t count, float* to, Convert convert)
{
    for (std::size_t i = 0; i < count; ++i) {
        Bits bits;
        std::memcpy(&bits, from + i * sizeof bits, sizeof bits);
        to[i] = convert(bits);
    }
}

template <typename Bits, typename Convert>
void decode(const unsigned char* from, bool littleEndian, std::size_t count, float* to,
            Convert convert)
{
    if (littleEndian) {
        decodeNative<Bits>(from, count, to, convert);
        return;
    }
    unsigned char ordered[chunk * sizeof(Bits)];
    for (std::size_t start = 0; start < count; start += chunk) {
        const std::size_t some = std::min(chunk, count - start);
        copySwapped<Bits>(from + start * sizeof(Bits), some, ordered);
        decodeNative<Bits>(ordered, some, to + start, convert);
    }
}

template <typename Bits, typename Integer>
void decodeIntegers(const unsigned char* from, bool littleEndian, std::size_t count, float* to)
{
    decode<Bits>(from, littleEndian, count, to,
                 [](Bits bits) { return static_cast<float>(static_cast<Integer>(bits)); });
}

template <typename Integer>
void decodeBytes(const unsigned char* from, std::size_t count, float* to)
{
    for (std::size_t i = 0; i < count; ++i)
        to[i] = static_cast<float>(static_cast<Integer>(from[i]));
}

// Of the four bytes of a word, the highest three are the number; the shift brings the sign down.
template <typename Integer>
void decode24(const unsigned char* from, bool littleEndian, std::size_t count, float* to)
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

std::size_t encodeIbm(const float* from, std::size_t count, bool littleEndian, unsigned char* to)
{
    std::size_t lost = 0;
    uint32_t digits[chunk];
    for (std::size_t start = 0; start < count; start += chunk) {
        const std::size_t some = std::min(chunk, count - start);
        uint32_t lostHere = 0;
        for (std::size_t i = 0; i < some; ++i)
            digits[i] = toIbm(from[start + i], lostHere);
        lost += lostHere;
        const auto* bytes = reinterpret_cast<const unsigned char*>(digits);
        if (littleEndian)
            std::memcpy(to + 4 * start, bytes, 4 * some);
        else
            copySwapped<uint32_t>(bytes, some, to + 4 * start);
    }
    return lost;
}

void encodeIeee(const float* from, std::size_t count, bool littleEndian, unsigned char* to)
{
    if (littleEndian)
        std::memcpy(to, from, count * sizeof *from);
    else
        copySwapped<uint32_t>(reinterpret_cast<const unsigned char*>(from), count, to);
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

const char* sampleFormatKey(SampleFormat format)
{
    const FormatEntry* entry = entryOf(format);
    return entry != nullptr ? entry->key : "unknown";
}

std::optional<SampleFormat> sampleFormatOfKey(std::string_view key)
{
    for (const FormatEntry& entry : formats) {
        if (key == entry.key)
            return entry.format;
    }
    return std::nullopt;
}

std::string sampleFormatKeys()
{
    std::string keys;
    for (const FormatEntry& entry : formats)
        keys += (keys.empty() ? "" : ", ") + std::string(entry.key);
    return keys;
}

void decodeSamples(const unsigned char* from, SampleFormat format, bool littleEndian,
                   std::size_t count, float* to)
{
    switch (format) {
    case SampleFormat::ibmFloat:
        decode<uint32_t>(from, littleEndian, count, to,
                         [](uint32_t bits) { return fromIbm(bits); });
        break;
    case SampleFormat::ieeeFloat:
        decode<uint32_t>(from, littleEndian, count, to,
                         [](uint32_t bits) { return std::bit_cast<float>(bits); });
        break;
    case SampleFormat::ieeeDouble:
        decode<uint64_t>(from, littleEndian, count, to,
                         [](uint64_t bits) { return nearest(std::bit_cast<double>(bits)); });
        break;
    case SampleFormat::int32:
        decodeIntegers<uint32_t, int32_t>(from, littleEndian, count, to);
        break;
    case SampleFormat::int16:
        decodeIntegers<uint16_t, int16_t>(from, littleEndian, count, to);
        break;
    case SampleFormat::int24:
        decode24<int32_t>(from, littleEndian, count, to);
        break;
    case SampleFormat::int8:
        decodeBytes<int8_t>(from, count, to);
        break;
    case SampleFormat::int64:
        decodeIntegers<uint64_t, int64_t>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint32:
        decodeIntegers<uint32_t, uint32_t>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint16:
        decodeIntegers<uint16_t, uint16_t>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint64:
        decodeIntegers<uint64_t, uint64_t>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint24:
        decode24<uint32_t>(from, littleEndian, count, to);
        break;
    case SampleFormat::uint8:
        decodeBytes<uint8_t>(from, count, to);
        break;
    }
}

std::size_t encodeSamples(const float* from, std::size_t count, SampleFormat format,
                          bool littleEndian, unsigned char* to)
{
    if (format == SampleFormat::ibmFloat)
        return encodeIbm(from, count, littleEndian, to);
    encodeIeee(from, count, littleEndian, to);
    return 0;
}

} // namespace VORN
